// Reading and writing the coordinates of one node.
#include <gtest/gtest.h>

#include "tests/support/models.h"

namespace {

region_fe model() {
    region_fe r;
    r.append(testutil::facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z", "x"}));
    r.append(testutil::facePatch(4, {0, 1, 2, -1}, {"Cp", "x", "y", "z"}));
    r.append(testutil::facePatch(3, {0, 1, 2, -1}, {"X", "Y"}));
    r.append(testutil::facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Cp"}));
    return r;
}

using P = std::array<double, 3>;

// Patch and node are tested with a strict greater-than: the counts
// themselves, and negative nodes, pass and meet the checked access
// (result 1 stands for its IndexError).
TEST(Points, RefuseReachOrThrow) {
    for (const auto& [patch, node, result] : {std::tuple{-1, 0, -1}, {5, 0, -1}, {4, 0, 1}, {2, 0, -1}, {0, 4, -1},
                                              {0, 3, 1}, {0, -1, 1}, {0, 2, 0}}) {
        SCOPED_TRACE(::testing::Message() << patch << " " << node);
        region_fe r = model();
        for (auto* op : {out_point_fe, in_point_fe}) {
            double x = 7, y = 8, z = 9;
            if (result == 1) {
                EXPECT_THROW(op(r, patch, node, x, y, z), arrayWorks::IndexError);
            } else {
                EXPECT_EQ(op(r, patch, node, x, y, z), result);
            }
            EXPECT_TRUE(result == 0 || (P{x, y, z}) == (P{7, 8, 9}));  // untouched when refused
        }
    }
}

TEST(Points, WriteThenReadInAnyLetterCaseDuplicatesAndGaps) {
    region_fe r = model();
    double x = 1.25, y = -3.5e-7, z = 1e300, a = 0, b = 0, c = 0;
    ASSERT_EQ(in_point_fe(r, 1, 1, x, y, z), 0);
    ASSERT_EQ(out_point_fe(r, 1, 1, a, b, c), 0);
    EXPECT_EQ((P{a, b, c}), (P{x, y, z}));
    EXPECT_EQ(r.patch(1).variable(0).values[1], 1.0);  // Cp untouched
    // "X" and "x" are both written; the later is the one read.
    r.patch(0).variable(3).values[2] = 55;
    ASSERT_EQ(out_point_fe(r, 0, 2, a, b, c), 0);
    EXPECT_EQ((P{a, b, c}), (P{55, 102, 202}));
    ASSERT_EQ(in_point_fe(r, 0, 2, x, y, z), 0);
    EXPECT_TRUE(r.patch(0).variable(0).values[2] == 1.25 && r.patch(0).variable(3).values[2] == 1.25);
    c = 0.5;  // a patch without z leaves it alone
    ASSERT_EQ(out_point_fe(r, 3, 1, a, b, c), 0);
    EXPECT_EQ((P{a, b, c}), (P{1, 101, 0.5}));
}

}  // namespace
