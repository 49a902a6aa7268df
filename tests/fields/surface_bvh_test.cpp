#include <gtest/gtest.h>

#include <random>

#include "api/fields/self_illumination.h"
#include "api/fields/surface.h"
#include "api/fields/surface_bvh.h"
#include "tests/fields/shapes.h"

using shapes::V;

namespace {

V flat(int i, int j) { return {double(i), double(j), 0.0}; }

std::vector<V> positionsOf(const tundrel::Surface& s) {
    std::vector<V> p;
    for (std::size_t k = 0; k < s.nodeCount(); ++k) p.emplace_back(s.x[k], s.y[k], s.z[k]);
    return p;
}

}  // namespace

TEST(ExtractSurface, FlattensBlocksAndTriangulatesGrids) {
    auto faces = shapes::sphere(2, 4, 1.0);
    FieldMasterD f = shapes::build({shapes::grid(3, 2, flat, {0, 0, 1}), faces});
    f.vector(f.findFunction("$_N"))->at(1, 3) = {0.5, 0.25, -1};
    const tundrel::Surface s = tundrel::extractSurface(f);
    ASSERT_EQ(s.nodeCount(), 6u + faces.pos.size());
    EXPECT_EQ(s.blockOffset, (std::vector<std::size_t>{0, 6, 6 + faces.pos.size()}));
    EXPECT_EQ(s.x[4], 1.0);
    EXPECT_EQ(s.y[4], 1.0);
    EXPECT_EQ(s.z[6 + 3], faces.pos[3].z);
    EXPECT_EQ(s.nx[6 + 3], 0.5);
    EXPECT_EQ(s.nz[6 + 3], -1.0);
    // Two cells of the 3 x 2 grid, then the sphere's triangles shifted by 6.
    const std::vector<std::int32_t> gridTris{0, 1, 3, 3, 1, 4, 1, 2, 4, 4, 2, 5};
    ASSERT_EQ(s.triangleCount(), 4 + faces.layout.triangles.size() / 3);
    EXPECT_TRUE(std::equal(gridTris.begin(), gridTris.end(), s.triangles.begin()));
    for (std::size_t k = 0; k < faces.layout.triangles.size(); ++k)
        EXPECT_EQ(s.triangles[12 + k], faces.layout.triangles[k] + 6);
}

// A unit grid far from the origin, so that single precision alone would not
// give the answers to the tolerance asked here.
class SurfaceBvhPlane : public ::testing::Test {
protected:
    static constexpr double kOff = 12345.0;
    FieldMasterD f = shapes::build({shapes::grid(5, 4, [](int i, int j) { return V(kOff + i, kOff + j, kOff); }, {0, 0, 1})});
    tundrel::Surface s = tundrel::extractSurface(f);
    tundrel::SurfaceBvh bvh{s};
};

TEST_F(SurfaceBvhPlane, FirstHitIsExactOnTheTriangleBelow) {
    const double o[3] = {kOff + 2.3, kOff + 1.4, kOff + 5.0};
    const double down[3] = {0, 0, -0.5};  // not a unit vector: distances are in t
    auto hit = bvh.firstHit(o, down, 100.0);
    ASSERT_TRUE(hit);
    EXPECT_NEAR(hit->distance, 10.0, 1e-9);
    EXPECT_NEAR(hit->x, kOff + 2.3, 1e-9);
    EXPECT_NEAR(hit->z, kOff, 1e-9);
    // Cell c = 2 + 5 * 1, triangle (c, c+1, c+I) holds (0.3, 0.4).
    const auto* t = &s.triangles[3 * static_cast<std::size_t>(hit->triangle)];
    EXPECT_EQ(std::vector<std::int32_t>(t, t + 3), (std::vector<std::int32_t>{7, 8, 12}));
    EXPECT_FALSE(bvh.firstHit(o, down, 9.9));
    const double up[3] = {0, 0, 1};
    EXPECT_FALSE(bvh.firstHit(o, up, 100.0));
    const double beside[3] = {kOff + 7.0, kOff + 1.0, kOff + 1.0};
    EXPECT_FALSE(bvh.firstHit(beside, down, 100.0));
}

TEST_F(SurfaceBvhPlane, ClosestPointInsideAndBesideThePlate) {
    struct Row {
        V p, expect;
        double distance;
    } rows[] = {
        {{2.3, 1.4, 2.0}, {2.3, 1.4, 0.0}, 2.0},
        {{2.3, 1.4, -0.75}, {2.3, 1.4, 0.0}, 0.75},
        {{-1.0, 2.5, 0.0}, {0.0, 2.5, 0.0}, 1.0},
        {{7.0, 7.0, 0.0}, {4.0, 3.0, 0.0}, 5.0},
    };
    for (const Row& r : rows) {
        const double p[3] = {kOff + r.p.x, kOff + r.p.y, kOff + r.p.z};
        auto hit = bvh.closestPoint(p, 10.0);
        ASSERT_TRUE(hit);
        EXPECT_NEAR(hit->distance, r.distance, 1e-9);
        EXPECT_NEAR(hit->x - kOff, r.expect.x, 1e-9);
        EXPECT_NEAR(hit->y - kOff, r.expect.y, 1e-9);
        EXPECT_NEAR(hit->z - kOff, r.expect.z, 1e-9);
        EXPECT_FALSE(bvh.closestPoint(p, 0.99 * r.distance));
    }
}

// Obstructions on a closed sphere, with and without a screen across it,
// against the loop over every triangle.
TEST(SurfaceBvh, OccludedAgreesWithEveryTriangleAndIgnoresEndFaces) {
    auto ball = shapes::sphere(20, 31, 1.0, {}, true, true);
    // A screen through the centre, slightly tilted, half as wide as the ball.
    auto screen = shapes::gridAsFaces(6, 6, [](int i, int j) { return V(-0.5 + 0.2 * i, -0.5 + 0.2 * j, 0.03 * i - 0.02 * j); },
                                      {0, 0, 1});
    for (bool withScreen : {false, true}) {
        std::vector<shapes::Block> blocks{ball};
        if (withScreen) blocks.push_back(screen);
        FieldMasterD f = shapes::build(blocks);
        const tundrel::Surface s = tundrel::extractSurface(f);
        const tundrel::SurfaceBvh bvh(s);
        const auto pos = positionsOf(s);
        const auto n = static_cast<std::int32_t>(ball.pos.size());
        int blocked = 0, grazing = 0;
        std::mt19937 rng(withScreen ? 3 : 5);
        for (int k = 0; k < 800; ++k) {
            const std::int32_t a = static_cast<std::int32_t>(rng() % n), b = static_cast<std::int32_t>(rng() % n);
            if (a == b) continue;
            const int expect = shapes::occludedBruteForce(pos, s.triangles, a, b);
            if (expect < 0) {
                ++grazing;
                continue;
            }
            ASSERT_EQ(bvh.occluded(a, b), expect == 1) << a << " " << b;
            EXPECT_EQ(bvh.occluded(b, a), expect == 1);
            blocked += expect;
        }
        EXPECT_LT(grazing, 10);
        // The staggered rings cut a few short chords; the screen many more.
        EXPECT_GT(blocked, withScreen ? 100 : 0);
        // Neighbours share faces: never obstructed by them.
        for (std::size_t t = 0; t < 3 * 40; t += 3) EXPECT_FALSE(bvh.occluded(s.triangles[t], s.triangles[t + 1]));
    }
}

TEST(SurfaceBvh, DuplicateSeamNodesDoNotObstruct) {
    // A trough of two quarter cylinders that meet at the bottom, each with
    // its own copy of the seam nodes: every chord between nodes runs inside.
    auto wall = [](double from) {
        return shapes::grid(9, 4, [from](int i, int j) {
            const double a = from + shapes::kPi / 2 * i / 8;
            return V(std::cos(a), 0.5 * j, std::sin(a));
        }, {0, 0, 1});
    };
    FieldMasterD f = shapes::build({wall(shapes::kPi), wall(1.5 * shapes::kPi)});
    const tundrel::Surface s = tundrel::extractSurface(f);
    const tundrel::SurfaceBvh bvh(s);
    const auto pos = positionsOf(s);
    ASSERT_EQ(pos[8], pos[36]);  // the seam, twice
    const auto n = static_cast<std::int32_t>(pos.size());
    int blocked = 0;
    // Generator line of a node, 0 to 16 across both walls. Nodes on one line
    // or on neighbouring lines lie in one flat strip of the surface: whether
    // a segment that runs inside the surface is obstructed is left open.
    auto line = [](std::int32_t k) { return k < 36 ? k % 9 : 8 + (k - 36) % 9; };
    for (std::int32_t a = 0; a < n; ++a)
        for (std::int32_t b = 0; b < n; ++b)
            if (std::abs(line(a) - line(b)) > 1) {
                const bool hit = bvh.occluded(a, b);
                const int expect = shapes::occludedBruteForce(pos, s.triangles, a, b);
                if (hit || expect != 0) ADD_FAILURE() << a << " " << b << " " << expect;
                blocked += hit;
            }
    EXPECT_EQ(blocked, 0);
    EXPECT_THROW(bvh.occluded(0, n), arrayWorks::IndexError);
}
