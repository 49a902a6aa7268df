// VTK XML files against DAT, the text way out they add to, on a model of
// about one million nodes: a structured patch of 1000 x 500 nodes and a face
// patch of 500 000 nodes and about a million triangles, five variables each.
// Each format writes and reads the whole model (the .vtm with its pieces);
// compare the times of one run. Throughput is bytes on disk per second.
//
//   cmake --preset release && cmake --build --preset release -j2 --target vtk_bench
//   ./build/release/bench/vtk_bench
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "api/TundrelApi.h"

namespace {

namespace fs = std::filesystem;
constexpr int kI = 1000, kJ = 500;
const char* const kNames[] = {"x", "y", "z", "cp", "T"};

struct Model {
    region reg;
    region_fe fe;
    Model() {
        reg.name = fe.name = "bench";
        reg.Mach = fe.Mach = 0.8;
        auto p = std::make_shared<StructPatch>(kI, kJ, 1);
        const int faces = 2 * (kI - 1) * (kJ - 1);
        auto f = std::make_shared<FacePatch>(kI * kJ, 4 * faces, faces);
        for (int v = 0; v < 5; ++v) {
            NodeVariable& a = p->addVariable(kNames[v]);
            NodeVariable& b = f->addVariable(kNames[v]);
            for (std::size_t n = 0; n < a.values.size(); ++n) {
                const double s = 0.001 * static_cast<double>(n % kI), t = 0.002 * static_cast<double>(n / kI);
                const double values[] = {s, t, 0.1 * std::sin(3 * s) * std::cos(2 * t), 1 - 4 * s * s * t,
                                         290 + 5 * std::sin(s + t)};
                a.values[n] = b.values[n] = values[v];
            }
        }
        std::size_t k = 0;
        for (int j = 0; j + 1 < kJ; ++j)
            for (int i = 0; i + 1 < kI; ++i) {
                const int a = i + kI * j, b = a + 1, c = a + kI, d = c + 1;
                for (int n : {a, b, d, -1, a, d, c, -1}) f->faceIndex[k++] = n;
            }
        reg.append(p);
        fe.append(f);
    }
};

const Model& model() {
    static const Model m;
    return m;
}

// The formats as the file name and options choose them.
struct Case {
    const char* ext;
    tundrel::GeometryWriteOptions options;
};
const Case kCases[] = {{"dat", {6, false, false, false}},
                       {"vtm", {6, false, false, false}},
                       {"vtm", {6, false, false, true}}};

std::string path(const Case& c) {
    return (fs::temp_directory_path() /
            ("tundrel_vtk_bench_" + std::to_string(::getpid()) + (c.options.binary ? "_binary." : "_text.") + c.ext))
        .string();
}

std::int64_t bytesOnDisk(const std::string& file) {
    std::int64_t bytes = static_cast<std::int64_t>(fs::file_size(file));
    const fs::path folder = fs::path(file).replace_extension();
    if (fs::is_directory(folder))
        for (const auto& e : fs::directory_iterator(folder)) bytes += static_cast<std::int64_t>(e.file_size());
    return bytes;
}

void BM_Write(benchmark::State& state) {
    const Case& c = kCases[state.range(0)];
    Model& m = const_cast<Model&>(model());
    const std::string file = path(c);
    for (auto _ : state)
        if (!tundrel::exportGeometry(file, c.options, m.reg, m.fe)) state.SkipWithError("write failed");
    state.SetBytesProcessed(bytesOnDisk(file) * state.iterations());
    state.counters["MB"] = static_cast<double>(bytesOnDisk(file)) / 1e6;
}

void BM_Read(benchmark::State& state) {
    const Case& c = kCases[state.range(0)];
    const std::string file = path(c);  // written by BM_Write
    for (auto _ : state) {
        region reg;
        region_fe fe;
        if (!import_data(file, false, reg, fe) || fe.patchCount() != 1 || fe.patch(0).faces != 2 * (kI - 1) * (kJ - 1))
            state.SkipWithError("read failed");
    }
    state.SetBytesProcessed(bytesOnDisk(file) * state.iterations());
    if (c.ext == std::string("vtm")) fs::remove_all(fs::path(file).replace_extension());
    fs::remove(file);
}

// Arguments: 0 DAT, 1 VTK ASCII, 2 VTK binary.
BENCHMARK(BM_Write)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_Read)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace
