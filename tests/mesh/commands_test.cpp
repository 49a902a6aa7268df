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
    EXPECT_EQ(run("refine --patches 1 --times 2"), expected([](region_fe& fe) {
                  int list[] = {1};
                  block_fe_compress(fe, 1, list);
                  block_fe_compress(fe, 1, list);
              }));
    EXPECT_EQ(run("refine --patches 1,0,1"), expected([](region_fe& fe) {
                  int list[] = {0, 1};
                  block_fe_compress(fe, 2, list);
              }));
    EXPECT_EQ(run("merge --into 1 --from 0"), expected([](region_fe& fe) { merge_in_reg_fe(fe, 1, 0); }));
    EXPECT_EQ(run("mirror --patch 1 --plane xy"),
              expected([](region_fe& fe) { tundrel::mesh::mirrorPatch(fe, 1, tundrel::mesh::MirrorPlane::xy); }));
}

TEST_F(MeshCommands, RefusalsAndBadUsage) {
    struct Case {
        std::string args;
        int status;
        std::string says;
    };
    for (const Case& c : {Case{"merge --into 0 --from 0", 1, "cannot be merged into itself"},
                          Case{"merge --into 0 --from 2", 1, "no face patch 2"},
                          Case{"refine --patches 0,5", 1, "no face patch 5"},
                          Case{"mirror --patch -1", 1, "no face patch -1"}, Case{"refine --times -1", 2, ""},
                          Case{"mirror --patch 0 --plane ab", 2, ""}, Case{"merge --into 0", 2, ""}}) {
        const testutil::CliRun r = testutil::runCli(c.args + " " + wing + " " + dir.file("refused.apt"));
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.out;
        EXPECT_NE(r.out.find(c.says), std::string::npos) << c.args << "\n" << r.out;
        EXPECT_FALSE(std::filesystem::exists(dir.file("refused.apt"))) << c.args;
    }
}

}  // namespace
