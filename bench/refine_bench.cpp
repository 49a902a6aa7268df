// Refinement of a face patch by edge midpoints: time per triangle with the
// hashed edge table, up to a million triangles, and the ratio against the
// linear edge search measured in the same run. The linear search is
// quadratic, so it runs on the smaller sizes only and the ratio is given
// where both ran.
//
//   build/release/bench/refine_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "api/TundrelApi.h"

namespace {

using tundrel::mesh::EdgeSearch;

// A gently curved grid triangulated by the library: 2 (I-1)(J-1) triangles.
const FacePatch& gridPatch(int I, int J) {
    static std::map<std::pair<int, int>, region_fe> cache;
    auto [at, added] = cache.try_emplace({I, J});
    if (added) {
        region reg;
        auto p = std::make_shared<StructPatch>(I, J, 1);
        NodeVariable& x = p->addVariable("X");
        NodeVariable& y = p->addVariable("Y");
        NodeVariable& z = p->addVariable("Z");
        NodeVariable& cp = p->addVariable("Cp");
        for (int j = 0; j < J; ++j)
            for (int i = 0; i < I; ++i) {
                const auto n = static_cast<std::size_t>(i + I * j);
                x.values[n] = i;
                y.values[n] = j;
                z.values[n] = 1e-3 * i * j;
                cp.values[n] = 0.5 - 1e-4 * i;
            }
        reg.append(p);
        converter_reg_to_reg_fe(reg, at->second);
    }
    return at->second.patch(0);
}

struct Size {
    int I, J;
    int faces() const { return 2 * (I - 1) * (J - 1); }
};

// Sizes where both searches run, and the large one for the hashed table.
const Size kShared[] = {{11, 51}, {21, 101}, {41, 201}};
const Size kLarge{501, 1001};  // 1,000,000 triangles

void perTriangle(benchmark::State& state, int faces) {
    state.counters["per_triangle"] =
        benchmark::Counter(faces, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void refine(benchmark::State& state, Size s, EdgeSearch search) {
    const FacePatch& p = gridPatch(s.I, s.J);
    for (auto _ : state) {
        auto q = tundrel::mesh::refinedPatch(p, search);
        benchmark::DoNotOptimize(q->faceIndex.data());
    }
    perTriangle(state, s.faces());
}

// The exported in-place operation: refinement plus the copies through the
// buffer.
void blockRefine(benchmark::State& state, Size s) {
    const FacePatch& p = gridPatch(s.I, s.J);
    for (auto _ : state) {
        state.PauseTiming();
        region_fe r;
        r.append(tundrel::mesh::deepCopy(p, p.variableCount()));
        int list[] = {0};
        state.ResumeTiming();
        block_fe_compress(r, 1, list);
        benchmark::DoNotOptimize(r.patch(0).faceIndex.data());
        state.PauseTiming();
        r = region_fe();  // released outside the timing
        state.ResumeTiming();
    }
    perTriangle(state, s.faces());
}

// Remembers seconds per iteration of each run for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration && r.iterations > 0)
                seconds[r.benchmark_name()] = r.real_accumulated_time / static_cast<double>(r.iterations);
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> seconds;
};

std::string name(const char* what, int faces) { return std::string(what) + "/" + std::to_string(faces); }

}  // namespace

int main(int argc, char** argv) {
    for (const Size& s : kShared) {
        benchmark::RegisterBenchmark(name("refine_hashed", s.faces()).c_str(), refine, s, EdgeSearch::hashed)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark(name("refine_linear", s.faces()).c_str(), refine, s, EdgeSearch::linear)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark(name("refine_hashed", kLarge.faces()).c_str(), refine, kLarge, EdgeSearch::hashed)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    benchmark::RegisterBenchmark(name("block_fe_compress", kLarge.faces()).c_str(), blockRefine, kLarge)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\n%10s %18s %18s %14s\n", "triangles", "hashed ns/tri", "linear ns/tri", "linear/hashed");
    for (const Size& s : kShared) {
        const auto h = reporter.seconds.find(name("refine_hashed", s.faces()));
        const auto l = reporter.seconds.find(name("refine_linear", s.faces()));
        if (h == reporter.seconds.end() || l == reporter.seconds.end()) continue;
        std::printf("%10d %18.1f %18.1f %14.1f\n", s.faces(), 1e9 * h->second / s.faces(), 1e9 * l->second / s.faces(),
                    l->second / h->second);
    }
    const auto big = reporter.seconds.find(name("refine_hashed", kLarge.faces()));
    if (big != reporter.seconds.end())
        std::printf("%10d %18.1f %18s %14s\n", kLarge.faces(), 1e9 * big->second / kLarge.faces(), "(not run)", "-");
    return 0;
}
