// The pressure-port field from marker files on disk: the dialog loop with its
// remembered values, every check of the construction with its message, the
// projection direction of two-coordinate markers, the rebuilt field, and the
// `tundrel pressure-ports` command.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "tests/test_util.h"

using tundrel::ControlTexts;
using Vec = z::zVec<double>;
namespace msg = tundrel::pressure_ports_messages;

namespace {

// Node (i, j) of an I x J grid over x in [0, 4], y in [0, 3].
using Height = std::function<double(double, double)>;

void addGrid(FieldMasterD& f, int I, int J, const Height& h) {
    arrayWorks::BlockLayout l;
    l.nodes = I * J, l.rowLength = I, l.rows = J;
    std::vector<Vec> pos;
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const double x = 4.0 * i / (I - 1), y = 3.0 * j / (J - 1);
            pos.emplace_back(x, y, h(x, y));
        }
    f.addBlock(l, pos);
}

const Height kBump = [](double x, double y) { return 0.2 + 0.3 * std::sin(x) * std::cos(y); };

double linear(const Vec& p) { return 1.25 - 0.5 * p.x + 2.0 * p.y + 0.75 * p.z; }

// A point inside a triangle of the first block's grid (I x J): the cell
// (i, j), triangle (c, c+1, c+I), corner weights 0.2, 0.3, 0.5.
Vec onGrid(const FieldMasterD& f, int I, int i, int j) {
    const int c = i + I * j;
    return f.position(0, c) * 0.2 + f.position(0, c + 1) * 0.3 + f.position(0, c + I) * 0.5;
}

struct Port {
    Vec p;
    double value = 0.0;
    bool active = true;
};

std::string numbers(const std::vector<Port>& ports, const std::function<double(const Port&)>& get) {
    std::string s;
    for (const Port& p : ports) {
        char buf[40];
        std::snprintf(buf, sizeof buf, "%.17g ", get(p));
        s += buf;
    }
    return s;
}

// An XML marker file with the functions named in `ids` (of "xyzf").
std::string mrk(const std::vector<Port>& ports, const std::string& ids = "xyzf") {
    std::string s = "<?xml version=\"1.0\"?>\n<ObjectMarkers>\n<NodesNumber>" + std::to_string(ports.size()) +
                    "</NodesNumber>\n";
    auto function = [&](char id, const std::function<double(const Port&)>& get) {
        if (ids.find(id) != std::string::npos)
            s += std::string("<Function id=\"") + id + "\">" + numbers(ports, get) + "</Function>\n";
    };
    function('x', [](const Port& p) { return p.p.x; });
    function('y', [](const Port& p) { return p.p.y; });
    function('z', [](const Port& p) { return p.p.z; });
    function('f', [](const Port& p) { return p.value; });
    s += "<Function id=\"active\">" + numbers(ports, [](const Port& p) { return p.active ? 1.0 : 0.0; }) + "</Function>\n";
    return s + "</ObjectMarkers>\n";
}

// A 3-D point file: "X Y Z" lines.
std::string apm(const std::vector<Port>& ports) {
    std::string s;
    for (const Port& p : ports) s += numbers({p}, [](const Port& q) { return q.p.x; }) +
                                     numbers({p}, [](const Port& q) { return q.p.y; }) +
                                     numbers({p}, [](const Port& q) { return q.p.z; }) + "\n";
    return s;
}

}  // namespace

class PressurePorts : public testutil::HostTest {
protected:
    static constexpr int I = 25, J = 20;

    void SetUp() override {
        tundrel::pressurePortsParameters() = {};
        addGrid(field, I, J, kBump);
        field.addSelection();
    }

    // Ports inside the grid's triangles, spread over the surface, valued by g.
    std::vector<Port> portsOnSurface(int n, const std::function<double(const Vec&)>& g) const {
        std::vector<Port> ports;
        for (int k = 0; k < n; ++k) {
            const Vec p = onGrid(field, I, (7 * k + 3) % (I - 1), (11 * k + 5) % (J - 1));
            ports.push_back({p, g(p)});
        }
        return ports;
    }

    std::string write(const std::string& name, const std::string& text) {
        const std::string path = dir.file(name);
        testutil::writeFile(path, text);
        return path;
    }

    // Answers the parameters dialog (and the active-axes dialog with `axes`)
    // and runs the operation.
    void run(const std::string& file, const std::string& deflexion, int order, std::string fieldName = "",
             const std::string& name = "", std::optional<tundrel::ScriptedHost::Answer> axes = {}) {
        ControlTexts t{{4055, std::to_string(order)}, {4054, deflexion}, {4057, file}};
        if (!name.empty()) t[4056] = name;
        host.answerOk(t, tundrel::kPressurePortsDialog);
        if (axes) host.answer(*axes);
        pressure_ports(field, fieldName);
    }

    const arrayWorks::ScalarFunction* added(const std::string& name) const {
        return field.functionNamed<double>(name);
    }

    FieldMasterD field;
};

// Every check of the construction, each reached from a file on disk: its
// message, and no function added.
struct CheckCase {
    const char* name;
    const char* fileName;
    std::function<std::string(const std::vector<Port>&)> content;  // given ports on the surface
    std::string fieldName, deflexion;
    int order;
    const char* message;
};

void PrintTo(const CheckCase& c, std::ostream* os) { *os << c.name; }

class PressurePortsChecks : public PressurePorts, public ::testing::WithParamInterface<CheckCase> {};

TEST_P(PressurePortsChecks, ShowTheirMessageAndAddNothing) {
    const CheckCase& c = GetParam();
    const std::string file = write(c.fileName, c.content(portsOnSurface(12, linear)));
    const int before = field.functionCount();
    run(file, c.deflexion, c.order, c.fieldName);
    if (c.message == nullptr) {
        EXPECT_TRUE(messages().empty()) << messages().front();
        EXPECT_EQ(field.functionCount(), before + 1);
    } else {
        EXPECT_EQ(messages(), std::vector<std::string>{c.message});
        EXPECT_EQ(field.functionCount(), before);
    }
    EXPECT_EQ(host.dialogsShown, std::vector<int>{tundrel::kPressurePortsDialog});
    EXPECT_EQ(host.busyDepth, 0);
}

namespace {

std::vector<Port> lifted(std::vector<Port> ports, double by) {
    for (Port& p : ports) p.p.z += by;
    return ports;
}

const CheckCase kChecks[] = {
    {"noValues", "p.mrk", [](const auto& p) { return mrk(p, "xyz"); }, "", "0.1", 0, msg::kNoFunction},
    {"unknownExtension", "p.txt", [](const auto& p) { return mrk(p); }, "", "0.1", 0, msg::kNoFunction},
    {"noCoordinates", "p.mrk", [](const auto& p) { return mrk(p, "f"); }, "", "0.1", 0, msg::kNoCoordinates},
    {"nameDiffers", "p.apm", [](const auto& p) { return apm(p); }, "Cp", "0.1", 0, msg::kNameDiffers},
    {"farFromSurface", "p.apm", [](const auto& p) { return apm(lifted(p, 0.5)); }, "", "0.2", 0,
     msg::kSmallDeflexion},
    {"negativeDeflexionIsItsSize", "p.apm", [](const auto& p) { return apm(lifted(p, 0.5)); }, "", "-0.6", 0,
     nullptr},
    {"oneCoordinate", "p.mrk", [](const auto& p) { return mrk(p, "xf"); }, "", "0.1", 0, msg::kNoProjection},
    {"allInactive", "p.mpt", [](const auto&) { return std::string("1 1 0 0 0\n2 1 0 0 0\n"); }, "", "1", 0,
     msg::kNoProjection},
    {"portWithoutValue", "p.mrk",
     [](auto p) {
         p[3].value = -1e10;
         return mrk(p);
     },
     "", "0.1", 1, msg::kSizes},
    {"onePlaceTwoValues", "p.mrk",
     [](auto p) {
         p[5].p = p[2].p, p[5].value = p[2].value + 1.0;
         return mrk(p);
     },
     "", "0.1", 0, msg::kUnsolvable},
    {"fewerPortsThanQuadraticTerms", "p.apm", [](const auto& p) { return apm({p.begin(), p.begin() + 6}); }, "",
     "0.1", 2, msg::kUnsolvable},
    {"apmValuesAreZero", "p.apm", [](const auto& p) { return apm(p); }, "", "0.1", 0, nullptr},
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Construction, PressurePortsChecks, ::testing::ValuesIn(kChecks),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(PressurePorts, UnreadableFileThrowsFileErrorAndAddsNothing) {
    const int before = field.functionCount();
    EXPECT_THROW(run(dir.file("absent.apm"), "0.1", 0), arrayWorks::FileError);
    EXPECT_TRUE(messages().empty());
    ::testing::internal::CaptureStderr();  // the parse report of the broken file goes to standard error
    EXPECT_THROW(run(write("broken.mrk", "<ObjectMarkers><NodesNumber>1"), "0.1", 0), arrayWorks::FileError);
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(field.functionCount(), before);
    ASSERT_EQ(messages().size(), 1u);  // the parser's report of the broken file
    EXPECT_EQ(messages()[0].rfind("Fatal Error at file", 0), 0u) << messages()[0];
}

// Ports sampled from a field linear in x, y, z rebuild it at every node.
TEST_F(PressurePorts, RebuildsALinearFieldAtOrderOneAndTwo) {
    field.addScalar("", 1.0).at(0, 17) = arrayWorks::kNoValue;  // the current field, with one node without value
    const std::string file = write("ports.mrk", mrk(portsOnSurface(30, linear)));
    for (int order : {1, 2}) {
        const std::string name = "order" + std::to_string(order);
        run(file, "1e-6", order, "", name);
        ASSERT_TRUE(messages().empty()) << messages().front();
        const arrayWorks::ScalarFunction* f = added(name);
        ASSERT_NE(f, nullptr);
        for (int n = 0; n < I * J; ++n) {
            if (n == 17) EXPECT_EQ(f->at(0, n), arrayWorks::kNoValue);
            else ASSERT_NEAR(f->at(0, n), linear(field.position(0, n)), 1e-9) << "order " << order << " node " << n;
        }
    }
}

// Markers with x and y only are carried along z: "Normal" from above onto
// the upper of two sheets, "Reverse" from below onto the lower one. The
// ports lie on a plane, so the terms across it are dropped.
TEST_F(PressurePorts, TwoCoordinateMarkersFollowTheChosenDirection) {
    field = FieldMasterD();
    const Height upper = [](double x, double) { return 2.0 + 0.1 * x; };
    const Height lower = [](double, double y) { return -1.0 - 0.2 * y; };
    addGrid(field, 9, 7, upper);
    addGrid(field, 9, 7, lower);
    struct Case {
        bool normal;
        int block;
        const Height& sheet;
    };
    for (const Case& c : {Case{true, 0, upper}, Case{false, 1, lower}, Case{true, 0, upper}}) {
        std::vector<Port> ports;
        for (int k = 0; k < 8; ++k) {
            const Vec p(0.3 + 0.45 * k, 0.2 + 0.33 * ((5 * k) % 8), 0.0);
            ports.push_back({p, linear(Vec(p.x, p.y, c.sheet(p.x, p.y)))});
        }
        const std::string file = write("xy.mrk", mrk(ports, "xyf"));
        const bool before = tundrel::pressurePortsParameters().direction;
        const std::string name = "dir" + std::to_string(field.functionCount());
        host.dialogsShown.clear(), host.textsShown.clear();
        run(file, "0", 1, "", name,
            tundrel::ScriptedHost::Answer{{{4061, c.normal ? "1" : "0"}, {4062, c.normal ? "0" : "1"}}, {}, true,
                                          tundrel::kActiveAxesDialog});
        ASSERT_TRUE(messages().empty()) << messages().front();
        ASSERT_EQ(host.dialogsShown, (std::vector<int>{tundrel::kPressurePortsDialog, tundrel::kActiveAxesDialog}));
        const ControlTexts axes = host.textsShown[1];
        EXPECT_EQ(axes.at(4059), "X");
        EXPECT_EQ(axes.at(4060), "Y");
        EXPECT_EQ(axes.at(4061), before ? "1" : "0");  // the remembered direction
        EXPECT_EQ(tundrel::pressurePortsParameters().direction, c.normal);
        const arrayWorks::ScalarFunction* f = added(name);
        ASSERT_NE(f, nullptr);
        for (int n = 0; n < field.nodeCount(c.block); ++n)
            ASSERT_NEAR(f->at(c.block, n), linear(field.position(c.block, n)), 1e-9) << name << " node " << n;
    }
}

TEST_F(PressurePorts, CancellingTheDirectionEndsSilently) {
    const std::string file = write("xz.mrk", mrk(portsOnSurface(5, linear), "xzf"));
    const int before = field.functionCount();
    run(file, "1", 0, "", "", tundrel::ScriptedHost::Answer{{}, {}, false, tundrel::kActiveAxesDialog});
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(field.functionCount(), before);
    ASSERT_EQ(host.textsShown.size(), 2u);
    EXPECT_EQ(host.textsShown[1].at(4059), "X");
    EXPECT_EQ(host.textsShown[1].at(4060), "Z");
    EXPECT_TRUE(tundrel::pressurePortsParameters().direction);
}

// Presets, the clash of names, and what is remembered.
TEST_F(PressurePorts, DialogLoopRemembersConfirmedValues) {
    const std::string file = write("ports.apm", apm(portsOnSurface(6, linear)));
    std::string current;
    host.answerCancel();
    pressure_ports(field, current);
    ASSERT_EQ(host.textsShown.size(), 1u);
    EXPECT_EQ(host.textsShown[0], (ControlTexts{{4055, "0"}, {4054, "0"}, {4056, "_pp"}, {4057, "Untitled.mrk"}}));

    field.addScalar("_pp");
    const ControlTexts typed{{4055, "1"}, {4054, "0.5"}, {4056, "_pp"}, {4057, file}};
    host.answerOk(typed);
    host.answerOk({{4056, "ports"}});
    pressure_ports(field, current);
    EXPECT_EQ(messages(), std::vector<std::string>{arrayWorks::kDuplicateNameMessage});
    ASSERT_EQ(host.textsShown.size(), 3u);
    EXPECT_EQ(host.textsShown[2], typed);  // asked again with the values just typed
    ASSERT_NE(added("ports"), nullptr);
    EXPECT_EQ(field.findFunction("ports"), field.functionCount() - 1);

    // The next call opens with them; its Cancel keeps them.
    std::string named = "Cp";
    host.answerCancel();
    pressure_ports(field, named);
    EXPECT_EQ(host.textsShown[3], (ControlTexts{{4055, "1"}, {4054, "0.5"}, {4056, "Cp_pp"}, {4057, file}}));
    EXPECT_EQ(tundrel::pressurePortsParameters().markersFile, file);
    EXPECT_EQ(tundrel::pressurePortsParameters().order, 1);
}

// The command: a model in, the model with the new field out; every message
// on standard error with exit status 1.
TEST_F(PressurePorts, CommandWritesTheFieldOrFailsWithTheMessage) {
    region reg;
    region_fe reg_fe;
    reg.patches.append(testutil::gridPatch(12, 9, {"Cp"}));
    const std::string model = dir.file("model.dat");
    ASSERT_TRUE(export_data(model, 12, false, false, reg, reg_fe));
    std::vector<Port> ports;
    for (int k = 0; k < 12; ++k) {  // at nodes (i, j) of the grid, where x = i, y = j
        const double x = 7 * k % 11, y = 5 * k % 8;
        ports.push_back({Vec(x, y, 0.5 * x * y), x - y});
    }
    const std::string markersFile = write("ports.mrk", mrk(ports));
    const std::string out = dir.file("out.dat");

    auto r = testutil::runCli("pressure-ports " + model + " " + out + " --markers " + markersFile +
                              " --deflexion 0.01 --order 1 --name Pp");
    ASSERT_EQ(r.status, 0) << r.out;
    region back;
    region_fe backFe;
    ASSERT_TRUE(import_data(out, false, back, backFe));
    ASSERT_EQ(back.patchCount(), 1);
    const StructPatch& p = back.patch(0);
    const NodeVariable* pp = nullptr;
    for (const auto& v : p.variables)
        if (v && v->name == "Pp") pp = v.get();
    ASSERT_NE(pp, nullptr);
    const CoordinateSlots s = findCoordinates(p.variables);
    for (int n = 0; n < p.N; ++n) {
        const double x = p.variables.get(s.x)->values[n], y = p.variables.get(s.y)->values[n];
        EXPECT_NEAR(pp->values[n], x - y, 1e-6) << n;
    }

    struct Failure {
        std::string flags, message;
    };
    for (const Failure& f : {Failure{"--field Cp", msg::kNameDiffers}, Failure{"--name Cp", "The function name alredy exist"},
                             Failure{"--order 3", "Please enter an integer between 0 and 2."},
                             Failure{"--markers " + dir.file("absent.apm"), "File error!"}}) {
        std::remove(out.c_str());
        const std::string m = f.flags.find("--markers") == 0 ? std::string() : " --markers " + markersFile;
        r = testutil::runCli("pressure-ports " + model + " " + out + m + " --deflexion 0.01 " + f.flags);
        EXPECT_EQ(r.status, 1) << f.flags;
        EXPECT_NE(r.out.find(f.message), std::string::npos) << f.flags << ": " << r.out;
        EXPECT_FALSE(testutil::fs::exists(out)) << f.flags;
    }
}
