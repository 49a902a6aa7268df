#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

using testutil::HostTest;

namespace {

bool write_apt(const std::string& file, region& reg, region_fe& fe, int first, int last, int precision,
               bool scientific) {
    return tundrel::findGeometryFormat("apt")->write(file, reg, fe, first, last, precision, scientific);
}

const char* kSixPoints =
    "2 3\n"
    "0 0 0\n1 0 0\n2 0 0\n"
    "0 1 0\n1 1 0.5\n2 1 1\n";

}  // namespace

class Apt : public HostTest {};

TEST_F(Apt, ReadsAPatchAsSecondCountThenFirstCount) {
    testutil::writeFile(dir.file("m.apt"), kSixPoints);
    region reg;
    region_fe fe;
    ASSERT_TRUE(import_data(dir.file("m.apt"), false, reg, fe));
    ASSERT_EQ(reg.patchCount(), 1);
    const StructPatch& p = reg.patch(0);
    EXPECT_EQ(p.I, 3);
    EXPECT_EQ(p.J, 2);
    EXPECT_EQ(p.K, 1);
    EXPECT_EQ(p.name, "");
    ASSERT_EQ(p.variableCount(), 3);
    EXPECT_EQ(p.variable(0).name, "x");
    EXPECT_EQ(p.variable(1).name, "y");
    EXPECT_EQ(p.variable(2).name, "z");
    EXPECT_EQ(p.variable(2).values[4], 0.5);
    EXPECT_EQ(fe.patchCount(), 0);
    EXPECT_TRUE(messages().empty());
}


TEST_F(Apt, RoundTripsByteForByte) {
    testutil::writeFile(dir.file("in.apt"), kSixPoints);
    region reg;
    region_fe fe;
    ASSERT_TRUE(import_data(dir.file("in.apt"), false, reg, fe));
    ASSERT_TRUE(export_data(dir.file("out.apt"), 3, false, false, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("out.apt")),
              "2 3\n0.000 0.000 0.000\n1.000 0.000 0.000\n2.000 0.000 0.000\n"
              "0.000 1.000 0.000\n1.000 1.000 0.500\n2.000 1.000 1.000\n");
    ASSERT_TRUE(export_data(dir.file("sci.apt"), 2, false, true, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("sci.apt")).substr(0, 31), "2 3\n0.00e+00 0.00e+00 0.00e+00\n");
}

FacePatch& addFaces(region_fe& fe, std::vector<std::int32_t> index, int faces, int nodes) {
    auto f = std::make_shared<FacePatch>(nodes, static_cast<int>(index.size()), faces);
    f->faceIndex = std::move(index);
    auto& x = f->addVariable("X");
    auto& y = f->addVariable("Y");
    auto& z = f->addVariable("Z");
    for (int n = 0; n < nodes; ++n) {
        x.values[static_cast<std::size_t>(n)] = n;
        y.values[static_cast<std::size_t>(n)] = 10 + n;
        z.values[static_cast<std::size_t>(n)] = 20 + n;
    }
    FacePatch& ref = *f;
    fe.append(std::move(f));
    return ref;
}

TEST_F(Apt, FacesBecomeTwoByTwoPatchesWithTheLastCornerRepeated) {
    region reg;
    region_fe fe;
    FacePatch& f = addFaces(fe, {4, 7, 9, -1, 0, 1, -1, 1, 2, 3, 4, 5, -1}, 3, 10);
    f.variable(2).values[9] = -2e9;  // clamped for faces only
    ASSERT_TRUE(export_data(dir.file("f.apt"), 0, false, false, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("f.apt")),
              "2 2\n  4  14  24\n  7  17  27\n  9  19  0\n  9  19  0\n"
              "2 2\n  0  10  20\n  1  11  21\n  1  11  21\n"
              "2 2\n  1  11  21\n  2  12  22\n  3  13  23\n  4  14  24\n");
}

TEST_F(Apt, StructuredValuesAreNotClampedAndPositionsComeFromTheFirstPatch) {
    region reg;
    region_fe fe;
    auto p0 = testutil::gridPatch(1, 1);
    p0->variable(0).values[0] = -2e9;
    reg.append(p0);
    ASSERT_TRUE(export_data(dir.file("a.apt"), 0, false, false, reg, fe));
    EXPECT_EQ(testutil::readFile(dir.file("a.apt")), "1 1\n-2000000000 0 0\n");

    // A first patch without z fails whatever patch is written.
    region bad;
    auto q = std::make_shared<StructPatch>(1, 1, 1);
    q->addVariable("X");
    q->addVariable("Y");
    q->addVariable("cp");
    bad.append(q);
    bad.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(write_apt(dir.file("b.apt"), bad, fe, 1, 1, 6, false));
    region few;
    auto two = std::make_shared<StructPatch>(1, 1, 1);
    two->addVariable("x");
    two->addVariable("y");
    few.append(two);
    EXPECT_FALSE(export_data(dir.file("c.apt"), 6, false, false, few, fe));
    EXPECT_EQ(messages(), (std::vector<std::string>{"Error in Header. No predefined variables X or Y or Z are found",
                                                    "Error in Header. The number of variables <3"}));
}

TEST_F(Apt, WriterRangeAndFaceHeaderChecks) {
    region reg;
    region_fe fe;
    EXPECT_FALSE(export_data(dir.file("e.apt"), 6, false, false, reg, fe));  // nothing to write
    reg.append(testutil::gridPatch(2, 2));
    EXPECT_FALSE(write_apt(dir.file("e.apt"), reg, fe, 1, 0, 6, false));
    EXPECT_FALSE(write_apt(dir.file("e.apt"), reg, fe, -1, 0, 6, false));
    EXPECT_FALSE(write_apt(dir.file("e.apt"), reg, fe, 0, 1, 6, false));
    auto f = std::make_shared<FacePatch>(3, 4, 1);
    f->addVariable("X");
    f->addVariable("Y");
    fe.append(f);
    // A face patch first in its range has its own coordinate check.
    EXPECT_FALSE(write_apt(dir.file("e.apt"), reg, fe, 1, 1, 6, false));
    EXPECT_EQ(messages(), (std::vector<std::string>{"Dummy error", "Dummy error", "Dummy error", "Dummy error",
                                                    "Irregular structure of APT file. Variables X or Y or Z are absent"}));
}
