// Structured patches to faces, and the cut-out of faces into a new patch.
#include <gtest/gtest.h>

#include "tests/support/test_util.h"

using V = std::vector<std::int32_t>;
using D = std::vector<double>;

class Mesh : public testutil::HostTest {};

TEST_F(Mesh, TriangulatesTwoTrianglesACellNamedByPositionAfterWhatIsThere) {
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
    EXPECT_TRUE(a.name == "Patch___0" && a.nodes == 4 && a.faces == 2);
    EXPECT_EQ(a.faceIndex, (V{0, 1, 2, -1, 2, 1, 3, -1}));
    ASSERT_EQ(a.variableCount(), 4);
    EXPECT_EQ(a.variable(0).name, "x");  // letter case kept
    EXPECT_EQ(a.variable(3).values, reg.patch(0).variable(3).values);
    EXPECT_EQ(fe.patch(2).name, "Patch___2");
    EXPECT_EQ(fe.patch(2).faceIndex, (V{0, 1, 3, -1, 3, 1, 4, -1, 1, 2, 4, -1, 4, 2, 5, -1}));
    EXPECT_TRUE(messages().empty());
    reg.append(testutil::gridPatch(2, 2));  // every patch must have the variables of the first
    EXPECT_THROW(converter_reg_to_reg_fe(reg, fe), arrayWorks::IndexError);
}

TEST_F(Mesh, TriangulationRefusesWithoutCoordinatesAndAcceptsNothingToDo) {
    region reg;
    region_fe fe;
    EXPECT_TRUE(converter_reg_to_reg_fe(reg, fe));  // no patch
    auto p = std::make_shared<StructPatch>(2, 2, 2);
    p->addVariable("X");
    p->addVariable("y");
    reg.append(p);
    EXPECT_TRUE(converter_reg_to_reg_fe(reg, fe));  // fewer than three variables
    EXPECT_TRUE(messages().empty());
    p->addVariable("w");
    EXPECT_FALSE(converter_reg_to_reg_fe(reg, fe));
    EXPECT_EQ(messages(), std::vector<std::string>{"Error in Header. No predefined variables X or Y or Z are found"});
    EXPECT_EQ(fe.patchCount(), 0);
    p->addVariable("z");
    for (std::size_t n = 0; n < 8; ++n) p->variable(3).values[n] = static_cast<double>(n);
    ASSERT_TRUE(converter_reg_to_reg_fe(reg, fe));
    EXPECT_EQ(fe.patch(0).variable(3).values, (D{0, 1, 2, 3}));  // the first layer
}

TEST_F(Mesh, CutOutSharesNodesOnceRenumberedInOrderWithCoordinatesOnly) {
    region_fe fe;
    fe.append(testutil::facePatch(7, {0, 1, 2, -1, 2, 6, 4, -1, 4, 6, 5, -1}, {"X", "Y", "Z", "Cp"}));
    fe.append(testutil::facePatch(3, {0, 1, 2, -1}));
    Add_to_regionFe(fe, 0, {2, 1});
    ASSERT_EQ(fe.patchCount(), 3);
    const FacePatch& c = fe.patch(2);
    EXPECT_TRUE(c.name == "PatchVRML_2" && c.nodes == 4 && c.faces == 2);  // old nodes 2, 4, 5, 6
    EXPECT_EQ(c.faceIndex, (V{1, 3, 2, -1, 0, 3, 1, -1}));
    ASSERT_EQ(c.variableCount(), 3);
    EXPECT_EQ(c.variable(2).values, (D{202, 204, 205, 206}));
    Add_to_regionFe(fe, 1, {});  // no face: a patch of one node
    EXPECT_EQ(fe.patch(3).nodes, 1);
    EXPECT_THROW(Add_to_regionFe(fe, 0, {3}), arrayWorks::IndexError);
    EXPECT_THROW(Add_to_regionFe(fe, 9, {0}), arrayWorks::IndexError);
    EXPECT_EQ(fe.patchCount(), 4);
}
