// DAT reading and writing against a plain std::ifstream >> / std::ofstream <<
// version of the same work, on a model of about one million nodes: an ordered
// zone of 1000 x 500 nodes and a finite-element zone of 500 000 nodes and
// about a million triangles, five variables each. Throughput is bytes of the
// file per second.
//
//   cmake --preset release && cmake --build --preset release -j2 --target dat_bench
//   ./build/release/bench/dat_bench
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>

#include "api/TundrelApi.h"

namespace {

constexpr int kI = 1000, kJ = 500;
constexpr int kPrecision = 6;
const char* const kNames[] = {"x", "y", "z", "cp", "T"};

template <class Patch>
void fill(Patch& p, int I, int J) {
    for (int v = 0; v < 5; ++v) {
        NodeVariable& var = p.addVariable(kNames[v]);
        for (int j = 0; j < J; ++j)
            for (int i = 0; i < I; ++i) {
                const double s = 0.001 * i, t = 0.002 * j;
                const double values[] = {s, t, 0.1 * std::sin(3 * s) * std::cos(2 * t), 1 - 4 * s * s * t,
                                         290 + 5 * std::sin(s + t)};
                var.values[static_cast<std::size_t>(i + I * j)] = values[v];
            }
    }
}

struct Model {
    region reg;
    region_fe fe;
    Model() {
        reg.name = "bench";
        reg.Mach = 0.8;
        auto p = std::make_shared<StructPatch>(kI, kJ, 1);
        p->name = "wing";
        fill(*p, kI, kJ);
        reg.append(p);

        const int faces = 2 * (kI - 1) * (kJ - 1);
        auto f = std::make_shared<FacePatch>(kI * kJ, 4 * faces, faces);
        f->name = "body";
        fill(*f, kI, kJ);
        std::size_t k = 0;
        for (int j = 0; j + 1 < kJ; ++j)
            for (int i = 0; i + 1 < kI; ++i) {
                const int a = i + kI * j, b = a + 1, c = a + kI, d = c + 1;
                for (int n : {a, b, d, -1, a, d, c, -1}) f->faceIndex[k++] = n;
            }
        fe.append(f);
    }
};

const Model& model() {
    static const Model m;
    return m;
}

std::string scratch(const char* name) {
    return (std::filesystem::temp_directory_path() / ("tundrel_bench_" + std::to_string(::getpid()) + name)).string();
}

// The same file as write_dat writes, through an output stream.
void streamWrite(const std::string& path, const region& reg, const region_fe& fe) {
    std::ofstream out(path);
    out.precision(kPrecision);
    out.setf(std::ios::fixed);
    out << "TITLE = \"" << reg.name << "\"" << '\n' << "VARIABLES = ";
    const StructPatch& p = reg.patch(0);
    for (int v = 0; v < p.variableCount(); ++v) out << (v ? "," : "") << '"' << p.variable(v).name << '"';
    auto values = [&](const PatchBase& q, int rows) {
        for (int n = 0; n < rows; ++n) {
            out << '\n';
            for (int v = 0; v < q.variableCount(); ++v) {
                const double x = q.variable(v).values[static_cast<std::size_t>(n)];
                out << "  " << (x < -1e9 ? 0.0 : x);
            }
        }
    };
    auto flow = [&](const auto& owner) {
        if (owner.Mach > 0)
            out << "TEXT CS=FRAME,C=BLACK,S=LOCAL,X=1.,Y=1.,HU=POINT,LS=1,AN=LEFT,BXM=20,LT=0.1\n"
                << "BXO=BLACK,BXF=WHITE,F=HELV-BOLD,H=14,A=0,MFC=\"\"\n"
                << "T=\"mach=" << owner.Mach << ", alpha=" << owner.alpha << ", beta=" << owner.beta << "\"\n";
    };
    out << "\nZONE  T=\"" << p.name << "\",I=" << p.I << ",J=" << p.J << ",K=" << p.K << ",F= POINT";
    values(p, p.N);
    flow(reg);
    const FacePatch& f = fe.patch(0);
    out << "\nZONE  T=\"" << f.name << "\",N=" << f.nodes << ",E=" << f.faces << ",ET= TRIANGLE,F= FEPOINT";
    values(f, f.nodes);
    for (int e = 0; e < f.faces; ++e) {
        const auto* t = &f.faceIndex[4 * static_cast<std::size_t>(e)];
        out << '\n' << "  " << t[0] + 1 << "  " << t[1] + 1 << "  " << t[2] + 1;
    }
    flow(fe);
}

// Reads what streamWrite and write_dat write, through an input stream.
void streamRead(const std::string& path, region& reg, region_fe& fe) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    reg.name = line.substr(9, line.size() - 10);
    std::getline(in, line);
    std::vector<std::string> names;
    for (std::size_t q = line.find('"'); q != std::string::npos; q = line.find('"', line.find('"', q + 1) + 1))
        names.push_back(line.substr(q + 1, line.find('"', q + 1) - q - 1));
    auto number = [&](const std::string& key) {
        const std::size_t at = line.find(key);
        return std::stoi(line.substr(at + key.size()));
    };
    auto title = [&] {
        const std::size_t at = line.find("T=\"");
        return line.substr(at + 3, line.find('"', at + 3) - at - 3);
    };
    while (std::getline(in, line)) {
        if (line.rfind("ZONE", 0) != 0) continue;
        if (line.find("FEPOINT") == std::string::npos) {
            auto p = std::make_shared<StructPatch>(number(",I="), number(",J="), number(",K="));
            p->name = title();
            for (const auto& n : names) p->addVariable(n);
            for (std::size_t n = 0; n < static_cast<std::size_t>(p->N); ++n)
                for (int v = 0; v < p->variableCount(); ++v) in >> p->variable(v).values[n];
            reg.append(p);
        } else {
            const int nodes = number(",N="), faces = number(",E=");
            auto f = std::make_shared<FacePatch>(nodes, 4 * faces, faces);
            f->name = title();
            for (const auto& n : names) f->addVariable(n);
            for (std::size_t n = 0; n < static_cast<std::size_t>(nodes); ++n)
                for (int v = 0; v < f->variableCount(); ++v) in >> f->variable(v).values[n];
            for (std::size_t e = 0; e < static_cast<std::size_t>(faces); ++e) {
                for (std::size_t k = 0; k < 3; ++k) {
                    in >> f->faceIndex[4 * e + k];
                    --f->faceIndex[4 * e + k];
                }
                f->faceIndex[4 * e + 3] = -1;
            }
            fe.append(f);
        }
    }
}

void report(benchmark::State& state, const std::string& path) {
    const auto bytes = static_cast<std::int64_t>(std::filesystem::file_size(path));
    state.SetBytesProcessed(bytes * state.iterations());
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}

void BM_WriteDat(benchmark::State& state) {
    Model m = model();
    const std::string path = scratch("_w.dat");
    for (auto _ : state)
        if (!tundrel::findGeometryFormat("dat")->write(path, m.reg, m.fe, 0, 1, kPrecision, false)) state.SkipWithError("write_dat failed");
    report(state, path);
    std::filesystem::remove(path);
}

void BM_WriteDatStream(benchmark::State& state) {
    const Model& m = model();
    const std::string path = scratch("_ws.dat");
    for (auto _ : state) streamWrite(path, m.reg, m.fe);
    report(state, path);
    std::filesystem::remove(path);
}

// The file both readers read, written once and removed at exit.
struct Sample {
    std::string path = scratch("_r.dat");
    Sample() {
        Model m = model();
        tundrel::findGeometryFormat("dat")->write(path, m.reg, m.fe, 0, 1, kPrecision, false);
    }
    ~Sample() { std::filesystem::remove(path); }
};

const std::string& sample() {
    static const Sample s;
    return s.path;
}

void BM_ReadDat(benchmark::State& state) {
    const std::string& path = sample();  // written before the clock runs
    for (auto _ : state) {
        region reg;
        region_fe fe;
        if (!tundrel::readGeometryFile(*tundrel::findGeometryFormat("dat"), path, reg, fe) || fe.patch(0).faces != 2 * (kI - 1) * (kJ - 1))
            state.SkipWithError("read_dat failed");
    }
    report(state, sample());
}

void BM_ReadDatStream(benchmark::State& state) {
    const std::string& path = sample();
    for (auto _ : state) {
        region reg;
        region_fe fe;
        streamRead(path, reg, fe);
        if (fe.patchCount() != 1 || fe.patch(0).faces != 2 * (kI - 1) * (kJ - 1))
            state.SkipWithError("stream reader failed");
    }
    report(state, sample());
}

BENCHMARK(BM_WriteDat)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_WriteDatStream)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadDat)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadDatStream)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
