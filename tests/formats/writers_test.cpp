// What every geometry writer puts in its file, byte for byte, the checks that
// refuse a write with their messages, and DAT files read back as written.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>

#include "api/TundrelApi.h"
#include "api/detail/date.h"
#include "tests/formats/model_text.h"
#include "tests/support/test_util.h"

using testutil::facePatch;
using testutil::gridPatch;

namespace {

using Build = std::function<void(region&, region_fe&)>;

bool write(const char* ext, const std::string& file, region& reg, region_fe& fe, int first, int last,
           int precision = 0, bool scientific = false) {
    return tundrel::findGeometryFormat(ext)->write(file, reg, fe, first, last, precision, scientific);
}

std::shared_ptr<StructPatch> named(std::shared_ptr<StructPatch> p, const char* name) {
    p->name = name;
    return p;
}

std::shared_ptr<StructPatch> withVariables(std::vector<const char*> names, int K = 1) {
    auto p = std::make_shared<StructPatch>(1, 1, K);
    for (const char* n : names) p->addVariable(n);
    return p;
}

std::string replaced(std::string s, const std::string& date) {
    for (std::size_t at; (at = s.find("@DATE@")) != std::string::npos;) s.replace(at, 6, date);
    return s;
}

void wing(region& reg, region_fe&) {
    reg.name = "wing";
    reg.append(named(gridPatch(3, 2, {"cp"}), "P1"));
}

Build wingAt(double mach) {
    return [mach](region& r, region_fe& f) {
        wing(r, f);
        r.Mach = mach;
        r.alpha = 4;
    };
}

Build grid(int I, int J, const char* title = "") {
    return [=](region& r, region_fe&) {
        r.name = title;
        r.append(gridPatch(I, J));
    };
}

// dat: a 1 x 1 patch with a low x, then four faces of which one has four
// nodes (its fourth starts the next face) and runs of -1 are skipped. The
// first item written decides the variables.
void facesAfterAPatch(region& reg, region_fe& fe) {
    auto p = gridPatch(1, 1);
    p->variable(0).values[0] = -1.5e9;
    reg.append(p);
    fe.name = "faces";
    fe.append(facePatch(4, {0, 1, 2, -1, 2, 1, 3, -1, -1, 0, 3, 1, 2, 1, 2, 3, -1}, {"x", "y", "z", "T"}));
    fe.patch(0).variable(2).values[1] = -2e9;
}

// vrml: colours advance for every item of the range, written or not (a
// 1 x 5 patch and a face block without faces write nothing).
void someWriteNothing(region& reg, region_fe& fe) {
    for (int k : {2, 2, 1, 3}) reg.append(gridPatch(k, 5));
    fe.append(facePatch(3, {}));
    fe.append(facePatch(3, {0, 1, 2, -1}));
}

void volumeAfterASurface(region& reg, region_fe&) {
    reg.name = "v";
    reg.append(gridPatch(1, 1));
    reg.append(withVariables({"x", "y", "z"}, 2));
}

// The file written must equal tests/data/expected/<name>.<ext> byte for byte.
struct Output {
    const char* name;
    const char* ext;
    Build build;
    int first, last, precision;
    bool scientific;
    const char* regionName = nullptr;  // the region's title afterwards; @DATE@: the date of writing
};

void PrintTo(const Output& c, std::ostream* os) { *os << c.name; }

const Output kOutputs[] = {
    {"aptFixed", "apt", grid(3, 2), 0, 0, 3, false},
    {"aptScientific", "apt", grid(2, 1), 0, 0, 2, true},
    {"aptStructuredValuesNotClamped", "apt",
     [](region& r, region_fe&) {
         r.append(gridPatch(1, 1));
         r.patch(0).variable(0).values[0] = -2e9;
     },
     0, 0, 0, false},
    // Faces become 2 x 2 patches, a triangle repeating its last corner; low
    // values of faces are written as 0.
    {"aptFacesAsTwoByTwoPatches", "apt",
     [](region&, region_fe& f) {
         f.append(facePatch(10, {4, 7, 9, -1, 0, 1, -1, 1, 2, 3, 4, 5, -1}));
         f.patch(0).variable(2).values[9] = -2e9;
     },
     0, 0, 0, false},
    {"fldEmptyTitleBecomesTheDateAndStays", "fld", grid(1, 1), 0, 0, 0, false, "@DATE@"},
    {"fldVolumeSkippedButCounted", "fld", volumeAfterASurface, 0, 1, 0, false},
    {"fldSkippedFirstPatchWritesNoHeader", "fld", volumeAfterASurface, 1, 1, 0, false},
    {"datNoClosingLineEnd", "dat", wing, 0, 0, 2, false},
    {"datFlowFollowsTheLastValue", "dat", wingAt(0.8), 0, 0, 2, false},
    {"datNoFlowWithoutAPositiveMach", "dat", wingAt(std::nan("")), 0, 0, 2, false},
    {"datFacesOneBasedAndLowValuesZero", "dat", facesAfterAPatch, 0, 1, 0, false, ""},
    {"datFaceBlockAloneTakesTheFaceMeshTitle", "dat", facesAfterAPatch, 1, 1, 0, false},
    {"vrmlGridAsTriangles", "wrl", grid(3, 2, "Wing"), 0, 0, 1, false},
    {"vrmlScientific", "wrl", grid(2, 2), 0, 0, 2, true},
    {"vrmlFaceBlockFirstTakesTheFaceMeshTitle", "wrl",
     [](region& r, region_fe& f) {
         r.name = "not this one";
         r.append(gridPatch(2, 2));
         f.append(facePatch(6, {0, 1, 2, -1, 3, 4, 5, -1}));
     },
     1, 1, 0, false},
    {"vrmlColoursCycleFromBlue", "wrl",
     [](region& r, region_fe&) {
         for (int k = 0; k < 9; ++k) r.append(gridPatch(2, 2));
     },
     0, 8, 1, false},
    {"vrmlColoursAdvanceForItemsNotWritten", "wrl", someWriteNothing, 1, 5, 1, false},
    {"vrmlNothingWritten", "wrl", someWriteNothing, 2, 2, 1, false},
};

class WriterOutput : public testutil::HostTest, public ::testing::WithParamInterface<Output> {};

}  // namespace

TEST_P(WriterOutput, ByteForByte) {
    const Output& c = GetParam();
    region reg;
    region_fe fe;
    c.build(reg, fe);
    const std::string before = tundrel::strdate();
    ASSERT_TRUE(write(c.ext, dir.file("out"), reg, fe, c.first, c.last, c.precision, c.scientific));
    const std::string text = testutil::readFile(dir.file("out"));
    const std::string expected = testutil::expected(std::string(c.name) + "." + c.ext);
    const std::string date = text == replaced(expected, before) ? before : tundrel::strdate();
    EXPECT_EQ(text, replaced(expected, date));
    if (c.regionName) {
        EXPECT_EQ(reg.name, replaced(c.regionName, date));
    }
    EXPECT_TRUE(messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Formats, WriterOutput, ::testing::ValuesIn(kOutputs),
                         [](const auto& info) { return std::string(info.param.name); });

class Writers : public testutil::HostTest {};

// Ranges outside the model, then the checks of each format on the first item
// (a patch's variables decide whatever item is written) and unwritable paths.
TEST_F(Writers, RefuseWithTheFormatsMessage) {
    for (const char* ext : {"apt", "fld", "dat", "wrl"}) {
        const std::string dummy = ext == std::string("apt") ? "Dummy error" : "Dummy Error";
        region empty, one;
        region_fe none;
        one.append(gridPatch(2, 2));
        EXPECT_FALSE(write(ext, dir.file("e"), empty, none, 0, -1)) << ext;
        for (auto [first, last] : {std::pair{-1, 0}, {1, 0}, {0, 1}})
            EXPECT_FALSE(write(ext, dir.file("e"), one, none, first, last)) << ext << first << last;
        EXPECT_EQ(messages(), std::vector<std::string>(4, dummy)) << ext;
        host.messages.clear();
    }
    const char* kNoXyz = "Error in Header. No predefined variables X or Y or Z are found";
    const Build noZFirst = [](region& r, region_fe&) {
        r.append(withVariables({"X", "Y", "cp"}));
        r.append(gridPatch(2, 2));
    };
    const Build twoVariables = [](region& r, region_fe&) { r.append(withVariables({"x", "y"})); };
    const struct {
        const char* ext;
        Build build;
        int first, last;
        const char* message;
        const char* file = "e";
    } rows[] = {
        {"apt", noZFirst, 1, 1, kNoXyz},
        {"apt", twoVariables, 0, 0, "Error in Header. The number of variables <3"},
        {"apt",
         [](region& r, region_fe& f) {
             r.append(gridPatch(2, 2));
             f.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y"}));
         },
         1, 1, "Irregular structure of APT file. Variables X or Y or Z are absent"},
        {"fld", noZFirst, 1, 1, kNoXyz},
        {"fld", [](region& r, region_fe&) { r.append(withVariables({})); }, 0, 0, kNoXyz},
        {"fld", grid(2, 2), 0, 0, "It's impossible to close FLD file", "no/dir/e"},
        {"dat", grid(2, 2), 0, 0, "It's impossible to close DAT file", "no/dir/e"},
        {"wrl", grid(2, 2), 0, 0, "It's impossible to open VRML file", "no/dir/e"},
        {"wrl", twoVariables, 0, 0, "Error in Header.Number of variables <3"},
        {"wrl", noZFirst, 1, 1, kNoXyz},
        {"wrl",
         [](region& r, region_fe& f) {
             r.append(gridPatch(2, 2));
             f.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "w"}));
             f.append(facePatch(3, {0, 1, 2, -1}));
         },
         2, 2, kNoXyz},
    };
    for (const auto& r : rows) {
        region reg;
        region_fe fe;
        r.build(reg, fe);
        EXPECT_FALSE(write(r.ext, dir.file(r.file), reg, fe, r.first, r.last)) << r.ext << ' ' << r.message;
        EXPECT_EQ(messages(), std::vector<std::string>{r.message}) << r.ext;
        host.messages.clear();
    }
    // A face list starting with -1 stops the DAT writer half way, the file left.
    region reg;
    region_fe fe;
    wing(reg, fe);
    fe.append(facePatch(3, {-1, 0, 1, 2, -1}, {"x", "y", "z", "T"}));
    EXPECT_FALSE(write("dat", dir.file("half.dat"), reg, fe, 0, 1));
    EXPECT_TRUE(std::filesystem::exists(dir.file("half.dat")));
    EXPECT_EQ(messages(), std::vector<std::string>{"Logical Error. Index has negative value"});
}

// Names, counts, flow conditions, face lists and every value (NaN and an
// infinity included) of both objects read back, in both notations.
TEST_F(Writers, DatRoundTripKeepsGeometryNamesVariablesAndFlow) {
    region reg;
    region_fe fe;
    reg.name = "model A";
    reg.Mach = 0.75;
    reg.alpha = -2.5;
    reg.beta = 1;
    reg.append(named(gridPatch(4, 3, {"T"}), "upper side"));
    reg.patch(0).variable(3).values[5] = std::nan("");
    reg.patch(0).variable(0).values[0] = std::numeric_limits<double>::infinity();  // the zone's first value
    reg.append(gridPatch(2, 5, {"T"}));  // unnamed
    fe.Mach = 0.3;
    fe.alpha = 7;
    fe.append(facePatch(4, {0, 1, 2, -1, 1, 3, 2, -1}, {"x", "y", "z", "T"}));
    fe.append(facePatch(3, {0, 2, 1, -1}, {"x", "y", "z", "T"}, "cap"));
    for (bool scientific : {false, true}) {
        region r;
        region_fe f;
        ASSERT_TRUE(export_data(dir.file("m.dat"), 17, false, scientific, reg, fe));
        ASSERT_TRUE(import_data(dir.file("m.dat"), false, r, f)) << messages()[0];
        EXPECT_EQ(f.name, reg.name);  // the face mesh takes the file's title
        f.name = fe.name;
        EXPECT_EQ(testutil::modelText(r, f), testutil::modelText(reg, fe)) << scientific;
    }
    EXPECT_TRUE(messages().empty());
}
