#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <numbers>
#include <vector>

#include "api/TundrelApi.h"
#include "api/detail/node_normals.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"

using Vec = z::zVec<double>;

namespace {

const Vec kCentre{0.5, -1.0, 2.0};
constexpr double kRadius = 3.0;

// A structured patch of a sphere about kCentre: longitudes 0..2pi (the seam
// doubled; `turn` -1 runs them the other way) along i, latitudes from lat0 to
// lat1 along j.
std::shared_ptr<StructPatch> spherePatch(int I, int J, double lat0, double lat1, double turn = 1.0) {
    auto p = std::make_shared<StructPatch>(I, J, 1);
    auto& x = p->addVariable("X");
    auto& y = p->addVariable("Y");
    auto& z = p->addVariable("Z");
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const double lon = turn * 2.0 * std::numbers::pi * i / (I - 1);
            const double lat = lat0 + (lat1 - lat0) * j / (J - 1);
            const std::size_t n = static_cast<std::size_t>(i + I * j);
            x.values[n] = kCentre.x + kRadius * std::cos(lat) * std::cos(lon);
            y.values[n] = kCentre.y + kRadius * std::cos(lat) * std::sin(lon);
            z.values[n] = kCentre.z + kRadius * std::sin(lat);
        }
    return p;
}

// A closed sphere about kCentre as a face patch, faces counter-clockwise seen
// from outside.
std::shared_ptr<FacePatch> ball(int rings, int segments) {
    const shapes::Block b = shapes::sphere(rings, segments, kRadius, kCentre, false);
    const auto& t = b.layout.triangles;
    auto p = std::make_shared<FacePatch>(b.layout.nodes, static_cast<int>(4 * t.size() / 3), static_cast<int>(t.size() / 3));
    for (std::size_t k = 0; k < t.size(); ++k) p->faceIndex[k + k / 3] = t[k];
    for (std::size_t k = 3; k < p->faceIndex.size(); k += 4) p->faceIndex[k] = -1;
    auto& x = p->addVariable("x");
    auto& y = p->addVariable("y");
    auto& z = p->addVariable("z");
    for (std::size_t n = 0; n < b.pos.size(); ++n) x.values[n] = b.pos[n].x, y.values[n] = b.pos[n].y, z.values[n] = b.pos[n].z;
    return p;
}

FieldMasterD toField(const region& reg, const region_fe& fe) {
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, fe, field, flow);
    return field;
}

// The smallest and largest cosine between a node's normal and the outward
// radius over the nodes of block b; every normal must be of unit length.
std::pair<double, double> outwardCosines(const FieldMasterD& field, int b) {
    double lo = 1.0, hi = -1.0;
    for (int n = 0; n < field.nodeCount(b); ++n) {
        const Vec& nn = field.normals()->at(b, n);
        EXPECT_NEAR(nn.length(), 1.0, 1e-12) << "block " << b << " node " << n;
        const Vec r = field.position(b, n) - kCentre;
        lo = std::min(lo, nn.dot(r / r.length()));
        hi = std::max(hi, nn.dot(r / r.length()));
    }
    return {lo, hi};
}

}  // namespace

TEST(Normals, ASphereOfStructuredPatchesHasOutwardNormalsPolesAndSeamsIncluded) {
    region reg;
    reg.append(spherePatch(49, 17, 0.0, std::numbers::pi / 2));   // north, pole in the last row
    reg.append(spherePatch(49, 17, -std::numbers::pi / 2, 0.0));  // south, pole in the first row
    reg.append(spherePatch(49, 17, 0.0, std::numbers::pi / 2, -1.0));  // the grid turned round
    const FieldMasterD field = toField(reg, region_fe());
    EXPECT_GT(outwardCosines(field, 0).first, 0.99);
    EXPECT_GT(outwardCosines(field, 1).first, 0.99);
    EXPECT_LT(outwardCosines(field, 2).second, -0.99);
}

TEST(Normals, ASphereOfTrianglesHasOutwardNormalsAndChangeNormalTurnsThemInward) {
    region_fe fe;
    fe.append(ball(15, 24));
    fe.append(ball(3, 6));
    const FieldMasterD before = toField(region(), fe);
    EXPECT_GT(outwardCosines(before, 0).first, 0.99);
    EXPECT_GT(outwardCosines(before, 1).first, 0.95);

    const std::vector<std::int32_t> second = fe.patch(1).faceIndex;
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(1).faceIndex, second);
    const FieldMasterD after = toField(region(), fe);
    EXPECT_LT(outwardCosines(after, 0).second, -0.99);
    EXPECT_TRUE(std::ranges::equal(after.x(), before.x()) && std::ranges::equal(after.z(), before.z()));
    for (int n = 0; n < after.nodeCount(1); ++n) EXPECT_EQ(after.normals()->at(1, n), before.normals()->at(1, n));
    // Twice gives the faces back.
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(0).faceIndex, ball(15, 24)->faceIndex);
}

TEST(Normals, EachLayerOfAThickPatchHasItsOwnNormals) {
    auto p = std::make_shared<StructPatch>(3, 2, 2);
    auto& x = p->addVariable("x");
    auto& y = p->addVariable("y");
    auto& z = p->addVariable("z");
    for (int k = 0; k < 2; ++k)
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 3; ++i) {
                const std::size_t n = static_cast<std::size_t>(i + 3 * j + 6 * k);
                x.values[n] = k == 0 ? i : j;  // the second layer runs the other way round
                y.values[n] = k == 0 ? j : i;
                z.values[n] = 5.0 * k;
            }
    region reg;
    reg.append(p);
    FieldMasterD field = toField(reg, region_fe());
    EXPECT_EQ(field.layout(0).layers, 2);
    for (int n = 0; n < 6; ++n) {
        EXPECT_EQ(field.normals()->at(0, n), (Vec{0, 0, 1}));
        EXPECT_EQ(field.normals()->at(0, n + 6), (Vec{0, 0, -1}));
    }
    region back;
    region_fe backFe;
    fieldMaster_to_Region(field, {}, back, backFe);
    EXPECT_EQ(back.patch(0).K, 2);
    EXPECT_EQ(back.patch(0).findVariable("x")->values, x.values);
}

// ---- change_normal_fe ----------------------------------------------------------------

struct FlipCase {
    const char* name;
    std::vector<std::int32_t> before, after;
};
void PrintTo(const FlipCase& c, std::ostream* os) { *os << c.name; }

class ChangeNormal : public ::testing::TestWithParam<FlipCase> {};

TEST_P(ChangeNormal, TurnsEveryFaceOfThePatch) {
    region_fe fe;
    auto p = std::make_shared<FacePatch>(5, static_cast<int>(GetParam().before.size()),
                                         static_cast<int>(GetParam().before.size() / 4));
    p->faceIndex = GetParam().before;
    p->addVariable("x").values = {1, 2, 3, 4, 5};
    fe.append(p);
    change_normal_fe(fe, 0);
    EXPECT_EQ(p->faceIndex, GetParam().after);
    EXPECT_EQ(p->findVariable("x")->values, (std::vector<double>{1, 2, 3, 4, 5}));
    EXPECT_EQ(p->nodes, 5);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChangeNormal,
    ::testing::Values(FlipCase{"triangles", {0, 1, 2, -1, 2, 1, 3, -1}, {0, 2, 1, -1, 2, 3, 1, -1}},
                      FlipCase{"quad", {0, 1, 2, 3}, {0, 3, 2, 1}},
                      FlipCase{"tooFewCorners", {0, 1, -1, -1, 3, -1, -1, -1}, {0, 1, -1, -1, 3, -1, -1, -1}},
                      FlipCase{"noFaces", {}, {}}),
    [](const auto& info) { return std::string(info.param.name); });
