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

// Obstructions against the loop over every triangle: on a closed sphere, with
// and without a screen across it, and in a trough of two quarter cylinders
// that meet at the bottom, each with its own copy of the seam nodes (every
// chord between nodes runs inside).
TEST(SurfaceBvh, OccludedAgreesWithEveryTriangleAndIgnoresEndFaces) {
    auto ball = shapes::sphere(20, 31, 1.0, {}, true, true);
    // A screen through the centre, slightly tilted, half as wide as the ball.
    auto screen = shapes::gridAsFaces(6, 6, [](int i, int j) { return V(-0.5 + 0.2 * i, -0.5 + 0.2 * j, 0.03 * i - 0.02 * j); },
                                      {0, 0, 1});
    auto wall = [](double from) {
        return shapes::grid(9, 4, [from](int i, int j) {
            return V(std::cos(from + shapes::kPi / 16 * i), 0.5 * j, std::sin(from + shapes::kPi / 16 * i)); }, {0, 0, 1});
    };
    // Generator line of a trough node, 0 to 16 across both walls. Nodes on one
    // line or on neighbouring lines lie in one flat strip of the surface:
    // whether a segment that runs inside the surface is obstructed is left open.
    auto line = [](std::int32_t k) { return k < 36 ? k % 9 : 8 + (k - 36) % 9; };
    const struct {
        std::vector<shapes::Block> blocks;
        bool trough;
        int minBlocked, maxBlocked;  // the staggered rings cut a few short chords; the screen many more
    } rows[] = {{{ball}, false, 1, 800}, {{ball, screen}, false, 101, 800},
                {{wall(shapes::kPi), wall(1.5 * shapes::kPi)}, true, 0, 0}};
    for (const auto& row : rows) {
        FieldMasterD f = shapes::build(row.blocks);
        const tundrel::Surface s(f);
        const tundrel::SurfaceBvh bvh(s);
        const auto pos = positionsOf(s);
        const auto n = static_cast<std::uint32_t>(row.trough ? pos.size() : ball.pos.size());
        int blocked = 0, grazing = 0;
        std::mt19937 rng(static_cast<unsigned>(row.blocks.size()) + 2);
        for (int k = 0; k < 800; ++k) {
            const auto a = static_cast<std::int32_t>(rng() % n), b = static_cast<std::int32_t>(rng() % n);
            if (row.trough && std::abs(line(a) - line(b)) <= 1) continue;
            const int expect = a == b ? -1 : shapes::occludedBruteForce(pos, s.triangles, a, b);
            grazing += expect < 0 && a != b;
            if (expect < 0) continue;
            ASSERT_EQ(bvh.occluded(a, b), expect == 1) << a << " " << b;
            EXPECT_EQ(bvh.occluded(b, a), expect == 1);
            blocked += expect;
        }
        EXPECT_LT(grazing, row.trough ? 1 : 10);
        EXPECT_TRUE(blocked >= row.minBlocked && blocked <= row.maxBlocked) << blocked;
        // Neighbours share faces: never obstructed by them.
        for (std::size_t t = 0; t < 3 * 40; t += 3) EXPECT_FALSE(bvh.occluded(s.triangles[t], s.triangles[t + 1]));
        EXPECT_THROW(bvh.occluded(0, static_cast<std::int32_t>(pos.size())), arrayWorks::IndexError);
    }
}
