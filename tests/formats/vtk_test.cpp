// VTK XML files: a model of structured and face patches, a node without a
// value, title and flow conditions read back the same, ASCII and binary.
#include "tests/support/test_util.h"

namespace {

using testutil::facePatch;
using testutil::gridPatch;

struct Model {
    region reg;
    region_fe fe;
};

Model sample() {
    Model m;
    m.reg.name = "wing & <body> \"A\"";
    m.reg.Mach = 0.8;
    m.reg.alpha = 2.5;
    m.reg.beta = -1.25;
    m.reg.append(gridPatch(4, 3, {"cp"}));
    m.reg.patch(0).name = "upper";
    m.reg.patch(0).variable(3).values[5] = tundrel::kNoValue;
    auto box = std::make_shared<StructPatch>(2, 2, 2);  // a patch with layers
    for (const char* v : {"cp", "x", "y", "z"}) {
        NodeVariable& var = box->addVariable(v);
        for (std::size_t n = 0; n < 8; ++n) var.values[n] = 1.0 / 3.0 + static_cast<double>(n * (v[0] - 'a'));
    }
    m.reg.append(box);
    m.fe.name = "faces";
    m.fe.Mach = 0.3;
    // A triangle and a quadrilateral.
    m.fe.append(facePatch(5, {0, 1, 2, -1, 1, 3, 4, 2}, {"X", "Y", "Z", "cp_si"}, "fin"));
    m.fe.patch(0).variable(3).values[4] = -2e10;
    return m;
}

template <class R>
void expectSame(const R& a, const R& b) {
    EXPECT_EQ(a.name, b.name);
    EXPECT_EQ(a.Mach, b.Mach);
    EXPECT_EQ(a.alpha, b.alpha);
    EXPECT_EQ(a.beta, b.beta);
    ASSERT_EQ(a.patchCount(), b.patchCount());
    for (int k = 0; k < a.patchCount(); ++k) {
        const auto& p = a.patch(k);
        const auto& q = b.patch(k);
        EXPECT_EQ(p.name, q.name);
        EXPECT_EQ(std::tie(p.I, p.J, p.K, p.N), std::tie(q.I, q.J, q.K, q.N));
        ASSERT_EQ(p.variableCount(), q.variableCount());
        for (int v = 0; v < p.variableCount(); ++v) {
            EXPECT_EQ(p.variable(v).name, q.variable(v).name);
            std::vector<double> expected = p.variable(v).values;
            for (double& x : expected) x = x < tundrel::kNoValueBelow ? tundrel::kNoValue : x;
            EXPECT_EQ(expected, q.variable(v).values) << p.name << " " << p.variable(v).name;
        }
    }
}

class VtkFiles : public testutil::HostTest, public ::testing::WithParamInterface<bool> {};

TEST_P(VtkFiles, MultiblockReadsBackTheSameModel) {
    Model m = sample();
    const std::string file = dir.file("out/model.vtm");
    ASSERT_TRUE(tundrel::exportGeometry(file, {17, true, false, GetParam()}, m.reg, m.fe));
    for (const char* piece : {"out/model/patch_0.vts", "out/model/patch_1.vts", "out/model/patch_2.vtp"})
        EXPECT_TRUE(testutil::fs::exists(dir.file(piece))) << piece;
    Model back;
    ASSERT_TRUE(import_data(file, false, back.reg, back.fe)) << ::testing::PrintToString(messages());
    expectSame(m.reg, back.reg);
    expectSame(m.fe, back.fe);
    EXPECT_EQ(m.fe.patch(0).faceIndex, back.fe.patch(0).faceIndex);
    EXPECT_TRUE(messages().empty());
}

TEST_P(VtkFiles, SinglePieceFilesHoldOneItemOfTheirKind) {
    Model m = sample();
    EXPECT_FALSE(tundrel::exportGeometry(dir.file("one.vts"), {17, true, false, GetParam()}, m.reg, m.fe));
    const tundrel::GeometryFormat& vtk = *tundrel::findGeometryFormat("vtp");
    for (auto [file, item] : {std::pair{"f.vtp", 2}, std::pair{"s.vts", 1}})
        ASSERT_TRUE(GetParam() ? vtk.writeBinary(dir.file(file), m.reg, m.fe, item, item)
                               : vtk.write(dir.file(file), m.reg, m.fe, item, item, 17, true));
    Model back;
    ASSERT_TRUE(import_data(dir.file("f.vtp"), false, back.reg, back.fe));
    ASSERT_TRUE(import_data(dir.file("s.vts"), false, back.reg, back.fe));
    region second = m.reg;
    second.patches.clear();
    second.append(m.reg.patches.shared(1));
    expectSame(second, back.reg);
    expectSame(m.fe, back.fe);
    ASSERT_EQ(messages().size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(AsciiAndBinary, VtkFiles, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "binary" : "ascii"; });

}  // namespace
