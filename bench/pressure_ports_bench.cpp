// The pressure-port field on a one-million-node surface with 500 ports:
// projection through the Embree hierarchy against a loop over all faces, and
// evaluation of the approximation against a dense, one-thread evaluation.
// The straightforward versions run on a share of the ports (the loop over
// faces) or once (dense evaluation); items/s compare them per marker and per
// node. Each straightforward result is checked against the fast one first.
#include <benchmark/benchmark.h>

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "api/TundrelApi.h"
#include "api/detail/approximation.h"
#include "api/detail/projection.h"
#include "api/fields/surface.h"
#include "api/detail/surface_bvh.h"

namespace {

using Vec = z::zVec<double>;
constexpr int kSide = 1000;         // 1000 x 1000 nodes
constexpr int kPorts = 500;
constexpr int kStraightPorts = 10;  // markers given to the loop over all faces

struct Setup {
    FieldMasterD field;
    tundrel::Surface surface;
    std::unique_ptr<tundrel::SurfaceBvh> bvh;
    markers spatial, planar;  // x, y, z / x, y only
    tundrel::PortApproximation approximation;
    std::vector<Vec> ports;

    Setup() {
        arrayWorks::BlockLayout l;
        l.nodes = kSide * kSide, l.rowLength = kSide, l.rows = kSide;
        std::vector<Vec> pos;
        pos.reserve(static_cast<std::size_t>(l.nodes));
        for (int j = 0; j < kSide; ++j)
            for (int i = 0; i < kSide; ++i) {
                const double x = 4.0 * i / (kSide - 1), y = 3.0 * j / (kSide - 1);
                pos.emplace_back(x, y, 0.2 + 0.3 * std::sin(x) * std::cos(y));
            }
        field.addBlock(l, std::move(pos));
        surface = tundrel::Surface(field);
        bvh = std::make_unique<tundrel::SurfaceBvh>(surface);

        std::mt19937 gen(5);
        std::uniform_real_distribution<double> u(0.0, 1.0);
        spatial.hasX = spatial.hasY = spatial.hasZ = spatial.hasValue = true;
        planar = spatial;
        planar.hasZ = false;
        for (int k = 0; k < kPorts; ++k) {
            marker m;
            m.x = 4.0 * u(gen), m.y = 3.0 * u(gen);
            m.z = 0.2 + 0.3 * std::sin(m.x) * std::cos(m.y) + 0.02 * (u(gen) - 0.5);
            m.value = std::sin(m.x) + m.y * m.z, m.active = true;
            addMarker(spatial, m);
            addMarker(planar, m);
        }
        std::vector<double> values;
        for (const auto& p : tundrel::projectMarkers(spatial, surface, *bvh, true)) {
            ports.emplace_back(p.x, p.y, p.z);
            values.push_back(spatial[p.marker].value);
        }
        approximation.build(ports, values, 1);
    }
};

Setup& setup() {
    static Setup s;
    return s;
}

// The point of triangle (a, b, c) closest to p, by the regions of the
// triangle's plane (Ericson, Real-Time Collision Detection, 5.1.5).
Vec closestOnTriangle(const Vec& p, const Vec& a, const Vec& b, const Vec& c) {
    const Vec ab = b - a, ac = c - a, ap = p - a;
    const double d1 = ab.dot(ap), d2 = ac.dot(ap);
    if (d1 <= 0 && d2 <= 0) return a;
    const Vec bp = p - b;
    const double d3 = ab.dot(bp), d4 = ac.dot(bp);
    if (d3 >= 0 && d4 <= d3) return b;
    const double vc = d1 * d4 - d3 * d2;
    if (vc <= 0 && d1 >= 0 && d3 <= 0) return a + ab * (d1 / (d1 - d3));
    const Vec cp = p - c;
    const double d5 = ab.dot(cp), d6 = ac.dot(cp);
    if (d6 >= 0 && d5 <= d6) return c;
    const double vb = d5 * d2 - d1 * d6;
    if (vb <= 0 && d2 >= 0 && d6 <= 0) return a + ac * (d2 / (d2 - d6));
    const double va = d3 * d6 - d5 * d4;
    if (va <= 0 && (d4 - d3) >= 0 && (d5 - d6) >= 0) return b + (c - b) * ((d4 - d3) / ((d4 - d3) + (d5 - d6)));
    const double denom = 1.0 / (va + vb + vc);
    return a + ab * (vb * denom) + ac * (vc * denom);
}

Vec node(const tundrel::Surface& s, std::int32_t k) {
    const auto n = static_cast<std::size_t>(k);
    return {s.x[n], s.y[n], s.z[n]};
}

// Distance of every marker to its closest point, trying every face.
std::vector<double> closestByAllFaces(const markers& set, const tundrel::Surface& s, int count) {
    std::vector<double> out;
    for (int i = 0; i < count; ++i) {
        const Vec p(set[i].x, set[i].y, set[i].z);
        double best = std::numeric_limits<double>::infinity();
        for (std::size_t t = 0; t < s.triangleCount(); ++t) {
            const std::int32_t* c = &s.triangles[3 * t];
            best = std::min(best, (closestOnTriangle(p, node(s, c[0]), node(s, c[1]), node(s, c[2])) - p).length());
        }
        out.push_back(best);
    }
    return out;
}

// Height of the first face met from above along -z, trying every face.
std::vector<double> raysByAllFaces(const markers& set, const tundrel::Surface& s, int count) {
    std::vector<double> out;
    for (int i = 0; i < count; ++i) {
        const Vec o(set[i].x, set[i].y, 10.0), d(0, 0, -1);
        double best = std::numeric_limits<double>::infinity();
        for (std::size_t t = 0; t < s.triangleCount(); ++t) {
            const std::int32_t* c = &s.triangles[3 * t];
            const Vec a = node(s, c[0]), e1 = node(s, c[1]) - a, e2 = node(s, c[2]) - a;
            const Vec h = d.cross(e2);
            const double det = e1.dot(h);
            if (det == 0.0) continue;
            const Vec sv = o - a;
            const double u = sv.dot(h) / det;
            const Vec q = sv.cross(e1);
            const double v = d.dot(q) / det, tt = e2.dot(q) / det;
            if (u >= 0 && v >= 0 && u + v <= 1 && tt > 0) best = std::min(best, tt);
        }
        out.push_back(10.0 - best);
    }
    return out;
}

void BM_BuildHierarchy(benchmark::State& state) {
    Setup& s = setup();
    for (auto _ : state) {
        const tundrel::Surface surface(s.field);
        tundrel::SurfaceBvh bvh(surface);
        benchmark::DoNotOptimize(&bvh);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(s.surface.triangleCount()));
}

void BM_ProjectClosest_Embree(benchmark::State& state) {
    Setup& s = setup();
    for (auto _ : state) benchmark::DoNotOptimize(tundrel::projectMarkers(s.spatial, s.surface, *s.bvh, true).data());
    state.SetItemsProcessed(state.iterations() * kPorts);
}

void BM_ProjectClosest_AllFaces(benchmark::State& state) {
    Setup& s = setup();
    const auto fast = tundrel::projectMarkers(s.spatial, s.surface, *s.bvh, true);
    const auto plain = closestByAllFaces(s.spatial, s.surface, kStraightPorts);
    for (int i = 0; i < kStraightPorts; ++i)
        if (std::abs(fast[static_cast<std::size_t>(i)].distance - plain[static_cast<std::size_t>(i)]) > 1e-9)
            return state.SkipWithError("the two projections differ");
    for (auto _ : state) benchmark::DoNotOptimize(closestByAllFaces(s.spatial, s.surface, kStraightPorts).data());
    state.SetItemsProcessed(state.iterations() * kStraightPorts);
}

void BM_ProjectAlongZ_Embree(benchmark::State& state) {
    Setup& s = setup();
    for (auto _ : state) benchmark::DoNotOptimize(tundrel::projectMarkers(s.planar, s.surface, *s.bvh, true).data());
    state.SetItemsProcessed(state.iterations() * kPorts);
}

void BM_ProjectAlongZ_AllFaces(benchmark::State& state) {
    Setup& s = setup();
    const auto fast = tundrel::projectMarkers(s.planar, s.surface, *s.bvh, true);
    const auto plain = raysByAllFaces(s.planar, s.surface, kStraightPorts);
    for (int i = 0; i < kStraightPorts; ++i)
        if (std::abs(fast[static_cast<std::size_t>(i)].z - plain[static_cast<std::size_t>(i)]) > 1e-9)
            return state.SkipWithError("the two projections differ");
    for (auto _ : state) benchmark::DoNotOptimize(raysByAllFaces(s.planar, s.surface, kStraightPorts).data());
    state.SetItemsProcessed(state.iterations() * kStraightPorts);
}

void BM_Fit(benchmark::State& state) {
    Setup& s = setup();
    std::vector<double> values;
    for (const Vec& p : s.ports) values.push_back(std::sin(p.x) + p.y * p.z);
    for (auto _ : state) {
        tundrel::PortApproximation a;
        benchmark::DoNotOptimize(a.build(s.ports, values, static_cast<int>(state.range(0))));
    }
}

void BM_Evaluate(benchmark::State& state) {
    Setup& s = setup();
    std::vector<double> out(s.surface.nodeCount());
    for (auto _ : state) {
        s.approximation.evaluate(s.surface.x.data(), s.surface.y.data(), s.surface.z.data(), out.size(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(out.size()));
}

// Blocks of nodes times all ports as a dense matrix, times the weights.
std::vector<double> evaluateDense(const Setup& s) {
    const tundrel::PortApproximation& a = s.approximation;
    const std::size_t n = s.surface.nodeCount();
    const auto m = static_cast<Eigen::Index>(s.ports.size());
    const Eigen::Map<const Eigen::VectorXd> w(a.weights().data(), m);
    constexpr Eigen::Index kBlock = 1024;
    std::vector<double> out(n);
    Eigen::MatrixXd E(kBlock, m);
    for (std::size_t first = 0; first < n; first += kBlock) {
        const auto rows = static_cast<Eigen::Index>(std::min<std::size_t>(kBlock, n - first));
        for (Eigen::Index r = 0; r < rows; ++r) {
            const Vec x = node(s.surface, static_cast<std::int32_t>(first + static_cast<std::size_t>(r)));
            for (Eigen::Index i = 0; i < m; ++i) E(r, i) = (x - s.ports[static_cast<std::size_t>(i)]).length();
        }
        const Eigen::VectorXd kernel = E.topRows(rows) * w / a.lengthUnit();
        for (Eigen::Index r = 0; r < rows; ++r) {
            const std::size_t k = first + static_cast<std::size_t>(r);
            out[k] = kernel(r) + a.polynomialPart(node(s.surface, static_cast<std::int32_t>(k)));
        }
    }
    return out;
}

void BM_Evaluate_Dense(benchmark::State& state) {
    Setup& s = setup();
    std::vector<double> fast(s.surface.nodeCount());
    s.approximation.evaluate(s.surface.x.data(), s.surface.y.data(), s.surface.z.data(), fast.size(), fast.data());
    const std::vector<double> plain = evaluateDense(s);
    for (std::size_t k = 0; k < fast.size(); k += 997)
        if (std::abs(fast[k] - plain[k]) > 1e-9 * (1.0 + std::abs(plain[k])))
            return state.SkipWithError("the two evaluations differ");
    for (auto _ : state) benchmark::DoNotOptimize(evaluateDense(s).data());
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(fast.size()));
}

}  // namespace

// Wall-clock time: the fast versions run on several threads.
BENCHMARK(BM_BuildHierarchy)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_ProjectClosest_Embree)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ProjectClosest_AllFaces)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_ProjectAlongZ_Embree)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ProjectAlongZ_AllFaces)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_Fit)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Evaluate)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Evaluate_Dense)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();
