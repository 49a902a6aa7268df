// The pressure-port field from marker files on disk: every check with its
// message, through the dialog and through the typed core, the dialog loop and
// what it remembers, and the direction of two-coordinate markers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

using tundrel::ControlTexts;
using Vec = z::zVec<double>;

namespace {

using Height = std::function<double(double, double)>;

// An I x J grid block over x in [0, 4], y in [0, 3] at height h.
void addGrid(FieldMasterD& f, int I, int J, const Height& h) {
    arrayWorks::BlockLayout l;
    l.nodes = I * J, l.rowLength = I, l.rows = J;
    std::vector<Vec> pos;
    for (int n = 0; n < I * J; ++n) {
        const double x = 4.0 * (n % I) / (I - 1), y = 3.0 * (n / I) / (J - 1);
        pos.emplace_back(x, y, h(x, y));
    }
    f.addBlock(l, pos);
}

double linear(const Vec& p) { return 1.25 - 0.5 * p.x + 2.0 * p.y + 0.75 * p.z; }

struct Port { Vec p; double value = 0.0; };

std::string text(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g ", v);
    return buf;
}

// An XML marker file with the functions named in `ids` (of "xyzf").
std::string mrk(const std::vector<Port>& ports, const std::string& ids = "xyzf") {
    std::string s = "<ObjectMarkers><NodesNumber>" + std::to_string(ports.size()) + "</NodesNumber>\n";
    for (char id : ids) {
        s += std::string("<Function id=\"") + id + "\">";
        for (const Port& p : ports) s += text(id == 'x' ? p.p.x : id == 'y' ? p.p.y : id == 'z' ? p.p.z : p.value);
        s += "</Function>\n";
    }
    return s + "</ObjectMarkers>\n";
}

// A 3-D point file, "X Y Z" a line, lifted by `by`.
std::string apm(const std::vector<Port>& ports, double by = 0.0) {
    std::string s;
    for (const Port& p : ports) s += text(p.p.x) + text(p.p.y) + text(p.p.z + by) + "\n";
    return s;
}

}  // namespace

class PressurePorts : public testutil::HostTest {
protected:
    static constexpr int I = 25, J = 20;

    void SetUp() override {
        tundrel::pressurePortsParameters() = {};
        addGrid(field, I, J, [](double x, double y) { return 0.2 + 0.3 * std::sin(x) * std::cos(y); });
        field.addSelection();
    }

    // n ports inside triangles spread over the grid, valued by `linear`.
    std::vector<Port> portsOnSurface(int n) const {
        std::vector<Port> ports;
        for (int k = 0; k < n; ++k) {
            const int c = (7 * k + 3) % (I - 1) + I * ((11 * k + 5) % (J - 1));
            const Vec p = field.position(0, c) * 0.2 + field.position(0, c + 1) * 0.3 + field.position(0, c + I) * 0.5;
            ports.push_back({p, linear(p)});
        }
        return ports;
    }

    std::string write(const std::string& n, const std::string& text) { return testutil::writeFile(dir.file(n), text), dir.file(n); }

    // Answers the parameters dialog, then the active-axes dialog with `axes`.
    void run(const std::string& file, const std::string& deflexion, int order, std::string fieldName = "",
             const std::string& name = "", std::optional<tundrel::ScriptedHost::Answer> axes = {}) {
        ControlTexts t{{4055, std::to_string(order)}, {4054, deflexion}, {4057, file}};
        if (!name.empty()) t[4056] = name;
        host.answerOk(t, tundrel::kPressurePortsDialog);
        if (axes) host.answer(*axes);
        pressure_ports(field, fieldName);
    }

    FieldMasterD field;
};

// The exported operation shows the message and adds nothing; the typed core
// returns the same message and shows nothing.
TEST_F(PressurePorts, ChecksShowTheirMessageAndAddNothing) {
    const struct {
        const char* fileName;
        std::function<std::string(std::vector<Port>)> content;  // given ports on the surface
        std::string fieldName, deflexion;
        int order;
        const char* message;  // nullptr: the field is added
    } rows[] = {
        {"p.mrk", [](auto p) { return mrk(p, "xyz"); }, "", "0.1", 0, "Function is absent in the markers file"},
        {"p.mrk", [](auto p) { return mrk(p, "f"); }, "", "0.1", 0,
         "Two or three markers koordinates are absent in the markers file"},
        {"p.apm", [](auto p) { return apm(p); }, "Cp", "0.1", 0,
         "Function name of the markers is not coincide with field name"},
        {"p.apm", [](auto p) { return apm(p, 0.5); }, "", "0.2", 0, "Deflextion has small value"},
        {"p.apm", [](auto p) { return apm(p, 0.5); }, "", "-0.6", 0, nullptr},  // a negative deflexion: any distance
        {"p.mrk", [](auto p) { return mrk(p, "xf"); }, "", "0.1", 0, "Are not projection of the markers on the geometry"},
        {"p.mrk", [](auto p) { return p[3].value = -1e10, mrk(p); }, "", "0.1", 1, "Error 1"},   // a port without value
        {"p.mrk", [](auto p) { return p[5] = {p[2].p, 9.0}, mrk(p); }, "", "0.1", 0, "Error 2"},  // one place, two values
        {"p.apm", [](auto p) { return apm(p); }, "", "0.1", 0, nullptr},  // the values of points are zero
    };
    for (const auto& c : rows) {
        SCOPED_TRACE(c.message ? c.message : "added");
        host.messages.clear(), host.dialogsShown.clear();
        const int before = field.functionCount();
        const std::string file = write(c.fileName, c.content(portsOnSurface(12)));
        run(file, c.deflexion, c.order, c.fieldName, "dialog" + std::to_string(before));
        EXPECT_EQ(messages(), c.message ? std::vector<std::string>{c.message} : std::vector<std::string>{});
        EXPECT_EQ(field.functionCount(), before + (c.message ? 0 : 1));
        EXPECT_EQ(host.dialogsShown, std::vector<int>{tundrel::kPressurePortsDialog});
        EXPECT_EQ(host.busyDepth, 0);

        tundrel::PressurePortsParameters p;
        p.newName = "core" + std::to_string(before), p.markersFile = file;
        p.maxDeflexion = std::stod(c.deflexion), p.order = c.order;
        const auto r = tundrel::buildPressurePorts(field, c.fieldName, p);
        EXPECT_EQ(r.message, c.message ? c.message : "");
        EXPECT_EQ(r.function != nullptr, c.message == nullptr);
        EXPECT_EQ(messages().size(), c.message ? 1u : 0u);
    }
}

// Ports sampled from a linear field rebuild it at every node but the one
// without value in the current field. A marker set given stands in for the
// file; inactive markers take no part.
TEST_F(PressurePorts, RebuildsALinearFieldButWhereTheCurrentOneHasNoValue) {
    field.addScalar("", 1.0).at(0, 17) = arrayWorks::kNoValue;
    tundrel::PressurePortsParameters p = tundrel::pressurePortsDefaults("");
    p.markersFile = std::string(300, 'f'), p.maxDeflexion = 1e-6, p.order = 1;  // the file is not looked at
    importMarkers(write("ports.mrk", mrk(portsOnSurface(30))), p.markerSet.emplace(), 0);
    p.markerSet->list[2].active = false;
    const auto r = tundrel::buildPressurePorts(field, "", p);
    ASSERT_TRUE(r) << r.message;
    EXPECT_EQ(r.function, field.scalar(field.findFunction("_pp")));
    EXPECT_TRUE(r.facts.markers == 30 && r.facts.projected == 29 && r.facts.used == 29);
    for (int n = 0; n < I * J; ++n)
        ASSERT_NEAR(r.function->at(0, n), n == 17 ? arrayWorks::kNoValue : linear(field.position(0, n)), 1e-9) << n;
}

// Markers with x and y only follow z: "Normal" from above onto the upper of
// two sheets, "Reverse" from below onto the lower one; the choice is
// remembered, and Cancel ends silently. The core takes the direction it is
// given, not the remembered one.
TEST_F(PressurePorts, TwoCoordinateMarkersFollowTheChosenDirection) {
    field = FieldMasterD();
    const Height upper = [](double x, double) { return 2.0 + 0.1 * x; };
    const Height lower = [](double, double y) { return -1.0 - 0.2 * y; };
    addGrid(field, 9, 7, upper);
    addGrid(field, 9, 7, lower);
    auto portsOn = [](const Height& sheet) {
        std::vector<Port> ports;
        for (int k = 0; k < 8; ++k) {
            const Vec p(0.3 + 0.45 * k, 0.2 + 0.33 * (5 * k % 8), 0.0);
            ports.push_back({p, linear(Vec(p.x, p.y, sheet(p.x, p.y)))});
        }
        return ports;
    };
    auto expectLinearOn = [&](const arrayWorks::ScalarFunction* f, int block) {
        ASSERT_NE(f, nullptr);
        for (int n = 0; n < field.nodeCount(block); ++n)
            ASSERT_NEAR(f->at(block, n), linear(field.position(block, n)), 1e-9) << "block " << block << " node " << n;
    };
    for (const int choice : {1, 0, 1, -1}) {  // Normal, Reverse, Normal, Cancel
        const bool before = tundrel::pressurePortsParameters().direction;
        const int functions = field.functionCount();
        host.textsShown.clear();
        run(write("xy.mrk", mrk(portsOn(choice == 0 ? lower : upper), "xyf")), "0", 1, "", "dir" + std::to_string(functions),
            tundrel::ScriptedHost::Answer{
                {{4061, choice ? "1" : "0"}, {4062, choice ? "0" : "1"}}, {}, choice >= 0, tundrel::kActiveAxesDialog});
        ASSERT_TRUE(messages().empty()) << messages().front();
        ASSERT_EQ(host.textsShown.size(), 2u);
        const ControlTexts axes{{4059, "X"}, {4060, "Y"}, {4061, before ? "1" : "0"}, {4062, before ? "0" : "1"}};
        EXPECT_EQ(host.textsShown[1], axes);  // opened with the remembered direction
        EXPECT_EQ(tundrel::pressurePortsParameters().direction, choice != 0);
        if (choice >= 0) expectLinearOn(field.scalar(functions), choice == 0 ? 1 : 0);
        EXPECT_EQ(field.functionCount(), functions + (choice >= 0));
    }
    tundrel::PressurePortsParameters p = tundrel::pressurePortsDefaults("");
    p.markersFile = write("xy.mrk", mrk(portsOn(lower), "xyf")), p.order = 1, p.direction = false;
    const std::size_t shown = host.dialogsShown.size();
    const auto r = tundrel::buildPressurePorts(field, "", p);
    ASSERT_TRUE(r) << r.message;
    expectLinearOn(r.function, 1);
    EXPECT_EQ(host.dialogsShown.size(), shown);
}

// The core checks its parameters by the dialog's rules, then the name, before
// it reads the file.
TEST_F(PressurePorts, CoreChecksInTheDialogsOrder) {
    const std::string absent = dir.file("absent.apm");
    field.addScalar("taken");
    auto build = [&](int order, double deflexion, const std::string& name, const std::string& markersFile) {
        tundrel::PressurePortsParameters p;
        p.order = order, p.maxDeflexion = deflexion, p.newName = name, p.markersFile = markersFile;
        return tundrel::buildPressurePorts(field, "", p).message;
    };
    EXPECT_EQ(build(3, 0.1, "taken", absent), "Please enter an integer between 0 and 2.");
    EXPECT_EQ(build(0, std::nan(""), "taken", absent), "Please enter a number.");
    EXPECT_EQ(build(0, 0.1, "x", std::string(256, 'f')), "Please enter no more than 255 characters.");
    EXPECT_EQ(build(0, 0.1, "taken", absent), "The function name alredy exist");
    EXPECT_THROW(build(0, 0.1, "x", absent), arrayWorks::FileError);
    EXPECT_EQ(field.functionCount(), 2);
    EXPECT_TRUE(messages().empty() && host.dialogsShown.empty());
}

// Presets, the clash of names, and what is remembered.
TEST_F(PressurePorts, DialogLoopRemembersConfirmedValues) {
    const std::string file = write("ports.apm", apm(portsOnSurface(6)));
    std::string current, named = "Cp";
    host.answerCancel();
    pressure_ports(field, current);
    field.addScalar("_pp");
    const ControlTexts typed{{4055, "1"}, {4054, "0.5"}, {4056, "_pp"}, {4057, file}};
    host.answerOk(typed);
    host.answerOk({{4056, "ports"}});
    pressure_ports(field, current);
    host.answerCancel();
    pressure_ports(field, named);
    EXPECT_EQ(messages(), std::vector<std::string>{"The function name alredy exist"});
    const ControlTexts preset{{4055, "0"}, {4054, "0"}, {4056, "_pp"}, {4057, "Untitled.mrk"}};
    EXPECT_EQ(host.textsShown, (std::vector<ControlTexts>{preset, preset,
                                                           typed,  // asked again with the values just typed
                                                           {{4055, "1"}, {4054, "0.5"}, {4056, "Cp_pp"}, {4057, file}}}));
    EXPECT_EQ(field.findFunction("ports"), field.functionCount() - 1);
}
