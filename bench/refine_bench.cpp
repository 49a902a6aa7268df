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

// Remembers the seconds an iteration took, wall clock and CPU, of each run
// for the ratio table.
struct Seconds {
    double real, cpu;
};

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.iterations <= 0) continue;
            const double n = static_cast<double>(r.iterations);
            seconds[r.run_name.function_name] = {r.real_accumulated_time / n, r.cpu_accumulated_time / n};
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, Seconds> seconds;
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

    // Per triangle, wall clock (CPU in brackets), and linear over hashed.
    std::printf("\n%10s %24s %24s %20s\n", "triangles", "hashed ns/tri (cpu)", "linear ns/tri (cpu)",
                "linear/hashed (cpu)");
    auto row = [&](int faces) {
        const auto h = reporter.seconds.find(name("refine_hashed", faces));
        const auto l = reporter.seconds.find(name("refine_linear", faces));
        if (h == reporter.seconds.end()) return;
        const Seconds hs = h->second;
        std::printf("%10d %15.1f (%6.1f)", faces, 1e9 * hs.real / faces, 1e9 * hs.cpu / faces);
        if (l == reporter.seconds.end()) {
            std::printf(" %24s %20s\n", "(not run)", "-");
            return;
        }
        const Seconds ls = l->second;
        std::printf(" %15.1f (%6.1f) %11.1f (%6.1f)\n", 1e9 * ls.real / faces, 1e9 * ls.cpu / faces,
                    ls.real / hs.real, ls.cpu / hs.cpu);
    };
    for (const Size& s : kShared) row(s.faces());
    row(kLarge.faces());
    return 0;
}
