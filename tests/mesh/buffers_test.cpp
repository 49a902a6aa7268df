// Copies through a buffer, merging, the "_simm" copy and its mirror image,
// and refinement.
#include <gtest/gtest.h>

#include "tests/mesh/mesh_util.h"
#include "tests/test_util.h"

using meshtest::facePatch;
using meshtest::faces;
using V = std::vector<std::int32_t>;
using D = std::vector<double>;
using tundrel::mesh::EdgeSearch;

namespace {

region_fe twoTriangles() {
    region_fe r;
    r.name = "model";
    r.Mach = 0.8;
    r.alpha = 2.0;
    r.beta = -1.0;
    r.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z"}, "a"));
    r.append(facePatch(3, {2, 0, 1, -1}, {"X", "Y", "Z"}, "b"));
    return r;
}

}  // namespace

TEST(Buffers, AddBlockAppendsAnIndependentCopyWithTheFirstPatchsVariables) {
    region_fe src = twoTriangles();
    src.append(facePatch(4, {0, 1, 2, -1, 0, 2, 3, -1}, {"X", "Y", "Z", "Cp"}, "c"));
    region_fe buf;
    AddBlock_to_buf(src, buf, -1);
    AddBlock_to_buf(src, buf, 3);
    EXPECT_EQ(buf.patchCount(), 0);

    AddBlock_to_buf(src, buf, 2);
    ASSERT_EQ(buf.patchCount(), 1);
    FacePatch& c = buf.patch(0);
    EXPECT_EQ(c.name, "c");
    EXPECT_EQ(c.faceIndex, src.patch(2).faceIndex);
    EXPECT_EQ(c.variableCount(), 3);  // as many as the first patch of src
    EXPECT_EQ(c.variable(2).values, src.patch(2).variable(2).values);
    c.faceIndex[0] = 3;
    c.variable(0).values[0] = 42;
    EXPECT_EQ(src.patch(2).faceIndex[0], 0);
    EXPECT_EQ(src.patch(2).variable(0).values[0], 0.0);
    EXPECT_TRUE(buf.name.empty());
}

TEST(Buffers, CopyReplacesTheBufferAndReleasesItsOldPatches) {
    region_fe src = twoTriangles();
    region_fe buf;
    buf.name = "kept";
    buf.append(facePatch(3, {0, 1, 2, -1}));
    std::weak_ptr<FacePatch> old = buf.patches.shared(0);

    region_fe empty;
    EXPECT_TRUE(copy_reg_fe_to_buf(empty, buf));
    EXPECT_EQ(buf.name, "kept");
    EXPECT_EQ(buf.patchCount(), 1);

    EXPECT_TRUE(copy_reg_fe_to_buf(src, buf));
    EXPECT_TRUE(old.expired());
    EXPECT_EQ(buf.name, "model");
    EXPECT_EQ(buf.Mach, 0.8);
    EXPECT_EQ(buf.beta, -1.0);
    ASSERT_EQ(buf.patchCount(), 2);
    EXPECT_NE(&buf.patch(1), &src.patch(1));
    EXPECT_EQ(buf.patch(1).faceIndex, (V{2, 0, 1, -1}));

    EXPECT_TRUE(copy_reg_fe_to_buf(buf, buf));  // onto itself
    EXPECT_EQ(buf.patchCount(), 2);
    EXPECT_EQ(buf.patch(0).name, "a");
}

TEST(Merge, NodesAndFacesOfBFollowThoseOfA) {
    region_fe r = twoTriangles();
    ASSERT_TRUE(merge_in_reg_fe(r, 0, 1));
    ASSERT_EQ(r.patchCount(), 1);
    const FacePatch& m = r.patch(0);
    EXPECT_EQ(m.name, "a");
    EXPECT_EQ(m.nodes, 6);
    EXPECT_EQ(m.faces, 2);
    EXPECT_EQ(m.faceIndex, (V{0, 1, 2, -1, 5, 3, 4, -1}));
    EXPECT_EQ(m.variable(1).values, (D{100, 101, 102, 100, 101, 102}));
    EXPECT_EQ(r.name, "model");
    EXPECT_EQ(r.alpha, 2.0);
}

TEST(Merge, PatchesWithoutFacesDisappear) {
    region_fe r = twoTriangles();
    r.append(facePatch(2, {}, {"X", "Y", "Z"}, "bare"));
    r.append(facePatch(3, {0, 2, 1, -1}, {"X", "Y", "Z"}, "d"));
    ASSERT_TRUE(merge_in_reg_fe(r, 3, 0));
    ASSERT_EQ(r.patchCount(), 2);
    EXPECT_EQ(r.patch(0).name, "b");
    EXPECT_EQ(r.patch(1).name, "d");
    EXPECT_EQ(r.patch(1).faceIndex, (V{0, 2, 1, -1, 3, 4, 5, -1}));
}

// Requests that change nothing, with the result each gives.
struct Refusal {
    const char* name;
    int a, b;
    bool result;
};

void PrintTo(const Refusal& q, std::ostream* os) { *os << q.name; }

class MergeRefusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(MergeRefusals, LeaveThePatchesAlone) {
    region_fe r = twoTriangles();
    r.append(facePatch(2, {}, {"X", "Y", "Z"}, "bare"));
    const FacePatch* first = &r.patch(0);
    EXPECT_EQ(merge_in_reg_fe(r, GetParam().a, GetParam().b), GetParam().result);
    ASSERT_EQ(r.patchCount(), 3);
    EXPECT_EQ(&r.patch(0), first);
}

INSTANTIATE_TEST_SUITE_P(Cases, MergeRefusals,
                         ::testing::Values(Refusal{"same", 0, 0, false}, Refusal{"negativeA", -1, 0, false},
                                           Refusal{"negativeB", 0, -1, false}, Refusal{"bWithoutFaces", 0, 2, false},
                                           Refusal{"aTooHigh", 3, 0, true}, Refusal{"bTooHigh", 0, 3, true}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(AddPatch, SimmCopyHasTheFacesAndZeroCoordinates) {
    region_fe r = twoTriangles();
    r.append(facePatch(4, {0, 1, 2, -1, 0, 2, 3, -1}, {"x", "Y", "z", "Cp"}, "Patch___2"));
    EXPECT_EQ(add_patch_fe(r, 2), 4);
    const FacePatch& s = r.patch(3);
    EXPECT_EQ(s.name, "Patch___2_simm");
    EXPECT_EQ(s.faceIndex, r.patch(2).faceIndex);
    EXPECT_EQ(s.faces, 2);
    ASSERT_EQ(s.variableCount(), 3);
    EXPECT_EQ(s.variable(0).name, "x");
    EXPECT_EQ(s.variable(2).values, D(4, 0.0));
    EXPECT_THROW(add_patch_fe(r, 9), arrayWorks::IndexError);
}

TEST(Refine, OneTriangleBecomesFourAroundTheMidpoints) {
    for (EdgeSearch search : {EdgeSearch::hashed, EdgeSearch::linear}) {
        auto q = tundrel::mesh::refinedPatch(*facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z"}, "t"), search);
        EXPECT_EQ(q->name, "t");
        EXPECT_EQ(q->nodes, 6);
        EXPECT_EQ(q->faces, 4);
        EXPECT_EQ(q->indexLength, 16);
        EXPECT_EQ(q->faceIndex, (V{0, 3, 5, -1, 3, 1, 4, -1, 4, 2, 5, -1, 3, 4, 5, -1}));
        EXPECT_EQ(q->variable(2).values, (D{200, 201, 202, 200.5, 201.5, 201}));
    }
}

TEST(Refine, ClosedSphereStaysClosedAndOrientedTwiceOver) {
    region_fe r;
    r.append(meshtest::icosahedron());
    int list[] = {0};
    for (int round = 1; round <= 2; ++round) {
        const auto before = r.patches.shared(0);
        const int edges = static_cast<int>(meshtest::edgeUse(*before).undirected.size());
        block_fe_compress(r, 1, list);
        const FacePatch& p = r.patch(0);
        EXPECT_EQ(p.faces, 4 * before->faces);
        EXPECT_EQ(p.nodes, before->nodes + edges);  // one midpoint an edge
        const meshtest::EdgeUse use = meshtest::edgeUse(p);
        for (const auto& [edge, n] : use.undirected) ASSERT_EQ(n, 2) << edge.first << "-" << edge.second;
        for (const auto& [edge, n] : use.directed) ASSERT_EQ(n, 1);
        EXPECT_EQ(p.nodes - static_cast<int>(use.undirected.size()) + p.faces, 2);  // Euler
        EXPECT_TRUE(meshtest::facesPointAwayFrom(p, {0, 0, 0}));
    }
}

TEST(Refine, HashedAndLinearEdgeSearchesAgree) {
    // A gridded patch with every third face turned round, so that shared
    // edges are met in the same and in the opposite direction; and a strip,
    // whose edges outgrow the table's first size.
    region reg;
    reg.append(testutil::gridPatch(7, 5, {"Cp"}));
    region_fe fe;
    ASSERT_TRUE(converter_reg_to_reg_fe(reg, fe));
    FacePatch& p = fe.patch(0);
    for (int f = 0; f < p.faces; f += 3) std::swap(p.faceIndex[4 * f], p.faceIndex[4 * f + 1]);
    V strip;
    for (int t = 0; t < 32; ++t) strip.insert(strip.end(), {t + t % 2, t + 1 - t % 2, t + 2, -1});
    fe.append(facePatch(34, strip, {"X", "Y", "Z", "Cp"}));

    for (const FacePatch* q : {&fe.patch(0), &fe.patch(1)}) {
        auto hashed = tundrel::mesh::refinedPatch(*q, EdgeSearch::hashed);
        auto linear = tundrel::mesh::refinedPatch(*q, EdgeSearch::linear);
        EXPECT_EQ(hashed->faceIndex, linear->faceIndex);
        for (int v = 0; v < 4; ++v) EXPECT_EQ(hashed->variable(v).values, linear->variable(v).values);
    }
    EXPECT_EQ(tundrel::mesh::refinedPatch(p)->nodes, 35 + 6 * 5 + 7 * 4 + 6 * 4);  // nodes + edges of the grid
    EXPECT_EQ(tundrel::mesh::refinedPatch(fe.patch(1))->nodes, 34 + 65);

    p.faceIndex[6] = 35;  // not a node
    EXPECT_THROW(tundrel::mesh::refinedPatch(p), arrayWorks::IndexError);
}

TEST(Refine, IntoABufferAfterWhatIsThere) {
    region_fe r = twoTriangles();
    region_fe buf;
    buf.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z"}, "old"));
    for (int k : {-1, 2}) faces_increase_in_buff(r, buf, k);
    EXPECT_EQ(buf.patchCount(), 1);
    EXPECT_TRUE(buf.name.empty());
    faces_increase_in_buff(r, buf, 1);
    ASSERT_EQ(buf.patchCount(), 2);
    EXPECT_EQ(buf.name, "model");
    EXPECT_EQ(buf.Mach, 0.8);
    EXPECT_EQ(faces(buf.patch(1), 0), (V{2, 3, 5, -1}));
}

TEST(BlockRefine, RefinesTheListedPatchesInTheirPlaces) {
    region_fe r = twoTriangles();
    r.append(facePatch(3, {1, 2, 0, -1}, {"X", "Y", "Z"}, "c"));
    int none[] = {0, 1, 2, 0};
    block_fe_compress(r, 0, none);
    block_fe_compress(r, 4, none);  // more entries than patches
    EXPECT_EQ(r.patch(0).faces, 1);
    EXPECT_EQ(r.name, "model");

    int list[] = {2, 0, 7};
    block_fe_compress(r, 3, list);
    ASSERT_EQ(r.patchCount(), 3);
    EXPECT_EQ(r.patch(0).name, "a");
    EXPECT_EQ(r.patch(0).faces, 4);
    EXPECT_EQ(r.patch(1).faces, 1);
    EXPECT_EQ(r.patch(2).name, "c");
    EXPECT_EQ(r.patch(2).nodes, 6);
    // The patches come back from an empty buffer: title and flow conditions
    // go with them.
    EXPECT_TRUE(r.name.empty());
    EXPECT_EQ(r.Mach, 0.0);
}

TEST(Mirror, ImageAcrossThePlaneKeepsNormalsOutward) {
    struct Case {
        tundrel::mesh::MirrorPlane plane;
        int axis;
    };
    for (const Case c : {Case{tundrel::mesh::MirrorPlane::xz, 1}, Case{tundrel::mesh::MirrorPlane::yz, 0},
                         Case{tundrel::mesh::MirrorPlane::xy, 2}}) {
        region_fe r;
        auto ball = meshtest::icosahedron();
        ball->name = "half";
        for (double& v : ball->variable(c.axis).values) v += 2.0;  // off the plane
        r.append(ball);
        ASSERT_EQ(tundrel::mesh::mirrorPatch(r, 0, c.plane), 2);
        const FacePatch& image = r.patch(1);
        EXPECT_EQ(image.name, "half_simm");
        for (int n = 0; n < 12; ++n) {
            auto p = meshtest::point(*ball, n), q = meshtest::point(image, n);
            for (int k = 0; k < 3; ++k) EXPECT_EQ(q[k], k == c.axis ? -p[k] : p[k]);
        }
        std::array<double, 3> centre{0, 0, 0};
        centre[static_cast<std::size_t>(c.axis)] = -2.0;
        EXPECT_TRUE(meshtest::facesPointAwayFrom(image, centre));
    }
}

TEST(Mirror, NeedsTheCoordinatesAmongTheFirstThreeVariables) {
    region_fe r;
    r.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Cp", "Z"}));
    EXPECT_EQ(tundrel::mesh::mirrorPatch(r, 0, tundrel::mesh::MirrorPlane::xz), -1);
    EXPECT_EQ(r.patchCount(), 1);
}
