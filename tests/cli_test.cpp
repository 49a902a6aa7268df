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

// The two field commands on one model: a saddle (patch 0, node (i, j) at
// (i, j, ij / 2)) under a bowl (patch 1), both with the field P. They write
// the new field, or print the library's refusal, exit with 1 and write
// nothing.
TEST(Cli, FieldCommandsWriteTheNewFieldOrTheRefusal) {
    testutil::ScratchDir dir;
    region reg;
    region_fe reg_fe;
    reg.append(testutil::gridPatch(8, 6, {"P"}));
    reg.append(testutil::gridPatch(8, 6, {"P"}));
    for (std::size_t n = 0; n < 48; ++n) {
        const double x = static_cast<double>(n % 8) - 3.5, y = static_cast<double>(n / 8) - 2.5;
        reg.patch(1).findVariable("z")->values[n] = 30.0 + 0.15 * (x * x + y * y);
    }
    const std::string in = dir.file("in.dat"), out = dir.file("out.dat"), none = dir.file("none.dat");
    ASSERT_TRUE(export_data(in, 10, false, true, reg, reg_fe));
    // Ports on nodes of the saddle with the values x - y; the same lifted by 0.5.
    std::string far, col[4];
    for (int k = 0; k < 12; ++k) {
        const int i = (3 * k + 1) % 8, j = (5 * k + 2) % 6;
        far += std::to_string(i) + " " + std::to_string(j) + " " + std::to_string(0.5 * i * j + 0.5) + "\n";
        const std::string v[] = {std::to_string(i), std::to_string(j), std::to_string(0.5 * i * j), std::to_string(i - j)};
        for (int c = 0; c < 4; ++c) col[c] += v[c] + " ";
    }
    std::string near = "<ObjectMarkers><NodesNumber>12</NodesNumber>";
    for (int c = 0; c < 4; ++c) near += std::string("<Function id=\"") + "xyzf"[c] + "\">" + col[c] + "</Function>";
    testutil::writeFile(dir.file("near.mrk"), near + "</ObjectMarkers>");
    testutil::writeFile(dir.file("far.apm"), far);
    auto read = [&](int patch, const std::string& name) {
        region back;
        EXPECT_TRUE(import_data(out, false, back, reg_fe));
        const NodeVariable* v = back.patch(patch).findVariable(name);
        return v == nullptr ? std::vector<double>{} : v->values;
    };

    CliRun r = runCli("self-illumination " + in + " " + out + " --field P --select-patches 1 --name Q --visibility");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(read(0, "Q"), read(0, "P"));  // patch 0 takes no part
    EXPECT_NE(read(1, "Q"), read(1, "P"));
    r = runCli("pressure-ports " + in + " " + out + " --markers " + dir.file("near.mrk") + " --deflexion 0.01 --order 1");
    ASSERT_EQ(r.status, 0) << r.out;
    const std::vector<double> ports = read(1, "_pp"), x = read(1, "x"), y = read(1, "y");
    ASSERT_EQ(ports.size(), 48u);
    for (std::size_t n = 0; n < 48; ++n) EXPECT_NEAR(ports[n], x[n] - y[n], 1e-9);  // reproduced by order 1

    const std::string si = "self-illumination " + in + " " + none + " --field P ";
    const std::string pp = "pressure-ports " + in + " " + none + " --deflexion 0.01 --markers " + dir.file("near.mrk");
    for (const auto& [args, says] : std::vector<std::pair<std::string, std::string>>{
             {si + "--name P", "The function name alredy exist"},
             {si + "--ratio 1.5", "Please enter a number between 0 and 1."},
             {si + "--select-patches 2", "no patch 2"},
             {si + "--select-patches 0,x", "not a list of patch numbers"},
             {"self-illumination " + in + " " + none + " --field T", "has no field T (fields: P)"},
             {pp + " --field P", "Function name of the markers is not coincide with field name"},
             {pp + " --order 3", "Please enter an integer between 0 and 2."},
             {"pressure-ports " + in + " " + none + " --markers " + dir.file("far.apm"), "Deflextion has small value"},
             {"pressure-ports " + in + " " + none + " --markers " + dir.file("absent.apm"), "File error!"}}) {
        r = runCli(args);
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_NE(r.out.find(says), std::string::npos) << args << ": " << r.out;
        EXPECT_FALSE(testutil::fs::exists(none)) << args;
    }
}
