// Reading and writing the coordinates of one node.
#include <gtest/gtest.h>

#include "tests/mesh/mesh_util.h"

namespace {

region_fe model() {
    region_fe r;
    r.append(meshtest::facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z", "Cp"}));
    r.append(meshtest::facePatch(4, {0, 1, 2, -1}, {"Cp", "x", "y", "z"}));
    r.append(meshtest::facePatch(3, {0, 1, 2, -1}, {"X", "Y"}));
    r.append(meshtest::facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Cp"}));
    return r;
}

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
    for (bool reading : {true, false}) {
        double x = 7, y = 8, z = 9;
        auto call = [&] { return (reading ? out_point_fe : in_point_fe)(r, q.patch, q.node, x, y, z); };
        if (q.result == 1) {
            EXPECT_THROW(call(), arrayWorks::IndexError);
        } else {
            EXPECT_EQ(call(), q.result);
        }
        if (q.result != 0 || !reading) {
            EXPECT_EQ(x + y + z, 24.0);
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
                      Request{"negativeNode", 0, -1, 1}, Request{"lastNode", 0, 2, 0},
                      Request{"withoutZ", 3, 1, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Points, WriteThenReadInAnyLetterCase) {
    region_fe r = model();
    for (int patch : {0, 1}) {
        double x = 1.25, y = -3.5e-7, z = 1e300;
        ASSERT_EQ(in_point_fe(r, patch, 1, x, y, z), 0);
        double a = 0, b = 0, c = 0;
        ASSERT_EQ(out_point_fe(r, patch, 1, a, b, c), 0);
        EXPECT_EQ(a, x);
        EXPECT_EQ(b, y);
        EXPECT_EQ(c, z);
    }
    EXPECT_EQ(r.patch(1).variable(0).values[1], 1.0);  // Cp untouched
    EXPECT_EQ(r.patch(1).variable(1).values[1], 1.25);
}

TEST(Points, ADuplicateNameIsWrittenTwiceAndTheLaterIsRead) {
    region_fe r = model();
    FacePatch& p = r.patch(0);
    p.addVariable("x").values[1] = 55;  // "x" beside "X"
    double x = 0, y = 0, z = 0;
    ASSERT_EQ(out_point_fe(r, 0, 1, x, y, z), 0);
    EXPECT_EQ(x, 55.0);
    EXPECT_EQ(y, 101.0);
    x = -4;
    ASSERT_EQ(in_point_fe(r, 0, 1, x, y, z), 0);
    EXPECT_EQ(p.variable(0).values[1], -4.0);
    EXPECT_EQ(p.variable(4).values[1], -4.0);
}

TEST(Points, APatchWithoutZLeavesZAlone) {
    region_fe r = model();
    double x = 0, y = 0, z = 0.5;
    ASSERT_EQ(out_point_fe(r, 3, 2, x, y, z), 0);
    EXPECT_EQ(x, 2.0);
    EXPECT_EQ(y, 102.0);
    EXPECT_EQ(z, 0.5);
}

}  // namespace
