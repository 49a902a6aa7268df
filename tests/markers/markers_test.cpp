// Marker sets and the text marker files ("mpt", "inm", "apm") read from disk.
#include <gtest/gtest.h>

#include <functional>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

marker mk(double x, double y, double z, bool active, int number) {
    marker m;
    m.x = x, m.y = y, m.z = z, m.active = active, m.number = number;
    return m;
}

markers setWithNumbers(const std::vector<int>& numbers) {
    markers s;
    for (int n : numbers) addMarker(s, mk(0, 0, 0, false, n));
    return s;
}

// The line of the FileError that `f` throws from markersImport; -1 for none.
int fileErrorLine(const std::function<void()>& f) {
    try {
        f();
    } catch (const arrayWorks::FileError& e) {
        EXPECT_STREQ(e.message, "File error!");
        EXPECT_STREQ(e.file, arrayWorks::source::markersImport);
        return e.line;
    }
    return -1;
}

}  // namespace

TEST(Markers, NumberingRuleAndCheckedAccess) {
    struct Case {
        std::vector<int> present;
        int added, expected;
    };
    for (const Case& c : {Case{{}, 0, 1}, Case{{3, 7}, 0, 8}, Case{{7, 3}, 0, 8}, Case{{-5, -2}, 0, 1},
                          Case{{3, 7}, 3, 3}, Case{{1}, -4, -4}}) {
        markers s = setWithNumbers(c.present);
        EXPECT_EQ(addMarker(s, mk(4.5, 0, 0, true, c.added)), static_cast<int>(c.present.size()) + 1);
        EXPECT_EQ(s[s.count() - 1].number, c.expected) << c.present.size() << " " << c.added;
        EXPECT_EQ(s.at(s.count() - 1).x, 4.5);
    }
    const markers s = setWithNumbers({1, 2});
    for (int bad : {-1, 2}) {
        try {
            (void)s[bad];
            ADD_FAILURE() << bad;
        } catch (const arrayWorks::IndexError& e) {
            EXPECT_STREQ(e.message, "Index error!");
            EXPECT_STREQ(e.file, arrayWorks::source::markers);
            EXPECT_EQ(e.line, 65);
        }
    }
}

struct TextCase {
    const char* name;
    const char* ext;
    std::string text;
    int imageHeight;
    std::vector<marker> expected;
};

void PrintTo(const TextCase& c, std::ostream* os) { *os << c.name; }

class TextMarkers : public testutil::HostTest, public ::testing::WithParamInterface<TextCase> {};

TEST_P(TextMarkers, ReadAsTheLayoutSays) {
    const TextCase& c = GetParam();
    const std::string file = dir.file(std::string("m.") + c.ext);
    testutil::writeFile(file, c.text);
    markers s = setWithNumbers({9, 9, 9});  // replaced, not appended to
    s.name = "P";
    const bool flags = !c.expected.empty();  // all four, z and value included
    s.hasX = s.hasY = s.hasZ = s.hasValue = !flags;
    importMarkers(file, s, c.imageHeight);
    EXPECT_EQ(s.name, "");
    EXPECT_TRUE(s.hasX == flags && s.hasY == flags && s.hasZ == flags && s.hasValue == flags);
    ASSERT_EQ(s.count(), static_cast<int>(c.expected.size()));
    for (int i = 0; i < s.count(); ++i) {
        const marker& e = c.expected[static_cast<std::size_t>(i)];
        EXPECT_TRUE(s[i].x == e.x && s[i].y == e.y && s[i].z == e.z && s[i].value == 0.0) << i;
        EXPECT_EQ(s[i].active, e.active) << i;
        EXPECT_EQ(s[i].number, e.number) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TextMarkers,
    ::testing::Values(
        TextCase{"mptOneLine", "mpt", "10 20 0 0 1", 480, {mk(10, 20, 0, true, 1)}},
        TextCase{"inmFlipsRows", "inm", "10 20 0 0 1\n", 480, {mk(10, 459, 0, true, 1)}},
        TextCase{"inmZeroHeight", "inm", "1.5 2.25 7 8 0\n", 0, {mk(1.5, -3.25, 0, false, 1)}},
        TextCase{"tokensAcrossLinesShortLastDropped", "mpt", "1 2\n3 4 0\n5 6 7 8 9\n10 -1", 0,
                 {mk(1, 2, 0, false, 1), mk(5, 6, 0, true, 2)}},
        TextCase{"stopsAtAWord", "mpt", "1 2 0 0 1\n3 4 x 0 1\n5 6 0 0 1\n", 0, {mk(1, 2, 0, true, 1)}},
        TextCase{"realInIntegerColumn", "mpt", "1 2 0.5 0 1\n", 0, {}},
        TextCase{"apmPoints", "apm", "1 2 3\n-4 5e-1 6\n7 8", 0, {mk(1, 2, 3, true, 1), mk(-4, 0.5, 6, true, 2)}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ImportMarkers, ChoiceByExtensionAndFileErrors) {
    testutil::ScratchDir dir;
    for (const char* name : {"m.MPT", "m.txt", "mpt", "m.mpt.bak", "m."}) {
        testutil::writeFile(dir.file(name), "1 2 3 4 5\n");
        markers s = setWithNumbers({4});
        EXPECT_NO_THROW(importMarkers(dir.file(name), s, 0)) << name;
        EXPECT_TRUE(s.count() == 1 && !s.hasX) << name;
    }
    markers s;
    EXPECT_EQ(fileErrorLine([&] { importMarkers(dir.file("none.mpt"), s, 0); }), 24);
    EXPECT_EQ(fileErrorLine([&] { readPointMarkers(dir.file("none.apm"), s); }), 64);
    EXPECT_EQ(fileErrorLine([&] { readImageMarkers(dir.file("none.inm"), s, true, 10); }), 37);
}
