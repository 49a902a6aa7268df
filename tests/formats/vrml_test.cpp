#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "api/formats/date.h"
#include "tests/test_util.h"

using testutil::HostTest;

namespace {

const char* kNoHeader = "It is impossible to open VRML or identify it's header";
const char* kNoSurface = "Error in VRML structure. No 3D surfaces are found";

std::string header(const std::string& date, const std::string& title) {
    return "#VRML V2.0 utf8 WorldInfo { info \"Quillon 2.0, export VRML,  Author: Rimvale   Date: " + date +
           " \ttitle \"" + title + "\"  }\n";
}

// The date the file was written with, of the two taken around the write.
std::string dateIn(const std::string& text, const std::string& before, const std::string& after) {
    return text.find(after) != std::string::npos ? after : before;
}

std::vector<std::string> linesStartingWith(const std::string& text, const std::string& start) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        if (l.rfind(start, 0) == 0) out.push_back(l);
    return out;
}

std::shared_ptr<FacePatch> facePatch(std::vector<std::int32_t> index, int nodes) {
    auto f = std::make_shared<FacePatch>(nodes, static_cast<int>(index.size()), static_cast<int>(index.size() / 4));
    f->faceIndex = std::move(index);
    auto& x = f->addVariable("X");
    auto& y = f->addVariable("Y");
    auto& z = f->addVariable("Z");
    for (int n = 0; n < nodes; ++n) {
        x.values[static_cast<std::size_t>(n)] = n;
        y.values[static_cast<std::size_t>(n)] = 0.25 * n;
        z.values[static_cast<std::size_t>(n)] = -n;
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
    EXPECT_EQ(text, header(dateIn(text, before, tundrel::strdate()), "Wing") +
                        "\tShape {\n\tappearance Appearance {\n\tmaterial Material {\n"
                        "diffuseColor 0.0 0.0 1.0  shininess 0.1}}\n"
                        "\tgeometry IndexedFaceSet {\n\tcoordIndex [\n"
                        "0 1 3 -1\n3 1 4 -1\n1 2 4 -1\n4 2 5 -1\n"
                        "\t\t]\n\t coord Coordinate{\n\tpoint [\n"
                        "0.0 0.0 0.0\n1.0 0.0 0.0\n2.0 0.0 0.0\n0.0 1.0 0.0\n1.0 1.0 0.5\n2.0 1.0 1.0\n"
                        "\t\t]\n\t\t}\n\t\t} }\n"
                        "\n");
    ASSERT_TRUE(write_vrml(dir.file("s.wrl"), reg, fe, 0, 0, 2, true));
    EXPECT_EQ(linesStartingWith(testutil::readFile(dir.file("s.wrl")), "1.00e+00 1.00e+00"),
              std::vector<std::string>{"1.00e+00 1.00e+00 5.00e-01"});
}

TEST_F(Vrml, FaceBlockFirstTakesTheFaceMeshTitleAndItsIndexLines) {
    region reg;
    region_fe fe;
    reg.name = "not this one";
    reg.append(testutil::gridPatch(2, 2));
    fe.append(facePatch({0, 1, 2, -1, 3, 4, 5, -1}, 6));
    const std::string before = tundrel::strdate();
    ASSERT_TRUE(write_vrml(dir.file("f.wrl"), reg, fe, 1, 1, 0, false));
    const std::string text = testutil::readFile(dir.file("f.wrl"));
    const std::string expectedStart = header(dateIn(text, before, tundrel::strdate()), "") +
                                      "\tShape {\n\tappearance Appearance {\n\tmaterial Material {\n"
                                      "diffuseColor 0 0 1  shininess 0.1}}\n"
                                      "\tgeometry IndexedFaceSet {\n\tcoordIndex [\n"
                                      "  0  1  2  -1\n  3  4  5  -1\n\t\t]\n\t coord Coordinate{\n\tpoint [\n"
                                      "0 0 0\n1 0 -1\n";
    EXPECT_EQ(text.substr(0, expectedStart.size()), expectedStart);
    const std::string tail = "5 1 -5\n\t\t]\n\t\t}\n\t\t} }\n\n";
    ASSERT_GT(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

TEST_F(Vrml, ColoursAdvanceForEveryItemOfTheRange) {
    const std::vector<std::string> table = {"0.0 0.0 0.0", "0.0 0.0 1.0", "0.0 1.0 0.0", "0.0 1.0 1.0",
                                            "1.5 0.0 0.0", "1.5 0.0 1.0", "1.5 1.0 0.0", "1.5 1.0 1.0"};
    auto colours = [&](const std::string& file) {
        std::vector<std::string> out;
        for (const std::string& l : linesStartingWith(testutil::readFile(file), "diffuseColor "))
            out.push_back(l.substr(13, 11));
        return out;
    };
    region nine;
    region_fe none;
    for (int k = 0; k < 9; ++k) nine.append(testutil::gridPatch(2, 2));
    ASSERT_TRUE(write_vrml(dir.file("nine.wrl"), nine, none, 0, 8, 1, false));
    EXPECT_EQ(colours(dir.file("nine.wrl")), (std::vector<std::string>{table[1], table[2], table[3], table[4], table[5],
                                                                       table[6], table[7], table[0], table[1]}));

    // A 1 x 5 patch and a face block without faces write nothing but use up
    // their colours; the range starts at item 1, so its first colour is 1.
    region reg;
    region_fe fe;
    reg.append(testutil::gridPatch(2, 2));
    reg.append(testutil::gridPatch(2, 2));
    reg.append(testutil::gridPatch(1, 5));
    reg.append(testutil::gridPatch(3, 3));
    fe.append(facePatch({}, 3));
    fe.append(facePatch({0, 1, 2, -1}, 3));
    ASSERT_TRUE(write_vrml(dir.file("skip.wrl"), reg, fe, 1, 5, 1, false));
    EXPECT_EQ(colours(dir.file("skip.wrl")), (std::vector<std::string>{table[1], table[3], table[5]}));

    // Only skipped items: the header and the final line end.
    region flat;
    flat.append(testutil::gridPatch(1, 5));
    ASSERT_TRUE(write_vrml(dir.file("flat.wrl"), flat, none, 0, 0, 1, false));
    const std::string text = testutil::readFile(dir.file("flat.wrl"));
    EXPECT_EQ(text.substr(text.find('\n')), "\n\n");
    EXPECT_TRUE(messages().empty());
}

TEST_F(Vrml, WriterFailures) {
    region reg;
    region_fe fe;
    EXPECT_FALSE(export_data(dir.file("e.wrl"), 6, false, false, reg, fe));  // nothing to write
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(write_vrml(dir.file("e.wrl"), reg, fe, -1, 0, 6, false));
    EXPECT_FALSE(write_vrml(dir.file("e.wrl"), reg, fe, 1, 0, 6, false));
    EXPECT_FALSE(write_vrml(dir.file("e.wrl"), reg, fe, 0, 1, 6, false));
    EXPECT_FALSE(write_vrml(dir.file("no/dir/e.wrl"), reg, fe, 0, 0, 6, false));

    // The first item needs three variables; x, y, z are looked up on the
    // first patch / first face block, whichever item is written.
    region two;
    auto p = std::make_shared<StructPatch>(2, 2, 1);
    p->addVariable("x");
    p->addVariable("y");
    two.append(p);
    EXPECT_FALSE(write_vrml(dir.file("v.wrl"), two, fe, 0, 0, 6, false));
    region noZ;
    auto q = std::make_shared<StructPatch>(2, 2, 1);
    q->addVariable("X");
    q->addVariable("Y");
    q->addVariable("cp");
    noZ.append(q);
    noZ.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(write_vrml(dir.file("z.wrl"), noZ, fe, 1, 1, 6, false));
    auto f0 = facePatch({0, 1, 2, -1}, 3);
    f0->variables = {};
    f0->addVariable("x");
    f0->addVariable("y");
    f0->addVariable("w");
    fe.append(f0);
    fe.append(facePatch({0, 1, 2, -1}, 3));
    EXPECT_FALSE(write_vrml(dir.file("fz.wrl"), reg, fe, 2, 2, 6, false));
    EXPECT_EQ(messages(), (std::vector<std::string>{
                              "Dummy Error", "Dummy Error", "Dummy Error", "Dummy Error",
                              "It's impossible to open VRML file", "Error in Header.Number of variables <3",
                              "Error in Header. No predefined variables X or Y or Z are found",
                              "Error in Header. No predefined variables X or Y or Z are found"}));
}

// A mesh generator's VRML 1.0: one point list shared by several face sets,
// line sets and other nodes between them, a Separator with its own points.
const char* kMeshGenerator = R"(#VRML V1.0 ascii
# written by a mesh generator
Separator {
  DEF Mat Material { diffuseColor [ 0.8 0.8 0.8 ] }
  Normal { vector [ 0 0 1, 0 0 1 ] }
  DEF outer Coordinate3 {
    point [ 0 0 0, 1 0 0, 1 1 0, 0 1 0,
            2 0 0, 2 1 0,
            5 5 5 ]
  }
  IndexedFaceSet { coordIndex [ 0, 1, 2, 3, -1 ] }
  IndexedLineSet { coordIndex [ 0, 1, -1, 1, 2, -1 ] }
  DEF right IndexedFaceSet {
    coordIndex [ 1, 4, 5, -1,
                 1, 5, 2, -1 ]
    materialIndex [ 0, 0 ]
  }
  Separator {
    Transform { translation 1 2 3 }
    Coordinate3 { point [ 9 9 9, 8 8 8, 7 7 7 ] }
    IndexedFaceSet { coordIndex [ 2 1 0 -1 ] }
  }
  IndexedFaceSet { coordIndex [ 6, 0, 4 ] }  # the outer points again
  Coordinate3 { point 3 3 3 }
  USE outer
  IndexedFaceSet { coordIndex [ 3, 2, 1 ] }
}
)";

// A visualisation toolkit's VRML 2.0: Transform and Group, DEF'd and USE'd
// coordinates, normals, colours and texture coordinates, a prototype.
const char* kToolkit = R"(#VRML V2.0 utf8
# exported by a visualisation toolkit
WorldInfo { title "wing" info [ "a", "b \" quoted { [" ] }
DEF Camera Viewpoint { position 0 0 10 description "front" }
NavigationInfo { type [ "EXAMINE", "ANY" ] }
PROTO Pipe [ field SFFloat r 1 ] {
  Shape { geometry IndexedFaceSet { coord Coordinate { point [ 0 0 0, 1 0 0, 0 1 0 ] } coordIndex [ 0 1 2 ] } }
}
Transform {
  translation 0 0 0
  rotation 0 0 1 0
  scale 1 1 1
  children [
    Shape {
      appearance Appearance { material Material { diffuseColor 0.8 0.8 0.8 } }
      geometry DEF surface IndexedFaceSet {
        solid FALSE
        creaseAngle 0.5
        coordIndex [ 0, 1, 4, -1, 1, 2, 4, -1, 2, 3, 4, -1, 3, 0, 4, -1, ]
        coord DEF pts Coordinate {
          point [
            0 0 0, 1 0 0, 1 1 0,
            0 1 0, 0.5 0.5 1e-1
          ]
        }
        normal DEF nrm Normal { vector [ 0 0 1, 0 0 1, 0 0 1, 0 0 1, 0 0 1 ] }
        normalPerVertex TRUE
        color DEF col Color { color [ 1 0 0, 0 1 0, 0 0 1, 1 1 1, 0 0 0 ] }
        texCoord TextureCoordinate { point [ 0 0, 1 0, 1 1, 0 1, 0.5 0.5 ] }
      }
    }
    Group { children [
      Shape { geometry IndexedLineSet { coord DEF edge Coordinate { point [ 7 7 7, 6 6 6, 5 5 5 ] } coordIndex [ 0 1 2 ] } }
      Shape { geometry IndexedFaceSet { coordIndex [ 3 2 1 0 ] coord USE pts } }
      Shape { geometry IndexedFaceSet { coord USE edge coordIndex [ 2 0 1 -1 ] } }
    ] }
  ]
}
ROUTE Camera.bindTime TO Camera.set_bind
)";

TEST_F(Vrml, ReadsAMeshGeneratorsVrml1) {
    testutil::writeFile(dir.file("m.wrl"), kMeshGenerator);
    region reg;
    region_fe fe;
    fe.append(facePatch({0, 1, 2, -1}, 3));  // readers append; names follow positions
    ASSERT_TRUE(import_data(dir.file("m.wrl"), false, reg, fe));
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
        EXPECT_EQ(f.indexLength, static_cast<int>(f.faceIndex.size()));
        EXPECT_EQ(f.nodes, static_cast<int>(expected[k].x.size()));
        ASSERT_EQ(f.variableCount(), 3);
        EXPECT_EQ(f.variable(0).name, "X");
        EXPECT_EQ(values(f, "X"), expected[k].x);
        EXPECT_EQ(values(f, "Y"), expected[k].y);
    }
}

TEST_F(Vrml, ReadsAToolkitsVrml2) {
    testutil::writeFile(dir.file("t.wrl"), kToolkit);
    region reg;
    region_fe fe;
    ASSERT_TRUE(read_vrml(dir.file("t.wrl"), reg, fe));
    EXPECT_TRUE(messages().empty());
    ASSERT_EQ(fe.patchCount(), 3);  // the prototype's face set is not a surface
    const FacePatch& a = fe.patch(0);
    EXPECT_EQ(a.name, "PatchVRML_0");
    EXPECT_EQ(a.faceIndex, (std::vector<std::int32_t>{0, 1, 4, -1, 1, 2, 4, -1, 2, 3, 4, -1, 3, 0, 4, -1}));
    EXPECT_EQ(values(a, "Z"), (std::vector<double>{0, 0, 0, 0, 0.1}));
    const FacePatch& b = fe.patch(1);
    EXPECT_EQ(b.faceIndex, (std::vector<std::int32_t>{3, 2, 1, -1, 3, 1, 0, -1}));
    EXPECT_EQ(values(b, "X"), (std::vector<double>{0, 1, 1, 0}));
    const FacePatch& c = fe.patch(2);  // points DEF'd in a line set
    EXPECT_EQ(c.faceIndex, (std::vector<std::int32_t>{2, 0, 1, -1}));
    EXPECT_EQ(values(c, "Y"), (std::vector<double>{7, 6, 5}));
}

TEST_F(Vrml, ReadingWhatTheWriterWroteGivesTheSameTrianglesAndPoints) {
    region reg;
    region_fe fe;
    reg.name = "model \"quoted\" { [ #";  // the header line is not parsed
    reg.append(testutil::gridPatch(3, 2));
    fe.append(facePatch({4, 0, 2, -1, 1, 3, 2, -1, 2, 3, 4, -1}, 5));
    ASSERT_TRUE(export_data(dir.file("r.wrl"), 17, false, true, reg, fe));
    region back;
    region_fe backFe;
    ASSERT_TRUE(import_data(dir.file("r.wrl"), false, back, backFe));
    ASSERT_EQ(backFe.patchCount(), 2);
    EXPECT_EQ(backFe.patch(0).faceIndex, (std::vector<std::int32_t>{0, 1, 3, -1, 3, 1, 4, -1, 1, 2, 4, -1, 4, 2, 5, -1}));
    const StructPatch& p = reg.patch(0);
    EXPECT_EQ(values(backFe.patch(0), "X"), p.variable(0).values);
    EXPECT_EQ(values(backFe.patch(0), "Y"), p.variable(1).values);
    EXPECT_EQ(values(backFe.patch(0), "Z"), p.variable(2).values);
    const FacePatch& f = fe.patch(0);
    const FacePatch& g = backFe.patch(1);
    EXPECT_EQ(g.faceIndex, f.faceIndex);
    EXPECT_EQ(g.faces, f.faces);
    for (const char* v : {"X", "Y", "Z"}) EXPECT_EQ(values(g, v), values(f, v)) << v;
}

// How reading ends for files that are not clean surfaces.
struct ReadCase {
    const char* name;
    std::string text;
    int patches;          // face patches appended
    const char* message;  // nullptr: read succeeds
};

void PrintTo(const ReadCase& c, std::ostream* os) { *os << c.name; }

class VrmlReads : public HostTest, public ::testing::WithParamInterface<ReadCase> {};

TEST_P(VrmlReads, EndsAsTheFormatSays) {
    const ReadCase& c = GetParam();
    testutil::writeFile(dir.file("c.wrl"), c.text);
    region reg;
    region_fe fe;
    EXPECT_EQ(read_vrml(dir.file("c.wrl"), reg, fe), c.message == nullptr);
    EXPECT_EQ(fe.patchCount(), c.patches);
    if (c.message) {
        EXPECT_EQ(messages(), std::vector<std::string>{c.message});
    } else {
        EXPECT_TRUE(messages().empty());
    }
}

const std::string kV2 = "#VRML V2.0 utf8\n";
const std::string kTriangle =
    "Shape { geometry IndexedFaceSet { coord Coordinate { point [ 0 0 0, 1 0 0, 0 1 0 ] } coordIndex [ 0 1 2 -1 ] } }\n";
std::string faceSet(const std::string& points, const std::string& index) {
    return kV2 + "Shape { geometry IndexedFaceSet { coord Coordinate { point [ " + points + " ] } coordIndex [ " +
           index + " ] } }\n";
}
std::string nested(int levels) {
    std::string s = kV2;
    for (int k = 0; k < levels; ++k) s += "Group { children [ ";
    s += kTriangle;
    for (int k = 0; k < levels; ++k) s += "] } ";
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VrmlReads,
    ::testing::Values(
        ReadCase{"compactCrlf",
                 "#VRML V2.0 utf8\r\nShape{geometry IndexedFaceSet{coord Coordinate{point[0 0 0,1 0 0,0 1 0]}"
                 "coordIndex[0,1,2,-1]}}",
                 1, nullptr},
        ReadCase{"byteOrderMark", "\xEF\xBB\xBF" + kV2 + kTriangle, 1, nullptr},
        ReadCase{"singleValueFields",
                 kV2 + "Shape { geometry IndexedFaceSet { coord Coordinate { point 1 2 3 } coordIndex 0 } }\n" +
                     kTriangle,
                 1, nullptr},
        ReadCase{"nestedWithinLimit", nested(200), 1, nullptr},
        ReadCase{"emptyFile", "", 0, kNoHeader},
        ReadCase{"notVrml", "solid cube\nfacet normal 0 0 1\n", 0, kNoHeader},
        ReadCase{"otherVersion", "#VRML V3.0 utf8\n" + kTriangle, 0, kNoHeader},
        ReadCase{"versionGlued", "#VRMLV2.0 utf8\n" + kTriangle, 0, kNoHeader},
        ReadCase{"headerNotFirst", "\n" + kV2 + kTriangle, 0, kNoHeader},
        ReadCase{"noFaceSet", kV2 + "Shape { geometry Box { size 1 1 1 } }\n", 0, kNoSurface},
        ReadCase{"onlyLines", "#VRML V1.0 ascii\nCoordinate3 { point [0 0 0, 1 1 1] } IndexedLineSet { coordIndex [0 1] }",
                 0, kNoSurface},
        ReadCase{"degeneratePolygons", faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 -1 -1 2"), 0, kNoSurface},
        ReadCase{"truncatedInPoints", kV2 + "Shape { geometry IndexedFaceSet { coord Coordinate { point [ 0 0 0, 1 0",
                 0, kNoSurface},
        ReadCase{"unclosedNode", kV2 + kTriangle + "Transform { children [ " + kTriangle + "]", 2, kNoSurface},
        ReadCase{"bracketMismatch", faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 2 } ]"), 0, kNoSurface},
        ReadCase{"extraClose", kV2 + kTriangle + "}\n", 1, kNoSurface},
        ReadCase{"indexPastTheEnd", faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 3"), 0, kNoSurface},
        ReadCase{"indexBelowMinusOne", faceSet("0 0 0, 1 0 0, 0 1 0", "0 -2 1"), 0, kNoSurface},
        ReadCase{"indexTooLargeForInt", faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 99999999999"), 0, kNoSurface},
        ReadCase{"pointsNotTriples", faceSet("0 0 0, 1 0 0, 0 1", "0 1 2"), 0, kNoSurface},
        ReadCase{"pointNotANumber", faceSet("0 0 0, 1 x 0, 0 1 0", "0 1 2"), 0, kNoSurface},
        ReadCase{"pointNan", faceSet("0 0 0, nan 0 0, 0 1 0", "0 1 2"), 0, kNoSurface},
        ReadCase{"v1WithoutCoordinates", "#VRML V1.0 ascii\nIndexedFaceSet { coordIndex [ 0 1 2 ] }\n", 0, kNoSurface},
        ReadCase{"unknownUse",
                 kV2 + "Shape { geometry IndexedFaceSet { coord USE nothing coordIndex [ 0 1 2 ] } }\n", 0, kNoSurface},
        ReadCase{"unclosedString", kV2 + "WorldInfo { title \"abc }\n" + kTriangle, 0, kNoSurface},
        ReadCase{"tooDeep", nested(300), 0, kNoSurface},
        ReadCase{"garbageBytes", kV2 + "\x01\xff\xfe{{]]\x7f", 0, kNoSurface}),
    [](const auto& info) { return std::string(info.param.name); });

// Every cut of a written file either reads the surfaces completed before it
// or ends with the structure message.
TEST_F(Vrml, EveryTruncationEndsCleanly) {
    region reg;
    region_fe fe;
    reg.append(testutil::gridPatch(3, 2));
    fe.append(facePatch({0, 1, 2, -1}, 3));
    ASSERT_TRUE(write_vrml(dir.file("full.wrl"), reg, fe, 0, 1, 3, false));
    const std::string text = testutil::readFile(dir.file("full.wrl"));
    const std::size_t header = std::string("#VRML V2.0").size();
    int complete = 0;
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        testutil::writeFile(dir.file("cut.wrl"), text.substr(0, cut));
        region r;
        region_fe f;
        host.messages.clear();
        const bool ok = read_vrml(dir.file("cut.wrl"), r, f);
        SCOPED_TRACE(cut);
        if (ok) {
            EXPECT_TRUE(messages().empty());
            EXPECT_GE(f.patchCount(), 1);
            complete += f.patchCount() == 2;
        } else {
            EXPECT_EQ(messages(), std::vector<std::string>{cut < header ? kNoHeader : kNoSurface});
        }
    }
    EXPECT_EQ(complete, 3);  // the whole file and the cuts in its two final line ends
}
