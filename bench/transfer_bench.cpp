// Geometry to field container and back, with node normals, on models of
// structured patches and of triangles.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

#include "api/TundrelApi.h"

namespace {

// Four n x n patches of a wavy surface with three fields each.
region gridModel(int n) {
    region reg;
    for (int p = 0; p < 4; ++p) {
        auto patch = std::make_shared<StructPatch>(n, n, 1);
        const char* names[] = {"x", "y", "z", "cp", "t", "q"};
        for (const char* name : names) patch->addVariable(name);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const std::size_t k = static_cast<std::size_t>(i + n * j);
                const double x = i + p * n, y = j;
                patch->variable(0).values[k] = x;
                patch->variable(1).values[k] = y;
                patch->variable(2).values[k] = std::sin(0.01 * x) * std::cos(0.01 * y);
                for (int v = 3; v < 6; ++v) patch->variable(v).values[k] = v * 0.5 + 1e-3 * static_cast<double>(k);
            }
        reg.append(patch);
    }
    return reg;
}

// The same surfaces cut into two triangles a cell.
region_fe faceModel(int n) {
    region_fe fe;
    const region reg = gridModel(n);
    for (const auto& sp : reg.patches) {
        const int cells = (n - 1) * (n - 1);
        auto p = std::make_shared<FacePatch>(n * n, 8 * cells, 2 * cells);
        std::size_t f = 0;
        for (int j = 0; j + 1 < n; ++j)
            for (int i = 0; i + 1 < n; ++i) {
                const int c = i + n * j;
                for (int e : {c, c + 1, c + n, -1, c + n, c + 1, c + n + 1, -1}) p->faceIndex[f++] = e;
            }
        for (const auto& v : sp->variables) p->addVariable(v->name).values = v->values;
        fe.append(p);
    }
    return fe;
}

void BM_GridToField(benchmark::State& state) {
    const region reg = gridModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(reg, region_fe(), field, flow);
        benchmark::DoNotOptimize(field.positions().data());
    }
    state.SetItemsProcessed(state.iterations() * 4 * state.range(0) * state.range(0));
}

void BM_FacesToField(benchmark::State& state) {
    const region_fe fe = faceModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(region(), fe, field, flow);
        benchmark::DoNotOptimize(field.positions().data());
    }
    state.SetItemsProcessed(state.iterations() * 4 * state.range(0) * state.range(0));
}

void BM_FieldToGrid(benchmark::State& state) {
    FieldMasterD field;
    z::ambientFlow flow;
    Region_to_fieldMaster(gridModel(static_cast<int>(state.range(0))), region_fe(), field, flow);
    for (auto _ : state) {
        region reg;
        region_fe fe;
        fieldMaster_to_Region(field, flow, reg, fe);
        benchmark::DoNotOptimize(reg.patches.begin());
    }
    state.SetItemsProcessed(state.iterations() * 4 * state.range(0) * state.range(0));
}

}  // namespace

BENCHMARK(BM_GridToField)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FacesToField)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FieldToGrid)->Arg(500)->Unit(benchmark::kMillisecond);
