// Geometry files read through import_data: what each reader keeps, the
// choice of reader by extension, transposing and split writing.
#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

std::vector<double> column(const PatchBase& p, const std::string& name) {
    const NodeVariable* v = p.findVariable(name);
    return v ? v->values : std::vector<double>{};
}

std::vector<std::string> names(const PatchBase& p) {
    std::vector<std::string> out;
    for (int k = 0; k < p.variableCount(); ++k) out.push_back(p.variable(k).name);
    return out;
}

std::vector<int> sizes(const StructPatch& p) { return {p.I, p.J, p.K}; }

class Readers : public testutil::HostTest {
protected:
    region reg;
    region_fe fe;
    bool read(const std::string& name, const std::string& text, bool transpose = false) {
        testutil::writeFile(dir.file(name), text);
        return import_data(dir.file(name), transpose, reg, fe);
    }
};

}  // namespace

TEST_F(Readers, AptCountsAreJThenI) {
    ASSERT_TRUE(read("m.apt", "2 3\n0 0 0\n1 0 0\n2 0 0\n0 1 0\n1 1 0.5\n2 1 1\n"));
    ASSERT_EQ(reg.patchCount(), 1);
    EXPECT_EQ(sizes(reg.patch(0)), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(reg.patch(0).name, "");
    EXPECT_EQ(names(reg.patch(0)), (std::vector<std::string>{"x", "y", "z"}));
    EXPECT_EQ(column(reg.patch(0), "z"), (std::vector<double>{0, 0, 0, 0, 0.5, 1}));
    EXPECT_EQ(fe.patchCount(), 0);
}

TEST_F(Readers, FldWingReadsAndWritesBackByteForByte) {
    const std::string wing =
        "wing\n   1   1     cp\n2 3 WALL  WALL  WALL  WALL\n0 0 0 -0.5\n1 0 0 -0.25\n2 0 0 0\n"
        "0 1 0 0.125\n1 1 0.5 0.25\n2 1 1 0.375\n0.8 4 0";
    reg.append(testutil::gridPatch(2, 2));  // readers append
    ASSERT_TRUE(read("in.fld", wing));
    ASSERT_EQ(reg.patchCount(), 2);
    EXPECT_EQ(reg.patch(1).name, "Patch_0");  // counted within the file
    EXPECT_EQ(sizes(reg.patch(1)), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(column(reg.patch(1), "cp"), (std::vector<double>{-0.5, -0.25, 0, 0.125, 0.25, 0.375}));
    EXPECT_EQ(reg.name, "wing");
    EXPECT_EQ((std::vector<double>{reg.Mach, reg.alpha, reg.beta}), (std::vector<double>{0.8, 4, 0}));
    ASSERT_TRUE(tundrel::findGeometryFormat("fld")->write(dir.file("out.fld"), reg, fe, 1, 1, 3, false));
    EXPECT_EQ(testutil::readFile(dir.file("out.fld")),
              "wing\n   1   1     cp\n2 3 WALL  WALL  WALL  WALL\n"
              "0.000 0.000 0.000  -0.500\n1.000 0.000 0.000  -0.250\n2.000 0.000 0.000  0.000\n"
              "0.000 1.000 0.000  0.125\n1.000 1.000 0.500  0.250\n2.000 1.000 1.000  0.375\n"
              "0.800 4.000 0.000");
    EXPECT_TRUE(messages().empty());
}

TEST_F(Readers, DatClassicStyleFile) {
    reg.append(testutil::gridPatch(2, 2));
    ASSERT_TRUE(import_data(testutil::dataFile("classic.dat"), false, reg, fe)) << messages()[0];
    ASSERT_EQ(reg.patchCount(), 3);
    EXPECT_EQ(reg.name, "Classic wing");
    const StructPatch& upper = reg.patch(1);
    EXPECT_EQ(upper.name, "upper");
    EXPECT_EQ(sizes(upper), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(names(upper), (std::vector<std::string>{"X", "Y", "Z", "Cp"}));
    EXPECT_EQ(column(upper, "Cp"), (std::vector<double>{-0.5, -0.25, 0, 0.1, 0.2, 0.3}));
    EXPECT_EQ(column(upper, "Z"), (std::vector<double>{0, 0, 0, 0, 0.5, 1}));
    EXPECT_EQ(reg.patch(2).name, "flap");
    EXPECT_EQ(column(reg.patch(2), "Y"), (std::vector<double>{5, 5, 6, 6}));
    EXPECT_EQ(column(reg.patch(2), "Cp"), (std::vector<double>{1, 2, 3, 4}));
    ASSERT_EQ(fe.patchCount(), 2);
    const FacePatch& tail = fe.patch(0);
    EXPECT_EQ(tail.name, "tail");
    EXPECT_EQ(column(tail, "Cp"), (std::vector<double>{1, 2, 3, 4, 5}));
    // 1 2 3 4 is two triangles; 2 5 3 3 repeats its third node: one.
    EXPECT_EQ(tail.faces, 3);
    EXPECT_EQ(tail.faceIndex, (std::vector<std::int32_t>{0, 1, 2, -1, 0, 2, 3, -1, 1, 4, 2, -1}));
    EXPECT_EQ(fe.patch(1).name, "");
    EXPECT_EQ(column(fe.patch(1), "Cp"), (std::vector<double>{-1, -2, -3}));
    EXPECT_EQ(fe.patch(1).faceIndex, (std::vector<std::int32_t>{0, 2, 1, -1}));
    EXPECT_EQ(fe.name, "Classic wing");
    EXPECT_EQ(reg.Mach, 0);  // a text record of someone else's
}

// Current keywords without DATAPACKING are block, classic ones point; flow
// conditions go to the object of the zone before them.
TEST_F(Readers, DatPackingByStyleAndFlowToTheZoneOwner) {
    ASSERT_TRUE(read("d.dat", "VARIABLES=x y z\nZONE NODES=3 ELEMENTS=1 ZONETYPE=FETRIANGLE\n0 1 0  0 0 1  5 5 5\n"
                              "1 2 3\nTEXT T=\"mach=0.5, alpha=2, beta=-1\"\nzone i=2\n1 2 3 4 5 6"));
    EXPECT_EQ(column(fe.patch(0), "y"), (std::vector<double>{0, 0, 1}));
    EXPECT_EQ(column(reg.patch(0), "z"), (std::vector<double>{3, 6}));
    EXPECT_EQ((std::vector<double>{fe.Mach, fe.alpha, fe.beta, reg.Mach}), (std::vector<double>{0.5, 2, -1, 0}));
    EXPECT_EQ(reg.name, "");
}

// One Coordinate3 shared by several face sets with line sets between them, a
// Separator with its own points, USE of a DEF'd Coordinate3; then Transform,
// Group, a DEF'd Coordinate used again, normals, colours, texture
// coordinates, a prototype and strings with brackets in them.
TEST_F(Readers, VrmlOneAndTwo) {
    fe.append(testutil::facePatch(3, {0, 1, 2, -1}));  // names follow positions in the mesh
    ASSERT_TRUE(import_data(testutil::dataFile("mesher_v1.wrl"), false, reg, fe));
    ASSERT_TRUE(import_data(testutil::dataFile("toolkit_v2.wrl"), false, reg, fe));
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(reg.patchCount(), 0);
    ASSERT_EQ(fe.patchCount(), 9);  // the prototype's face set is not a surface
    const struct {
        const char* name;
        std::vector<std::int32_t> index;
        const char* variable;
        std::vector<double> values;
    } expected[] = {
        {"PatchVRML_1", {0, 1, 2, -1, 0, 2, 3, -1}, "Y", {0, 0, 1, 1}},  // quad split into a fan
        {"PatchVRML_2", {0, 2, 3, -1, 0, 3, 1, -1}, "X", {1, 1, 2, 2}},  // points 1, 2, 4, 5 renumbered
        {"PatchVRML_3", {2, 1, 0, -1}, "X", {9, 8, 7}},                  // the Separator's own points
        {"PatchVRML_4", {2, 0, 1, -1}, "Y", {0, 0, 5}},                  // outer points after the Separator
        {"PatchVRML_5", {2, 1, 0, -1}, "X", {1, 1, 0}},                  // USE makes them current again
        {"PatchVRML_6", {0, 1, 4, -1, 1, 2, 4, -1, 2, 3, 4, -1, 3, 0, 4, -1}, "Z", {0, 0, 0, 0, 0.1}},
        {"PatchVRML_7", {3, 2, 1, -1, 3, 1, 0, -1}, "X", {0, 1, 1, 0}},
        {"PatchVRML_8", {2, 0, 1, -1}, "Y", {7, 6, 5}},  // points of a line set
    };
    for (int k = 0; k < 8; ++k) {
        const FacePatch& f = fe.patch(k + 1);
        SCOPED_TRACE(k);
        EXPECT_EQ(f.name, expected[k].name);
        EXPECT_EQ(f.faceIndex, expected[k].index);
        EXPECT_EQ(f.faces * 4, f.indexLength);
        EXPECT_EQ(names(f), (std::vector<std::string>{"X", "Y", "Z"}));
        EXPECT_EQ(column(f, expected[k].variable), expected[k].values);
    }
}

TEST(FileExtension, LastDotLoweredOrNothing) {
    const std::pair<const char*, const char*> rows[] = {{"MODEL.APT", "apt"}, {"Wing.DAT", "dat"}, {"m.apt.bak", "bak"},
                                                        {"wing.", ""},        {"wing", ""},        {".wrl", "wrl"},
                                                        {"a.b/c", "b/c"},     {"", ""}};
    for (const auto& [name, ext] : rows) EXPECT_EQ(file_extension(name), ext) << name;
}

TEST_F(Readers, UnknownExtensionsDoNothingSilently) {
    EXPECT_FALSE(read("m.apt.bak", "1 1\n1 2 3\n"));
    EXPECT_EQ(reg.patchCount(), 0);
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(export_data(dir.file("out.txt"), 6, false, false, reg, fe));
    EXPECT_FALSE(export_data(dir.file("out"), 6, true, false, reg, fe));
    EXPECT_TRUE(messages().empty());
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.txt")));
}

TEST_F(Readers, UpperCaseExtensionAndTransposeOfEveryPatch) {
    std::string text = "5 3\n";
    for (int n = 0; n < 15; ++n) text += std::to_string(n) + " 0 0\n";
    reg.append(testutil::gridPatch(2, 4));  // there before the call: transposed too
    ASSERT_TRUE(read("MODEL.APT", text, true));
    ASSERT_EQ(reg.patchCount(), 2);
    EXPECT_EQ(sizes(reg.patch(0)), (std::vector<int>{4, 2, 1}));
    const StructPatch& p = reg.patch(1);
    EXPECT_EQ(sizes(p), (std::vector<int>{5, 3, 1}));
    // point (j, i) of the new patch holds the file's point (i, j)
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 5; ++j) EXPECT_EQ(p.variable(0).values[static_cast<std::size_t>(j + 5 * i)], i + 3 * j);
}

// One numbered file per item, the result that of the last pass; empty
// objects make no pass with split and a refused one without.
TEST_F(Readers, SplitWritesOneNumberedFilePerItem) {
    reg.append(testutil::gridPatch(2, 2));
    reg.append(testutil::gridPatch(3, 2));
    fe.append(testutil::facePatch(3, {0, 1, 2, -1}, {"x", "y", "z"}));
    ASSERT_TRUE(export_data(dir.file("m.apt"), 6, true, false, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("m_1.apt")).substr(0, 4), "2 2\n");
    EXPECT_EQ(testutil::readFile(dir.file("m_2.apt")).substr(0, 4), "2 3\n");
    EXPECT_EQ(testutil::readFile(dir.file("m_3.apt")).substr(0, 4), "2 2\n");
    EXPECT_FALSE(std::filesystem::exists(dir.file("m_4.apt")));

    region none, bad;
    region_fe nofe;
    EXPECT_TRUE(export_data(dir.file("e.apt"), 6, true, false, none, nofe));
    EXPECT_FALSE(std::filesystem::exists(dir.file("e_1.apt")));
    EXPECT_FALSE(export_data(dir.file("e.apt"), 6, false, false, none, nofe));
    EXPECT_EQ(messages(), std::vector<std::string>{"Dummy error"});
    // A failed middle pass does not decide.
    bad.append(testutil::gridPatch(2, 2));
    region_fe faces;
    faces.append(testutil::facePatch(3, {-1, 0, 1, 2, -1}, {"x", "y", "z"}));
    faces.append(testutil::facePatch(3, {0, 1, 2, -1}, {"x", "y", "z"}));
    EXPECT_TRUE(export_data(dir.file("b.dat"), 6, true, false, bad, faces));
    EXPECT_EQ(messages().back(), "Logical Error. Index has negative value");
}
