// Marker sets and the text marker files ("mpt", "inm", "apm") read from disk.
#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/markers/marker_util.h"
#include "tests/support/test_util.h"

namespace {

marker mk(double x, int number) {
    marker m;
    m.x = x, m.number = number;
    return m;
}

markers setWithNumbers(const std::vector<int>& numbers) {
    markers s;
    for (int n : numbers) addMarker(s, mk(0, n));
    return s;
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
        EXPECT_EQ(addMarker(s, mk(4.5, c.added)), static_cast<int>(c.present.size()) + 1);
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

// A set of three markers named "P" with its flags the other way is replaced
// by what the file holds (testutil::describe). Numbers out of range or not
// finite end the records there, as a stream's failed read does.
TEST(TextMarkers, ReadAsTheLayoutSays) {
    testutil::ScratchDir dir;
    const struct {
        const char* ext;
        const char* text;
        int imageHeight;
        const char* expected;
    } rows[] = {
        {"mpt", "10 20 0 0 1", 480, "1111 (10 20 0 0 1 1)"},
        {"inm", "10 20 0 0 1\n", 480, "1111 (10 459 0 0 1 1)"},
        {"inm", "1.5 2.25 7 8 0\n", 0, "1111 (1.5 -3.25 0 0 0 1)"},
        {"mpt", "1 2\n3 4 0\n5 6 7 8 9\n10 -1", 0, "1111 (1 2 0 0 0 1) (5 6 0 0 1 2)"},
        {"mpt", "1 2 0 0 1\n3 4 x 0 1\n5 6 0 0 1\n", 0, "1111 (1 2 0 0 1 1)"},
        {"mpt", "1 2 0.5 0 1\n", 0, "0000"},
        {"apm", "1 2 3\n-4 5e-1 6\n7 8", 0, "1111 (1 2 3 0 1 1) (-4 0.5 6 0 1 2)"},
        {"mpt", "1 2 0 0 1\n3 4 2147483648 0 1\n", 480, "1111 (1 2 0 0 1 1)"},
        {"mpt", "1e400 2 0 0 1\n", 480, "0000"},
        {"inm", "1 2 0 0 1\nnan 2 0 0 1\n", 480, "1111 (1 477 0 0 1 1)"},
        {"apm", "1 2 3\ninf 2 3\n", 480, "1111 (1 2 3 0 1 1)"},
    };
    for (const auto& c : rows) {
        const std::string file = dir.file(std::string("m.") + c.ext);
        testutil::writeFile(file, c.text);
        markers s = setWithNumbers({9, 9, 9});
        s.name = std::string("P");  // (assigning the literal trips g++ 12's -Wrestrict at -O3)
        s.hasX = s.hasY = s.hasZ = s.hasValue = c.expected[0] == '0';
        importMarkers(file, s, c.imageHeight);
        EXPECT_EQ(testutil::describe(s), c.expected) << c.text;
    }
}

TEST(ImportMarkers, ChoiceByExtensionAndFileErrors) {
    testutil::ScratchDir dir;
    for (const char* name : {"m.MPT", "m.txt", "mpt", "m.mpt.bak", "m."}) {
        testutil::writeFile(dir.file(name), "1 2 3 4 5\n");
        markers s = setWithNumbers({4});
        EXPECT_NO_THROW(importMarkers(dir.file(name), s, 0)) << name;
        EXPECT_TRUE(s.count() == 1 && !s.hasX) << name;
    }
    markers s;
    EXPECT_EQ(testutil::fileErrorLine([&] { importMarkers(dir.file("none.mpt"), s, 0); }), 24);
    EXPECT_EQ(testutil::fileErrorLine([&] { readPointMarkers(dir.file("none.apm"), s); }), 64);
    EXPECT_EQ(testutil::fileErrorLine([&] { readImageMarkers(dir.file("none.inm"), s, true, 10); }), 37);
}
