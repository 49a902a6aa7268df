#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "api/detail/date.h"
#include "tests/support/test_util.h"

using testutil::HostTest;

namespace {

bool write_vrml(const std::string& file, region& reg, region_fe& fe, int first, int last, int precision,
                bool scientific) {
    return tundrel::findGeometryFormat("wrl")->write(file, reg, fe, first, last, precision, scientific);
}

// The header line with the date the file was written with, of the two taken
// before and after writing.
std::string header(const std::string& text, const std::string& before, const std::string& title) {
    const std::string date = text.find(tundrel::strdate()) != std::string::npos ? tundrel::strdate() : before;
    return "#VRML V2.0 utf8 WorldInfo { info \"Quillon 2.0, export VRML,  Author: Rimvale   Date: " + date +
           " \ttitle \"" + title + "\"  }\n";
}

std::vector<std::string> colours(const std::string& file) {
    std::vector<std::string> out;
    std::istringstream in(testutil::readFile(file));
    for (std::string l; std::getline(in, l);)
        if (l.rfind("diffuseColor ", 0) == 0) out.push_back(l.substr(13, 11));
    return out;
}

// A face patch with X = n, Y = n / 4, Z = -n at node n.
std::shared_ptr<FacePatch> facePatch(std::vector<std::int32_t> index, int nodes) {
    auto f = std::make_shared<FacePatch>(nodes, static_cast<int>(index.size()), static_cast<int>(index.size() / 4));
    f->faceIndex = std::move(index);
    for (const char* name : {"X", "Y", "Z"}) f->addVariable(name);
    for (std::size_t n = 0; n < static_cast<std::size_t>(nodes); ++n) {
        f->variable(0).values[n] = static_cast<double>(n);
        f->variable(1).values[n] = 0.25 * static_cast<double>(n);
        f->variable(2).values[n] = static_cast<double>(-static_cast<long>(n));
    }
    return f;
}

std::vector<double> values(const FacePatch& f, const std::string& name) {
    const NodeVariable* v = f.findVariable(name);
    return v ? v->values : std::vector<double>{};
}

}  // namespace

class Vrml : public HostTest {};

TEST_F(Vrml, WritesAThreeByTwoPatchAsFourTriangles) {
    region reg;
    region_fe fe;
    reg.name = "Wing";
    reg.append(testutil::gridPatch(3, 2));
    const std::string before = tundrel::strdate();
    ASSERT_TRUE(export_data(dir.file("w.wrl"), 1, false, false, reg, fe));
    const std::string text = testutil::readFile(dir.file("w.wrl"));
    EXPECT_EQ(text, header(text, before, "Wing") +
                        "\tShape {\n\tappearance Appearance {\n\tmaterial Material {\n"
                        "diffuseColor 0.0 0.0 1.0  shininess 0.1}}\n"
                        "\tgeometry IndexedFaceSet {\n\tcoordIndex [\n"
                        "0 1 3 -1\n3 1 4 -1\n1 2 4 -1\n4 2 5 -1\n"
                        "\t\t]\n\t coord Coordinate{\n\tpoint [\n"
                        "0.0 0.0 0.0\n1.0 0.0 0.0\n2.0 0.0 0.0\n0.0 1.0 0.0\n1.0 1.0 0.5\n2.0 1.0 1.0\n"
                        "\t\t]\n\t\t}\n\t\t} }\n"
                        "\n");
    ASSERT_TRUE(write_vrml(dir.file("s.wrl"), reg, fe, 0, 0, 2, true));
    EXPECT_NE(testutil::readFile(dir.file("s.wrl")).find("\n1.00e+00 1.00e+00 5.00e-01\n"), std::string::npos);
}

TEST_F(Vrml, FaceBlockFirstTakesTheFaceMeshTitleAndWritesItsIndexList) {
    region reg;
    region_fe fe;
    reg.name = "not this one";
    reg.append(testutil::gridPatch(2, 2));
    fe.append(facePatch({0, 1, 2, -1, 3, 4, 5, -1}, 6));
    const std::string before = tundrel::strdate();
    ASSERT_TRUE(write_vrml(dir.file("f.wrl"), reg, fe, 1, 1, 0, false));
    const std::string text = testutil::readFile(dir.file("f.wrl"));
    EXPECT_EQ(text, header(text, before, "") +
                        "\tShape {\n\tappearance Appearance {\n\tmaterial Material {\n"
                        "diffuseColor 0 0 1  shininess 0.1}}\n\tgeometry IndexedFaceSet {\n\tcoordIndex [\n"
                        "  0  1  2  -1\n  3  4  5  -1\n\t\t]\n\t coord Coordinate{\n\tpoint [\n"
                        "0 0 0\n1 0 -1\n2 0 -2\n3 1 -3\n4 1 -4\n5 1 -5\n\t\t]\n\t\t}\n\t\t} }\n\n");
}

TEST_F(Vrml, ColoursAdvanceForEveryItemOfTheRange) {
    const std::string table[] = {"0.0 0.0 0.0", "0.0 0.0 1.0", "0.0 1.0 0.0", "0.0 1.0 1.0",
                                 "1.5 0.0 0.0", "1.5 0.0 1.0", "1.5 1.0 0.0", "1.5 1.0 1.0"};
    region nine;
    region_fe none;
    for (int k = 0; k < 9; ++k) nine.append(testutil::gridPatch(2, 2));
    ASSERT_TRUE(write_vrml(dir.file("nine.wrl"), nine, none, 0, 8, 1, false));
    EXPECT_EQ(colours(dir.file("nine.wrl")), (std::vector<std::string>{table[1], table[2], table[3], table[4], table[5],
                                                                       table[6], table[7], table[0], table[1]}));

    // A 1 x 5 patch and a face block without faces write nothing but use up
    // their colours; the range starts at item 1 and still begins with blue.
    region reg;
    region_fe fe;
    for (int k : {2, 2, 1, 3}) reg.append(testutil::gridPatch(k, 5));
    fe.append(facePatch({}, 3));
    fe.append(facePatch({0, 1, 2, -1}, 3));
    ASSERT_TRUE(write_vrml(dir.file("skip.wrl"), reg, fe, 1, 5, 1, false));
    EXPECT_EQ(colours(dir.file("skip.wrl")), (std::vector<std::string>{table[1], table[3], table[5]}));
    ASSERT_TRUE(write_vrml(dir.file("flat.wrl"), reg, fe, 2, 2, 1, false));
    const std::string text = testutil::readFile(dir.file("flat.wrl"));
    EXPECT_EQ(text.substr(text.find('\n')), "\n\n");  // the header and the final line end
    EXPECT_TRUE(messages().empty());
}

TEST_F(Vrml, WriterFailures) {
    region reg;
    region_fe fe;
    EXPECT_FALSE(export_data(dir.file("e.wrl"), 6, false, false, reg, fe));  // nothing to write
    reg.append(testutil::gridPatch(2, 2));
    for (auto [first, last] : {std::pair{-1, 0}, {1, 0}, {0, 1}})
        EXPECT_FALSE(write_vrml(dir.file("e.wrl"), reg, fe, first, last, 6, false));
    EXPECT_FALSE(write_vrml(dir.file("no/dir/e.wrl"), reg, fe, 0, 0, 6, false));

    // Three variables on the first item; x, y, z looked up on the first patch
    // or first face block, whichever item is written.
    region bad;
    bad.append(std::make_shared<StructPatch>(2, 2, 1));
    for (const char* name : {"X", "Y"}) bad.patch(0).addVariable(name);
    EXPECT_FALSE(write_vrml(dir.file("v.wrl"), bad, fe, 0, 0, 6, false));
    bad.patch(0).addVariable("cp");
    bad.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(write_vrml(dir.file("z.wrl"), bad, fe, 1, 1, 6, false));
    fe.append(facePatch({0, 1, 2, -1}, 3));
    fe.append(facePatch({0, 1, 2, -1}, 3));
    fe.patch(0).variable(2).name = "w";
    EXPECT_FALSE(write_vrml(dir.file("fz.wrl"), reg, fe, 2, 2, 6, false));
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              "Dummy Error", "Dummy Error", "Dummy Error", "Dummy Error",
                              "It's impossible to open VRML file", "Error in Header.Number of variables <3",
                              "Error in Header. No predefined variables X or Y or Z are found",
                              "Error in Header. No predefined variables X or Y or Z are found"}));
}

// One Coordinate3 shared by several face sets with line sets between them, a
// Separator with its own points, USE of a DEF'd Coordinate3.
TEST_F(Vrml, ReadsAMeshGeneratorsVrml1) {
    region reg;
    region_fe fe;
    fe.append(facePatch({0, 1, 2, -1}, 3));  // readers append; names follow positions
    ASSERT_TRUE(import_data(testutil::dataFile("mesher_v1.wrl"), false, reg, fe));
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(reg.patchCount(), 0);
    ASSERT_EQ(fe.patchCount(), 6);
    struct Expected {
        std::vector<std::int32_t> index;
        std::vector<double> x, y;
    } expected[] = {
        {{0, 1, 2, -1, 0, 2, 3, -1}, {0, 1, 1, 0}, {0, 0, 1, 1}},  // quad split into a fan
        {{0, 2, 3, -1, 0, 3, 1, -1}, {1, 1, 2, 2}, {0, 1, 0, 1}},  // points 1, 2, 4, 5 renumbered
        {{2, 1, 0, -1}, {9, 8, 7}, {9, 8, 7}},                     // the Separator's own points
        {{2, 0, 1, -1}, {0, 2, 5}, {0, 0, 5}},                     // outer points after the Separator
        {{2, 1, 0, -1}, {1, 1, 0}, {0, 1, 1}},                     // USE makes them current again
    };
    for (int k = 0; k < 5; ++k) {
        const FacePatch& f = fe.patch(k + 1);
        SCOPED_TRACE(k);
        EXPECT_EQ(f.name, "PatchVRML_" + std::to_string(k + 1));
        EXPECT_EQ(f.faceIndex, expected[k].index);
        EXPECT_EQ(f.faces * 4, f.indexLength);
        EXPECT_EQ(f.nodes, static_cast<int>(expected[k].x.size()));
        ASSERT_EQ(f.variableCount(), 3);
        EXPECT_EQ(values(f, "X"), expected[k].x);
        EXPECT_EQ(values(f, "Y"), expected[k].y);
    }
}

// Transform, Group, a DEF'd Coordinate used again, normals, colours, texture
// coordinates, a prototype, strings with brackets in them.
TEST_F(Vrml, ReadsAToolkitsVrml2) {
    region reg;
    region_fe fe;
    ASSERT_TRUE(import_data(testutil::dataFile("toolkit_v2.wrl"), false, reg, fe));
    EXPECT_TRUE(messages().empty());
    ASSERT_EQ(fe.patchCount(), 3);  // the prototype's face set is not a surface
    EXPECT_EQ(fe.patch(0).name, "PatchVRML_0");
    EXPECT_EQ(fe.patch(0).faceIndex, (std::vector<std::int32_t>{0, 1, 4, -1, 1, 2, 4, -1, 2, 3, 4, -1, 3, 0, 4, -1}));
    EXPECT_EQ(values(fe.patch(0), "Z"), (std::vector<double>{0, 0, 0, 0, 0.1}));
    EXPECT_EQ(fe.patch(1).faceIndex, (std::vector<std::int32_t>{3, 2, 1, -1, 3, 1, 0, -1}));
    EXPECT_EQ(values(fe.patch(1), "X"), (std::vector<double>{0, 1, 1, 0}));
    EXPECT_EQ(fe.patch(2).faceIndex, (std::vector<std::int32_t>{2, 0, 1, -1}));  // points of a line set
    EXPECT_EQ(values(fe.patch(2), "Y"), (std::vector<double>{7, 6, 5}));
}

