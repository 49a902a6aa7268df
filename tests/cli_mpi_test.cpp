// `mpirun -np 2 tundrel self-illumination`: the field of one process, one
// set of messages, and every rank ending with the same status. Runs when the
// command is built with MPI.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/test_util.h"

using testutil::runCli;

namespace {

#ifdef TUNDREL_MPIEXEC
// Two ranks of one thread on this machine, quiet about the container it runs in.
const std::string kTwoRanks =
    "OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OMPI_MCA_btl_vader_single_copy_mechanism=none "
    "OMP_NUM_THREADS=1 " TUNDREL_MPIEXEC " -np 2 --oversubscribe --mca btl self,vader ";
#endif

const std::string kExample = std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody.fld";

std::vector<double> readField(const std::string& file, const std::string& name) {
    region reg;
    region_fe faces;
    std::vector<double> all;
    if (!import_data(file, false, reg, faces)) return all;
    for (int p = 0; p < reg.patchCount(); ++p)
        if (const NodeVariable* v = reg.patch(p).findVariable(name)) all.insert(all.end(), v->values.begin(), v->values.end());
    return all;
}

}  // namespace

class MpiRun : public testutil::HostTest {
protected:
    void SetUp() override {
#ifndef TUNDREL_MPIEXEC
        GTEST_SKIP() << "the command is built without MPI";
#endif
    }
    std::string twoRanks() const {
#ifdef TUNDREL_MPIEXEC
        return kTwoRanks;
#else
        return {};
#endif
    }
};

TEST_F(MpiRun, TwoRanksGiveTheFieldOfOneProcess) {
    const struct {
        const char* options;
        double relative;  // hierarchical: each receiver summed on one rank, the same arithmetic
    } cases[] = {{"", 1e-12}, {"--visibility --select-patches 1,2", 1e-12}, {"--tolerance 1e-3", 0.0},
                 {"--tolerance 1e-3 --visibility", 0.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        const std::string args = "self-illumination " + kExample + " OUT --field cp --precision 17 --scientific " + c.options;
        auto with = [&](const std::string& out) { return std::string(args).replace(args.find("OUT"), 3, out); };
        const std::string one = dir.file("one.dat"), two = dir.file("two.dat");
        const testutil::CliRun single = runCli(with(one));
        ASSERT_EQ(single.status, 0) << single.out;
        const testutil::CliRun shared = runCli(with(two), twoRanks());
        ASSERT_EQ(shared.status, 0) << shared.out;
        const std::vector<double> want = readField(one, "cp_si"), got = readField(two, "cp_si"), cp = readField(one, "cp");
        ASSERT_EQ(got.size(), want.size());
        ASSERT_FALSE(want.empty());
        double worst = 0.0, scale = 0.0;
        for (std::size_t k = 0; k < want.size(); ++k) {
            worst = std::max(worst, std::abs(got[k] - want[k]));
            scale = std::max(scale, std::abs(cp[k]));
        }
        EXPECT_LE(worst, c.relative * scale);
        EXPECT_NE(want, cp);
    }
}

TEST_F(MpiRun, FailuresEndEveryRankWithOneMessage) {
    const std::string si = "self-illumination " + kExample + " " + dir.file("o.dat") + " --field cp";
    const struct {
        std::string args, message;
        int status;
    } cases[] = {{"self-illumination " + dir.file("none.fld") + " " + dir.file("o.dat") + " --field cp", "none.fld", 1},
                 {si + "x", "has no field cpx", 1},
                 {"--interactive " + si, "--interactive asks on one terminal", 2},
                 {"convert " + kExample + " " + dir.file("o.dat"), "only self-illumination runs across MPI ranks", 2}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        const testutil::CliRun r = runCli(c.args, twoRanks());
        EXPECT_EQ(r.status, c.status) << r.out;
        const std::size_t at = r.out.find(c.message);
        ASSERT_NE(at, std::string::npos) << r.out;
        EXPECT_EQ(r.out.find(c.message, at + 1), std::string::npos) << "printed twice: " << r.out;
    }
}
