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

// The packets trace only the middle of a segment, between the regions around
// its ends that no counted face enters: every answer must still be that of
// occluded(), for every pair. Rows: a staggered ball with a tilted screen
// across it; a trough of two walls with their own copies of the seam nodes
// (many pairs graze a flat strip) and a plate over it; two bowls of quads
// with a screen between them, turned off the axes.
struct PacketCase {
    const char* name;
    std::vector<shapes::Block> blocks;
    int minHidden;
};

class PacketsAgree : public ::testing::TestWithParam<PacketCase> {};

TEST_P(PacketsAgree, WithOccludedForEveryPair) {
    const FieldMasterD f = shapes::build(GetParam().blocks);
    const tundrel::Surface s(f);
    const tundrel::SurfaceBvh bvh(s);
    const auto n = static_cast<std::int32_t>(s.nodeCount());
    constexpr int P = tundrel::SurfaceBvh::kPacket;
    int hidden = 0, differ = 0;
    for (std::int32_t a = 0; a < n; ++a)
        for (std::int32_t b = a + 1; b < n; b += P) {
            const int count = std::min(P, n - b);
            std::int32_t from[P], to[P];
            bool h[P];
            for (int k = 0; k < count; ++k) from[k] = a, to[k] = b + k;
            bool built[P];
            // Before the trimmed packet: only the ends of earlier packets are built.
            bvh.occludedPairs(from, to, count, built, tundrel::SurfaceBvh::Trace::asBuilt);
            bvh.occludedPairs(from, to, count, h);
            for (int k = 0; k < count; ++k) {
                const bool reference = bvh.occluded(a, b + k);
                differ += (h[k] != reference) + (built[k] != reference);
                hidden += h[k];
            }
        }
    EXPECT_EQ(differ, 0);
    EXPECT_GE(hidden, GetParam().minHidden);
}

namespace {

V turned(V p) {  // off the axes, so that no face lies in a coordinate plane
    const double c = std::cos(0.3), s = std::sin(0.3);
    return V(c * p.x - s * p.z, p.y, s * p.x + c * p.z) * 1.7 + V(0.31, -0.12, 0.05);
}

shapes::Block bowl(double z0, double sign) {
    return shapes::grid(9, 9, [=](int i, int j) {
        const double x = 0.5 * i - 2.0, y = 0.5 * j - 2.0;
        return turned(V(x, y, z0 + sign * 0.15 * (x * x + y * y)));
    }, {0, 0, 1});
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    SurfaceBvh, PacketsAgree,
    ::testing::Values(
        PacketCase{"ball_screen",
                   {shapes::sphere(10, 17, 1.0, {}, true, true),
                    shapes::gridAsFaces(5, 5, [](int i, int j) { return V(-0.4 + 0.2 * i, -0.4 + 0.2 * j, 0.03 * i - 0.02 * j); },
                                        {0, 0, 1})},
                   2000},
        PacketCase{"trough_seams",
                   {shapes::grid(9, 4, [](int i, int j) { return turned(V(std::cos(shapes::kPi + shapes::kPi / 16 * i), 0.5 * j, std::sin(shapes::kPi + shapes::kPi / 16 * i))); }, {0, 0, 1}),
                    shapes::grid(9, 4, [](int i, int j) { return turned(V(std::cos(1.5 * shapes::kPi + shapes::kPi / 16 * i), 0.5 * j, std::sin(1.5 * shapes::kPi + shapes::kPi / 16 * i))); }, {0, 0, 1}),
                    shapes::grid(4, 4, [](int i, int j) { return turned(V(-0.3 + 0.2 * i, 0.1 + 0.4 * j, -0.6)); }, {0, 0, 1})},
                   100},
        PacketCase{"bowls_screen",
                   {bowl(0.0, 1.0), bowl(2.5, -1.0),
                    shapes::grid(6, 6, [](int i, int j) { return turned(V(0.2 + 0.3 * i, -1.5 + 0.6 * j, 1.25)); }, {0, 0, 1})},
                   2000}),
    [](const ::testing::TestParamInfo<PacketCase>& info) { return std::string(info.param.name); });
