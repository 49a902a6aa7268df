#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <numbers>
#include <vector>

#include "api/TundrelApi.h"
#include "api/fields/normals.h"
#include "tests/test_util.h"

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

// A sphere about kCentre made of triangles, counter-clockwise seen from
// outside: an icosahedron with each face cut into four, `levels` times.
std::shared_ptr<FacePatch> icosphere(int levels) {
    const double t = (1.0 + std::sqrt(5.0)) / 2.0;
    std::vector<Vec> v{{-1, t, 0}, {1, t, 0}, {-1, -t, 0}, {1, -t, 0}, {0, -1, t}, {0, 1, t},
                       {0, -1, -t}, {0, 1, -t}, {t, 0, -1}, {t, 0, 1}, {-t, 0, -1}, {-t, 0, 1}};
    std::vector<std::array<int, 3>> f{{0, 11, 5}, {0, 5, 1},  {0, 1, 7},   {0, 7, 10}, {0, 10, 11},
                                      {1, 5, 9},  {5, 11, 4}, {11, 10, 2}, {10, 7, 6}, {7, 1, 8},
                                      {3, 9, 4},  {3, 4, 2},  {3, 2, 6},   {3, 6, 8},  {3, 8, 9},
                                      {4, 9, 5},  {2, 4, 11}, {6, 2, 10},  {8, 6, 7},  {9, 8, 1}};
    for (Vec& p : v) p = p / p.length();
    for (int l = 0; l < levels; ++l) {
        std::map<std::pair<int, int>, int> mids;
        auto mid = [&](int a, int b) {
            const auto key = std::minmax(a, b);
            auto it = mids.find(key);
            if (it != mids.end()) return it->second;
            Vec m = v[static_cast<std::size_t>(a)] + v[static_cast<std::size_t>(b)];
            v.push_back(m / m.length());
            return mids[key] = static_cast<int>(v.size()) - 1;
        };
        std::vector<std::array<int, 3>> next;
        for (const auto& [a, b, c] : f) {
            const int ab = mid(a, b), bc = mid(b, c), ca = mid(c, a);
            next.insert(next.end(), {{a, ab, ca}, {b, bc, ab}, {c, ca, bc}, {ab, bc, ca}});
        }
        f = std::move(next);
    }
    auto p = std::make_shared<FacePatch>(static_cast<int>(v.size()), static_cast<int>(4 * f.size()),
                                         static_cast<int>(f.size()));
    for (std::size_t k = 0; k < f.size(); ++k)
        for (int c = 0; c < 3; ++c) p->faceIndex[4 * k + static_cast<std::size_t>(c)] = f[k][static_cast<std::size_t>(c)];
    auto& x = p->addVariable("x");
    auto& y = p->addVariable("y");
    auto& z = p->addVariable("z");
    for (std::size_t n = 0; n < v.size(); ++n) {
        x.values[n] = kCentre.x + kRadius * v[n].x;
        y.values[n] = kCentre.y + kRadius * v[n].y;
        z.values[n] = kCentre.z + kRadius * v[n].z;
    }
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
    fe.append(icosphere(3));
    fe.append(icosphere(1));
    const FieldMasterD before = toField(region(), fe);
    EXPECT_GT(outwardCosines(before, 0).first, 0.99);
    EXPECT_GT(outwardCosines(before, 1).first, 0.95);

    const std::vector<std::int32_t> second = fe.patch(1).faceIndex;
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(1).faceIndex, second);
    const FieldMasterD after = toField(region(), fe);
    EXPECT_LT(outwardCosines(after, 0).second, -0.99);
    EXPECT_EQ(after.positions(), before.positions());
    for (int n = 0; n < after.nodeCount(1); ++n) EXPECT_EQ(after.normals()->at(1, n), before.normals()->at(1, n));
    // Twice gives the faces back.
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(0).faceIndex, icosphere(3)->faceIndex);
}

TEST(Normals, FollowTheGrid) {
    region reg;
    reg.append(testutil::gridPatch(4, 3));  // i along x, j along y, z = 0.5 i j
    const FieldMasterD field = toField(reg, region_fe());
    for (int n = 0; n < 12; ++n) EXPECT_GT(field.normals()->at(0, n).z, 0.0);
    // Inside, central differences give the surface normal (-dz/dx, -dz/dy, 1).
    for (int j = 1; j < 2; ++j)
        for (int i = 1; i < 3; ++i) {
            const Vec expected = Vec{-0.5 * j, -0.5 * i, 1.0} / Vec{-0.5 * j, -0.5 * i, 1.0}.length();
            EXPECT_NEAR((field.normals()->at(0, i + 4 * j) - expected).length(), 0.0, 1e-12) << i << "," << j;
        }
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
