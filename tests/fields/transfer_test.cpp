#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"
#include "api/detail/geometry_rules.h"

using arrayWorks::BlockLayout;
using arrayWorks::kNoValue;
using Vec = z::zVec<double>;

namespace {

// A face patch with x, y, z from `points`, the given faces (four entries a
// face) and extra variables with distinct values.
std::shared_ptr<FacePatch> facePatch(const std::vector<Vec>& points, const std::vector<std::int32_t>& faces,
                                     const std::vector<std::string>& extra = {}) {
    const int n = static_cast<int>(points.size());
    auto p = std::make_shared<FacePatch>(n, static_cast<int>(faces.size()), static_cast<int>(faces.size() / 4));
    p->faceIndex = faces;
    auto& x = p->addVariable("x");
    auto& y = p->addVariable("y");
    auto& z = p->addVariable("z");
    for (std::size_t k = 0; k < points.size(); ++k) {
        x.values[k] = points[k].x;
        y.values[k] = points[k].y;
        z.values[k] = points[k].z;
    }
    for (std::size_t e = 0; e < extra.size(); ++e) {
        auto& v = p->addVariable(extra[e]);
        for (std::size_t k = 0; k < v.values.size(); ++k) v.values[k] = -3.5 * (e + 1) + 0.25 * k;
    }
    return p;
}

// The coordinate variable of a patch by lowered name.
const NodeVariable& coordinate(const PatchBase& p, const std::string& name) {
    for (const auto& v : p.variables)
        if (lowered(v->name) == name) return *v;
    throw std::runtime_error("no coordinate " + name);
}

// Every variable of `before` comes back in `after` with the same values
// (coordinates matched by lowered name); names "Patch_<index>".
void expectSameVariables(const PatchBase& before, const PatchBase& after, int index) {
    EXPECT_EQ(after.name, "Patch_" + std::to_string(index));
    EXPECT_EQ(after.I, before.I);
    EXPECT_EQ(after.J, before.J);
    EXPECT_EQ(after.K, before.K);
    ASSERT_GE(after.variableCount(), 3);
    EXPECT_EQ(after.variable(0).name, "x");
    EXPECT_EQ(after.variable(1).name, "y");
    EXPECT_EQ(after.variable(2).name, "z");
    for (const auto& v : before.variables) {
        const std::string l = lowered(v->name);
        const bool coord = l == "x" || l == "y" || l == "z";
        const NodeVariable* back = coord ? &coordinate(after, l) : after.findVariable(v->name);
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
        reg.Mach = 0.8;
        reg.alpha = 4.0;
        reg.beta = -1.0;
        reg.append(testutil::gridPatch(3, 2, {"cp", "t"}));
        auto upper = std::make_shared<StructPatch>(2, 2, 1);
        const char* names[] = {"Q", "X", "Y", "Z", "cp"};
        for (int k = 0; k < 5; ++k) {
            auto& v = upper->addVariable(names[k]);
            for (std::size_t n = 0; n < 4; ++n) v.values[n] = 100.0 * k + static_cast<double>(n) * (k == 3 ? 0.5 : 1.0);
        }
        upper->name = "upper";
        reg.append(upper);
        fe.append(facePatch({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}}, {0, 1, 2, -1, 1, 4, 2, 3},
                            {"cp", "heat"}));
        fe.Mach = 0.3;
    }

    region reg;
    region_fe fe;
    FieldMasterD field;
    z::ambientFlow flow;
};

TEST_F(Transfer, OneBlockPerPatchWithPositionsLayoutAndFunctions) {
    Region_to_fieldMaster(reg, fe, field, flow);

    ASSERT_EQ(field.blockCount(), 3);
    EXPECT_EQ(field.nodeCount(2), 5);
    EXPECT_EQ(field.layout(0).rowLength, 3);
    EXPECT_EQ(field.layout(0).rows, 2);
    EXPECT_EQ(field.layout(1).name, "upper");
    EXPECT_FALSE(field.layout(2).structured());
    // One triangle list in global node numbers: two a grid cell, then the faces.
    const std::vector<std::int32_t> triangles(field.triangles().begin(), field.triangles().end());
    EXPECT_EQ(triangles, (std::vector<std::int32_t>{0, 1, 3, 3, 1, 4, 1, 2, 4, 4, 2, 5, 6, 7, 8, 8, 7, 9, 10, 11,
                                                     12, 11, 14, 12, 11, 12, 13}));
    EXPECT_EQ(std::vector<std::size_t>(field.triangleOffsets().begin(), field.triangleOffsets().end()),
              (std::vector<std::size_t>{0, 4, 6, 9}));

    EXPECT_EQ(field.position(1, 3), (Vec{103, 203, 301.5}));  // from "X", "Y", "Z"
    // Names in the order they first occur, one function each, then "$_N" and
    // "$_selection".
    std::vector<std::string> names;
    for (int i = 0; i < field.functionCount(); ++i) names.push_back(field.functionAt(i)->name());
    EXPECT_EQ(names, (std::vector<std::string>{"cp", "t", "Q", "heat", "$_N", "$_selection"}));
    const auto* cp = field.functionNamed<double>("cp");
    const auto* t = field.functionNamed<double>("t");
    ASSERT_NE(cp, nullptr);
    ASSERT_NE(t, nullptr);
    for (int n = 0; n < 4; ++n) EXPECT_EQ(cp->at(1, n), reg.patch(1).findVariable("cp")->values[static_cast<std::size_t>(n)]);
    for (int n = 0; n < 5; ++n) {
        EXPECT_EQ(cp->at(2, n), fe.patch(0).findVariable("cp")->values[static_cast<std::size_t>(n)]);
        EXPECT_EQ(t->at(2, n), kNoValue);  // the face patch has no "t"
    }
    EXPECT_EQ(field.functionNamed<double>("heat")->at(0, 5), kNoValue);

    ASSERT_NE(field.normals(), nullptr);
    EXPECT_EQ(field.selectionState(), arrayWorks::NothingSelected);
    EXPECT_EQ(flow.Mach, 0.8);
    EXPECT_EQ(flow.alpha, 4.0);
    EXPECT_EQ(flow.beta, -1.0);
}

TEST_F(Transfer, RoundTripGivesTheSameGeometryAndFields) {
    Region_to_fieldMaster(reg, fe, field, flow);
    region back;
    region_fe backFe;
    back.append(testutil::gridPatch(2, 2));  // emptied by the way back
    auto held = testutil::gridPatch(4, 4);
    backFe.append(facePatch({{0, 0, 0}}, {}));
    back.append(held);
    fieldMaster_to_Region(field, flow, back, backFe);

    ASSERT_EQ(back.patchCount(), 2);
    ASSERT_EQ(backFe.patchCount(), 1);
    expectSameVariables(reg.patch(0), back.patch(0), 0);
    expectSameVariables(reg.patch(1), back.patch(1), 1);
    expectSameVariables(fe.patch(0), backFe.patch(0), 2);
    EXPECT_EQ(backFe.patch(0).faceIndex, fe.patch(0).faceIndex);
    EXPECT_EQ(backFe.patch(0).faces, 2);
    EXPECT_EQ(backFe.patch(0).nodes, 5);
    // Variables in the container's order; the reserved functions stay behind.
    std::vector<std::string> names;
    for (const auto& v : back.patch(1).variables) names.push_back(v->name);
    EXPECT_EQ(names, (std::vector<std::string>{"x", "y", "z", "cp", "t", "Q", "heat"}));
    EXPECT_EQ(back.patch(1).findVariable("heat")->values, std::vector<double>(4, kNoValue));
    EXPECT_EQ(back.Mach, 0.8);
    EXPECT_EQ(backFe.Mach, 0.8);
    EXPECT_EQ(backFe.beta, -1.0);
    // A patch taken off the list lives on with whoever holds it.
    EXPECT_EQ(held->variable(0).values.size(), 16u);
}

TEST_F(Transfer, OddPatchesAreTakenAsFarAsTheyGo) {
    region odd;
    auto noZ = std::make_shared<StructPatch>(2, 2, 1);
    noZ->addVariable("x").values = {1, 2, 3, 4};
    noZ->addVariable("y");
    noZ->addVariable("$_N").values = {9, 9, 9, 9};  // reserved: not a function
    noZ->addVariable("short").values = {1.0};        // fewer values than nodes
    odd.append(noZ);
    odd.patches.append(nullptr);
    region_fe faces;
    // Faces with entries that are no node, too few corners, -1 in the middle.
    faces.append(facePatch({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {0, 1, 7, -1, 0, 1, -1, -1, 0, -1, 1, 2, -5, 0, 1, 2}));
    faces.patch(0).faces = 9;  // more than the list holds
    Region_to_fieldMaster(odd, faces, field, flow);

    ASSERT_EQ(field.blockCount(), 2);
    EXPECT_EQ(field.position(0, 3).x, 4.0);
    EXPECT_EQ(field.position(0, 3).z, 0.0);
    EXPECT_EQ(field.findFunction("$_N"), 1);
    EXPECT_NE(field.normals(), nullptr);
    EXPECT_EQ(field.functionNamed<double>("short")->at(0, 0), kNoValue);
    const auto first = static_cast<std::int32_t>(field.offset(1));
    EXPECT_EQ(std::vector<std::int32_t>(field.blockTriangles(1).begin(), field.blockTriangles(1).end()),
              (std::vector<std::int32_t>{first, first + 1, first + 2}));
    EXPECT_EQ(field.layout(1).faceIndex.size(), 16u);
}

// Models read from files come back unchanged (up to the patch names).
class TransferFile : public testutil::HostTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(TransferFile, ComesBackUnchanged) {
    region model;
    region_fe modelFe;
    ASSERT_TRUE(import_data(testutil::dataFile(GetParam()), false, model, modelFe));
    ASSERT_GT(model.patchCount() + modelFe.patchCount(), 0);
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(model, modelFe, field, flow);
    region back;
    region_fe backFe;
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

INSTANTIATE_TEST_SUITE_P(Files, TransferFile, ::testing::Values("wing.apt", "mesher_v1.wrl", "toolkit_v2.wrl", "classic.dat", "current.dat"));
