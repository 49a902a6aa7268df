// How every geometry reader ends: files that cannot be loaded (marker files
// too), empty or cut short, damaged, with counts beyond what the file holds or indices out of
// range. One row a case: the result, the patches and face patches appended
// (what was read before a failure stays), the one message shown. Every read
// leaves a model that passes validate.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "api/TundrelApi.h"
#include "tests/markers/marker_util.h"
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
const char* kZone = "Error in DAT file. It's impossible to read attributes of ZONE";
const char* kNoHeader = "It is impossible to open VRML or identify it's header";
const char* kNoSurface = "Error in VRML structure. No 3D surfaces are found";
const std::string kHead = "TITLE=\"t\"\nVARIABLES=\"x\",\"y\",\"z\"\n";
const std::string kGood = kHead + "ZONE I=1\n1 2 3\n";
const std::string kTriangle =
    "#VRML V2.0 utf8\nShape { geometry IndexedFaceSet { coord Coordinate { point [ 0 0 0, 1 0 0, 0 1 0 ] } "
    "coordIndex [ 0 1 2 -1 ] } }\n";

// One row per outcome of each format; other damaged files are fuzz corpus
// files (fuzz/corpus/*/end_*), replayed by fuzz_corpus_replay.
std::vector<End> ends() {
    std::vector<End> rows = {
        {"apt_empty", "apt", "", true, 0, 0, nullptr},
        {"apt_emptyPatch", "apt", "0 0\n", true, 1, 0, nullptr},
        {"apt_lastPatchShort", "apt", "1 1\n1 2 3\n1 2\n1 2 3\n4\n", false, 1, 0, kAptClose},
        {"apt_garbageInPoints", "apt", "1 1\n1 x 3\n", false, 0, 0, kAptClose},
        {"fld_empty", "fld", "", false, 0, 0, kFldClose},
        {"fld_noFlowConditions", "fld", "wing 1 1 cp\n1 1 WALL WALL WALL WALL\n0 0 0 -0.5\n", false, 1, 0, kFldClose},
        {"dat_empty", "dat", "", false, 0, 0, "Error in the Header of DAT file. Parameter TITLE is absent"},
        {"dat_noVariables", "dat", "TITLE=\"t\"\nZONE I=1\n1 2 3\n", false, 0, 0,
         "Error in the Header of DAT file. Parameter VARIABLES is absent"},
        {"dat_twiceTheSameName", "dat", "VARIABLES=\"x\",\"y\",\"x\",\"z\"\n", false, 0, 0,
         "Error in the Header of DAT file. Wrong names of variables"},
        {"dat_twoVariables", "dat", "VARIABLES=\"x\",\"y\"\nZONE I=1\n1 2\n", false, 0, 0,
         "Error in the Header of DAT file. The number of variables <3"},
        {"dat_openQuote", "dat", "VARIABLES=\"x\",\"y\",\"z\n", false, 0, 0,
         "Error in the Header of DAT file. It's impossible to read variables from header"},
        {"dat_noZ", "dat", "VARIABLES=\"x\",\"y\",\"p\"\nZONE I=1\n1 2 3\n", false, 0, 0,
         "Error in DAT structure. No 3D surfaces are found"},
        {"dat_shortData", "dat", kGood + "ZONE I=2\n1 2 3 4 5\n", false, 1, 0, kZone},
        {"dat_moreDataThanCounted", "dat", kGood + "ZONE I=1\n1 2 3 4\n", false, 2, 0, kZone},
        {"dat_negativeNode", "dat", kHead + "ZONE N=3, E=1, ET=TRIANGLE, F=FEPOINT\n0 0 0 1 0 0 0 1 0\n1 -2 3\n", false,
         0, 0, kZone},
        {"wrl_singlePointSkipped", "wrl",
         "#VRML V2.0 utf8\nShape { geometry IndexedFaceSet { coord Coordinate { point [ 1 2 3 ] } "
         "coordIndex [ 0 ] } }\n" + kTriangle.substr(16),
         true, 0, 1, nullptr},
        {"wrl_emptyFile", "wrl", "", false, 0, 0, kNoHeader},
        {"wrl_noFaceSet", "wrl", "#VRML V2.0 utf8\nShape { geometry Box { size 1 1 1 } }\n", false, 0, 0, kNoSurface},
        {"wrl_unclosedNode", "wrl", kTriangle + "Transform { children [ " + kTriangle.substr(16) + "]", false, 0, 2,
         kNoSurface},
        {"wrl_extraClose", "wrl", kTriangle + "}\n", false, 0, 1, kNoSurface},
    };
    // Files that cannot be loaded end with the format's open message: missing,
    // vanished after being chosen (a dangling link), a folder, a named pipe
    // without a writer (never waited on), a read that fails (EIO). Marker
    // files end in FileError instead.
    const std::pair<const char*, const char*> opening[] = {
        {"apt", "It is impossible to open selected file"}, {"fld", "It is impossible to open selected FLD file"},
        {"dat", "It's impossible to open DAT file"}, {"wrl", kNoHeader}, {"mpt", nullptr}, {"inm", nullptr},
        {"apm", nullptr}, {"mrk", nullptr}};
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
                testutil::writeFile(dir.file("target"), "1 1\n1 2 3\n");
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
    if (tundrel::findMarkerFormat(c.ext)) {
        markers set;
        EXPECT_EQ(testutil::fileErrorLine([&] { importMarkers(make(c), set, 480); }), 24);
        return;
    }
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
