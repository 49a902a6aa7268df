#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>

#include "api/TundrelApi.h"
#include "api/detail/date.h"
#include "tests/support/test_util.h"

using testutil::HostTest;

namespace {

bool write_dat(const std::string& file, region& reg, region_fe& fe, int first, int last, int precision,
               bool scientific) {
    return tundrel::findGeometryFormat("dat")->write(file, reg, fe, first, last, precision, scientific);
}

std::vector<std::string> names(const PatchBase& p) {
    std::vector<std::string> out;
    for (int k = 0; k < p.variableCount(); ++k) out.push_back(p.variable(k).name);
    return out;
}

std::vector<double> column(const PatchBase& p, const std::string& name) {
    const NodeVariable* v = p.findVariable(name);
    return v ? v->values : std::vector<double>{};
}

// Names, counts, flow conditions, face lists and every value (NaN written as
// "nan"), for comparing a model with what was read back.
std::string everything(const region& reg, const region_fe& fe) {
    std::ostringstream s;
    s.precision(17);
    auto patch = [&](const PatchBase& p) {
        s << '\n' << p.name << ' ' << p.I << 'x' << p.J << 'x' << p.K << ' ' << p.N;
        for (const auto& v : p.variables) {
            s << ' ' << v->name << ':';
            for (double d : v->values) s << d << ',';
        }
    };
    s << reg.name << ' ' << reg.Mach << ' ' << reg.alpha << ' ' << reg.beta;
    for (const auto& p : reg.patches) patch(*p);
    s << '\n' << fe.name << ' ' << fe.Mach << ' ' << fe.alpha << ' ' << fe.beta;
    for (const auto& f : fe.patches) {
        patch(*f);
        s << ' ' << f->faces << " faces [";
        for (std::int32_t i : f->faceIndex) s << i << ' ';
        s << ']';
    }
    return s.str();
}

std::shared_ptr<FacePatch> facePatch(std::vector<std::int32_t> index, int faces, int nodes) {
    auto f = std::make_shared<FacePatch>(nodes, static_cast<int>(index.size()), faces);
    f->faceIndex = std::move(index);
    auto& x = f->addVariable("x");
    auto& y = f->addVariable("y");
    auto& z = f->addVariable("z");
    auto& t = f->addVariable("T");
    for (int n = 0; n < nodes; ++n) {
        const auto k = static_cast<std::size_t>(n);
        x.values[k] = n;
        y.values[k] = 10 + n;
        z.values[k] = 20 + n;
        t.values[k] = 0.25 * n;
    }
    return f;
}

const std::string kWingLines =
    "TITLE = \"wing\"\n"
    "VARIABLES = \"x\",\"y\",\"z\",\"cp\"\n"
    "ZONE  T=\"P1\",I=3,J=2,K=1,F= POINT\n"
    "  0.00  0.00  0.00  10.00\n"
    "  1.00  0.00  0.00  11.00\n"
    "  2.00  0.00  0.00  12.00\n"
    "  0.00  1.00  0.00  13.00\n"
    "  1.00  1.00  0.50  14.00\n"
    "  2.00  1.00  1.00  15.00";

}  // namespace

class Dat : public HostTest {
protected:
    region reg;
    region_fe fe;

    void wing() {
        reg.name = "wing";
        auto p = testutil::gridPatch(3, 2, {"cp"});
        p->name = "P1";
        reg.append(p);
    }
    std::string written(const std::string& name, int precision = 2, bool scientific = false) {
        EXPECT_TRUE(export_data(dir.file(name), precision, false, scientific, reg, fe));
        return testutil::readFile(dir.file(name));
    }
};

TEST_F(Dat, WritesTheZoneLinesAndValuesWithoutAClosingLineEnd) {
    wing();
    EXPECT_EQ(written("w.dat"), kWingLines);
}

TEST_F(Dat, FlowConditionsFollowTheLastValueDirectly) {
    wing();
    reg.Mach = 0.8;
    reg.alpha = 4;
    EXPECT_EQ(written("w.dat"), kWingLines +
                                    "TEXT CS=FRAME,C=BLACK,S=LOCAL,X=1.,Y=1.,HU=POINT,LS=1,AN=LEFT,BXM=20,LT=0.1\n"
                                    "BXO=BLACK,BXF=WHITE,F=HELV-BOLD,H=14,A=0,MFC=\"\"\n"
                                    "T=\"mach=0.80, alpha=4.00, beta=0.00\"\n");
    for (double mach : {0.0, -1.0, std::nan("")}) {
        reg.Mach = mach;
        EXPECT_EQ(written("w.dat"), kWingLines) << mach;
    }
}

TEST_F(Dat, FacesAreOneBasedTrianglesAndLowValuesAreZero) {
    auto f = facePatch({0, 1, 2, -1, 2, 1, 3, -1, -1, 0, 3, 1, 2, 1, 2, 3, -1}, 4, 4);
    f->variable(2).values[1] = -2e9;
    fe.append(f);
    fe.name = "faces";
    auto p = testutil::gridPatch(1, 1);
    p->variable(0).values[0] = -1.5e9;
    reg.append(p);
    // A face of four nodes leaves its fourth to start the next face; runs of
    // -1 after a face are skipped.
    EXPECT_EQ(written("f.dat", 0),
              "TITLE = \"" + tundrel::strdate() + "\"\nVARIABLES = \"x\",\"y\",\"z\"\n"
              "ZONE I=1,J=1,K=1,F= POINT\n  0  0  0\n"
              "ZONE N=4,E=4,ET= TRIANGLE,F= FEPOINT\n"
              "  0  10  20\n  1  11  0\n  2  12  22\n  3  13  23\n"
              "  1  2  3\n  3  2  4\n  1  4  2\n  3  2  3");
    EXPECT_EQ(reg.name, "");  // the date title is not stored

    // Written alone, the face patch takes its title from the face mesh.
    ASSERT_TRUE(write_dat(dir.file("g.dat"), reg, fe, 1, 1, 0, false));
    EXPECT_EQ(testutil::readFile(dir.file("g.dat")).substr(0, 17), "TITLE = \"faces\"\nV");
}

TEST_F(Dat, WriterFailures) {
    EXPECT_FALSE(export_data(dir.file("e.dat"), 6, false, false, reg, fe));  // nothing to write
    wing();
    fe.append(facePatch({-1, 0, 1, 2, -1}, 1, 3));
    EXPECT_FALSE(write_dat(dir.file("e.dat"), reg, fe, -1, 0, 6, false));
    EXPECT_FALSE(write_dat(dir.file("e.dat"), reg, fe, 1, 0, 6, false));
    EXPECT_FALSE(write_dat(dir.file("e.dat"), reg, fe, 0, 2, 6, false));
    EXPECT_FALSE(write_dat(dir.file("e.dat"), reg, fe, 0, 1, 6, false));  // the face list starts with -1
    EXPECT_TRUE(std::filesystem::exists(dir.file("e.dat")));             // partly written, left on disk
    EXPECT_FALSE(write_dat(dir.file("no/dir/e.dat"), reg, fe, 0, 0, 6, false));
    EXPECT_EQ(messages(), (std::vector<std::string>{"Dummy Error", "Dummy Error", "Dummy Error", "Dummy Error",
                                                    "Logical Error. Index has negative value",
                                                    "It's impossible to close DAT file"}));
}

// Everything write_dat writes reads back: geometry, names, variables, flow
// conditions of both objects, in fixed and scientific notation.
class DatRoundTrip : public HostTest, public ::testing::WithParamInterface<bool> {};

TEST_P(DatRoundTrip, KeepsGeometryNamesVariablesAndFlow) {
    region reg;
    region_fe fe;
    reg.name = "model A";
    reg.Mach = 0.75;
    reg.alpha = -2.5;
    reg.beta = 1;
    auto a = testutil::gridPatch(4, 3, {"T"});
    a->name = "upper side";
    a->variable(3).values[5] = std::nan("");
    a->variable(0).values[0] = std::numeric_limits<double>::infinity();  // the zone's first value
    reg.append(a);
    reg.append(testutil::gridPatch(2, 5, {"T"}));  // unnamed
    fe.Mach = 0.3;
    fe.alpha = 7;
    fe.append(facePatch({0, 1, 2, -1, 1, 3, 2, -1}, 2, 4));
    auto second = facePatch({0, 2, 1, -1}, 1, 3);
    second->name = "cap";
    fe.append(second);
    ASSERT_TRUE(export_data(dir.file("m.dat"), 17, false, GetParam(), reg, fe));

    region r;
    region_fe f;
    ASSERT_TRUE(import_data(dir.file("m.dat"), false, r, f)) << messages()[0];
    // The face mesh takes the title of the file, the region's.
    fe.name = reg.name;
    EXPECT_EQ(everything(r, f), everything(reg, fe));
    EXPECT_TRUE(messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Notation, DatRoundTrip, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "scientific" : "fixed"; });

TEST_F(Dat, ReadsAClassicStyleFile) {
    reg.append(testutil::gridPatch(2, 2));  // readers append
    ASSERT_TRUE(import_data(testutil::dataFile("classic.dat"), false, reg, fe)) << messages()[0];
    ASSERT_EQ(reg.patchCount(), 3);
    EXPECT_EQ(reg.name, "Classic wing");
    const StructPatch& upper = reg.patch(1);
    EXPECT_EQ(upper.name, "upper");
    EXPECT_EQ(std::vector<int>({upper.I, upper.J, upper.K}), std::vector<int>({3, 2, 1}));
    EXPECT_EQ(names(upper), (std::vector<std::string>{"X", "Y", "Z", "Cp"}));
    EXPECT_EQ(column(upper, "Cp"), (std::vector<double>{-0.5, -0.25, 0, 0.1, 0.2, 0.3}));
    EXPECT_EQ(column(upper, "Z"), (std::vector<double>{0, 0, 0, 0, 0.5, 1}));
    const StructPatch& flap = reg.patch(2);
    EXPECT_EQ(flap.name, "flap");
    EXPECT_EQ(column(flap, "X"), (std::vector<double>{0, 1, 0, 1}));
    EXPECT_EQ(column(flap, "Y"), (std::vector<double>{5, 5, 6, 6}));
    EXPECT_EQ(column(flap, "Cp"), (std::vector<double>{1, 2, 3, 4}));

    ASSERT_EQ(fe.patchCount(), 2);
    const FacePatch& tail = fe.patch(0);
    EXPECT_EQ(tail.name, "tail");
    EXPECT_EQ(tail.nodes, 5);
    EXPECT_EQ(column(tail, "Cp"), (std::vector<double>{1, 2, 3, 4, 5}));
    // 1 2 3 4 is two triangles; 2 5 3 3 repeats its third node: one.
    EXPECT_EQ(tail.faces, 3);
    EXPECT_EQ(tail.faceIndex, (std::vector<std::int32_t>{0, 1, 2, -1, 0, 2, 3, -1, 1, 4, 2, -1}));
    const FacePatch& block = fe.patch(1);
    EXPECT_EQ(block.name, "");
    EXPECT_EQ(column(block, "Y"), (std::vector<double>{0, 0, 1}));
    EXPECT_EQ(column(block, "Cp"), (std::vector<double>{-1, -2, -3}));
    EXPECT_EQ(block.faceIndex, (std::vector<std::int32_t>{0, 2, 1, -1}));
    EXPECT_EQ(fe.name, "Classic wing");
    EXPECT_EQ(reg.Mach, 0);  // a text record of someone else's
}

TEST_F(Dat, PackingDefaultsByStyleAndFlowGoesToTheZoneOwner) {
    // Current keywords without DATAPACKING: block; classic ones: point.
    testutil::writeFile(dir.file("d.dat"),
                        "VARIABLES=x y z\nZONE NODES=3 ELEMENTS=1 ZONETYPE=FETRIANGLE\n0 1 0  0 0 1  5 5 5\n1 2 3\n"
                        "TEXT T=\"mach=0.5, alpha=2, beta=-1\"\n"
                        "zone i=2\n1 2 3 4 5 6");
    ASSERT_TRUE(import_data(dir.file("d.dat"), false, reg, fe));
    EXPECT_EQ(column(fe.patch(0), "y"), (std::vector<double>{0, 0, 1}));
    EXPECT_EQ(column(reg.patch(0), "z"), (std::vector<double>{3, 6}));
    EXPECT_EQ(fe.Mach, 0.5);
    EXPECT_EQ(fe.beta, -1);
    EXPECT_EQ(reg.Mach, 0);
    EXPECT_EQ(reg.name, "");  // no title in the file
}

