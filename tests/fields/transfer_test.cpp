#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"
#include "api/detail/geometry_rules.h"

using arrayWorks::kNoValue;
using Vec = z::zVec<double>;

namespace {

// Every variable of `before` comes back in `after` with the same values
// (coordinates matched by lowered name, and first as x, y, z); names "Patch_<index>".
void expectSameVariables(const PatchBase& before, const PatchBase& after, int index) {
    EXPECT_EQ(after.name, "Patch_" + std::to_string(index));
    EXPECT_TRUE(after.I == before.I && after.J == before.J && after.K == before.K);
    ASSERT_GE(after.variableCount(), 3);
    for (int q = 0; q < 3; ++q) EXPECT_EQ(after.variable(q).name, std::string(1, "xyz"[q]));
    for (const auto& v : before.variables) {
        const std::string l = lowered(v->name);
        const int coord = l.size() == 1 ? static_cast<int>(std::string("xyz").find(l[0])) : -1;
        const NodeVariable* back = coord >= 0 ? &after.variable(coord) : after.findVariable(v->name);
        ASSERT_NE(back, nullptr) << v->name;
        EXPECT_EQ(back->values, v->values) << v->name;
    }
}

}  // namespace

// Two structured patches with different variables (one with upper-case
// coordinate names) and a face patch with a triangle and a quad.
class Transfer : public testutil::HostTest {
protected:
    void SetUp() override {
        reg.name = "wing";
        reg.Mach = 0.8, reg.alpha = 4.0, reg.beta = -1.0;
        reg.append(testutil::gridPatch(3, 2, {"cp", "t"}));
        auto upper = std::make_shared<StructPatch>(2, 2, 1);
        upper->name = "upper";
        const char* names[] = {"Q", "X", "Y", "Z", "cp"};
        for (int k = 0; k < 5; ++k) {
            auto& v = upper->addVariable(names[k]);
            for (std::size_t n = 0; n < 4; ++n) v.values[n] = 100.0 * k + static_cast<double>(n) * (k == 3 ? 0.5 : 1.0);
        }
        reg.append(upper);
        fe.append(testutil::facePatch(5, {0, 1, 2, -1, 1, 4, 2, 3}, {"x", "y", "z", "cp", "heat"}));
        fe.Mach = 0.3;
    }

    region reg;
    region_fe fe;
    FieldMasterD field;
    z::ambientFlow flow;
};

TEST_F(Transfer, OneBlockPerPatchAndTheWayBackGivesTheSameGeometryAndFields) {
    Region_to_fieldMaster(reg, fe, field, flow);
    ASSERT_EQ(field.blockCount(), 3);
    EXPECT_TRUE(field.layout(0).rowLength == 3 && field.layout(1).name == "upper" && !field.layout(2).structured());
    // One triangle list in global node numbers: two a grid cell, then the faces.
    EXPECT_EQ(std::vector<std::int32_t>(field.triangles().begin(), field.triangles().end()),
              (std::vector<std::int32_t>{0, 1, 3, 3, 1, 4, 1, 2, 4, 4, 2, 5, 6, 7, 8, 8, 7, 9, 10, 11, 12, 11, 14, 12,
                                         11, 12, 13}));
    EXPECT_EQ(std::vector<std::size_t>(field.triangleOffsets().begin(), field.triangleOffsets().end()),
              (std::vector<std::size_t>{0, 4, 6, 9}));
    EXPECT_EQ(field.position(1, 3), (Vec{103, 203, 301.5}));  // from "X", "Y", "Z"
    // Names in the order they first occur, one function each, then "$_N" and "$_selection".
    std::vector<std::string> names;
    for (int i = 0; i < field.functionCount(); ++i) names.push_back(field.functionAt(i)->name());
    EXPECT_EQ(names, (std::vector<std::string>{"cp", "t", "Q", "heat", "$_N", "$_selection"}));
    for (int n = 0; n < 5; ++n) EXPECT_EQ(field.functionNamed<double>("t")->at(2, n), kNoValue);  // no "t" there
    EXPECT_EQ(field.selectionState(), arrayWorks::NothingSelected);
    EXPECT_TRUE(flow.Mach == 0.8 && flow.alpha == 4.0 && flow.beta == -1.0);

    region back;
    region_fe backFe;
    back.append(testutil::gridPatch(2, 2));  // emptied by the way back
    auto held = testutil::gridPatch(4, 4);
    backFe.append(testutil::facePatch(1, {}));
    back.append(held);
    fieldMaster_to_Region(field, flow, back, backFe);
    ASSERT_EQ(back.patchCount(), 2);
    ASSERT_EQ(backFe.patchCount(), 1);
    expectSameVariables(reg.patch(0), back.patch(0), 0);
    expectSameVariables(reg.patch(1), back.patch(1), 1);
    expectSameVariables(fe.patch(0), backFe.patch(0), 2);
    EXPECT_EQ(backFe.patch(0).faceIndex, fe.patch(0).faceIndex);
    EXPECT_TRUE(backFe.patch(0).faces == 2 && backFe.patch(0).nodes == 5);
    // Variables in the container's order; the reserved functions stay behind.
    names.clear();
    for (const auto& v : back.patch(1).variables) names.push_back(v->name);
    EXPECT_EQ(names, (std::vector<std::string>{"x", "y", "z", "cp", "t", "Q", "heat"}));
    EXPECT_EQ(back.patch(1).findVariable("heat")->values, std::vector<double>(4, kNoValue));
    EXPECT_TRUE(back.Mach == 0.8 && backFe.Mach == 0.8 && backFe.beta == -1.0);
    EXPECT_EQ(held->variable(0).values.size(), 16u);  // a patch taken off the list lives on with its holder
}

// Models read from files come back unchanged (up to the patch names).
class TransferFile : public testutil::HostTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(TransferFile, ComesBackUnchanged) {
    region model, back;
    region_fe modelFe, backFe;
    ASSERT_TRUE(import_data(testutil::dataFile(GetParam()), false, model, modelFe));
    ASSERT_GT(model.patchCount() + modelFe.patchCount(), 0);
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(model, modelFe, field, flow);
    fieldMaster_to_Region(field, flow, back, backFe);
    ASSERT_EQ(back.patchCount(), model.patchCount());
    ASSERT_EQ(backFe.patchCount(), modelFe.patchCount());
    for (int k = 0; k < model.patchCount(); ++k) expectSameVariables(model.patch(k), back.patch(k), k);
    for (int k = 0; k < modelFe.patchCount(); ++k) {
        expectSameVariables(modelFe.patch(k), backFe.patch(k), model.patchCount() + k);
        EXPECT_EQ(backFe.patch(k).faceIndex, modelFe.patch(k).faceIndex);
    }
    EXPECT_TRUE(messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Files, TransferFile,
                         ::testing::Values("wing.apt", "mesher_v1.wrl", "toolkit_v2.wrl", "classic.dat", "current.dat"));
