// Marker sets and the text marker files ("mpt", "inm", "apm") read from disk.
#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/test_util.h"

using testutil::HostTest;

namespace {

markers setWithNumbers(const std::vector<int>& numbers) {
    markers s;
    for (int n : numbers) {
        marker m;
        m.number = n;
        addMarker(s, m);
    }
    return s;
}

}  // namespace

// addMarker: number 0 takes one more than the largest number (from 0 up),
// any other number is kept.
struct NumberCase {
    const char* name;
    std::vector<int> present;
    int added;
    int expected;
};

void PrintTo(const NumberCase& c, std::ostream* os) { *os << c.name; }

class MarkerNumbering : public ::testing::TestWithParam<NumberCase> {};

TEST_P(MarkerNumbering, FollowsTheNumberingRule) {
    const NumberCase& c = GetParam();
    markers s = setWithNumbers(c.present);
    marker m;
    m.number = c.added;
    m.x = 4.5;
    EXPECT_EQ(addMarker(s, m), static_cast<int>(c.present.size()) + 1);
    EXPECT_EQ(s[s.count() - 1].number, c.expected);
    EXPECT_EQ(s[s.count() - 1].x, 4.5);
}

INSTANTIATE_TEST_SUITE_P(Cases, MarkerNumbering,
                         ::testing::Values(NumberCase{"empty", {}, 0, 1}, NumberCase{"after3and7", {3, 7}, 0, 8},
                                           NumberCase{"unordered", {7, 3}, 0, 8},
                                           NumberCase{"negativesIgnored", {-5, -2}, 0, 1},
                                           NumberCase{"givenKept", {3, 7}, 5, 5},
                                           NumberCase{"duplicateKept", {3, 7}, 3, 3},
                                           NumberCase{"negativeGivenKept", {1}, -4, -4}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Markers, IndexedAccessIsChecked) {
    markers s = setWithNumbers({1, 2});
    EXPECT_EQ(s.at(1).number, 2);
    for (int bad : {-1, 2, 100}) {
        try {
            (void)s[bad];
            ADD_FAILURE() << bad;
        } catch (const arrayWorks::IndexError& e) {
            EXPECT_STREQ(e.message, "Index error!");
            EXPECT_EQ(e.code, 1);
            EXPECT_STREQ(e.file, arrayWorks::source::markers);
            EXPECT_EQ(e.line, 65);
        }
    }
    const markers& cs = s;
    EXPECT_THROW((void)cs.at(2), arrayWorks::IndexError);
}

// The text readers: one file each, read through importMarkers.
struct TextCase {
    const char* name;
    const char* ext;
    std::string text;
    int imageHeight;
    std::vector<marker> expected;  // with numbers
    bool flags;                    // all four flags
};

void PrintTo(const TextCase& c, std::ostream* os) { *os << c.name; }

class TextMarkers : public HostTest, public ::testing::WithParamInterface<TextCase> {};

TEST_P(TextMarkers, ReadAsTheLayoutSays) {
    const TextCase& c = GetParam();
    const std::string file = dir.file(std::string("m.") + c.ext);
    testutil::writeFile(file, c.text);
    markers s = setWithNumbers({9, 9, 9});  // replaced, not appended to
    s.name = "P";
    s.hasX = s.hasY = s.hasZ = s.hasValue = !c.flags;
    importMarkers(file, s, c.imageHeight);
    EXPECT_EQ(s.name, "");
    EXPECT_EQ(s.hasX, c.flags);
    EXPECT_EQ(s.hasY, c.flags);
    EXPECT_EQ(s.hasZ, c.flags);
    EXPECT_EQ(s.hasValue, c.flags);
    ASSERT_EQ(s.count(), static_cast<int>(c.expected.size()));
    for (int i = 0; i < s.count(); ++i) {
        const marker& e = c.expected[static_cast<std::size_t>(i)];
        EXPECT_EQ(s[i].x, e.x) << i;
        EXPECT_EQ(s[i].y, e.y) << i;
        EXPECT_EQ(s[i].z, e.z) << i;
        EXPECT_EQ(s[i].value, 0.0) << i;
        EXPECT_EQ(s[i].active, e.active) << i;
        EXPECT_EQ(s[i].number, e.number) << i;
    }
    EXPECT_TRUE(messages().empty());
}

marker mk(double x, double y, double z, bool active, int number) {
    marker m;
    m.x = x;
    m.y = y;
    m.z = z;
    m.active = active;
    m.number = number;
    return m;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TextMarkers,
    ::testing::Values(
        TextCase{"mptOneLine", "mpt", "10 20 0 0 1\n", 480, {mk(10, 20, 0, true, 1)}, true},
        TextCase{"mptNoFinalLineEnd", "mpt", "10 20 0 0 1", 0, {mk(10, 20, 0, true, 1)}, true},
        TextCase{"inmFlipsRows", "inm", "10 20 0 0 1\n", 480, {mk(10, 459, 0, true, 1)}, true},
        TextCase{"inmZeroHeight", "inm", "1.5 2.25 7 8 0\n", 0, {mk(1.5, -3.25, 0, false, 1)}, true},
        TextCase{"mptTokensAcrossLines", "mpt", "1 2\n3 4 0\n5 6 7 8 9\n10 -1", 0,
                 {mk(1, 2, 0, false, 1), mk(5, 6, 0, true, 2)}, true},
        TextCase{"mptShortLastLineDropped", "mpt", "1 2 0 0 1\n3 4\n", 0, {mk(1, 2, 0, true, 1)}, true},
        TextCase{"mptStopsAtAWord", "mpt", "1 2 0 0 1\n3 4 x 0 1\n5 6 0 0 1\n", 0, {mk(1, 2, 0, true, 1)}, true},
        TextCase{"mptRealInIntegerColumn", "mpt", "1 2 0.5 0 1\n", 0, {}, false},
        TextCase{"mptEmpty", "mpt", "", 0, {}, false},
        TextCase{"apmPoints", "apm", "1 2 3\n-4 5e-1 6\n", 0, {mk(1, 2, 3, true, 1), mk(-4, 0.5, 6, true, 2)}, true},
        TextCase{"apmShortLastDropped", "apm", "1 2 3 4 5", 0, {mk(1, 2, 3, true, 1)}, true},
        TextCase{"apmEmpty", "apm", "  \n", 0, {}, false}),
    [](const auto& info) { return std::string(info.param.name); });

class ImportMarkers : public HostTest {};

TEST_F(ImportMarkers, ExtensionIsCaseSensitiveAndUnknownOnesReadNothing) {
    for (const char* name : {"m.MPT", "m.Apm", "m.txt", "mpt", "m.mpt.bak", "m."}) {
        const std::string file = dir.file(name);
        testutil::writeFile(file, "1 2 3 4 5\n");
        markers s = setWithNumbers({4});
        s.name = "kept";
        s.hasZ = true;
        EXPECT_NO_THROW(importMarkers(file, s, 0)) << name;
        EXPECT_EQ(s.count(), 1) << name;
        EXPECT_EQ(s.name, "kept") << name;
        EXPECT_TRUE(s.hasZ) << name;
        EXPECT_FALSE(s.hasX) << name;
    }
    EXPECT_EQ(markerFileExtension("a.b/c"), "b/c");
    EXPECT_EQ(markerFileExtension("noext"), "");
}

TEST_F(ImportMarkers, UnopenableFilesGiveTheReadersErrorThenFileErrorLine24) {
    struct Case {
        const char* name;
        bool flip;
        int readerLine;
    };
    for (const Case& c : {Case{"none.mpt", false, 37}, Case{"none.inm", true, 37}, Case{"none.apm", false, 64}}) {
        markers s;
        try {
            if (c.readerLine == 64) readPointMarkers(dir.file(c.name), s);
            else readImageMarkers(dir.file(c.name), s, c.flip, 10);
            ADD_FAILURE() << c.name;
        } catch (const arrayWorks::FileError& e) {
            EXPECT_EQ(e.line, c.readerLine);
            EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
        }
        try {
            importMarkers(dir.file(c.name), s, 0);
            ADD_FAILURE() << c.name;
        } catch (const arrayWorks::FileError& e) {
            EXPECT_STREQ(e.message, "File error!");
            EXPECT_EQ(e.code, 4);
            EXPECT_EQ(e.line, 24);
            EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
        }
    }
    // A directory is no marker file either.
    markers s;
    std::filesystem::create_directory(dir.file("d.apm"));
    EXPECT_THROW(importMarkers(dir.file("d.apm"), s, 0), arrayWorks::FileError);
}
