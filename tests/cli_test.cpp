// The command line, run as a user runs it.
#include <gtest/gtest.h>

#include "tests/support/test_util.h"

using testutil::runCli;
using testutil::CliRun;

TEST(Cli, ConvertRoundTripsAptAndInfoDescribesIt) {
    testutil::ScratchDir dir;
    const std::string in = testutil::dataFile("wing.apt");
    ASSERT_EQ(runCli("convert " + in + " " + dir.file("a.apt")).status, 0);
    EXPECT_EQ(testutil::readFile(dir.file("a.apt")), testutil::readFile(in));
    CliRun info = runCli("info --json " + in);
    ASSERT_EQ(info.status, 0) << info.out;
    EXPECT_NE(info.out.find("\"patches\": [{\"name\": \"\", \"I\": 5, \"J\": 3, \"K\": 1, \"variables\": [\"x\", \"y\", \"z\"]}"),
              std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("\"face_patches\": []"), std::string::npos);
    ASSERT_EQ(runCli("convert --split --transpose " + in + " " + dir.file("s.apt")).status, 0);
    EXPECT_EQ(testutil::readFile(dir.file("s_2.apt")).substr(0, 4), "5 3\n");
}

TEST(Cli, StatusesForFailureAndBadUsage) {
    testutil::ScratchDir dir;
    testutil::writeFile(dir.file("bad.apt"), "1 1\n1 2\n");
    CliRun r = runCli("convert " + dir.file("bad.apt") + " " + dir.file("o.apt"));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("It's impossible to close APT file"), std::string::npos);
    EXPECT_EQ(runCli("info " + dir.file("model.xyz")).status, 1);
    EXPECT_EQ(runCli("convert onlyone.apt").status, 2);
    EXPECT_EQ(runCli("nosuchcommand").status, 2);
}
