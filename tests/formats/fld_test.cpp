#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "api/detail/date.h"
#include "tests/support/test_util.h"

using testutil::HostTest;

namespace {

bool write_fld(const std::string& file, region& reg, int first, int last, int precision, bool scientific) {
    region_fe none;
    return tundrel::findGeometryFormat("fld")->write(file, reg, none, first, last, precision, scientific);
}

const std::string kWing =
    "wing\n"
    "   1   1     cp\n"
    "2 3 WALL  WALL  WALL  WALL\n"
    "0 0 0 -0.5\n1 0 0 -0.25\n2 0 0 0\n"
    "0 1 0 0.125\n1 1 0.5 0.25\n2 1 1 0.375\n"
    "0.8 4 0";

}  // namespace

class Fld : public HostTest {
protected:
    region reg;
    region_fe fe;
};

TEST_F(Fld, ReadsTheWingAndWritesItBackByteForByte) {
    testutil::writeFile(dir.file("in.fld"), kWing);
    reg.append(testutil::gridPatch(2, 2));  // readers append
    ASSERT_TRUE(import_data(dir.file("in.fld"), false, reg, fe));
    ASSERT_EQ(reg.patchCount(), 2);
    const StructPatch& p = reg.patch(1);
    EXPECT_EQ(p.name, "Patch_0");  // counted within the file
    EXPECT_EQ(std::vector<int>({p.I, p.J, p.K}), std::vector<int>({3, 2, 1}));
    ASSERT_EQ(p.variableCount(), 4);
    EXPECT_EQ(p.variable(3).name, "cp");
    EXPECT_EQ(p.variable(3).values, (std::vector<double>{-0.5, -0.25, 0, 0.125, 0.25, 0.375}));
    EXPECT_EQ(p.variable(2).values[4], 0.5);
    EXPECT_EQ(reg.name, "wing");
    EXPECT_EQ(reg.Mach, 0.8);
    EXPECT_EQ(reg.alpha, 4);
    EXPECT_EQ(reg.beta, 0);

    ASSERT_TRUE(write_fld(dir.file("out.fld"), reg, 1, 1, 3, false));
    EXPECT_EQ(testutil::readFile(dir.file("out.fld")),
              "wing\n   1   1     cp\n2 3 WALL  WALL  WALL  WALL\n"
              "0.000 0.000 0.000  -0.500\n1.000 0.000 0.000  -0.250\n2.000 0.000 0.000  0.000\n"
              "0.000 1.000 0.000  0.125\n1.000 1.000 0.500  0.250\n2.000 1.000 1.000  0.375\n"
              "0.800 4.000 0.000");
    EXPECT_TRUE(messages().empty());
}

TEST_F(Fld, EmptyTitleBecomesTodaysDateInTheRegion) {
    reg.append(testutil::gridPatch(1, 1));
    ASSERT_TRUE(export_data(dir.file("d.fld"), 0, false, false, reg, fe));
    EXPECT_EQ(reg.name, tundrel::strdate());
    EXPECT_EQ(testutil::readFile(dir.file("d.fld")), reg.name + "\n   1   0\n1 1 WALL  WALL  WALL  WALL\n0 0 0\n0 0 0");
}

TEST_F(Fld, VolumePatchesAreSkippedButCounted) {
    reg.name = "v";
    reg.append(testutil::gridPatch(1, 1));
    auto volume = std::make_shared<StructPatch>(1, 1, 2);
    volume->addVariable("x");
    volume->addVariable("y");
    volume->addVariable("z");
    reg.append(volume);
    ASSERT_TRUE(export_data(dir.file("v.fld"), 0, false, false, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("v.fld")), "v\n   2   0\n1 1 WALL  WALL  WALL  WALL\n0 0 0\n0 0 0");
    // A skipped first patch writes no header at all.
    ASSERT_TRUE(write_fld(dir.file("w.fld"), reg, 1, 1, 0, false));
    EXPECT_EQ(testutil::readFile(dir.file("w.fld")), "\n0 0 0");
}

TEST_F(Fld, WriterChecks) {
    EXPECT_FALSE(export_data(dir.file("e.fld"), 6, false, false, reg, fe));  // no patches
    auto noZ = std::make_shared<StructPatch>(1, 1, 1);
    noZ->addVariable("X");
    noZ->addVariable("Y");
    noZ->addVariable("cp");
    reg.append(noZ);
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(write_fld(dir.file("e.fld"), reg, -1, 0, 6, false));
    EXPECT_FALSE(write_fld(dir.file("e.fld"), reg, 1, 0, 6, false));
    EXPECT_FALSE(write_fld(dir.file("e.fld"), reg, 0, 2, 6, false));
    EXPECT_FALSE(write_fld(dir.file("e.fld"), reg, 1, 1, 6, false));  // the first patch decides
    region none;
    none.append(std::make_shared<StructPatch>(1, 1, 1));  // no variables at all
    EXPECT_FALSE(write_fld(dir.file("e.fld"), none, 0, 0, 6, false));
    region ok;
    ok.append(testutil::gridPatch(1, 1));
    EXPECT_FALSE(write_fld(dir.file("no/dir/e.fld"), ok, 0, 0, 6, false));
    const char* header = "Error in Header. No predefined variables X or Y or Z are found";
    EXPECT_EQ(messages(), (std::vector<std::string>{"Dummy Error", "Dummy Error", "Dummy Error", "Dummy Error",
                                                    header, header, "It's impossible to close FLD file"}));
}

