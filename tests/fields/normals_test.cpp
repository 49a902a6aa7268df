// Face orientation: the normals of closed spheres and layered grids,
// change_normal_fe and the removal of faces out of sight.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "api/TundrelApi.h"
#include "api/detail/node_normals.h"
#include "tests/support/models.h"
#include "tests/support/shapes.h"

using Vec = z::zVec<double>;

namespace {

const Vec kCentre{0.5, -1.0, 2.0};
constexpr double kRadius = 3.0;

// A structured patch of the sphere about kCentre: longitudes 0..2pi along i
// (seam doubled; `turn` -1 runs them the other way), latitudes lat0..lat1 along j.
std::shared_ptr<StructPatch> spherePatch(int I, int J, double lat0, double lat1, double turn = 1.0) {
    auto p = std::make_shared<StructPatch>(I, J, 1);
    auto &x = p->addVariable("X"), &y = p->addVariable("Y"), &z = p->addVariable("Z");
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const double lon = turn * 2.0 * std::numbers::pi * i / (I - 1), lat = lat0 + (lat1 - lat0) * j / (J - 1);
            const std::size_t n = static_cast<std::size_t>(i + I * j);
            x.values[n] = kCentre.x + kRadius * std::cos(lat) * std::cos(lon);
            y.values[n] = kCentre.y + kRadius * std::cos(lat) * std::sin(lon);
            z.values[n] = kCentre.z + kRadius * std::sin(lat);
        }
    return p;
}

// A face patch of the block's triangles (corners 1 and 2 swapped when
// flipped), variables X, Y, Z and P = node number.
std::shared_ptr<FacePatch> patchOf(const shapes::Block& b, bool flip = false) {
    const auto& t = b.layout.triangles;
    auto p = std::make_shared<FacePatch>(b.layout.nodes, static_cast<int>(4 * t.size() / 3), static_cast<int>(t.size() / 3));
    for (std::size_t k = 0; k < t.size(); ++k) p->faceIndex[k + k / 3] = t[flip ? k - k % 3 + (3 - k % 3) % 3 : k];
    for (std::size_t k = 3; k < p->faceIndex.size(); k += 4) p->faceIndex[k] = -1;
    auto &x = p->addVariable("X"), &y = p->addVariable("Y"), &z = p->addVariable("Z"), &P = p->addVariable("P");
    for (std::size_t n = 0; n < b.pos.size(); ++n)
        x.values[n] = b.pos[n].x, y.values[n] = b.pos[n].y, z.values[n] = b.pos[n].z, P.values[n] = static_cast<double>(n);
    return p;
}

std::shared_ptr<FacePatch> ball(int rings, int segments) {
    return patchOf(shapes::sphere(rings, segments, kRadius, kCentre, false));
}

FieldMasterD toField(const region& reg, const region_fe& fe) {
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, fe, field, flow);
    return field;
}

// The smallest and largest cosine between a node's normal (of unit length)
// and the outward radius over block b.
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

// Closed spheres of structured patches and of triangles, and beside them a
// thick patch: each layer has its own normals and the layers come back.
TEST(Normals, ClosedSpheresHaveOutwardNormalsAndChangeNormalTurnsThemInward) {
    region reg;
    reg.append(spherePatch(49, 17, 0.0, std::numbers::pi / 2));        // north, pole in the last row
    reg.append(spherePatch(49, 17, -std::numbers::pi / 2, 0.0));       // south, pole in the first row
    reg.append(spherePatch(49, 17, 0.0, std::numbers::pi / 2, -1.0));  // the grid turned round
    auto thick = std::make_shared<StructPatch>(3, 2, 2);
    auto &x = thick->addVariable("x"), &y = thick->addVariable("y");
    thick->addVariable("z").values = {0, 0, 0, 0, 0, 0, 5, 5, 5, 5, 5, 5};
    for (std::size_t n = 0; n < 12; ++n) {
        const double i = static_cast<double>(n % 3), j = static_cast<double>(n / 3 % 2);
        x.values[n] = n < 6 ? i : j;  // the second layer runs the other way round
        y.values[n] = n < 6 ? j : i;
    }
    reg.append(thick);
    region_fe fe;
    fe.append(ball(15, 24));
    fe.append(ball(3, 6));
    FieldMasterD field = toField(reg, fe);
    EXPECT_GT(outwardCosines(field, 0).first, 0.99);
    EXPECT_GT(outwardCosines(field, 1).first, 0.99);
    EXPECT_LT(outwardCosines(field, 2).second, -0.99);
    EXPECT_GT(outwardCosines(field, 4).first, 0.99);
    EXPECT_GT(outwardCosines(field, 5).first, 0.95);
    EXPECT_EQ(field.layout(3).layers, 2);
    for (int n = 0; n < 12; ++n) EXPECT_EQ(field.normals()->at(3, n), (Vec{0, 0, n < 6 ? 1.0 : -1.0})) << n;
    region back;
    region_fe backFe;
    fieldMaster_to_Region(field, {}, back, backFe);
    EXPECT_TRUE(back.patch(3).K == 2 && back.patch(3).findVariable("x")->values == x.values);

    const std::vector<std::int32_t> second = fe.patch(1).faceIndex;
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(1).faceIndex, second);
    EXPECT_LT(outwardCosines(toField(region(), fe), 0).second, -0.99);
    change_normal_fe(fe, 0);  // twice gives the faces back
    EXPECT_EQ(fe.patch(0).faceIndex, ball(15, 24)->faceIndex);
}

// Quads turn about their first corner; faces of fewer than three corners stay.
TEST(Normals, ChangeNormalTurnsQuadsAndLeavesShortFaces) {
    region_fe fe;
    fe.append(testutil::facePatch(5, {0, 1, 2, 3, 0, 1, -1, -1, 3, -1, -1, -1}, {"x"}));
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(0).faceIndex, (std::vector<std::int32_t>{0, 3, 2, 1, 0, 1, -1, -1, 3, -1, -1, -1}));
    EXPECT_EQ(fe.patch(0).variable(0).values, (std::vector<double>{0, 1, 2, 3, 4}));
}

// ---- unvisible_faces_remove ------------------------------------------------------

namespace {

// An I x J plate of triangles at height z over [x0, x0 + I - 1] x [0, J - 1],
// facing up (down when flipped).
std::shared_ptr<FacePatch> plate(int I, int J, double x0, double z, bool flipped = false) {
    return patchOf(shapes::gridAsFaces(I, J, [=](int i, int j) { return Vec(x0 + i, j, z); }, {}), flipped);
}

}  // namespace

TEST(UnvisibleFacesRemove, KeepsFrontFacesInSightAndCompactsTheNodes) {
    region_fe reg;
    reg.append(plate(3, 3, 0.0, 1.0));         // 8 faces over [0, 2] x [0, 2], seen
    reg.append(plate(6, 3, 0.0, 0.0));         // 20 faces over [0, 5] x [0, 2], partly below the first
    reg.append(plate(3, 3, 10.0, 0.0, true));  // turned away
    reg.append(std::make_shared<FacePatch>(3, 4, 1));  // no coordinates: stays
    reg.patch(3).faceIndex = {0, 1, 2, -1};
    reg.patch(3).addVariable("P");
    // Far above the middle of the first plate, so that it shades what lies under it.
    EXPECT_EQ(unvisible_faces_remove(reg, {1.0, 1.0, 1e4}), 8 + 8);
    EXPECT_TRUE(reg.patch(0).faces == 8 && reg.patch(0).nodes == 9);
    EXPECT_TRUE(reg.patch(2).faces == 0 && reg.patch(2).nodes == 0 && reg.patch(2).variable(0).values.empty());
    EXPECT_TRUE(reg.patch(3).faces == 1 && reg.patch(3).nodes == 3);

    // The lower plate keeps the cells beyond x = 2: columns 2 to 5 of its nodes, in order.
    const FacePatch& low = reg.patch(1);
    const NodeVariable& P = low.variable(3);
    ASSERT_TRUE(low.faces == 12 && low.nodes == 12 && low.indexLength == 48 && low.faceIndex.size() == 48u);
    ASSERT_TRUE(P.values.size() == 12u && P.count == 12 && P.I == 12);
    for (std::size_t n = 0; n < 12; ++n) EXPECT_EQ(P.values[n], static_cast<double>(2 + n % 4 + 6 * (n / 4)));
    for (std::size_t k = 0; k < 48; ++k)
        EXPECT_TRUE(k % 4 == 3 ? low.faceIndex[k] == -1 : low.faceIndex[k] >= 0 && low.faceIndex[k] < 12) << k;
}
