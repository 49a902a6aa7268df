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
// doubled) along i, latitudes from lat0 to lat1 along j.
std::shared_ptr<StructPatch> spherePatch(int I, int J, double lat0, double lat1) {
    auto p = std::make_shared<StructPatch>(I, J, 1);
    auto& x = p->addVariable("X");
    auto& y = p->addVariable("Y");
    auto& z = p->addVariable("Z");
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const double lon = 2.0 * std::numbers::pi * i / (I - 1);
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

// The smallest cosine between a node's normal and the outward radius, over
// the nodes of block b; every normal must be of unit length.
double worstOutwardCosine(const FieldMasterD& field, int b) {
    const auto* normals = field.normals();
    double worst = 1.0;
    for (int n = 0; n < field.nodeCount(b); ++n) {
        const Vec& nn = normals->at(b, n);
        EXPECT_NEAR(nn.length(), 1.0, 1e-12) << "block " << b << " node " << n;
        const Vec r = field.position(b, n) - kCentre;
        worst = std::min(worst, nn.dot(r / r.length()));
    }
    return worst;
}

}  // namespace

TEST(Normals, ASphereOfStructuredPatchesHasOutwardNormalsPolesAndSeamsIncluded) {
    region reg;
    reg.append(spherePatch(49, 17, 0.0, std::numbers::pi / 2));    // north, pole in the last row
    reg.append(spherePatch(49, 17, -std::numbers::pi / 2, 0.0));  // south, pole in the first row
    const FieldMasterD field = toField(reg, region_fe());
    EXPECT_GT(worstOutwardCosine(field, 0), 0.99);
    EXPECT_GT(worstOutwardCosine(field, 1), 0.99);
    // Transposing the grid turns the normals inward.
    region transposed;
    auto t = spherePatch(17, 49, 0.0, 0.0);
    const StructPatch& north = reg.patch(0);
    for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 17; ++j)
            for (int i = 0; i < 49; ++i)
                t->variable(k).values[static_cast<std::size_t>(j + 17 * i)] =
                    north.variable(k).values[static_cast<std::size_t>(i + 49 * j)];
    transposed.append(t);
    const FieldMasterD inward = toField(transposed, region_fe());
    for (int n = 0; n < inward.nodeCount(0); ++n) {
        const Vec r = inward.position(0, n) - kCentre;
        EXPECT_LT(inward.normals()->at(0, n).dot(r / r.length()), -0.99) << n;
        EXPECT_NEAR(inward.normals()->at(0, n).length(), 1.0, 1e-12) << n;
    }
}

TEST(Normals, ASphereOfTrianglesHasOutwardNormalsAndChangeNormalTurnsThemInward) {
    region_fe fe;
    fe.append(icosphere(3));
    fe.append(icosphere(1));
    const FieldMasterD before = toField(region(), fe);
    EXPECT_GT(worstOutwardCosine(before, 0), 0.99);
    EXPECT_GT(worstOutwardCosine(before, 1), 0.95);

    const std::vector<std::int32_t> second = fe.patch(1).faceIndex;
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(1).faceIndex, second);
    const FieldMasterD after = toField(region(), fe);
    for (int n = 0; n < after.nodeCount(0); ++n) {
        EXPECT_EQ(after.normals()->at(0, n), -before.normals()->at(0, n)) << n;
        EXPECT_EQ(after.position(0, n), before.position(0, n));
    }
    for (int n = 0; n < after.nodeCount(1); ++n) EXPECT_EQ(after.normals()->at(1, n), before.normals()->at(1, n));
    // Twice gives the faces back.
    change_normal_fe(fe, 0);
    EXPECT_EQ(fe.patch(0).faceIndex, icosphere(3)->faceIndex);
}

TEST(Normals, FollowTheGridAndTheFaceOrder) {
    region reg;
    reg.append(testutil::gridPatch(4, 3));  // i along x, j along y, a saddle in z
    region_fe fe;
    auto tri = std::make_shared<FacePatch>(3, 4, 1);
    tri->faceIndex = {0, 1, 2, -1};  // counter-clockwise seen from +z
    tri->addVariable("x").values = {0, 1, 0};
    tri->addVariable("y").values = {0, 0, 1};
    tri->addVariable("z");
    fe.append(tri);
    const FieldMasterD field = toField(reg, fe);
    // The grid's z = 0.5 i j: the normal of the surface along (-dz/dx, -dz/dy, 1).
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 4; ++i) {
            const Vec& n = field.normals()->at(0, i + 4 * j);
            Vec expected{-0.5 * j, -0.5 * i, 1.0};
            if (i == 0 || i == 3 || j == 0 || j == 2) {
                EXPECT_GT(n.z, 0.0);  // one-sided differences: direction only
                continue;
            }
            expected = expected / expected.length();
            EXPECT_NEAR((n - expected).length(), 0.0, 1e-12) << i << "," << j;
        }
    for (int n = 0; n < 3; ++n) EXPECT_EQ(field.normals()->at(1, n), (Vec{0, 0, 1}));
}

TEST(Normals, FaceNormalsWeighTheFacesByArea) {
    // A large triangle facing +z and a small one facing +y share node 0.
    const std::vector<Vec> p{{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {0, 0, 1}, {1, 0, 0}};
    const std::vector<std::int32_t> tris{0, 1, 2, 0, 3, 4};
    std::vector<Vec> n(5, Vec{7, 7, 7});
    tundrel::faceNormals(p.data(), 5, tris.data(), 2, n.data());
    EXPECT_GT(n[0].z, 0.99);
    EXPECT_GT(n[0].y, 0.0);
    EXPECT_EQ(n[3], (Vec{0, 1, 0}));
    EXPECT_EQ(n[2], (Vec{0, 0, 1}));
}

TEST(Normals, NodesWithoutADirectionGetZero) {
    // A single row has no second direction; a lone node has no face.
    std::vector<Vec> row{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}};
    std::vector<Vec> out(3, Vec{1, 1, 1});
    tundrel::gridNormals(row.data(), 3, 1, out.data());
    for (const Vec& v : out) EXPECT_EQ(v, Vec{});
    const std::vector<std::int32_t> tri{0, 1, 1};
    tundrel::faceNormals(row.data(), 3, tri.data(), 1, out.data());
    for (const Vec& v : out) EXPECT_EQ(v, Vec{});
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

TEST(Normals, UpdateReplacesAStaleNormalFunctionInItsPlace) {
    region reg;
    reg.append(testutil::gridPatch(3, 3));
    FieldMasterD field = toField(reg, region_fe());
    const int at = field.findFunction("$_N");
    field.functions[static_cast<std::size_t>(at)] =
        std::make_shared<arrayWorks::ScalarFunction>("$_N", field.nodeCounts());
    const auto& n = tundrel::updateNormals(field);
    EXPECT_EQ(field.findFunction("$_N"), at);
    EXPECT_EQ(field.normals(), &n);
    EXPECT_EQ(field.functionCount(), 2);
    EXPECT_GT(n.at(0, 4).z, 0.0);
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
                      FlipCase{"gapInTheMiddle", {4, -1, 1, 2}, {4, -1, 2, 1}},
                      FlipCase{"tooFewCorners", {0, 1, -1, -1, 3, -1, -1, -1}, {0, 1, -1, -1, 3, -1, -1, -1}},
                      FlipCase{"noFaces", {}, {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ChangeNormalPatch, ABadPatchNumberChangesNothing) {
    region_fe fe;
    auto p = icosphere(0);
    fe.append(p);
    fe.patches.append(nullptr);
    const std::vector<std::int32_t> faces = p->faceIndex;
    for (int bad : {-1, 1, 2, 1000}) {
        change_normal_fe(fe, bad);
        EXPECT_EQ(p->faceIndex, faces) << bad;
    }
    EXPECT_EQ(fe.patchCount(), 2);
}
