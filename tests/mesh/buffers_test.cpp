// Copies through a buffer, merging, the "_simm" copy and its mirror image,
// and refinement.
#include <gtest/gtest.h>

#include "tests/support/models.h"

using testutil::facePatch;
using V = std::vector<std::int32_t>;
using D = std::vector<double>;
using tundrel::mesh::EdgeSearch;
using tundrel::mesh::MirrorPlane;

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
    EXPECT_TRUE(buf.name == "model" && buf.Mach == 0.8 && buf.patchCount() == 3);
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
    EXPECT_TRUE(m.name == "a" && m.nodes == 6 && m.faces == 2);
    EXPECT_EQ(m.faceIndex, (V{0, 1, 2, -1, 5, 3, 4, -1}));
    EXPECT_EQ(m.variable(1).values, (D{100, 101, 102, 100, 101, 102}));
    EXPECT_EQ(r.patch(1).name, "d");
}

TEST(Merge, RefusalsAndOutOfRangeNumbersLeaveThePatchesAlone) {
    // The same patch, negative numbers, b without faces; numbers too high pass.
    for (const auto& [a, b, result] : {std::tuple{0, 0, false}, {-1, 0, false}, {0, -1, false}, {0, 2, false},
                                       {3, 0, true}, {0, 3, true}}) {
        region_fe r = twoTriangles();
        r.append(facePatch(2, {}, {"X", "Y", "Z"}, "bare"));
        const FacePatch* first = &r.patch(0);
        EXPECT_EQ(merge_in_reg_fe(r, a, b), result) << a << " " << b;
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
    EXPECT_TRUE(q.name == "a" && q.nodes == 6 && q.faces == 4);
    EXPECT_EQ(q.faceIndex, (V{0, 3, 5, -1, 3, 1, 4, -1, 4, 2, 5, -1, 3, 4, 5, -1}));
    EXPECT_EQ(q.variable(2).values, (D{200, 201, 202, 200.5, 201.5, 201}));
}

// A grid with every third face turned round (shared edges met both ways), and
// a strip whose edges outgrow the hash table's first size.
TEST(Refine, HashedAndLinearEdgeSearchesAgree) {
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
    EXPECT_TRUE(r.patch(2).name == "c" && r.patch(2).nodes == 6);
    // Copied back from an empty buffer: title and flow conditions go.
    EXPECT_TRUE(r.name.empty() && r.Mach == 0.0);
}

// The image is the patch with one coordinate negated and its faces turned,
// so that normals still point out of the mirrored body.
TEST(Mirror, ImageAcrossEachPlaneTurnsTheFaces) {
    for (const auto& [plane, axis] : {std::pair{MirrorPlane::xz, 1}, {MirrorPlane::yz, 0}, {MirrorPlane::xy, 2}}) {
        region_fe r;
        r.append(facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z", "Cp"}, "half"));
        ASSERT_EQ(tundrel::mesh::mirrorPatch(r, 0, plane), 2);
        const FacePatch& image = r.patch(1);
        EXPECT_EQ(image.name, "half_simm");
        EXPECT_EQ(image.faceIndex, (V{0, 2, 1, -1}));
        ASSERT_EQ(image.variableCount(), 3);  // coordinates only, as the "_simm" copy
        for (int v = 0; v < 3; ++v) {
            D expected = r.patch(0).variable(v).values;
            for (double& e : expected) e = v == axis ? -e : e;
            EXPECT_EQ(image.variable(v).values, expected) << v;
        }
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
    ASSERT_EQ(tundrel::mesh::mirrorPatch(r, 0, MirrorPlane::xy), 2);
    EXPECT_EQ(r.patch(1).faceIndex, (V{0, 3, 4, 1, 1, 4, 5, 2, 0, 2, 1, -1}));
    change_normal_fe(r, 0);
    EXPECT_EQ(r.patch(0).faceIndex, r.patch(1).faceIndex);
}
