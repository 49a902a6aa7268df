#include <gtest/gtest.h>

#include <random>

#include "api/fields/self_illumination.h"
#include "api/detail/surface_bvh.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"
#include "api/detail/self_illumination_kernel.h"

using shapes::V;

namespace {

V unit(V v) { return v / v.length(); }

// A bowl z = z0 + s a (x^2 + y^2) over an I x J grid, normals on its concave side.
shapes::Block bowl(int I, int J, double z0, double s, bool faces) {
    const double a = 0.15, h = 0.5;
    auto at = [=](int i, int j) {
        const double x = h * (i - 0.5 * (I - 1)), y = h * (j - 0.5 * (J - 1));
        return V(x, y, z0 + s * a * (x * x + y * y));
    };
    shapes::Block b = faces ? shapes::gridAsFaces(I, J, at, {}) : shapes::grid(I, J, at, {});
    for (std::size_t k = 0; k < b.pos.size(); ++k) {
        const V& p = b.pos[k];
        b.normal[k] = unit(V(-2 * a * p.x, -2 * a * p.y, 1) * s);
    }
    return b;
}

// Two bowls facing each other (one structured, one of faces) and a small
// ball between them with outward normals; values random in [1, 2].
std::vector<shapes::Block> twoBowls(unsigned seed) {
    std::vector<shapes::Block> blocks{bowl(9, 7, 0.0, 1.0, false), bowl(8, 8, 3.0, -1.0, true),
                                      shapes::sphere(4, 7, 0.6, {0.2, -0.1, 1.5}, false)};
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(1.0, 2.0);
    for (auto& b : blocks)
        for (double& v : b.value) v = u(rng);
    return blocks;
}

// Every node's result against the plain loop, to 1e-12 of the magnitudes of its terms.
void expectMatchesReference(const std::vector<double>& got, const FieldMasterD& f, const std::string& name,
                            double ratio, const std::function<bool(int, int)>& visible = {}) {
    std::vector<double> mag;
    const std::vector<double> want = shapes::referenceCorrection(f, name, ratio, visible, &mag);
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t k = 0; k < got.size(); ++k)
        EXPECT_NEAR(got[k], want[k], 1e-12 * (mag[k] + std::abs(want[k]))) << "node " << k;
}

}  // namespace

// ---- node areas ------------------------------------------------------------

TEST(NodeArea, FlatGridCountsQuarterHalfAndWholeCells) {
    const double h = 0.5;
    for (bool faces : {false, true}) {
        auto at = [h](int i, int j) { return V(h * i, h * j, 7.0); };
        FieldMasterD f = shapes::build({faces ? shapes::gridAsFaces(4, 3, at, {0, 0, 1}) : shapes::grid(4, 3, at, {0, 0, 1})});
        const double cell = h * h;
        // Node (i, j) = i + 4 j. Interior 1 cell, edges 1/2, corners 1/4 on
        // the grid; the triangles give the corner where two meet (3 and 8)
        // two thirds of a half cell and the other two corners one third.
        struct Row {
            int node;
            double grid, faces;
        } rows[] = {{5, 1.0, 1.0}, {6, 1.0, 1.0}, {1, 0.5, 0.5}, {4, 0.5, 0.5},
                    {0, 0.25, 1.0 / 6}, {3, 0.25, 2.0 / 6}, {8, 0.25, 2.0 / 6}, {11, 0.25, 1.0 / 6}};
        for (const Row& r : rows)
            EXPECT_NEAR(tundrel::detail::nodeArea(f, 0, r.node), (faces ? r.faces : r.grid) * cell, 1e-15) << r.node;
        EXPECT_THROW(tundrel::detail::nodeArea(f, 0, 12), arrayWorks::IndexError);
        EXPECT_THROW(tundrel::detail::nodeArea(f, 1, 0), arrayWorks::IndexError);
    }
}

// ---- the kernel against the plain loop ---------------------------------------

struct KernelCase {
    const char* name;
    int selection;  // 0 none, 1 some nodes, 2 whole first block
    bool visibility;
    double ratio;
};

class SelfIlluminationKernel : public ::testing::TestWithParam<KernelCase> {};

TEST_P(SelfIlluminationKernel, AgreesWithThePlainLoop) {
    const KernelCase c = GetParam();
    auto blocks = twoBowls(11);
    if (c.selection == 1)
        for (auto& b : blocks)
            for (std::size_t k = 0; k < b.selected.size(); ++k) b.selected[k] = (k % 3 != 1) ? 2 : 0;
    if (c.selection == 2) blocks[0].selected.assign(blocks[0].selected.size(), 1);
    blocks[1].value[5] = arrayWorks::kNoValue;
    blocks[0].value[20] = arrayWorks::kNoValue;
    FieldMasterD f = shapes::build(blocks);

    std::function<bool(int, int)> visible;
    const tundrel::Surface s(f);
    const tundrel::SurfaceBvh bvh(s);
    if (c.visibility) visible = [&](int a, int b) { return !bvh.occluded(a, b); };

    tundrel::SelfIlluminationStats stats;
    const std::vector<double> got = tundrel::detail::selfIlluminationValues(f, "P", c.ratio, c.visibility, &stats);
    expectMatchesReference(got, f, "P", c.ratio, visible);
    EXPECT_EQ(got[f.offset(1) + 5], arrayWorks::kNoValue);
    EXPECT_EQ(stats.pairs, stats.participants * (stats.participants - 1));
    if (c.visibility) {
        EXPECT_GT(stats.segmentTests, 0);
        EXPECT_LE(stats.segmentTests, stats.pairs / 2);
    } else {
        EXPECT_EQ(stats.segmentTests, 0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SelfIlluminationKernel,
    ::testing::Values(KernelCase{"all", 0, false, 0.37}, KernelCase{"some", 1, false, 1.0},
                      KernelCase{"firstBlock", 2, false, 0.5}, KernelCase{"allVisible", 0, true, 0.37},
                      KernelCase{"someVisible", 1, true, 1.0}),
    [](const auto& info) { return std::string(info.param.name); });

// Inside a closed convex ball every pair faces itself and nothing is in
// between: the obstruction test must change nothing, having tested every
// unordered pair exactly once.
TEST(SelfIlluminationVisibility, InsideAClosedBallNothingIsHidden) {
    auto ball = shapes::sphere(14, 20, 1.5, {0.3, 0.1, -0.2});
    for (std::size_t k = 0; k < ball.value.size(); ++k) ball.value[k] = 1.0 + 0.01 * static_cast<double>(k % 17);
    FieldMasterD f = shapes::build({ball});
    tundrel::SelfIlluminationStats with, without;
    const auto a = tundrel::detail::selfIlluminationValues(f, "P", 0.8, true, &with);
    const auto b = tundrel::detail::selfIlluminationValues(f, "P", 0.8, false, &without);
    const auto n = static_cast<std::int64_t>(ball.pos.size());
    EXPECT_EQ(with.segmentTests, n * (n - 1) / 2);
    for (std::size_t k = 0; k < a.size(); ++k) {
        EXPECT_NEAR(a[k], b[k], 1e-13 * std::abs(ball.value[k]));
        EXPECT_LT(a[k], ball.value[k] - 1e-3);  // something was received
    }
    expectMatchesReference(a, f, "P", 0.8);
}

// Two parallel plates facing each other with a screen half way: exactly the
// pairs whose segment crosses the screen drop out.
TEST(SelfIlluminationVisibility, AScreenHidesExactlyTheBlockedPairs) {
    auto at = [](double z) { return [z](int i, int j) { return V(i, j, z); }; };
    auto lower = shapes::grid(6, 6, at(0.0), {0, 0, 1}, 1.0);
    auto upper = shapes::grid(6, 6, at(2.0), {0, 0, -1}, 2.0);
    // Screen over 1.2 < x < 3.7 at z = 1: no midpoint of two nodes lies on its edge.
    auto screen = shapes::grid(2, 2, [](int i, int j) { return V(1.2 + 2.5 * i, -0.3 + 5.6 * j, 1.0); }, {0, 0, 1});
    lower.selected.assign(36, 1);
    upper.selected.assign(36, 1);
    FieldMasterD f = shapes::build({lower, upper, screen});
    auto visible = [&](int a, int b) {
        const double mx = 0.5 * (f.x()[static_cast<std::size_t>(a)] + f.x()[static_cast<std::size_t>(b)]);
        return !(mx > 1.2 && mx < 3.7);
    };
    tundrel::SelfIlluminationStats stats;
    const auto got = tundrel::detail::selfIlluminationValues(f, "P", 1.0, true, &stats);
    EXPECT_EQ(stats.segmentTests, 36 * 36);  // each facing pair once; the plates' own pairs do not face
    expectMatchesReference(got, f, "P", 1.0, visible);
    const auto open = tundrel::detail::selfIlluminationValues(f, "P", 1.0, false);
    int hidden = 0;
    for (std::size_t k = 0; k < 72; ++k) hidden += got[k] > open[k] + 1e-9;
    EXPECT_GT(hidden, 40);
    for (std::size_t k = 72; k < 76; ++k) EXPECT_EQ(got[k], 1.0);  // the screen is not selected
}

// ---- edge cases through the correction proper --------------------------------

class SelfIlluminationCorrection : public testutil::HostTest {
protected:
    // Plate A at z = 0 and plate B at z = dz, normals given; coordinates of
    // at least 1 (the coincidence rule is relative to them).
    FieldMasterD plates(double dz, V na, V nb) {
        auto a = shapes::grid(3, 3, [](int i, int j) { return V(1 + i, 1 + j, 0.0); }, na, 1.0);
        auto b = shapes::grid(3, 3, [dz](int i, int j) { return V(1 + i, 1 + j, dz); }, nb, 3.0);
        return shapes::build({a, b});
    }
    std::vector<double> run(FieldMasterD& f, double ratio, const std::string& name = "P_si") {
        EXPECT_TRUE(tundrel::detail::correctSelfIllumination(f, "P", ratio, false, name));
        const auto* fn = f.scalar(f.findFunction(name));
        return std::vector<double>(fn->data(), fn->data() + fn->size());
    }
    static std::vector<double> source(const FieldMasterD& f) {
        const auto* fn = f.scalar(f.findFunction("P"));
        return std::vector<double>(fn->data(), fn->data() + fn->size());
    }
};

TEST_F(SelfIlluminationCorrection, CoincidentAndNearlyCoincidentNodes) {
    // 1e-11 apart (below 1e-10 of the coordinates): nothing is exchanged.
    FieldMasterD close = plates(1e-11, {0, 0, 1}, {0, 0, -1});
    EXPECT_EQ(run(close, 1.0), source(close));
    FieldMasterD same = plates(0.0, {0, 0, 1}, {0, 0, -1});
    EXPECT_EQ(run(same, 1.0), source(same));
    // 1e-9 apart they do exchange.
    FieldMasterD apart = plates(1e-9, {0, 0, 1}, {0, 0, -1});
    const auto got = run(apart, 1.0);
    EXPECT_LT(got[4], 1.0 - 0.1);
    EXPECT_EQ(host.busyDepth, 0);
    EXPECT_GT(host.busyChanges, 0);
    EXPECT_EQ(host.lastDone, host.lastTotal);
}

TEST_F(SelfIlluminationCorrection, NoValueNodesKeepTheMarkerAndGiveNothing) {
    FieldMasterD marked = plates(1.0, {0, 0, 1}, {0, 0, -1});
    marked.scalar(marked.findFunction("P"))->at(1, 4) = arrayWorks::kNoValue;
    // The same with that node left out of the selection instead.
    FieldMasterD unselected = plates(1.0, {0, 0, 1}, {0, 0, -1});
    auto& sel = unselected.selection();
    for (int b = 0; b < 2; ++b)
        for (int n = 0; n < 9; ++n) sel.at(b, n) = !(b == 1 && n == 4);
    const auto a = run(marked, 1.0), b = run(unselected, 1.0);
    EXPECT_EQ(a[9 + 4], arrayWorks::kNoValue);
    EXPECT_EQ(b[9 + 4], 3.0);
    for (std::size_t k = 0; k < a.size(); ++k) {
        if (k == 13) continue;
        EXPECT_DOUBLE_EQ(a[k], b[k]) << k;
    }
}

TEST_F(SelfIlluminationCorrection, BadNamesAndKindsLeaveTheContainerAsItWas) {
    FieldMasterD f = plates(1.0, {0, 0, 1}, {0, 0, -1});
    auto line = [&](auto&& call) {
        try {
            call();
        } catch (const arrayWorks::IndexError& e) {
            return std::pair<std::string, int>(e.file, e.line);
        }
        return std::pair<std::string, int>("", 0);
    };
    EXPECT_EQ(line([&] { tundrel::detail::correctSelfIllumination(f, "Q", 1.0, false, "Q_si"); }),
              (std::pair<std::string, int>("..\\api\\geo.h", 804)));
    EXPECT_FALSE(tundrel::detail::correctSelfIllumination(f, "$_N", 1.0, false, "N_si"));  // not a scalar field
    EXPECT_FALSE(tundrel::detail::correctSelfIllumination(f, "P", 1.0, false, "P"));       // name exists
    EXPECT_EQ(f.functionCount(), 3);

    FieldMasterD noNormals;
    noNormals.addBlock(shapes::grid(2, 2, [](int i, int j) { return V(i, j, 0); }, {}).layout,
                       {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(1, 1, 0)});
    noNormals.addSelection();
    noNormals.addScalar("P", 1.0);
    EXPECT_EQ(line([&] { tundrel::detail::correctSelfIllumination(noNormals, "P", 1.0, false, "P_si"); }).second, 804);
    EXPECT_EQ(noNormals.functionCount(), 2);

    FieldMasterD noSelection;
    noSelection.addBlock(noNormals.layout(0), {V(0, 0, 0), V(1, 0, 0), V(0, 1, 0), V(1, 1, 0)});
    noSelection.addVector(arrayWorks::kNormalsName, {0, 0, 1});
    noSelection.addScalar("P", 1.0);
    EXPECT_EQ(line([&] { tundrel::detail::correctSelfIllumination(noSelection, "P", 1.0, false, "P_si"); }),
              (std::pair<std::string, int>("..\\api\\field_selection.h", 26)));
    EXPECT_EQ(noSelection.functionCount(), 2);
}
