// Structured patches to faces, and the cut-out of faces into a new patch.
#include <gtest/gtest.h>

#include "tests/support/models.h"
#include "tests/support/test_util.h"

using V = std::vector<std::int32_t>;

class Triangulate : public testutil::HostTest {};

TEST_F(Triangulate, TwoTrianglesACellNamedByPositionAfterWhatIsThere) {
    region reg;
    reg.append(testutil::gridPatch(2, 2, {"Cp"}));
    reg.append(testutil::gridPatch(1, 5, {"Cp"}));  // too narrow, keeps its number
    reg.append(testutil::gridPatch(3, 2, {"Cp"}));
    region_fe fe;
    fe.append(testutil::facePatch(3, {0, 1, 2, -1}, {"X", "Y", "Z"}, "before"));
    ASSERT_TRUE(converter_reg_to_reg_fe(reg, fe));
    ASSERT_EQ(fe.patchCount(), 3);
    EXPECT_EQ(fe.patch(0).name, "before");

    const FacePatch& a = fe.patch(1);
    EXPECT_EQ(a.name, "Patch___0");
    EXPECT_EQ(a.nodes, 4);
    EXPECT_EQ(a.faces, 2);
    EXPECT_EQ(a.faceIndex, (V{0, 1, 2, -1, 2, 1, 3, -1}));
    ASSERT_EQ(a.variableCount(), 4);
    EXPECT_EQ(a.variable(0).name, "x");  // letter case kept
    EXPECT_EQ(a.variable(3).values, reg.patch(0).variable(3).values);

    const FacePatch& b = fe.patch(2);
    EXPECT_EQ(b.name, "Patch___2");
    EXPECT_EQ(b.faceIndex, (V{0, 1, 3, -1, 3, 1, 4, -1, 1, 2, 4, -1, 4, 2, 5, -1}));
    EXPECT_TRUE(messages().empty());

    // Every patch must have the variables of the first.
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_THROW(converter_reg_to_reg_fe(reg, fe), arrayWorks::IndexError);
}

TEST_F(Triangulate, RefusesWithoutCoordinatesAndAcceptsNothingToDo) {
    region reg;
    region_fe fe;
    EXPECT_TRUE(converter_reg_to_reg_fe(reg, fe));  // no patch
    auto p = std::make_shared<StructPatch>(2, 2, 2);
    p->addVariable("X");
    p->addVariable("y");
    reg.append(p);
    EXPECT_TRUE(converter_reg_to_reg_fe(reg, fe));  // fewer than three variables
    EXPECT_TRUE(messages().empty());
    EXPECT_EQ(fe.patchCount(), 0);

    p->addVariable("w");
    EXPECT_FALSE(converter_reg_to_reg_fe(reg, fe));
    EXPECT_EQ(messages(), std::vector<std::string>{"Error in Header. No predefined variables X or Y or Z are found"});
    EXPECT_EQ(fe.patchCount(), 0);

    p->addVariable("z");
    for (std::size_t n = 0; n < 8; ++n) p->variable(3).values[n] = static_cast<double>(n);
    ASSERT_TRUE(converter_reg_to_reg_fe(reg, fe));
    EXPECT_EQ(fe.patch(0).variable(3).values, (std::vector<double>{0, 1, 2, 3}));  // the first layer
}

class CutOut : public testutil::HostTest {};

TEST_F(CutOut, SharedNodesOnceRenumberedInOrderWithCoordinatesOnly) {
    region_fe fe;
    fe.append(testutil::facePatch(7, {0, 1, 2, -1, 2, 6, 4, -1, 4, 6, 5, -1}, {"X", "Y", "Z", "Cp"}));
    fe.append(testutil::facePatch(3, {0, 1, 2, -1}));
    Add_to_regionFe(fe, 0, {2, 1});
    ASSERT_EQ(fe.patchCount(), 3);
    const FacePatch& c = fe.patch(2);
    EXPECT_EQ(c.name, "PatchVRML_2");
    EXPECT_EQ(c.nodes, 4);  // old 2, 4, 5, 6
    EXPECT_EQ(c.faces, 2);
    EXPECT_EQ(c.faceIndex, (V{1, 3, 2, -1, 0, 3, 1, -1}));
    ASSERT_EQ(c.variableCount(), 3);
    EXPECT_EQ(c.variable(2).values, (std::vector<double>{202, 204, 205, 206}));

    Add_to_regionFe(fe, 1, {});  // no face: a patch of one node
    EXPECT_EQ(fe.patch(3).nodes, 1);
    EXPECT_THROW(Add_to_regionFe(fe, 0, {3}), arrayWorks::IndexError);
    EXPECT_THROW(Add_to_regionFe(fe, 9, {0}), arrayWorks::IndexError);
    EXPECT_EQ(fe.patchCount(), 4);
    EXPECT_TRUE(messages().empty());
}
