#include <gtest/gtest.h>

#include <random>

#include "api/fields/self_illumination.h"
#include "api/fields/surface.h"
#include "api/detail/surface_bvh.h"
#include "tests/support/shapes.h"

using shapes::V;

namespace {

std::vector<V> positionsOf(const tundrel::Surface& s) {
    std::vector<V> p;
    for (std::size_t k = 0; k < s.nodeCount(); ++k) p.emplace_back(s.x[k], s.y[k], s.z[k]);
    return p;
}

}  // namespace

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
        const tundrel::Surface s(f);
        const tundrel::SurfaceBvh bvh(s);
        const auto pos = positionsOf(s);
        const auto n = static_cast<std::uint32_t>(ball.pos.size());
        int blocked = 0, grazing = 0;
        std::mt19937 rng(withScreen ? 3 : 5);
        for (int k = 0; k < 800; ++k) {
            const auto a = static_cast<std::int32_t>(rng() % n), b = static_cast<std::int32_t>(rng() % n);
            const int expect = a == b ? -1 : shapes::occludedBruteForce(pos, s.triangles, a, b);
            grazing += expect < 0 && a != b;
            if (expect < 0) continue;
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
            return V(std::cos(from + shapes::kPi / 16 * i), 0.5 * j, std::sin(from + shapes::kPi / 16 * i)); }, {0, 0, 1});
    };
    FieldMasterD f = shapes::build({wall(shapes::kPi), wall(1.5 * shapes::kPi)});
    const tundrel::Surface s(f);
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
