// Library calls on several threads at once, each thread with its own host,
// give the results of one thread alone; a stop request ends a run unchanged.
#include <gtest/gtest.h>

#include <thread>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

namespace {

const std::string kExample = std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody";
const tundrel::PressurePortsParameters kPorts{"_pp", kExample + "_ports.mrk", std::nullopt, 0.05, 1, true};

// The example as a field container, its wing blocks selected (so that the
// correction stays quick under the sanitizers).
void load(FieldMasterD& fm) {
    region reg;
    region_fe fe;
    ASSERT_TRUE(import_data(kExample + ".fld", false, reg, fe));
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, fe, fm, flow);
    for (int b = 1; b < fm.blockCount(); ++b)
        for (int n = 0; n < fm.nodeCount(b); ++n) fm.selection().at(b, n) = 1;
}

// Correct, build from ports, write, read a missing file, under a host of this
// thread's own: the corrected values, and the rest (what the host saw, the file) as text.
std::pair<std::vector<double>, std::string> pipeline(const testutil::ScratchDir& dir, int k) {
    tundrel::ScriptedHost host;
    tundrel::HostScope scope(host);
    FieldMasterD fm;
    load(fm);
    const auto si = tundrel::selfIlluminate(fm, "cp", {0.5, false, "cp_si"});
    if (!si || !tundrel::buildPressurePorts(fm, "", kPorts)) return {};
    region reg, missing;
    region_fe fe;
    fieldMaster_to_Region(fm, {}, reg, fe);
    const std::string out = dir.file("out" + std::to_string(k) + ".dat");
    export_data(out, 6, false, false, reg, fe);
    import_data(dir.file("missing.dat"), false, missing, fe);
    std::string seen = std::to_string(host.lastDone) + "/" + std::to_string(host.busyDepth);
    for (const std::string& m : host.messages) seen += "\n" + m;
    return {{si.function->data(), si.function->data() + si.function->size()}, seen + testutil::readFile(out)};
}

TEST(Threads, OperationsOnSeveralThreadsGiveTheSingleThreadResults) {
    const testutil::ScratchDir dir;
    const auto alone = pipeline(dir, 0);
    ASSERT_FALSE(alone.first.empty());
    std::vector<std::pair<std::vector<double>, std::string>> got(4);
    std::vector<std::jthread> threads;
    for (int k = 0; k < 4; ++k) threads.emplace_back([&, k] { got[k] = pipeline(dir, k + 1); });
    threads.clear();  // joins
    for (const auto& [corrected, rest] : got) {
        EXPECT_EQ(rest, alone.second);
        ASSERT_EQ(corrected.size(), alone.first.size());
        // The threads' column sums are added in the order the schedule decides.
        for (std::size_t n = 0; n < corrected.size(); ++n)
            EXPECT_NEAR(corrected[n], alone.first[n], 1e-12 * (1.0 + std::abs(alone.first[n])));
    }
}

// A stop request at the n-th progress step ends the run there, adding nothing.
TEST(Threads, AStopRequestEndsTheRunWithNothingChanged) {
    for (const auto& [usePorts, stopAfter] : {std::pair{false, 0}, {false, 3}, {true, 0}, {true, 1}, {true, 2}, {true, 3}}) {
        tundrel::ScriptedHost host;
        tundrel::HostScope scope(host);
        host.stopAfter = stopAfter;
        FieldMasterD fm;
        load(fm);
        const int before = fm.functionCount();
        EXPECT_TRUE(usePorts ? tundrel::buildPressurePorts(fm, "", kPorts).stopped
                             : tundrel::selfIlluminate(fm, "cp", {0.5, false, "cp_si"}).stopped);
        EXPECT_EQ(std::tuple(fm.functionCount(), host.stopAsks, host.messages.size()),
                  std::tuple(before, stopAfter + 1, std::size_t{0}))
            << usePorts << " " << stopAfter;
    }
}

}  // namespace
