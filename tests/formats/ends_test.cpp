// How every geometry reader ends: files that cannot be loaded, empty or cut
// short, damaged, with counts beyond what the file holds or indices out of
// range. One row a case: the result, the patches and face patches appended
// (what was read before a failure stays), the one message shown. Every read
// leaves a model that passes validate.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

// What stands at the path read: the row's text in a regular file, or
// something that cannot be loaded.
enum class Source { text, missing, vanished, folder, pipe, unreadable };

struct End {
    std::string name;
    const char* ext;
    std::string text;
    bool result;
    int patches;
    int facePatches;
    const char* message;  // nullptr: none
    Source source = Source::text;
};

void PrintTo(const End& c, std::ostream* os) { *os << c.name; }

const char* kAptClose = "It's impossible to close APT file";
const char* kFldClose = "It's impossible to close FLD file";
const char* kTitle = "Error in the Header of DAT file. Parameter TITLE is absent";
const char* kVars = "Error in the Header of DAT file. Parameter VARIABLES is absent";
const char* kWrong = "Error in the Header of DAT file. Wrong names of variables";
const char* kFew = "Error in the Header of DAT file. The number of variables <3";
const char* kUnreadable = "Error in the Header of DAT file. It's impossible to read variables from header";
const char* kZone = "Error in DAT file. It's impossible to read attributes of ZONE";
const char* kNo3D = "Error in DAT structure. No 3D surfaces are found";
const char* kNoHeader = "It is impossible to open VRML or identify it's header";
const char* kNoSurface = "Error in VRML structure. No 3D surfaces are found";

const std::string kSixPoints = "2 3\n0 0 0\n1 0 0\n2 0 0\n0 1 0\n1 1 0.5\n2 1 1\n";
const std::string kDamaged = kSixPoints + "1 2\n1 2 3\n4\n";
const std::string kWing =
    "wing\n   1   1     cp\n2 3 WALL  WALL  WALL  WALL\n0 0 0 -0.5\n1 0 0 -0.25\n2 0 0 0\n"
    "0 1 0 0.125\n1 1 0.5 0.25\n2 1 1 0.375\n0.8 4 0";
const std::string kPatchless = kWing.substr(0, kWing.find("2 3 WALL"));
const std::string kHead = "TITLE=\"t\"\nVARIABLES=\"x\",\"y\",\"z\"\n";
const std::string kGood = kHead + "ZONE I=1\n1 2 3\n";
const std::string kV2 = "#VRML V2.0 utf8\n";
std::string faceSet(const std::string& points, const std::string& index) {
    return "Shape { geometry IndexedFaceSet { coord Coordinate { point [ " + points + " ] } coordIndex [ " + index +
           " ] } }\n";
}
const std::string kTriangle = faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 2 -1");
std::string nested(int levels) {
    std::string s = kV2;
    for (int k = 0; k < levels; ++k) s += "Group { children [ ";
    s += kTriangle;
    for (int k = 0; k < levels; ++k) s += "] } ";
    return s;
}

std::vector<End> ends() {
    std::vector<End> rows = {
        {"apt_empty", "apt", "", true, 0, 0, nullptr},
        {"apt_emptyPatch", "apt", "0 0\n", true, 1, 0, nullptr},
        {"apt_trailingText", "apt", std::string(kSixPoints) + "end of model\n", true, 1, 0, nullptr},
        {"apt_lastPatchShort", "apt", kDamaged, false, 1, 0, kAptClose},
        {"apt_garbageInPoints", "apt", "1 1\n1 x 3\n", false, 0, 0, kAptClose},
        {"apt_negativeCount", "apt", "-1 5\n", false, 0, 0, kAptClose},
        {"apt_moreThanTheFileHolds", "apt", "40000 40000\n1 2 3\n", false, 0, 0, kAptClose},
        {"fld_empty", "fld", "", false, 0, 0, kFldClose},
        {"fld_noFlowConditions", "fld", kWing.substr(0, kWing.rfind('\n')), false, 1, 0, kFldClose},
        {"fld_shortPointList", "fld", kWing.substr(0, kWing.find("2 1 1")), false, 1, 0, kFldClose},
        {"fld_fewerPatchesThanCounted", "fld", "w 2 0\n1 1 WALL WALL WALL WALL\n0 0 0\n0.5 0 0", false, 1, 0, kFldClose},
        {"fld_negativeCounts", "fld", kPatchless + "-2 3 WALL  WALL  WALL  WALL\n", false, 0, 0, kFldClose},
        {"fld_moreThanTheFileHolds", "fld", kPatchless + "30000 30000 W W W W\n1 2 3 4\n", false, 0, 0, kFldClose},
        {"fld_moreNamesThanTheFileHolds", "fld", "w 1 2000000000 cp\n", false, 0, 0, kFldClose},
        {"dat_empty", "dat", "", false, 0, 0, kTitle},
        {"dat_plainNumbers", "dat", "1 2 3\n", false, 0, 0, kTitle},
        {"dat_noVariables", "dat", "TITLE=\"t\"\nZONE I=1\n1 2 3\n", false, 0, 0, kVars},
        {"dat_twiceTheSameName", "dat", "VARIABLES=\"x\",\"y\",\"x\",\"z\"\n", false, 0, 0, kWrong},
        {"dat_twoVariables", "dat", "VARIABLES=\"x\",\"y\"\nZONE I=1\n1 2\n", false, 0, 0, kFew},
        {"dat_openQuote", "dat", "VARIABLES=\"x\",\"y\",\"z\n", false, 0, 0, kUnreadable},
        {"dat_noZ", "dat", "VARIABLES=\"x\",\"y\",\"p\"\nZONE I=1\n1 2 3\n", false, 0, 0, kNo3D},
        {"dat_noZones", "dat", kHead, false, 0, 0, kNo3D},
        {"dat_moreNodesThanTheFileHolds", "dat", kGood + "ZONE N=100000000, E=1, F=FEPOINT, ET=TRIANGLE\n1 2 3\n", false, 1, 0, kZone},
        {"dat_moreElementsThanTheFileHolds", "dat", kGood + "ZONE N=3, E=2000000000, ZONETYPE=FETRIANGLE\n0 0 0 1 1 1 2 2 2\n1 2 3\n", false, 1, 0, kZone},
        {"dat_nodeNumberTooLarge", "dat", kGood + "ZONE N=3, E=1, ZONETYPE=FETRIANGLE\n0 0 0 1 1 1 2 2 2\n1 2 4\n", false, 1, 0, kZone},
        {"dat_volumeCells", "dat", kGood + "ZONE N=4, E=1, ZONETYPE=FETETRAHEDRON\n", false, 1, 0, kZone},
        {"dat_elementTypeMissing", "dat", kGood + "ZONE N=3, E=1, F=FEPOINT\n", false, 1, 0, kZone},
        {"dat_cellCentred", "dat", kGood + "ZONE I=1, DATAPACKING=BLOCK, VARLOCATION=([3]=CELLCENTERED)\n1 2 3\n", false, 1, 0, kZone},
        {"dat_shortData", "dat", kGood + "ZONE I=2\n1 2 3 4 5\n", false, 1, 0, kZone},
        {"dat_damagedNumber", "dat", kGood + "ZONE I=1\n1 2x 3\n", false, 1, 0, kZone},
        {"dat_moreDataThanCounted", "dat", kGood + "ZONE I=1\n1 2 3 4\n", false, 2, 0, kZone},
        {"wrl_singlePointSkipped", "wrl", kV2 + faceSet("1 2 3", "0") + kTriangle, true, 0, 1, nullptr},
        {"wrl_nestedWithinLimit", "wrl", nested(200), true, 0, 1, nullptr},
        {"wrl_emptyFile", "wrl", "", false, 0, 0, kNoHeader},
        {"wrl_notVrml", "wrl", "solid cube\nfacet normal 0 0 1\n", false, 0, 0, kNoHeader},
        {"wrl_headerNotFirst", "wrl", "\n" + kV2 + kTriangle, false, 0, 0, kNoHeader},
        {"wrl_noFaceSet", "wrl", kV2 + "Shape { geometry Box { size 1 1 1 } }\n", false, 0, 0, kNoSurface},
        {"wrl_degeneratePolygons", "wrl", kV2 + faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 -1 -1 2"), false, 0, 0, kNoSurface},
        {"wrl_unclosedNode", "wrl", kV2 + kTriangle + "Transform { children [ " + kTriangle + "]", false, 0, 2, kNoSurface},
        {"wrl_bracketMismatch", "wrl", kV2 + faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 2 }"), false, 0, 0, kNoSurface},
        {"wrl_extraClose", "wrl", kV2 + kTriangle + "}\n", false, 0, 1, kNoSurface},
        {"wrl_indexPastTheEnd", "wrl", kV2 + faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 3"), false, 0, 0, kNoSurface},
        {"wrl_indexBelowMinusOne", "wrl", kV2 + faceSet("0 0 0, 1 0 0, 0 1 0", "0 -2 1"), false, 0, 0, kNoSurface},
        {"wrl_indexTooLargeForInt", "wrl", kV2 + faceSet("0 0 0, 1 0 0, 0 1 0", "0 1 99999999999"), false, 0, 0, kNoSurface},
        {"wrl_pointsNotTriples", "wrl", kV2 + faceSet("0 0 0, 1 0 0, 0 1", "0 1 2"), false, 0, 0, kNoSurface},
        {"wrl_pointNan", "wrl", kV2 + faceSet("0 0 0, nan 0 0, 0 1 0", "0 1 2"), false, 0, 0, kNoSurface},
        {"wrl_v1WithoutCoordinates", "wrl", "#VRML V1.0 ascii\nIndexedFaceSet { coordIndex [ 0 1 2 ] }\n", false, 0, 0, kNoSurface},
        {"wrl_unknownUse", "wrl", kV2 + "Shape { geometry IndexedFaceSet { coord USE no coordIndex [ 0 1 2 ] } }\n", false, 0, 0, kNoSurface},
        {"wrl_unclosedString", "wrl", kV2 + "WorldInfo { title \"abc }\n" + kTriangle, false, 0, 0, kNoSurface},
        {"wrl_tooDeep", "wrl", nested(300), false, 0, 0, kNoSurface},
        // Counts beyond 32 bits or whose product overflows, not finite numbers.
        {"apt_countBeyond32Bits", "apt", "4294967297 1\n1 2 3\n", true, 0, 0, nullptr},
        {"apt_countsWhoseProductOverflows", "apt", "65536 65536\n1 2 3\n", false, 0, 0, kAptClose},
        {"apt_infinity", "apt", "1 1\ninf 0 0\n", false, 0, 0, kAptClose},
        {"fld_negativeNameCount", "fld", "w 1 -3\n1 1 W W W W\n0 0 0\n0 0 0\n", false, 0, 0, kFldClose},
        {"fld_nan", "fld", "w 1 0\n1 1 W W W W\nnan 0 0\n0 0 0\n", false, 1, 0, kFldClose},
        {"dat_countBeyond32Bits", "dat", kHead + "ZONE I=4294967297\n1 2 3\n", false, 0, 0, kZone},
        {"dat_negativeNode", "dat", kHead + "ZONE N=3, E=1, ET=TRIANGLE, F=FEPOINT\n0 0 0 1 0 0 0 1 0\n1 -2 3\n", false, 0, 0, kZone},
    };
    // Files that cannot be loaded end with the format's open message: missing,
    // vanished after being chosen (a dangling link), a folder, a named pipe
    // without a writer (never waited on), a read that fails (EIO).
    const std::pair<const char*, const char*> opening[] = {
        {"apt", "It is impossible to open selected file"}, {"fld", "It is impossible to open selected FLD file"},
        {"dat", "It's impossible to open DAT file"}, {"wrl", kNoHeader}};
    const std::pair<const char*, Source> sources[] = {{"missing", Source::missing}, {"vanished", Source::vanished},
                                                      {"folder", Source::folder},   {"pipe", Source::pipe},
                                                      {"unreadable", Source::unreadable}};
    for (const auto& [ext, message] : opening)
        for (const auto& [name, source] : sources)
            rows.push_back({std::string(ext) + "_" + name, ext, "", false, 0, 0, message, source});
    return rows;
}

class ReadEnds : public testutil::HostTest, public ::testing::WithParamInterface<End> {
protected:
    // The path of the row's file, made as the row says.
    std::string make(const End& c) {
        const std::string path = dir.file(std::string("m.") + c.ext);
        switch (c.source) {
            case Source::text: testutil::writeFile(path, c.text); break;
            case Source::missing: break;
            case Source::vanished:
                testutil::writeFile(dir.file("target"), kSixPoints);
                EXPECT_EQ(::symlink(dir.file("target").c_str(), path.c_str()), 0);
                EXPECT_EQ(::unlink(dir.file("target").c_str()), 0);
                break;
            case Source::folder: EXPECT_EQ(::mkdir(path.c_str(), 0755), 0); break;
            case Source::pipe: EXPECT_EQ(::mkfifo(path.c_str(), 0644), 0); break;
            case Source::unreadable: EXPECT_EQ(::symlink("/proc/self/mem", path.c_str()), 0); break;
        }
        return path;
    }
};

}  // namespace

TEST_P(ReadEnds, AsTheFormatSays) {
    const End& c = GetParam();
    region reg;
    region_fe fe;
    reg.append(testutil::gridPatch(2, 2));  // readers append to what is there
    EXPECT_EQ(import_data(make(c), false, reg, fe), c.result);
    EXPECT_EQ(reg.patchCount(), 1 + c.patches);
    EXPECT_EQ(fe.patchCount(), c.facePatches);
    EXPECT_EQ(messages(), c.message ? std::vector<std::string>{c.message} : std::vector<std::string>{});
    EXPECT_EQ(tundrel::validate(reg, fe), "");
}

INSTANTIATE_TEST_SUITE_P(Formats, ReadEnds, ::testing::ValuesIn(ends()),
                         [](const auto& info) { return info.param.name; });
