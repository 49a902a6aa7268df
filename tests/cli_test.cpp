// The command line, run as a user runs it.
#include <gtest/gtest.h>

#include <sstream>

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
    EXPECT_NE(info.out.find(R"("patches":[{"name":"","I":5,"J":3,"K":1,"variables":["x","y","z"]})"), std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find(R"("nodes":30,"faces":0,"cells":16,"fields":[{"name":"x","min":0.0,"max":1.0,"mean":0.5,)"),
              std::string::npos) << info.out;
    ASSERT_EQ(runCli("convert --split --transpose " + in + " " + dir.file("s.apt")).status, 0);
    EXPECT_EQ(testutil::readFile(dir.file("s_2.apt")).substr(0, 4), "5 3\n");
}

// A row a case: the arguments ($ stands for the scratch folder, % for the
// test data), the exit status and a fragment of what is printed.
TEST(Cli, StatusesAndMessages) {
    testutil::ScratchDir dir;
    testutil::writeFile(dir.file("bad.apt"), "1 1\n1 2\n");
    testutil::writeFile(dir.file("garbage.apt"), "garbage\n");
    region reg, plain, none;  // a structured patch with P, a face patch without
    region_fe fe, nofe;
    reg.append(testutil::gridPatch(3, 3, {"P"}));
    plain.append(testutil::gridPatch(3, 3, {}));
    ASSERT_TRUE(converter_reg_to_reg_fe(plain, fe));
    ASSERT_TRUE(export_data(dir.file("p.dat"), 6, false, false, reg, nofe));
    ASSERT_TRUE(export_data(dir.file("f.dat"), 6, false, false, none, fe));
    const std::string wing = "%/wing.apt ", fld = "%/../../examples/wingbody.fld ";
    for (auto [args, status, says] : std::vector<std::tuple<std::string, int, std::string>>{
             {"--version", 0, "tundrel " TUNDREL_VERSION},
             {"", 2, "a command is required"},
             {"conver a.apt b.apt", 2, "unknown command conver; did you mean convert?"},
             {"help refine", 0, "--times INT:0..30"},
             {"help nothing", 2, "no command nothing"},
             {"convert " + wing + "$/out.xyz", 2, "files: $/out.xyz: not a model file; accepts apt, fld, dat, wrl"},
             {"info $/model.xyz", 2, "not a model file"},
             {"convert onlyone.apt", 2, "files: At least 2 required"},
             {"convert --precision 0 " + wing + "$/o.apt", 2, "--precision: accepts a whole number from 1 to 17"},
             {"info $/garbage.apt " + wing, 1, "$/garbage.apt: no patches in the file"},
             {"convert $/bad.apt $/o.apt", 1, "It's impossible to close APT file ($/bad.apt)"},
             {"convert $/none.apt $/o.apt", 1, "It is impossible to open selected file ($/none.apt: No such file"},
             {"convert $ $/o.apt", 2, "not a model file"},
             {"convert " + wing + "$/no/o.apt", 1, "cannot write $/no/o.apt: No such file or directory"},
             {"convert $/p.dat $/f.dat $/o.dat", 1, "carry different variables:\n  patch 0: x, y, z, P\n  face patch 0"},
             {"convert --split $/p.dat $/f.dat $/o.dat", 0, ""},
             {"convert $/p.dat $/f.dat $/o.vtm", 0, ""},  // a piece an item, each with its own variables
             {"convert " + fld + "$/o.apt", 0, "warning: $/o.apt: APT holds no fields; 1 dropped (cp) from 3 of 3"},
             {"convert " + fld + "$/o.dat", 0, "47 no-value nodes of cp written as 0"},
             {"convert " + fld + "$/o.wrl", 0, "VRML holds no flow conditions; Mach 0.7, alpha 3, beta 0 dropped"},
             {"-q convert " + fld + "$/o.apt", 0, ""},
             {"mirror --patch 0 $/p.dat $/m.dat", 0, ""},  // the image carries P: one file takes both
             {"self-illumination $/f.dat $/o.fld --field P", 1, "FLD holds structured patches only"},
         }) {
        for (std::string* text : {&args, &says})
            for (std::size_t at; (at = text->find_first_of("$%")) != std::string::npos;)
                text->replace(at, 1, (*text)[at] == '$' ? dir.path().string() : testutil::dataFile(""));
        const CliRun r = runCli(args);
        EXPECT_EQ(r.status, status) << args << "\n" << r.out;
        EXPECT_NE(r.out.find(says), std::string::npos) << args << "\n" << r.out;
        if (says.empty()) {
            EXPECT_EQ(r.out.find("warning"), std::string::npos) << args << "\n" << r.out;
        }
    }
    // A write that fails leaves the file it would replace as it was, and no
    // temporary beside it.
    const std::string kept = testutil::readFile(dir.file("o.dat"));
    CliRun r = runCli("convert " + std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody.fld " + dir.file("o.dat"),
                      "ulimit -f 8; ");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("It's impossible to close DAT file (" + dir.file("o.dat") + ": File too large)"),
              std::string::npos) << r.out;
    EXPECT_EQ(testutil::readFile(dir.file("o.dat")), kept);
    for (const auto& e : testutil::fs::directory_iterator(dir.path()))
        EXPECT_EQ(e.path().filename().string().find(".tmp-"), std::string::npos) << e.path();
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
    r = runCli("pressure-ports " + in + " " + out + " --markers " + dir.file("near.mrk") +
               " --deflexion 0.01 --order 1 --cross-validate --report " + dir.file("ports.csv"));
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("pressure-ports: 12 of 12 ports used; at the ports: rms difference"), std::string::npos);
    const std::vector<double> ports = read(1, "_pp"), x = read(1, "x"), y = read(1, "y");
    ASSERT_EQ(ports.size(), 48u);
    for (std::size_t n = 0; n < 48; ++n) EXPECT_NEAR(ports[n], x[n] - y[n], 1e-9);  // reproduced by order 1
    // The report: a line per port; a linear field is also predicted from the
    // other ports when each is left out.
    std::istringstream report(testutil::readFile(dir.file("ports.csv")));
    std::string line;
    int lines = 0;
    for (std::getline(report, line); std::getline(report, line); ++lines) {
        std::vector<std::string> cells;
        for (std::istringstream row(line); std::getline(row, cells.emplace_back(), ',');) {}
        ASSERT_EQ(cells.size(), 15u) << line;  // 14 columns and the empty read that ends the row
        EXPECT_EQ(cells[8], "used");
        EXPECT_NEAR(std::stod(cells[7]), 0.0, 1e-9);   // distance
        EXPECT_NEAR(std::stod(cells[11]), 0.0, 1e-9);  // field - value
        EXPECT_NEAR(std::stod(cells[13]), 0.0, 1e-6);  // prediction error
    }
    EXPECT_EQ(lines, 12);

    const std::string si = "self-illumination " + in + " " + none + " --field P ";
    const std::string pp = "pressure-ports " + in + " " + none + " --deflexion 0.01 --markers " + dir.file("near.mrk");
    for (const auto& [args, status, says] : std::vector<std::tuple<std::string, int, std::string>>{
             {si + "--name P", 1, "The function name alredy exist"},
             {si + "--ratio 1.5", 2, "self-illumination: --ratio: accepts a number from 0 to 1, not 1.5"},
             {si + "--ratio nan", 2, "--ratio: accepts"},
             {si + "--select-patches 2", 1, "no patch 2"},
             {si + "--select-patches 0,x", 2, "--select-patches: accepts a whole number 0 or above, not x"},
             {"self-illumination " + in + " " + none + " --field T", 1, "has no field T (fields: P)"},
             {pp + " --field P", 1, "Function name of the markers is not coincide with field name"},
             {pp + " --order 3", 2, "pressure-ports: --order: accepts a whole number from 0 to 2, not 3"},
             {pp + " --report r.txt", 2, "--report: r.txt: accepts a .csv file"},
             {"pressure-ports " + in + " " + none + " --markers " + dir.file("far.apm"), 2, "--deflexion is required"},
             {"pressure-ports " + in + " " + none + " --deflexion -1 --markers " + dir.file("far.apm"), 2, "above 0"},
             {"pressure-ports " + in + " " + none + " --deflexion 0.01 --markers " + dir.file("far.apm"), 1,
              "Deflextion has small value"},
             {"pressure-ports " + in + " " + none + " --deflexion 1 --markers " + dir.file("absent.apm"), 1,
              "cannot read markers " + dir.file("absent.apm") + ": No such file or directory"}}) {
        r = runCli(args);
        EXPECT_EQ(r.status, status) << args;
        EXPECT_NE(r.out.find(says), std::string::npos) << args << ": " << r.out;
        EXPECT_FALSE(testutil::fs::exists(none)) << args;
    }
}
