// `mpirun -np 2 tundrel self-illumination`: the field of one process, one
// set of messages, every rank ending with the same status. Runs when the
// command is built with MPI.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/test_util.h"

#ifndef TUNDREL_MPIEXEC
#define TUNDREL_MPIEXEC ""
#endif

namespace {

// Two ranks of one thread on this machine, quiet about the container it runs in.
const std::string kTwoRanks =
    "OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_btl_vader_single_copy_mechanism=none "
    "OMP_NUM_THREADS=1 " TUNDREL_MPIEXEC " -np 2 --oversubscribe --mca btl self,vader ";
const std::string kExample = std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody.fld";

std::vector<double> readField(const std::string& file, const std::string& name) {
    region reg;
    region_fe faces;
    std::vector<double> all;
    EXPECT_TRUE(import_data(file, false, reg, faces)) << file;
    for (int p = 0; p < reg.patchCount(); ++p)
        if (const NodeVariable* v = reg.patch(p).findVariable(name)) all.insert(all.end(), v->values.begin(), v->values.end());
    return all;
}

class MpiRun : public testutil::HostTest {
    void SetUp() override {
        if (std::string(TUNDREL_MPIEXEC).empty()) GTEST_SKIP() << "the command is built without MPI";
    }
};

}  // namespace

TEST_F(MpiRun, TwoRanksGiveTheFieldOfOneProcess) {
    // Hierarchical: each receiver summed on one rank, with the same arithmetic.
    // With the obstruction test the example is small enough for the exact
    // pass to be the cheaper one, and that pass runs (the walk's shares are
    // WorkShares' in-process cases).
    const std::pair<std::string, double> cases[] = {{"", 1e-12}, {"--visibility --select-patches 1,2", 1e-12},
                                                    {"--tolerance 1e-3", 0.0}, {"--tolerance 1e-3 --visibility", 1e-12}};
    for (const auto& [options, relative] : cases) {
        SCOPED_TRACE(options);
        const std::string one = dir.file("one.dat"), two = dir.file("two.dat"),
                          args = " --field cp --precision 17 --scientific " + options;
        const testutil::CliRun single = testutil::runCli("self-illumination " + kExample + " " + one + args);
        ASSERT_EQ(single.status, 0) << single.out;
        const testutil::CliRun shared = testutil::runCli("self-illumination " + kExample + " " + two + args, kTwoRanks);
        ASSERT_EQ(shared.status, 0) << shared.out;
        const std::vector<double> want = readField(one, "cp_si"), got = readField(two, "cp_si"), cp = readField(one, "cp");
        ASSERT_EQ(got.size(), want.size());
        ASSERT_NE(want, cp);
        double scale = 0.0;  // relative to the largest value
        for (const double v : cp) scale = std::max(scale, std::abs(v));
        for (std::size_t k = 0; k < want.size(); ++k) EXPECT_NEAR(got[k], want[k], relative * scale) << k;
    }
}

TEST_F(MpiRun, FailuresEndEveryRankWithOneMessage) {
    const std::string si = "self-illumination " + kExample + " " + dir.file("o.dat") + " --field cp";
    const struct {
        std::string args, message;
        int status;
    } cases[] = {{"self-illumination " + dir.file("none.fld") + " " + dir.file("o.dat") + " --field cp", "none.fld", 1},
                 {si + "x", "has no field cpx", 1},
                 // A third rank that alone fails: its message, through rank 0.
                 {si + " : -np 1 " TUNDREL_CLI " self-illumination none.fld o.dat --field cp", "rank 2's of 3", 1},
                 {"--interactive " + si, "--interactive asks on one terminal", 2},
                 {"convert " + kExample + " " + dir.file("o.dat"), "only self-illumination runs across MPI ranks", 2}};
    for (const auto& c : cases) {
        const testutil::CliRun r = testutil::runCli(c.args, kTwoRanks);
        EXPECT_EQ(r.status, c.status) << r.out;
        const std::size_t at = r.out.find(c.message);
        ASSERT_NE(at, std::string::npos) << r.out;
        EXPECT_EQ(r.out.find(c.message, at + 1), std::string::npos) << "printed twice: " << r.out;
    }
}
