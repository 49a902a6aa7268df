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

std::array<double, 3> xyz(double x, double y, double z) { return {x, y, z}; }

struct Request {
    const char* name;
    int patch, node;
    int result;  // 0, -1, or 1 for an IndexError from the checked access
};
void PrintTo(const Request& q, std::ostream* os) { *os << q.name; }

class PointRequests : public ::testing::TestWithParam<Request> {};

TEST_P(PointRequests, RefuseReachOrThrow) {
    const Request& q = GetParam();
    region_fe r = model();
    for (auto* op : {out_point_fe, in_point_fe}) {
        double x = 7, y = 8, z = 9;
        if (q.result == 1) {
            EXPECT_THROW(op(r, q.patch, q.node, x, y, z), arrayWorks::IndexError);
        } else {
            EXPECT_EQ(op(r, q.patch, q.node, x, y, z), q.result);
        }
        if (q.result != 0) {
            EXPECT_EQ(x + y + z, 24.0);  // untouched
        }
    }
}

// Patch and node are tested with a strict greater-than: the counts
// themselves, and negative nodes, pass and meet the checked access.
INSTANTIATE_TEST_SUITE_P(
    Cases, PointRequests,
    ::testing::Values(Request{"negativePatch", -1, 0, -1}, Request{"patchAboveCount", 5, 0, -1},
                      Request{"patchAtCount", 4, 0, 1}, Request{"twoVariables", 2, 0, -1},
                      Request{"nodeAboveCount", 0, 4, -1}, Request{"nodeAtCount", 0, 3, 1},
                      Request{"negativeNode", 0, -1, 1}, Request{"lastNode", 0, 2, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Points, WriteThenReadInAnyLetterCaseDuplicatesAndGaps) {
    region_fe r = model();
    double x = 1.25, y = -3.5e-7, z = 1e300;
    ASSERT_EQ(in_point_fe(r, 1, 1, x, y, z), 0);
    double a = 0, b = 0, c = 0;
    ASSERT_EQ(out_point_fe(r, 1, 1, a, b, c), 0);
    EXPECT_EQ(xyz(a, b, c), xyz(x, y, z));
    EXPECT_EQ(r.patch(1).variable(0).values[1], 1.0);  // Cp untouched

    // "X" and "x" are both written; the later is the one read.
    r.patch(0).variable(3).values[2] = 55;
    ASSERT_EQ(out_point_fe(r, 0, 2, a, b, c), 0);
    EXPECT_EQ(xyz(a, b, c), xyz(55, 102, 202));
    ASSERT_EQ(in_point_fe(r, 0, 2, x, y, z), 0);
    EXPECT_EQ(r.patch(0).variable(0).values[2], 1.25);
    EXPECT_EQ(r.patch(0).variable(3).values[2], 1.25);

    c = 0.5;  // a patch without z leaves it alone
    ASSERT_EQ(out_point_fe(r, 3, 1, a, b, c), 0);
    EXPECT_EQ(xyz(a, b, c), xyz(1, 101, 0.5));
}

}  // namespace
