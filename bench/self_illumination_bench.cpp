// Self-illumination: pair throughput of the kernel against the plain loop
// over the container's checked accessors, obstruction tests per second
// against a loop over every face, and the memory a run with the obstruction
// test takes for 10^5 and 10^6 nodes.
//
//   build/release/bench/self_illumination_bench --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>

#include <ctime>
#include <fstream>
#include <random>
#include <string>

#include "api/fields/self_illumination.h"
#include "api/detail/surface_bvh.h"
#include "bench/bench_memory.h"
#include "tests/support/shapes.h"
#include "api/detail/self_illumination_kernel.h"

namespace {

// A closed ball of about n nodes seen from inside: every pair faces itself.
shapes::Block ballOf(int n) {
    const int rings = static_cast<int>(std::sqrt(n / 2.0));
    const int segments = (n - 2) / rings;
    auto b = shapes::sphere(rings, segments, 1.0, {0.1, 0.2, 0.3});
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> u(1.0, 2.0);
    for (double& v : b.value) v = u(rng);
    return b;
}

tundrel::detail::IlluminationNodes flatNodes(const FieldMasterD& f) {
    const tundrel::Surface s(f);
    const std::vector<unsigned char> all(s.nodeCount(), 1);
    const std::vector<double> area = tundrel::detail::nodeAreas(f, s, all);
    const auto* v = f.scalar(f.findFunction("P"));
    const auto* normal = f.normals()->data();
    tundrel::detail::IlluminationNodes nodes;
    nodes.reserve(s.nodeCount());
    for (std::size_t k = 0; k < s.nodeCount(); ++k) nodes.add(s, normal[k], k, area[k], v->data()[k]);
    return nodes;
}

// The kernel without the obstruction test: every ordered pair.
void BM_PairKernel(benchmark::State& state) {
    const FieldMasterD f = shapes::build({ballOf(static_cast<int>(state.range(0)))});
    const tundrel::detail::IlluminationNodes nodes = flatNodes(f);
    const double m = static_cast<double>(nodes.size());
    for (auto _ : state) benchmark::DoNotOptimize(tundrel::detail::illuminationSums(nodes, 0.5, nullptr).data());
    state.counters["nodes"] = m;
    state.counters["pairs/s"] = benchmark::Counter(m * (m - 1) * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PairKernel)->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// The plain loop over the checked accessors, for the first 100 receivers.
void BM_CheckedLoop(benchmark::State& state) {
    const FieldMasterD f = shapes::build({ballOf(static_cast<int>(state.range(0)))});
    const int receivers = 100;
    // The node areas once beforehand (the first receiver needs them all).
    std::vector<double> areas;
    shapes::referenceCorrection(f, "P", 0.5, {}, nullptr, 1, &areas);
    for (auto _ : state)
        benchmark::DoNotOptimize(shapes::referenceCorrection(f, "P", 0.5, {}, nullptr, receivers, &areas).data());
    const double m = static_cast<double>(f.totalNodes());
    state.counters["nodes"] = m;
    state.counters["pairs/s"] = benchmark::Counter(receivers * (m - 1) * static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CheckedLoop)->Arg(20000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// The whole correction with the obstruction test, for a selection of nodes
// (every pair of them that faces is tested): a closed ball of 20,000 nodes,
// every 10th selected; two bowls of 80 x 80 nodes facing each other with a
// screen between them (real obstructions), every 4th selected. The packets
// trace only the middle of each segment between its end regions, or (old)
// the whole segment; `cpu_tests/s` counts CPU seconds of all threads.
void BM_ObstructionKernel(benchmark::State& state) {
    const bool bowls = state.range(0) != 0;
    std::vector<shapes::Block> blocks;
    if (bowls) {
        auto bowl = [](double z0, double s) {
            return shapes::grid(80, 80, [=](int i, int j) {
                const double x = 6.0 * i / 79 - 3.0, y = 6.0 * j / 79 - 3.0;
                return shapes::V(x, y, z0 + s * 0.15 * (x * x + y * y));
            }, {0, 0, s}, 1.5);
        };
        blocks = {bowl(0.0, 1.0), bowl(3.0, -1.0),
                  shapes::grid(60, 60, [](int i, int j) { return shapes::V(0.2 + 2.6 * i / 59, -2.0 + 4.0 * j / 59, 1.5); },
                               {0, 0, 1}, 1.2)};
        for (auto& b : blocks) {
            for (std::size_t k = 0; k < b.pos.size(); k += 4) b.selected[k] = 1;
            if (b.pos.size() == 6400)
                for (std::size_t k = 0; k < b.pos.size(); ++k) {
                    const shapes::V n = shapes::V(-0.3 * b.pos[k].x, -0.3 * b.pos[k].y, 1) * b.normal[k].z;
                    b.normal[k] = n / n.length();
                }
        }
    } else {
        blocks = {ballOf(20000)};
        for (std::size_t k = 0; k < blocks[0].selected.size(); k += 10) blocks[0].selected[k] = 1;
    }
    const FieldMasterD f = shapes::build(blocks);
    tundrel::SelfIlluminationStats stats;
    tundrel::SurfaceBvh::useEndRegions(state.range(1) == 0);
    timespec c0{}, c1{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &c0);
    for (auto _ : state) benchmark::DoNotOptimize(tundrel::detail::selfIlluminationValues(f, "P", 0.5, true, &stats).data());
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &c1);
    tundrel::SurfaceBvh::useEndRegions(true);
    const double cpu = static_cast<double>(c1.tv_sec - c0.tv_sec) + 1e-9 * static_cast<double>(c1.tv_nsec - c0.tv_nsec);
    state.counters["tests"] = static_cast<double>(stats.segmentTests);
    state.counters["tests/s"] = benchmark::Counter(static_cast<double>(stats.segmentTests * state.iterations()),
                                                   benchmark::Counter::kIsRate);
    state.counters["cpu_tests/s"] = static_cast<double>(stats.segmentTests * state.iterations()) / cpu;
}
BENCHMARK(BM_ObstructionKernel)
    ->ArgNames({"bowls", "old"})
    ->ArgsProduct({{0, 1}, {1, 0}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

// Single obstruction tests on one thread: the hierarchy against the loop
// over every face, on random node pairs of the 20,000-node ball.
void BM_SegmentTest(benchmark::State& state) {
    const bool everyFace = state.range(0) != 0;
    const FieldMasterD f = shapes::build({ballOf(20000)});
    const tundrel::Surface s(f);
    const tundrel::SurfaceBvh bvh(s);
    std::vector<shapes::V> pos;
    for (std::size_t k = 0; k < s.nodeCount(); ++k) pos.emplace_back(s.x[k], s.y[k], s.z[k]);
    std::mt19937 rng(3);
    const auto n = static_cast<std::uint32_t>(s.nodeCount());
    std::int64_t tests = 0;
    for (auto _ : state) {
        const auto a = static_cast<std::int32_t>(rng() % n), b = static_cast<std::int32_t>(rng() % n);
        if (everyFace) benchmark::DoNotOptimize(shapes::occludedBruteForce(pos, s.triangles, a, b));
        else benchmark::DoNotOptimize(bvh.occluded(a, b));
        ++tests;
    }
    state.counters["tests/s"] = benchmark::Counter(static_cast<double>(tests), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SegmentTest)->Arg(0)->Arg(1)->ArgNames({"every_face"});

// Peak resident memory that a run with the obstruction test adds, for a
// selection of 1,000 nodes on balls of 10^5 and 10^6 nodes.
void BM_ObstructionMemory(benchmark::State& state) {
    auto ball = ballOf(static_cast<int>(state.range(0)));
    const std::size_t step = ball.selected.size() / 1000;
    for (std::size_t k = 0; k < ball.selected.size(); k += step) ball.selected[k] = 1;
    const FieldMasterD f = shapes::build({ball});
    double added = 0;
    for (auto _ : state) {
        std::ofstream("/proc/self/clear_refs") << "5";  // resets the peak to the current size
        const long before = bench::statusKb("VmRSS:");
        benchmark::DoNotOptimize(tundrel::detail::selfIlluminationValues(f, "P", 0.5, true).data());
        added = static_cast<double>(bench::statusKb("VmHWM:") - before) * 1024.0;
    }
    state.counters["nodes"] = static_cast<double>(f.totalNodes());
    state.counters["peak_bytes"] = added;
    state.counters["bytes/node"] = added / static_cast<double>(f.totalNodes());
}
BENCHMARK(BM_ObstructionMemory)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace
