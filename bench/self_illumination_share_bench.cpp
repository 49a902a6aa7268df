// Self-illumination shared out over processes: the time of one share of P
// against the whole run, one thread each, exact and hierarchical, on a
// closed ball of 20,000 nodes seen from inside (every pair faces itself).
// `speedup` is the whole run's processor time over the share's: about P when
// the shares are balanced, which is what P ranks of an MPI run gain on the
// pass.
//
//   build/release/bench/self_illumination_share_bench --benchmark_counters_tabular=true
#include <benchmark/benchmark.h>
#include <omp.h>

#include <ctime>
#include <map>
#include <random>

#include "api/detail/self_illumination_kernel.h"
#include "tests/support/shapes.h"

namespace {

const FieldMasterD& ball() {
    static const FieldMasterD f = [] {
        auto b = shapes::sphere(100, 200, 1.0, {0.1, 0.2, 0.3});
        std::mt19937 rng(1);
        std::uniform_real_distribution<double> u(1.0, 2.0);
        for (double& v : b.value) v = u(rng);
        return shapes::build({b});
    }();
    return f;
}

// Processor time of the thread (one thread runs the pass): steadier than
// wall time on a loaded machine.
double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double seconds(double tolerance, tundrel::WorkShare share) {
    const FieldMasterD& f = ball();
    const double start = threadSeconds();
    benchmark::DoNotOptimize(tundrel::detail::receivedSums(f, "P", 0.8, false, nullptr, tolerance, share).data());
    return threadSeconds() - start;
}

// Args: tolerance in 1e-4 (0: exact), share count P, share index.
void BM_Share(benchmark::State& state) {
    omp_set_num_threads(1);
    const double tolerance = 1e-4 * static_cast<double>(state.range(0));
    const tundrel::WorkShare share{static_cast<int>(state.range(2)), static_cast<int>(state.range(1))};
    static std::map<double, double> whole;
    if (!whole.count(tolerance)) whole[tolerance] = 0.5 * (seconds(tolerance, {}) + seconds(tolerance, {}));
    double spent = 0.0;
    for (auto _ : state) spent += seconds(tolerance, share);
    state.counters["speedup"] = whole[tolerance] / (spent / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_Share)
    ->ArgsProduct({{0, 10}, {2}, {0, 1}})
    ->ArgsProduct({{0, 10}, {4}, {0, 1, 2, 3}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);

}  // namespace
