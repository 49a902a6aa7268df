// The hierarchical self-illumination correction against the exact one, both
// measured in the same run on the same model: time ratio and error
//     error = max |c_h - c_exact| / max |c_exact|,  c = source - result,
// at tolerance 1e-3, on three models: the inside of a closed sphere, the
// example (triangulated and refined), and a concave model with a screen (two
// bowls facing each other, a plate half way between them). Then the opening
// rule (expansion order and theta) on the example refined once, the
// obstruction tests by single rays against packets, and the hierarchical run
// on the example refined two to four times (up to 1.1 million nodes): time and peak
// memory a node.
//
//   build/release/bench/self_illumination_hier_bench --benchmark_counters_tabular=true
//       --benchmark_filter='Versus|Rule|Rays'   (one line)
//   build/release/bench/self_illumination_hier_bench --benchmark_filter=Million
#include <benchmark/benchmark.h>
#include <omp.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <limits>
#include <map>
#include <string>

#include "api/TundrelApi.h"
#include "api/detail/self_illumination_kernel.h"
#include "api/detail/surface_bvh.h"
#include "api/fields/fields.h"
#include "api/formats/formats.h"
#include "api/mesh/mesh.h"
#include "bench/bench_memory.h"
#include "tests/support/shapes.h"

namespace {

using shapes::V;
using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// CPU seconds of the whole process: on a machine that others share, ratios
// of these hold better than ratios of wall times.
double cpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The example triangulated and refined `times` times, field "cp".
FieldMasterD example(int times) {
    region reg;
    region_fe faces;
    tundrel::readGeometryFile(*tundrel::findGeometryFormat("fld"), TUNDREL_SOURCE_DIR "/examples/wingbody.fld", reg,
                              faces);
    region_fe tri;
    converter_reg_to_reg_fe(reg, tri);
    // The least value of cp: refinement gives a midpoint the mean of its
    // ends' values, the no-value marker too, and such means (below every
    // value the field holds) are no value either, as a file holds them.
    double least = std::numeric_limits<double>::infinity();
    for (int k = 0; k < tri.patchCount(); ++k)
        for (int v = 0; v < tri.patch(k).variableCount(); ++v)
            if (tri.patch(k).variable(v).name == "cp")
                for (double d : tri.patch(k).variable(v).values)
                    if (d >= tundrel::kNoValueBelow) least = std::min(least, d);
    for (int t = 0; t < times; ++t) {
        region_fe next;
        for (int k = 0; k < tri.patchCount(); ++k) next.append(tundrel::mesh::refinedPatch(tri.patch(k)));
        tri = next;
    }
    FieldMasterD f;
    z::ambientFlow flow;
    Region_to_fieldMaster(region(), tri, f, flow);
    double* cp = f.scalar(f.findFunction("cp"))->data();
    for (std::size_t k = 0; k < f.totalNodes(); ++k)
        if (cp[k] < least) cp[k] = arrayWorks::kNoValue;
    return f;
}

// A closed sphere of about n nodes seen from inside, values in [1, 2].
FieldMasterD sphere(int n) {
    const int rings = static_cast<int>(std::sqrt(n / 2.0));
    auto b = shapes::sphere(rings, (n - 2) / rings, 1.0, {0.1, 0.2, 0.3});
    for (std::size_t k = 0; k < b.value.size(); ++k) b.value[k] = 1.5 + 0.5 * std::sin(0.37 * static_cast<double>(k));
    return shapes::build({b});
}

// Two bowls of m x m nodes facing each other and a plate half way between
// them over half their width.
FieldMasterD concave(int m) {
    const double h = 6.0 / (m - 1);
    auto bowl = [&](double z0, double s) {
        auto at = [=](int i, int j) {
            const double x = h * i - 3.0, y = h * j - 3.0;
            return V(x, y, z0 + s * 0.15 * (x * x + y * y));
        };
        shapes::Block b = shapes::grid(m, m, at, {});
        for (std::size_t k = 0; k < b.pos.size(); ++k) {
            const V n = V(-0.3 * b.pos[k].x, -0.3 * b.pos[k].y, 1) * s;
            b.normal[k] = n / n.length();
            b.value[k] = 1.0 + 0.3 * std::cos(b.pos[k].x);
        }
        return b;
    };
    const int q = m * 3 / 4;
    auto plate = shapes::grid(q, q, [&](int i, int j) { return V(0.2 + 2.6 * i / (q - 1), -2.0 + 4.0 * j / (q - 1), 1.5); },
                              {0, 0, 1}, 1.2);
    return shapes::build({bowl(0.0, 1.0), bowl(3.0, -1.0), plate});
}

const FieldMasterD& model(int kind, int size) {
    static std::map<std::pair<int, int>, FieldMasterD> cache;
    auto [it, added] = cache.try_emplace({kind, size});
    if (added) it->second = kind == 0 ? sphere(size) : kind == 1 ? example(size) : concave(size);
    return it->second;
}

const char* sourceOf(int kind) { return kind == 1 ? "cp" : "P"; }

double relativeError(const FieldMasterD& f, const std::string& source, const std::vector<double>& exact,
                     const std::vector<double>& approx) {
    const double* v = f.scalar(f.findFunction(source))->data();
    double worst = 0.0, largest = 0.0;
    for (std::size_t k = 0; k < exact.size(); ++k) {
        if (v[k] == arrayWorks::kNoValue) continue;
        largest = std::max(largest, std::abs(v[k] - exact[k]));
        worst = std::max(worst, std::abs(exact[k] - approx[k]));
    }
    return largest > 0.0 ? worst / largest : 0.0;
}

// Exact and hierarchical (tolerance 1e-3) on one model; the iteration time is
// the hierarchical run's. Args: model (0 sphere, 1 example, 2 concave), size
// (sphere: nodes, example: refinements, concave: bowl side), obstruction
// test, whether the tolerance may run the exact pass where that is cheaper
// (0: the walk itself is measured).
void BM_HierarchicalVersusExact(benchmark::State& state) {
    const auto kind = static_cast<int>(state.range(0));
    const bool visibility = state.range(2) != 0;
    tundrel::detail::preferExactWhenCheaper(state.range(3) != 0);
    const FieldMasterD& f = model(kind, static_cast<int>(state.range(1)));
    const std::string source = sourceOf(kind);
    double exactSeconds = 0, hierSeconds = 0, error = 0, exactCpu = 0, hierCpu = 0;
    tundrel::SelfIlluminationStats stats;
    for (auto _ : state) {
        auto t0 = Clock::now();
        double c0 = cpuSeconds();
        const std::vector<double> exact = tundrel::detail::selfIlluminationValues(f, source, 1.0, visibility);
        exactSeconds = seconds(t0);
        exactCpu = cpuSeconds() - c0;
        t0 = Clock::now();
        c0 = cpuSeconds();
        const std::vector<double> approx =
            tundrel::detail::selfIlluminationValues(f, source, 1.0, visibility, &stats, 1e-3);
        hierSeconds = seconds(t0);
        hierCpu = cpuSeconds() - c0;
        error = relativeError(f, source, exact, approx);
        state.SetIterationTime(hierSeconds);
    }
    state.counters["nodes"] = static_cast<double>(f.totalNodes());
    state.counters["exact_s"] = exactSeconds;
    state.counters["hier_s"] = hierSeconds;
    state.counters["speedup"] = exactSeconds / hierSeconds;
    state.counters["cpu_speedup"] = exactCpu / hierCpu;
    state.counters["error"] = error;
    state.counters["terms/node"] = static_cast<double>(stats.clusterTerms) / static_cast<double>(stats.participants);
    state.counters["rays/node"] = static_cast<double>(stats.segmentTests) / static_cast<double>(stats.participants);
    tundrel::detail::preferExactWhenCheaper(true);
}
BENCHMARK(BM_HierarchicalVersusExact)
    ->ArgNames({"model", "size", "vis", "choice"})
    ->Args({0, 70000, 0, 1})
    ->Args({1, 2, 0, 1})
    ->Args({2, 150, 0, 1})
    ->Args({1, 2, 1, 1})
    ->Args({0, 20000, 1, 1})
    ->Args({2, 80, 1, 1})
    ->Args({0, 20000, 1, 0})
    ->Args({2, 80, 1, 0})
    ->Args({1, 0, 1, 1})
    ->Args({1, 0, 1, 0})
    ->Unit(benchmark::kSecond)
    ->UseManualTime()
    ->Iterations(1);

// The opening rule: order and theta (in thousandths) on the three models of
// about 20,000 nodes, against the exact result computed once a model.
void BM_Rule(benchmark::State& state) {
    const auto kind = static_cast<int>(state.range(0));
    const FieldMasterD& f = model(kind, kind == 0 ? 20000 : kind == 1 ? 1 : 85);
    const std::string source = sourceOf(kind);
    static std::map<int, std::vector<double>> exacts;
    if (!exacts.count(kind)) exacts[kind] = tundrel::detail::selfIlluminationValues(f, source, 1.0, false);
    tundrel::detail::FarFieldRule rule;
    rule.order = static_cast<int>(state.range(1));
    rule.theta = static_cast<double>(state.range(2)) / 1000.0;
    rule.leafSize = static_cast<int>(state.range(3));
    rule.tolerance = 1e-3;
    std::vector<double> sums;
    tundrel::SelfIlluminationStats stats;
    // The flat nodes as selfIlluminationValues gathers them (every node takes part).
    const tundrel::Surface s(f);
    const std::vector<unsigned char> all(s.nodeCount(), 1);
    const std::vector<double> area = tundrel::detail::nodeAreas(f, s, all);
    const double* v = f.scalar(f.findFunction(source))->data();
    tundrel::detail::IlluminationNodes nodes;
    for (std::size_t k = 0; k < s.nodeCount(); ++k)
        if (v[k] != arrayWorks::kNoValue) nodes.add(s, f.normals()->data()[k], k, area[k], v[k]);
    const double c0 = cpuSeconds();
    for (auto _ : state) sums = tundrel::detail::hierarchicalSums(nodes, 1.0, rule, nullptr, &stats);
    state.counters["cpu_s"] = cpuSeconds() - c0;
    std::vector<double> approx(v, v + s.nodeCount());
    for (std::size_t i = 0; i < nodes.size(); ++i)
        if (nodes.area[i] > 0.0) approx[static_cast<std::size_t>(nodes.node[i])] -= sums[i];
    state.counters["nodes"] = static_cast<double>(nodes.size());
    state.counters["error"] = relativeError(f, source, exacts[kind], approx);
    state.counters["terms/node"] = static_cast<double>(stats.clusterTerms) / static_cast<double>(nodes.size());
}
void ruleArgs(benchmark::internal::Benchmark* b) {
    b->ArgNames({"model", "order", "theta_e3", "leaf"});
    for (int model : {0, 1, 2}) {
        b->Args({model, 0, 60, 16});
        for (int leaf : {8, 16}) b->Args({model, 1, 60, leaf});
        b->Args({model, 1, 100, 16});
        for (int theta : {100, 150, 200, 250, 300, 350}) b->Args({model, 2, theta, 16});
        b->Args({model, 2, 200, 32});
    }
}
BENCHMARK(BM_Rule)->Apply(ruleArgs)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// The exact obstruction tests of every pair of 900 to 3,300 nodes, on every
// thread: one ray a test with occluded() (as before), packets of rays from
// one node over the whole segment, and packets that trace only the middle of
// the segment between its end regions, with empty tangent balls looked for
// up to `cap` times the half extent. Models: 0, a closed ball of 20,000
// nodes (every 10th node); 1, the example refined once (every 20th of
// about 18,400; every pair, facing or not); 2, the concave model with a screen
// (every 5th of 16,400; real obstructions).
// `differ` counts the pairs whose answer is not that of occluded().
void BM_ObstructionRays(benchmark::State& state) {
    const auto kind = static_cast<int>(state.range(0));
    const auto mode = static_cast<int>(state.range(1));
    const FieldMasterD& f = kind == 0 ? model(0, 20000) : kind == 1 ? model(1, 1) : model(2, 80);
    const tundrel::Surface s(f);
    tundrel::SurfaceBvh bvh(s);
    bvh.setEndRegions(mode >= 2, static_cast<double>(state.range(2)));
    const std::size_t step = kind == 0 ? 10 : kind == 1 ? 20 : 5;
    std::vector<std::int32_t> nodes;
    for (std::size_t k = 0; k < s.nodeCount(); k += step) nodes.push_back(static_cast<std::int32_t>(k));
    if (state.range(3) != 0) {
        // Morton order of the positions: neighbours in the list are near in space.
        double lo[3] = {1e300, 1e300, 1e300}, hi[3] = {-1e300, -1e300, -1e300};
        const double* c[3] = {s.x.data(), s.y.data(), s.z.data()};
        for (auto k : nodes)
            for (int d = 0; d < 3; ++d) {
                lo[d] = std::min(lo[d], c[d][k]);
                hi[d] = std::max(hi[d], c[d][k]);
            }
        auto code = [&](std::int32_t k) {
            std::uint64_t m = 0;
            std::uint32_t q[3];
            for (int d = 0; d < 3; ++d)
                q[d] = static_cast<std::uint32_t>((c[d][k] - lo[d]) / (hi[d] - lo[d] + 1e-300) * 1048575.0);
            for (int b = 19; b >= 0; --b)
                for (int d = 0; d < 3; ++d) m = (m << 1) | ((q[d] >> b) & 1u);
            return m;
        };
        std::sort(nodes.begin(), nodes.end(), [&](std::int32_t p, std::int32_t q) { return code(p) < code(q); });
    }
    const auto n = static_cast<std::int64_t>(nodes.size());
    std::int64_t hidden = 0, differ = 0;
    double cpu = 0.0;
    for (auto _ : state) {
        const double c0 = cpuSeconds();
#pragma omp parallel for schedule(dynamic, 8) reduction(+ : hidden)
        for (std::int64_t i = 0; i < n; ++i) {
            const auto a = nodes[static_cast<std::size_t>(i)];
            if (mode == 0) {
                for (std::int64_t j = i + 1; j < n; ++j) hidden += bvh.occluded(a, nodes[static_cast<std::size_t>(j)]);
                continue;
            }
            bool h[tundrel::SurfaceBvh::kPacket];
            std::int32_t from[tundrel::SurfaceBvh::kPacket];
            std::fill(std::begin(from), std::end(from), a);
            for (std::int64_t j = i + 1; j < n; j += tundrel::SurfaceBvh::kPacket) {
                const int c = static_cast<int>(std::min<std::int64_t>(tundrel::SurfaceBvh::kPacket, n - j));
                bvh.occludedPairs(from, &nodes[static_cast<std::size_t>(j)], c, h);
                hidden += std::count(h, h + c, true);
            }
        }
        cpu += cpuSeconds() - c0;
    }
    // Every answer against occluded(), outside the timing.
#pragma omp parallel for schedule(dynamic, 8) reduction(+ : differ)
    for (std::int64_t i = 0; i < n; ++i) {
        const auto a = nodes[static_cast<std::size_t>(i)];
        bool h[tundrel::SurfaceBvh::kPacket];
        std::int32_t from[tundrel::SurfaceBvh::kPacket];
        std::fill(std::begin(from), std::end(from), a);
        for (std::int64_t j = i + 1; j < n; j += tundrel::SurfaceBvh::kPacket) {
            const int c = static_cast<int>(std::min<std::int64_t>(tundrel::SurfaceBvh::kPacket, n - j));
            bvh.occludedPairs(from, &nodes[static_cast<std::size_t>(j)], c, h);
            for (int k = 0; k < c; ++k) differ += h[k] != bvh.occluded(a, nodes[static_cast<std::size_t>(j + k)]);
        }
    }
    const double tests = static_cast<double>(n * (n - 1) / 2 * state.iterations());
    state.counters["tests/cpu_s"] = tests / cpu;
    state.counters["hidden"] = static_cast<double>(hidden) / static_cast<double>(state.iterations());
    state.counters["differ"] = static_cast<double>(differ);
    state.counters["tests/s"] = benchmark::Counter(tests, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ObstructionRays)
    ->ArgNames({"model", "mode", "cap", "sorted"})
    ->ArgsProduct({{0, 1, 2}, {0, 1}, {0}, {0, 1}})
    ->ArgsProduct({{0, 1, 2}, {2}, {0, 2}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The example refined two, three and four times (72,595 to 1,150,530 nodes),
// hierarchical only: time and the peak memory the run adds, a node (the
// sizes show how both grow). With the obstruction test the walks trace
// about 93, 144 and 268 segments a node (the exact pass about 2,500 on
// the first): the last takes a minute and a half.
void BM_Million(benchmark::State& state) {
    const bool visibility = state.range(0) != 0;
    const FieldMasterD& f = model(1, static_cast<int>(state.range(1)));
    double added = 0, cpu = 0;
    tundrel::SelfIlluminationStats stats;
    for (auto _ : state) {
        std::ofstream("/proc/self/clear_refs") << "5";  // resets the peak to the current size
        const long before = bench::statusKb("VmRSS:");
        const double c0 = cpuSeconds();
        benchmark::DoNotOptimize(tundrel::detail::selfIlluminationValues(f, "cp", 1.0, visibility, &stats, 1e-3).data());
        cpu = cpuSeconds() - c0;
        added = static_cast<double>(bench::statusKb("VmHWM:") - before) * 1024.0;
    }
    // CPU seconds of all threads: on a shared machine, half of it is what
    // the run would take on 2 cores of its own.
    state.counters["cpu_s"] = cpu;
    state.counters["nodes"] = static_cast<double>(f.totalNodes());
    state.counters["bytes/node"] = added / static_cast<double>(f.totalNodes());
    state.counters["terms/node"] = static_cast<double>(stats.clusterTerms) / static_cast<double>(stats.participants);
    state.counters["rays/node"] = static_cast<double>(stats.segmentTests) / static_cast<double>(stats.participants);
}
BENCHMARK(BM_Million)->ArgNames({"vis", "refined"})->ArgsProduct({{0, 1}, {2, 3, 4}})->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

}  // namespace
