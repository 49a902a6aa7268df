// Geometry to field container and back, with node normals, on models of
// structured patches and of triangles; each against the way the container
// worked before it held the surface once (positions as an array of vectors,
// a temporary vector of positions per patch, normals through a temporary
// array, and a second, owning copy of the surface for the kernels), kept
// below as a plain baseline so that one run compares both.
//
// Peak memory: run one benchmark a process, e.g.
//   /usr/bin/time -v bench/transfer_bench --benchmark_filter='^BM_RoundTrip/'
//   /usr/bin/time -v bench/transfer_bench --benchmark_filter='^BM_RoundTripBaseline/'
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "api/fields/surface.h"
#include "api/detail/geometry_rules.h"

namespace {

using Vec = z::zVec<double>;
using arrayWorks::BlockLayout;

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

// ---- the baseline --------------------------------------------------------------

namespace baseline {

struct Container {
    std::vector<BlockLayout> layouts;
    std::vector<Vec> positions;
    std::vector<std::size_t> offsets;
    std::vector<std::shared_ptr<arrayWorks::FieldFunction>> functions;

    std::vector<int> nodeCounts() const {
        std::vector<int> c;
        for (const auto& l : layouts) c.push_back(l.nodes);
        return c;
    }
};

// The owning surface the kernels were handed.
struct Surface {
    std::vector<double> x, y, z, nx, ny, nz;
    std::vector<std::int32_t> triangles;
    std::vector<std::size_t> blockOffset;
};

bool isCoordinate(const std::string& name) {
    const std::string l = lowered(name);
    return l == "x" || l == "y" || l == "z";
}

const NodeVariable* named(const PatchBase& p, const char* letter) {
    const NodeVariable* found = nullptr;
    for (const auto& v : p.variables)
        if (v && lowered(v->name) == letter) found = v.get();
    return found;
}

std::vector<Vec> positionsOf(const PatchBase& p, int nodes) {
    auto column = [&](const char* c) {
        const NodeVariable* v = named(p, c);
        return v != nullptr && v->values.size() >= static_cast<std::size_t>(nodes) ? v->values.data() : nullptr;
    };
    const double *x = column("x"), *y = column("y"), *z = column("z");
    std::vector<Vec> out(static_cast<std::size_t>(nodes));
    for (int n = 0; n < nodes; ++n) out[static_cast<std::size_t>(n)] = {x ? x[n] : 0.0, y ? y[n] : 0.0, z ? z[n] : 0.0};
    return out;
}

Vec unit(const Vec& v) {
    const double l = v.length();
    if (!(l > 0.0) || !std::isfinite(l)) return {};
    return v / l;
}

void gridNormals(const Vec* p, int I, int J, Vec* out) {
    auto at = [&](int i, int j) -> const Vec& { return p[static_cast<std::size_t>(i) + static_cast<std::size_t>(I) * j]; };
    auto lo = [](int k) { return k > 0 ? k - 1 : k; };
    auto hi = [](int k, int n) { return k + 1 < n ? k + 1 : k; };
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const Vec di = at(hi(i, I), j) - at(lo(i), j);
            const Vec dj = at(i, hi(j, J)) - at(i, lo(j));
            Vec n = di.cross(dj);
            const double li = di.length(), lj = dj.length();
            if (!(std::min(li, lj) > 1e-10 * std::max(li, lj)) || !(n.length() > 1e-12 * li * lj)) {
                n = {};
                for (int cj = j - 1; cj <= j; ++cj)
                    for (int ci = i - 1; ci <= i; ++ci) {
                        if (ci < 0 || cj < 0 || ci + 1 >= I || cj + 1 >= J) continue;
                        n += (at(ci + 1, cj + 1) - at(ci, cj)).cross(at(ci, cj + 1) - at(ci + 1, cj));
                    }
            }
            out[static_cast<std::size_t>(i) + static_cast<std::size_t>(I) * j] = unit(n);
        }
}

void faceNormals(const Vec* p, int nodes, const std::vector<std::int32_t>& t, Vec* out) {
    for (int n = 0; n < nodes; ++n) out[n] = {};
    for (std::size_t k = 0; k + 2 < t.size(); k += 3) {
        const Vec f = (p[t[k + 1]] - p[t[k]]).cross(p[t[k + 2]] - p[t[k]]);
        out[t[k]] += f;
        out[t[k + 1]] += f;
        out[t[k + 2]] += f;
    }
    for (int n = 0; n < nodes; ++n) out[n] = unit(out[n]);
}

BlockLayout faceLayout(const FacePatch& p) {
    BlockLayout l;
    l.kind = BlockLayout::Kind::Faces;
    l.nodes = std::max(p.nodes, 0);
    const std::size_t faces = std::min(static_cast<std::size_t>(std::max(p.faces, 0)), p.faceIndex.size() / 4);
    l.faceIndex.assign(p.faceIndex.begin(), p.faceIndex.begin() + static_cast<std::ptrdiff_t>(4 * faces));
    for (std::size_t f = 0; f < faces; ++f) {
        std::int32_t c[4];
        int corners = 0;
        for (int k = 0; k < 4; ++k)
            if (const std::int32_t e = l.faceIndex[4 * f + static_cast<std::size_t>(k)]; e >= 0 && e < l.nodes) c[corners++] = e;
        if (corners < 3) continue;
        l.triangles.insert(l.triangles.end(), {c[0], c[1], c[2]});
        if (corners == 4) l.triangles.insert(l.triangles.end(), {c[0], c[2], c[3]});
    }
    return l;
}

void toContainer(const region& reg, const region_fe& fe, Container& c) {
    std::vector<const PatchBase*> sources;
    auto add = [&](BlockLayout l, const PatchBase& p) {
        const std::vector<Vec> pos = positionsOf(p, l.nodes);
        c.offsets.push_back(c.positions.size());
        c.positions.insert(c.positions.end(), pos.begin(), pos.end());
        c.layouts.push_back(std::move(l));
        sources.push_back(&p);
    };
    for (const auto& p : reg.patches) {
        BlockLayout l;
        l.nodes = p->N;
        l.rowLength = p->I;
        l.rows = p->J;
        l.layers = p->K;
        add(std::move(l), *p);
    }
    for (const auto& p : fe.patches) add(faceLayout(*p), *p);

    std::vector<std::string> names;
    for (const PatchBase* p : sources)
        for (const auto& v : p->variables)
            if (!isCoordinate(v->name) && std::find(names.begin(), names.end(), v->name) == names.end())
                names.push_back(v->name);
    for (const std::string& name : names) {
        auto f = std::make_shared<arrayWorks::ScalarFunction>(name, c.nodeCounts(), arrayWorks::kNoValue);
        for (std::size_t b = 0; b < c.layouts.size(); ++b)
            if (const NodeVariable* v = sources[b]->findVariable(name))
                std::copy(v->values.begin(), v->values.begin() + c.layouts[b].nodes, f->data() + c.offsets[b]);
        c.functions.push_back(std::move(f));
    }

    std::vector<Vec> normals(c.positions.size());
    for (std::size_t b = 0; b < c.layouts.size(); ++b) {
        const BlockLayout& l = c.layouts[b];
        if (l.structured()) gridNormals(c.positions.data() + c.offsets[b], l.rowLength, l.rows, normals.data() + c.offsets[b]);
        else faceNormals(c.positions.data() + c.offsets[b], l.nodes, l.triangles, normals.data() + c.offsets[b]);
    }
    auto n = std::make_shared<arrayWorks::VectorFunction>(arrayWorks::kNormalsName, c.nodeCounts());
    std::copy(normals.begin(), normals.end(), n->data());
    c.functions.push_back(std::move(n));
    c.functions.push_back(std::make_shared<arrayWorks::SelectionFunction>(arrayWorks::kSelectionName, c.nodeCounts()));
}

Surface extractSurface(const Container& c) {
    Surface s;
    const std::size_t n = c.positions.size();
    s.x.resize(n);
    s.y.resize(n);
    s.z.resize(n);
    for (std::size_t k = 0; k < n; ++k) s.x[k] = c.positions[k].x, s.y[k] = c.positions[k].y, s.z[k] = c.positions[k].z;
    for (const auto& f : c.functions)
        if (f->name() == arrayWorks::kNormalsName) {
            const auto* v = static_cast<const arrayWorks::VectorFunction*>(f.get())->data();
            s.nx.resize(n);
            s.ny.resize(n);
            s.nz.resize(n);
            for (std::size_t k = 0; k < n; ++k) s.nx[k] = v[k].x, s.ny[k] = v[k].y, s.nz[k] = v[k].z;
        }
    for (std::size_t b = 0; b < c.layouts.size(); ++b) {
        const BlockLayout& l = c.layouts[b];
        const auto first = static_cast<std::int32_t>(c.offsets[b]);
        s.blockOffset.push_back(c.offsets[b]);
        if (!l.structured()) {
            for (std::int32_t v : l.triangles) s.triangles.push_back(first + v);
            continue;
        }
        const int I = l.rowLength;
        for (int j = 0; j + 1 < l.rows; ++j)
            for (int i = 0; i + 1 < I; ++i) {
                const std::int32_t q = first + i + I * j;
                s.triangles.insert(s.triangles.end(), {q, q + 1, q + I, q + I, q + 1, q + I + 1});
            }
    }
    s.blockOffset.push_back(n);
    return s;
}

void toRegion(const Container& c, region& reg, region_fe& fe) {
    for (std::size_t b = 0; b < c.layouts.size(); ++b) {
        const BlockLayout& l = c.layouts[b];
        std::shared_ptr<PatchBase> patch;
        if (l.structured()) {
            auto sp = std::make_shared<StructPatch>(l.rowLength, l.rows, l.layers);
            reg.append(sp);
            patch = sp;
        } else {
            const int count = static_cast<int>(l.faceIndex.size());
            auto fp = std::make_shared<FacePatch>(l.nodes, count, count / 4);
            fp->faceIndex = l.faceIndex;
            fe.append(fp);
            patch = fp;
        }
        patch->name = "Patch_" + std::to_string(b);
        const Vec* p = c.positions.data() + c.offsets[b];
        NodeVariable& x = patch->addVariable("x");
        NodeVariable& y = patch->addVariable("y");
        NodeVariable& z = patch->addVariable("z");
        for (int n = 0; n < l.nodes; ++n) {
            x.values[static_cast<std::size_t>(n)] = p[n].x;
            y.values[static_cast<std::size_t>(n)] = p[n].y;
            z.values[static_cast<std::size_t>(n)] = p[n].z;
        }
        for (const auto& f : c.functions) {
            if (f->name().rfind("$_", 0) == 0) continue;
            // Value by value through a reader of any function kind, as before.
            const auto* s = dynamic_cast<const arrayWorks::ScalarFunction*>(f.get());
            const auto* vec = dynamic_cast<const arrayWorks::VectorFunction*>(f.get());
            const double* sv = s ? s->data() + c.offsets[b] : nullptr;
            const Vec* vv = vec ? vec->data() + c.offsets[b] : nullptr;
            NodeVariable& out = patch->addVariable(f->name());
            for (int n = 0; n < l.nodes; ++n)
                out.values[static_cast<std::size_t>(n)] = sv ? sv[n] : vv ? vv[n].x : arrayWorks::kNoValue;
        }
    }
}

}  // namespace baseline

// ---- the benchmarks ------------------------------------------------------------

void items(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * 4 * state.range(0) * state.range(0)); }

void BM_GridToField(benchmark::State& state) {
    const region reg = gridModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(reg, region_fe(), field, flow);
        benchmark::DoNotOptimize(field.x().data());
    }
    items(state);
}

void BM_GridToFieldBaseline(benchmark::State& state) {
    const region reg = gridModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        baseline::Container c;
        baseline::toContainer(reg, region_fe(), c);
        benchmark::DoNotOptimize(c.positions.data());
    }
    items(state);
}

void BM_FacesToField(benchmark::State& state) {
    const region_fe fe = faceModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(region(), fe, field, flow);
        benchmark::DoNotOptimize(field.x().data());
    }
    items(state);
}

void BM_FacesToFieldBaseline(benchmark::State& state) {
    const region_fe fe = faceModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        baseline::Container c;
        baseline::toContainer(region(), fe, c);
        benchmark::DoNotOptimize(c.positions.data());
    }
    items(state);
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
    items(state);
}

void BM_FieldToGridBaseline(benchmark::State& state) {
    baseline::Container c;
    baseline::toContainer(gridModel(static_cast<int>(state.range(0))), region_fe(), c);
    for (auto _ : state) {
        region reg;
        region_fe fe;
        baseline::toRegion(c, reg, fe);
        benchmark::DoNotOptimize(reg.patches.begin());
    }
    items(state);
}

// Geometry -> container -> the surface the kernels see -> geometry.
void BM_RoundTrip(benchmark::State& state) {
    const region model = gridModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        FieldMasterD field;
        z::ambientFlow flow;
        Region_to_fieldMaster(model, region_fe(), field, flow);
        const tundrel::Surface surface(field);
        benchmark::DoNotOptimize(surface.triangles.data());
        region reg;
        region_fe fe;
        fieldMaster_to_Region(field, flow, reg, fe);
        benchmark::DoNotOptimize(reg.patches.begin());
    }
    items(state);
}

void BM_RoundTripBaseline(benchmark::State& state) {
    const region model = gridModel(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        baseline::Container c;
        baseline::toContainer(model, region_fe(), c);
        const baseline::Surface surface = baseline::extractSurface(c);
        benchmark::DoNotOptimize(surface.triangles.data());
        region reg;
        region_fe fe;
        baseline::toRegion(c, reg, fe);
        benchmark::DoNotOptimize(reg.patches.begin());
    }
    items(state);
}

}  // namespace

BENCHMARK(BM_GridToField)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GridToFieldBaseline)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FacesToField)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FacesToFieldBaseline)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FieldToGrid)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FieldToGridBaseline)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RoundTrip)->Arg(500)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RoundTripBaseline)->Arg(500)->Unit(benchmark::kMillisecond);
