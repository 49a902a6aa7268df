// Library calls on several threads at once, each thread with its own host:
// the results equal those of one thread alone, and every host sees only its
// own thread's messages and progress. Operations asked to stop end with the
// container unchanged.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "api/TundrelApi.h"
#include "api/fields/pressure_ports.h"
#include "api/fields/self_illumination.h"
#include "tests/support/test_util.h"

namespace {

const std::string kModel = std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody.fld";
const std::string kPorts = std::string(TUNDREL_SOURCE_DIR) + "/examples/wingbody_ports.mrk";

// The example as a field container, with its two wing blocks selected (so
// that the correction stays quick under the sanitizers).
void load(FieldMasterD& fm) {
    region reg;
    region_fe fe;
    ASSERT_TRUE(import_data(kModel, false, reg, fe));
    z::ambientFlow flow;
    Region_to_fieldMaster(reg, fe, fm, flow);
    for (int b = 1; b < fm.blockCount(); ++b)
        for (int n = 0; n < fm.nodeCount(b); ++n) fm.selection().at(b, n) = 1;
}

tundrel::PressurePortsParameters ports() {
    tundrel::PressurePortsParameters p = tundrel::pressurePortsDefaults("");
    p.markersFile = kPorts;
    p.maxDeflexion = 0.05;
    p.order = 1;
    return p;
}

struct Outcome {
    std::vector<double> corrected, built;
    std::string written;
    std::vector<std::string> messages;
    std::int64_t lastDone = -1, lastTotal = -1;
    int busyDepth = -1;
};

// The correction's sums come from one column a thread, added in an order the
// schedule decides: equal to a few units in the last place.
void expectSame(const Outcome& got, const Outcome& want, int k) {
    SCOPED_TRACE("thread " + std::to_string(k));
    ASSERT_EQ(got.corrected.size(), want.corrected.size());
    for (std::size_t n = 0; n < want.corrected.size(); ++n)
        EXPECT_NEAR(got.corrected[n], want.corrected[n], 1e-12 * (1.0 + std::abs(want.corrected[n]))) << n;
    EXPECT_EQ(got.built, want.built);
    EXPECT_EQ(got.written, want.written);
    EXPECT_EQ(got.messages, want.messages);
    EXPECT_EQ(std::tie(got.lastDone, got.lastTotal, got.busyDepth),
              std::tie(want.lastDone, want.lastTotal, want.busyDepth));
}

// Read, correct, build from ports, write back and read a missing file, all
// under a host of this thread's own.
Outcome pipeline(const testutil::ScratchDir& dir, int k) {
    tundrel::ScriptedHost host;
    tundrel::HostScope scope(host);
    Outcome o;
    FieldMasterD fm;
    load(fm);
    const auto si = tundrel::selfIlluminate(fm, "cp", {0.5, false, "cp_si"});
    const auto pp = tundrel::buildPressurePorts(fm, "", ports());
    if (!si || !pp) return o;
    o.corrected.assign(si.function->data(), si.function->data() + si.function->size());
    o.built.assign(pp.function->data(), pp.function->data() + pp.function->size());
    o.lastDone = host.lastDone;
    o.lastTotal = host.lastTotal;
    region reg, missing;
    region_fe fe;
    fieldMaster_to_Region(fm, {}, reg, fe);
    const std::string out = dir.file("out" + std::to_string(k) + ".dat");
    export_data(out, 6, false, false, reg, fe);
    o.written = testutil::readFile(out);
    import_data(dir.file("missing.dat"), false, missing, fe);
    o.messages = host.messages;
    o.busyDepth = host.busyDepth;
    return o;
}

TEST(Threads, OperationsOnSeveralThreadsGiveTheSingleThreadResults) {
    const testutil::ScratchDir dir;
    const Outcome alone = pipeline(dir, 0);
    ASSERT_FALSE(alone.corrected.empty());
    ASSERT_EQ(alone.messages.size(), 1u);  // the missing file's, once
    EXPECT_EQ(alone.busyDepth, 0);

    constexpr int kThreads = 4;
    std::vector<Outcome> got(kThreads);
    {
        std::vector<std::jthread> threads;
        for (int k = 0; k < kThreads; ++k) threads.emplace_back([&, k] { got[k] = pipeline(dir, k + 1); });
    }
    for (int k = 0; k < kThreads; ++k) expectSame(got[k], alone, k);
}

TEST(Threads, AHostOfTheThreadComesBeforeTheProcessDefault) {
    tundrel::ScriptedHost fallback, own;
    tundrel::setHost(&fallback);
    std::thread([&] {
        tundrel::HostScope scope(own);
        tundrel::showMessage("own");
    }).join();
    std::thread([] { tundrel::showMessage("default"); }).join();
    tundrel::setHost(nullptr);
    EXPECT_EQ(own.messages, std::vector<std::string>{"own"});
    EXPECT_EQ(fallback.messages, std::vector<std::string>{"default"});
}

// A stop request at the n-th progress step ends the run there, adding nothing.
TEST(Threads, AStopRequestEndsTheRunWithNothingChanged) {
    struct Case {
        bool ports;
        int stopAfter;
    };
    for (const Case c : {Case{false, 0}, Case{false, 3}, Case{true, 0}, Case{true, 1}, Case{true, 2}, Case{true, 3}}) {
        tundrel::ScriptedHost host;
        tundrel::HostScope scope(host);
        host.stopAfter = c.stopAfter;
        FieldMasterD fm;
        load(fm);
        const int before = fm.functionCount();
        const bool stopped = c.ports ? tundrel::buildPressurePorts(fm, "", ports()).stopped
                                     : tundrel::selfIlluminate(fm, "cp", {0.5, false, "cp_si"}).stopped;
        EXPECT_TRUE(stopped) << c.ports << " " << c.stopAfter;
        EXPECT_EQ(fm.functionCount(), before);
        EXPECT_EQ(host.stopAsks, c.stopAfter + 1);
        EXPECT_TRUE(host.messages.empty());
    }
}

}  // namespace
