// tundrel triangulate / refine / merge / mirror on the bundled wing, against
// the same operations called in the library.
#include <gtest/gtest.h>

#include <functional>

#include "tests/support/test_util.h"

namespace {

class MeshCommands : public ::testing::Test {
protected:
    testutil::ScratchDir dir;
    const std::string wing = testutil::dataFile("wing.apt");

    // What the library writes for the wing triangulated and then edited.
    std::string expected(const std::function<void(region_fe&)>& edit) {
        region reg, none;
        region_fe fe;
        EXPECT_TRUE(import_data(wing, false, reg, fe));
        EXPECT_TRUE(converter_reg_to_reg_fe(reg, fe));
        edit(fe);
        EXPECT_TRUE(export_data(dir.file("expected.apt"), 6, false, false, none, fe));
        return testutil::readFile(dir.file("expected.apt"));
    }

    std::string run(const std::string& command) {
        const testutil::CliRun r = testutil::runCli(command + " " + wing + " " + dir.file("out.apt"));
        EXPECT_EQ(r.status, 0) << r.out;
        return testutil::readFile(dir.file("out.apt"));
    }
};

TEST_F(MeshCommands, WriteWhatTheOperationsMake) {
    EXPECT_EQ(run("triangulate"), expected([](region_fe&) {}));
    int one[] = {1}, both[] = {0, 1};
    EXPECT_EQ(run("refine --patches 1 --times 2"),
              expected([&](region_fe& fe) { block_fe_compress(fe, 1, one); block_fe_compress(fe, 1, one); }));
    EXPECT_EQ(run("refine --patches 1,0,1"), expected([&](region_fe& fe) { block_fe_compress(fe, 2, both); }));
    EXPECT_EQ(run("merge --into 1 --from 0"), expected([](region_fe& fe) { merge_in_reg_fe(fe, 1, 0); }));
    EXPECT_EQ(run("mirror --patch 1 --plane xy"),
              expected([](region_fe& fe) { tundrel::mesh::mirrorPatch(fe, 1, tundrel::mesh::MirrorPlane::xy); }));
}

TEST_F(MeshCommands, RefusalsAndBadUsage) {
    for (const auto& [args, status, says] :
         {std::tuple{"merge --into 0 --from 0", 2, "--from: a patch cannot be merged into itself"},
          {"merge --into 0 --from 2", 1, "no face patch 2"}, {"refine --patches 0,5", 1, "no face patch 5"},
          {"mirror --patch -1", 2, "--patch: accepts a whole number 0 or above"}, {"refine --times -1", 2, "--times"},
          {"refine --times 16", 1, "not enough memory for refine --times 16: needs about"},
          {"mirror --patch 0 --plane ab", 2, ""}, {"merge --into 0", 2, ""}}) {
        const testutil::CliRun r = testutil::runCli(std::string(args) + " " + wing + " " + dir.file("refused.apt"));
        EXPECT_EQ(r.status, status) << args << "\n" << r.out;
        EXPECT_NE(r.out.find(says), std::string::npos) << args << "\n" << r.out;
        EXPECT_FALSE(std::filesystem::exists(dir.file("refused.apt"))) << args;
    }
}

}  // namespace
