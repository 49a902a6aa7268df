#include <gtest/gtest.h>

#include "api/TundrelApi.h"

namespace {

// An I x J grid of triangles at height z over [x0, x0 + I - 1] x [0, J - 1],
// counter-clockwise seen from above (or from below when flipped), with a
// node variable "P" = node number.
std::shared_ptr<FacePatch> plate(int I, int J, double x0, double z, bool flipped = false) {
    const int faces = 2 * (I - 1) * (J - 1);
    auto p = std::make_shared<FacePatch>(I * J, 4 * faces, faces);
    auto& X = p->addVariable("X");
    auto& Y = p->addVariable("y");
    auto& Z = p->addVariable("Z");
    auto& P = p->addVariable("P");
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const auto n = static_cast<std::size_t>(i + I * j);
            X.values[n] = x0 + i;
            Y.values[n] = j;
            Z.values[n] = z;
            P.values[n] = static_cast<double>(n);
        }
    std::size_t f = 0;
    for (int j = 0; j + 1 < J; ++j)
        for (int i = 0; i + 1 < I; ++i) {
            const int c = i + I * j;
            const int tris[2][3] = {{c, c + 1, c + I}, {c + I, c + 1, c + I + 1}};
            for (const auto& t : tris) {
                p->faceIndex[4 * f] = t[0];
                p->faceIndex[4 * f + 1] = flipped ? t[2] : t[1];
                p->faceIndex[4 * f + 2] = flipped ? t[1] : t[2];
                p->faceIndex[4 * f + 3] = -1;
                ++f;
            }
        }
    return p;
}

}  // namespace

TEST(UnvisibleFacesRemove, KeepsFrontFacesInSightAndCompactsTheNodes) {
    region_fe reg;
    reg.append(plate(3, 3, 0.0, 1.0));          // 8 faces over [0, 2] x [0, 2], seen
    reg.append(plate(6, 3, 0.0, 0.0));          // 20 faces over [0, 5] x [0, 2], partly below the first
    reg.append(plate(3, 3, 10.0, 0.0, true));   // turned away
    // Far above the middle of the first plate, so that it shades what lies under it.
    const int removed = unvisible_faces_remove(reg, {1.0, 1.0, 1e4});

    EXPECT_EQ(reg.patch(0).faces, 8);
    EXPECT_EQ(reg.patch(0).nodes, 9);
    EXPECT_EQ(reg.patch(2).faces, 0);
    EXPECT_EQ(reg.patch(2).nodes, 0);
    EXPECT_EQ(reg.patch(2).variable(0).values.size(), 0u);

    // The lower plate keeps the cells beyond x = 2: columns 2 to 5 of its nodes.
    FacePatch& low = reg.patch(1);
    EXPECT_EQ(low.faces, 12);
    EXPECT_EQ(removed, 8 + 8);
    ASSERT_EQ(low.nodes, 12);
    EXPECT_EQ(low.indexLength, 4 * 12);
    ASSERT_EQ(low.faceIndex.size(), 48u);
    const NodeVariable& X = low.variable(0);
    const NodeVariable& P = low.variable(3);
    ASSERT_EQ(X.values.size(), 12u);
    EXPECT_EQ(X.count, 12);
    EXPECT_EQ(X.I, 12);
    for (std::size_t n = 0; n < 12; ++n) {
        EXPECT_GE(X.values[n], 2.0);
        // Old node number 2 + i + 6 j kept in order.
        EXPECT_EQ(P.values[n], static_cast<double>(2 + n % 4 + 6 * (n / 4)));
    }
    for (std::size_t f = 0; f < 12; ++f) {
        EXPECT_EQ(low.faceIndex[4 * f + 3], -1);
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_GE(low.faceIndex[4 * f + c], 0);
            EXPECT_LT(low.faceIndex[4 * f + c], 12);
        }
    }
}

TEST(UnvisibleFacesRemove, EyeBehindSeesNothingAndPatchesWithoutCoordinatesStay) {
    region_fe reg;
    reg.append(plate(4, 4, 0.0, 0.0));
    auto bare = std::make_shared<FacePatch>(3, 4, 1);
    bare->faceIndex = {0, 1, 2, -1};
    bare->addVariable("P");
    reg.append(bare);
    EXPECT_EQ(unvisible_faces_remove(reg, {1.5, 1.5, -5.0}), 18);
    EXPECT_EQ(reg.patch(0).faces, 0);
    EXPECT_EQ(reg.patch(1).faces, 1);
    EXPECT_EQ(reg.patch(1).nodes, 3);

    region_fe again;
    again.append(plate(4, 4, 0.0, 0.0));
    EXPECT_EQ(unvisible_faces_remove(again, {1.5, 1.5, 5.0}), 0);  // all in sight, nothing changes
    EXPECT_EQ(again.patch(0).nodes, 16);
}
