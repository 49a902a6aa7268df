// Copies through a buffer, merging, the "_simm" copy and its mirror image,
// and refinement.
#include <gtest/gtest.h>

#include "tests/support/models.h"
#include "tests/support/test_util.h"

using testutil::facePatch;
using V = std::vector<std::int32_t>;
using D = std::vector<double>;
using tundrel::mesh::EdgeSearch;

namespace {

region_fe twoTriangles() {
    region_fe r;
    r.name = "model";
    r.Mach = 0.8;
    r.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z"}, "a"));
    r.append(facePatch(3, {2, 0, 1, -1}, {"X", "Y", "Z"}, "b"));
    return r;
}

}  // namespace

TEST(Buffers, DeepCopiesWithTheFirstPatchsVariablesAndOldPatchesReleased) {
    region_fe src = twoTriangles();
    src.append(facePatch(4, {0, 1, 2, -1, 0, 2, 3, -1}, {"X", "Y", "Z", "Cp"}, "c"));
    region_fe buf;
    buf.name = "kept";
    AddBlock_to_buf(src, buf, -1);
    AddBlock_to_buf(src, buf, 3);
    EXPECT_EQ(buf.patchCount(), 0);
    AddBlock_to_buf(src, buf, 2);
    ASSERT_EQ(buf.patchCount(), 1);
    EXPECT_EQ(buf.patch(0).faceIndex, src.patch(2).faceIndex);
    EXPECT_EQ(buf.patch(0).variableCount(), 3);  // as many as src's first patch
    buf.patch(0).variable(0).values[0] = 42;
    EXPECT_EQ(src.patch(2).variable(0).values[0], 0.0);

    std::weak_ptr<FacePatch> old = buf.patches.shared(0);
    region_fe empty;
    EXPECT_TRUE(copy_reg_fe_to_buf(empty, buf));
    EXPECT_EQ(buf.patchCount(), 1);
    EXPECT_TRUE(copy_reg_fe_to_buf(src, buf));
    EXPECT_TRUE(old.expired());
    EXPECT_EQ(buf.name, "model");
    EXPECT_EQ(buf.Mach, 0.8);
    ASSERT_EQ(buf.patchCount(), 3);
    EXPECT_NE(&buf.patch(1), &src.patch(1));
    EXPECT_TRUE(copy_reg_fe_to_buf(buf, buf));  // onto itself
    EXPECT_EQ(buf.patch(1).faceIndex, (V{2, 0, 1, -1}));
}

TEST(Merge, NodesAndFacesOfBFollowAAndFacelessPatchesGo) {
    region_fe r = twoTriangles();
    r.append(facePatch(2, {}, {"X", "Y", "Z"}, "bare"));
    r.append(facePatch(3, {0, 2, 1, -1}, {"X", "Y", "Z"}, "d"));
    ASSERT_TRUE(merge_in_reg_fe(r, 0, 1));
    ASSERT_EQ(r.patchCount(), 2);
    const FacePatch& m = r.patch(0);
    EXPECT_EQ(m.name, "a");
    EXPECT_EQ(m.nodes, 6);
    EXPECT_EQ(m.faces, 2);
    EXPECT_EQ(m.faceIndex, (V{0, 1, 2, -1, 5, 3, 4, -1}));
    EXPECT_EQ(m.variable(1).values, (D{100, 101, 102, 100, 101, 102}));
    EXPECT_EQ(r.patch(1).name, "d");
    EXPECT_EQ(r.name, "model");
}

TEST(Merge, RefusalsAndOutOfRangeNumbersLeaveThePatchesAlone) {
    struct Case {
        int a, b;
        bool result;
    };
    // The same patch, negative numbers, b without faces; numbers too high.
    for (const Case c : {Case{0, 0, false}, Case{-1, 0, false}, Case{0, -1, false}, Case{0, 2, false},
                         Case{3, 0, true}, Case{0, 3, true}}) {
        region_fe r = twoTriangles();
        r.append(facePatch(2, {}, {"X", "Y", "Z"}, "bare"));
        const FacePatch* first = &r.patch(0);
        EXPECT_EQ(merge_in_reg_fe(r, c.a, c.b), c.result) << c.a << " " << c.b;
        ASSERT_EQ(r.patchCount(), 3);
        EXPECT_EQ(&r.patch(0), first);
    }
}

TEST(AddPatch, SimmCopyHasTheFacesAndZeroCoordinates) {
    region_fe r = twoTriangles();
    r.append(facePatch(4, {0, 1, 2, -1, 0, 2, 3, -1}, {"x", "Y", "z", "Cp"}, "Patch___2"));
    EXPECT_EQ(add_patch_fe(r, 2), 4);
    const FacePatch& s = r.patch(3);
    EXPECT_EQ(s.name, "Patch___2_simm");
    EXPECT_EQ(s.faceIndex, r.patch(2).faceIndex);
    ASSERT_EQ(s.variableCount(), 3);
    EXPECT_EQ(s.variable(0).name, "x");
    EXPECT_EQ(s.variable(2).values, D(4, 0.0));
}

TEST(Refine, OneTriangleBecomesFourAroundTheMidpoints) {
    region_fe r = twoTriangles();
    region_fe buf;
    buf.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z"}, "old"));
    for (int k : {-1, 2}) faces_increase_in_buff(r, buf, k);
    EXPECT_TRUE(buf.name.empty());
    faces_increase_in_buff(r, buf, 0);
    EXPECT_EQ(buf.name, "model");
    ASSERT_EQ(buf.patchCount(), 2);
    const FacePatch& q = buf.patch(1);
    EXPECT_EQ(q.name, "a");
    EXPECT_EQ(q.nodes, 6);
    EXPECT_EQ(q.faces, 4);
    EXPECT_EQ(q.faceIndex, (V{0, 3, 5, -1, 3, 1, 4, -1, 4, 2, 5, -1, 3, 4, 5, -1}));
    EXPECT_EQ(q.variable(2).values, (D{200, 201, 202, 200.5, 201.5, 201}));
}

TEST(Refine, ClosedSurfaceStaysClosedAndOrientedTwiceOver) {
    region_fe r;
    r.append(testutil::octahedron());
    int list[] = {0};
    for (int round = 1; round <= 2; ++round) {
        const auto before = r.patches.shared(0);
        block_fe_compress(r, 1, list);
        const FacePatch& p = r.patch(0);
        EXPECT_EQ(p.faces, 4 * before->faces);
        EXPECT_EQ(p.nodes, before->nodes + 3 * before->faces / 2);  // one midpoint an edge
        // Every edge is run once each way: shared by exactly two faces.
        for (const auto& [edge, n] : testutil::directedEdges(p)) {
            ASSERT_EQ(n, 1);
            ASSERT_EQ(testutil::directedEdges(p).count({edge.second, edge.first}), 1u);
        }
        EXPECT_TRUE(testutil::facesPointAwayFrom(p, {0, 0, 0}));
    }
}

TEST(Refine, HashedAndLinearEdgeSearchesAgree) {
    // A grid with every third face turned round, so that shared edges are met
    // in the same and in the opposite direction; and a strip, whose edges
    // outgrow the hash table's first size.
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
    EXPECT_EQ(tundrel::mesh::refinedPatch(p)->nodes, 35 + 6 * 5 + 7 * 4 + 6 * 4);  // nodes + edges
    EXPECT_EQ(tundrel::mesh::refinedPatch(fe.patch(1))->nodes, 34 + 65);
    p.faceIndex[6] = 35;  // not a node
    EXPECT_THROW(tundrel::mesh::refinedPatch(p), arrayWorks::IndexError);
}

TEST(BlockRefine, RefinesTheListedPatchesInTheirPlaces) {
    region_fe r = twoTriangles();
    r.append(facePatch(3, {1, 2, 0, -1}, {"X", "Y", "Z"}, "c"));
    int none[] = {0, 1, 2, 0};
    block_fe_compress(r, 0, none);
    block_fe_compress(r, 4, none);  // more entries than patches
    EXPECT_EQ(r.patch(0).faces, 1);

    int list[] = {2, 0, 7};
    block_fe_compress(r, 3, list);
    ASSERT_EQ(r.patchCount(), 3);
    EXPECT_EQ(r.patch(0).faces, 4);
    EXPECT_EQ(r.patch(1).faces, 1);
    EXPECT_EQ(r.patch(2).name, "c");
    EXPECT_EQ(r.patch(2).nodes, 6);
    // Copied back from an empty buffer: title and flow conditions go.
    EXPECT_TRUE(r.name.empty());
    EXPECT_EQ(r.Mach, 0.0);
}

TEST(Mirror, ImageAcrossEachPlaneKeepsNormalsOutward) {
    using tundrel::mesh::MirrorPlane;
    for (const auto& [plane, axis] : {std::pair{MirrorPlane::xz, 1}, {MirrorPlane::yz, 0}, {MirrorPlane::xy, 2}}) {
        std::array<double, 3> centre{0, 0, 0};
        centre[axis] = 2.0;  // off the plane
        region_fe r;
        r.append(testutil::octahedron(centre));
        r.patch(0).name = "half";
        ASSERT_EQ(tundrel::mesh::mirrorPatch(r, 0, plane), 2);
        const FacePatch& image = r.patch(1);
        EXPECT_EQ(image.name, "half_simm");
        for (int n = 0; n < 6; ++n) {
            auto p = testutil::point(r.patch(0), n), q = testutil::point(image, n);
            for (int k = 0; k < 3; ++k) EXPECT_EQ(q[k], k == axis ? -p[k] : p[k]);
        }
        centre[axis] = -2.0;
        EXPECT_TRUE(testutil::facesPointAwayFrom(image, centre));
    }
    region_fe r;
    r.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Cp", "Z"}));
    EXPECT_EQ(tundrel::mesh::mirrorPatch(r, 0, MirrorPlane::xz), -1);
    EXPECT_EQ(r.patchCount(), 1);
}

// The image of a quad patch is quads, turned as change_normal_fe turns them
// (it once came out as bow-ties, (a, b, c, d) turned into (a, c, b, d)).
TEST(Mirror, QuadsStayQuadsTurnedAsChangeNormalTurnsThem) {
    region_fe r;
    r.append(facePatch(6, {0, 1, 4, 3, 1, 2, 5, 4, 0, 1, 2, -1}));
    ASSERT_EQ(tundrel::mesh::mirrorPatch(r, 0, tundrel::mesh::MirrorPlane::xy), 2);
    EXPECT_EQ(r.patch(1).faceIndex, (V{0, 3, 4, 1, 1, 4, 5, 2, 0, 2, 1, -1}));
    change_normal_fe(r, 0);
    EXPECT_EQ(r.patch(0).faceIndex, r.patch(1).faceIndex);
}
