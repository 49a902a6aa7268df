// Pictures of a million-node model: a 1600 x 1200 view with 2 x 2 samples a
// pixel, traced one ray at a time (the plain version) and in packets of 8
// and 16, with rays per second and the ratio of packets to single rays
// measured in the same run; and the whole picture (scene built, one view or
// three, colour bar, title) as renderPicture makes it. Making the model is not timed.
//
//   build/release/bench/render_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "tests/support/shapes.h"

namespace {

constexpr int kWidth = 1600, kHeight = 1200, kSamples = 2;

// A sphere of 999 x 1000 nodes (about 1M nodes, 2M triangles), squashed
// into a body of 4 x 1 x 1, with a field that varies over it.
const FieldMasterD& model() {
    static const FieldMasterD field = [] {
        shapes::Block b = shapes::sphere(999, 1000, 1.0, {}, false);
        for (std::size_t n = 0; n < b.pos.size(); ++n) {
            b.pos[n].x *= 4.0;
            b.value[n] = std::sin(3.0 * b.pos[n].x) * std::cos(5.0 * b.pos[n].y) + 0.3 * b.pos[n].z;
        }
        return shapes::build({b}, "cp");
    }();
    return field;
}

// The scene alone: the surface's hierarchy as the obstruction test builds it.
void scene(benchmark::State& state) {
    const FieldMasterD& f = model();
    for (auto _ : state) {
        const tundrel::FieldRenderer renderer(f);
        benchmark::DoNotOptimize(&renderer);
    }
}

void trace(benchmark::State& state, tundrel::RayTracing tracing) {
    const FieldMasterD& f = model();
    const tundrel::FieldRenderer renderer(f);
    const auto& cp = *f.scalar(f.findFunction("cp"));
    const tundrel::ColorMap map = *tundrel::ColorMap::named("viridis");
    const tundrel::View view = *tundrel::View::named("iso");
    for (auto _ : state) {
        const auto image = renderer.render({cp.data(), cp.size()}, view, -1.3, 1.3, map, kWidth, kHeight, kSamples,
                                           false, tracing);
        benchmark::DoNotOptimize(image.pixels.data());
    }
    state.counters["rays_per_s"] = benchmark::Counter(static_cast<double>(kWidth) * kHeight * kSamples * kSamples,
                                                      benchmark::Counter::kIsIterationInvariantRate);
}

// The whole picture as the command makes it: scene built, the views traced,
// colour bar and title drawn.
void sheet(benchmark::State& state, std::vector<std::string> views) {
    const FieldMasterD& f = model();
    tundrel::PictureOptions o;
    o.field = "cp";
    o.width = kWidth;
    o.height = kHeight;
    o.views.clear();
    for (const std::string& v : views) o.views.push_back(*tundrel::View::named(v));
    o.title = "bench";
    for (auto _ : state) {
        const auto p = tundrel::renderPicture(f, o);
        benchmark::DoNotOptimize(p.image.pixels.data());
    }
}

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs)
            if (r.run_type == Run::RT_Iteration && r.iterations > 0)
                seconds[r.run_name.function_name] = r.real_accumulated_time / static_cast<double>(r.iterations);
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> seconds;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("scene", scene)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
    benchmark::RegisterBenchmark("trace_single", trace, tundrel::RayTracing::Single)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()->UseRealTime();
    benchmark::RegisterBenchmark("trace_packet8", trace, tundrel::RayTracing::Packet8)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()->UseRealTime();
    benchmark::RegisterBenchmark("trace_packet16", trace, tundrel::RayTracing::Packet16)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()->UseRealTime();
    benchmark::RegisterBenchmark("picture_iso", sheet, std::vector<std::string>{"iso"})
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()->UseRealTime();
    benchmark::RegisterBenchmark("picture_top_left_iso", sheet, std::vector<std::string>{"top", "left", "iso"})
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime()->UseRealTime();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const auto& s = reporter.seconds;
    for (const char* packets : {"trace_packet8", "trace_packet16"})
        if (s.count("trace_single") && s.count(packets))
            std::printf("%s: %.2fx the speed of single rays\n", packets, s.at("trace_single") / s.at(packets));
    benchmark::Shutdown();
    return 0;
}
