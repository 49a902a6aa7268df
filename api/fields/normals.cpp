#include "api/detail/node_normals.h"

#include <algorithm>
#include <cmath>
#include <mutex>

namespace tundrel {

namespace {

using Vec = z::zVec<double>;

// v / |v|, or (0, 0, 0) when v has no usable length.
Vec unit(const Vec& v) {
    const double l = v.length();
    if (!(l > 0.0) || !std::isfinite(l)) return {};
    return v / l;
}

void store(const Vec& v, std::size_t k, double* nx, double* ny, double* nz) {
    nx[k] = v.x;
    ny[k] = v.y;
    nz[k] = v.z;
}

}  // namespace

namespace {

// The kernels, writing node k's normal through put(k, normal).
template <class Put>
void gridInto(const double* x, const double* y, const double* z, int I, int J, Put put) {
    if (I < 1 || J < 1) return;
    auto at = [&](int i, int j) {
        const std::size_t k = static_cast<std::size_t>(i) + static_cast<std::size_t>(I) * static_cast<std::size_t>(j);
        return Vec(x[k], y[k], z[k]);
    };
    // The difference along one direction at index k of n: central inside,
    // one-sided at the ends, nothing when the direction has a single node.
    auto lo = [](int k) { return k > 0 ? k - 1 : k; };
    auto hi = [](int k, int n) { return k + 1 < n ? k + 1 : k; };
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const Vec di = at(hi(i, I), j) - at(lo(i), j);
            const Vec dj = at(i, hi(j, J)) - at(i, lo(j));
            Vec n = di.cross(dj);
            // A difference that is rounding noise against the other (a row
            // collapsed to a point), or a product small against its factors,
            // gives no direction.
            const double li = di.length(), lj = dj.length();
            if (!(std::min(li, lj) > 1e-10 * std::max(li, lj)) || !(n.length() > 1e-12 * li * lj)) {
                n = {};
                for (int cj = j - 1; cj <= j; ++cj)
                    for (int ci = i - 1; ci <= i; ++ci) {
                        if (ci < 0 || cj < 0 || ci + 1 >= I || cj + 1 >= J) continue;
                        n += (at(ci + 1, cj + 1) - at(ci, cj)).cross(at(ci, cj + 1) - at(ci + 1, cj));
                    }
            }
            put(static_cast<std::size_t>(i) + static_cast<std::size_t>(I) * static_cast<std::size_t>(j), unit(n));
        }
}

// Sums into nx, ny, nz (global indices), then put(k, unit sum).
template <class Put>
void facesInto(const Surface& s, std::size_t first, std::size_t nodes, std::span<const std::int32_t> triangles,
               double* nx, double* ny, double* nz, Put put) {
    std::fill(nx + first, nx + first + nodes, 0.0);
    std::fill(ny + first, ny + first + nodes, 0.0);
    std::fill(nz + first, nz + first + nodes, 0.0);
    auto at = [&](std::size_t k) { return Vec(s.x[k], s.y[k], s.z[k]); };
    for (std::size_t t = 0; t + 2 < triangles.size(); t += 3) {
        const auto a = static_cast<std::size_t>(triangles[t]), b = static_cast<std::size_t>(triangles[t + 1]),
                   c = static_cast<std::size_t>(triangles[t + 2]);
        const Vec pa = at(a);
        const Vec f = (at(b) - pa).cross(at(c) - pa);
        for (std::size_t k : {a, b, c}) {
            nx[k] += f.x;
            ny[k] += f.y;
            nz[k] += f.z;
        }
    }
    for (std::size_t k = first; k < first + nodes; ++k) put(k, unit(Vec(nx[k], ny[k], nz[k])));
}

// Every block's normals, node k (global) through put(k, normal); face blocks
// sum in the columns given.
template <class Put>
void allNormals(const FieldMasterD& field, double* sx, double* sy, double* sz, Put put) {
    const Surface s(field);
    for (int b = 0; b < field.blockCount(); ++b) {
        const arrayWorks::BlockLayout& l = field.layout(b);
        const std::size_t first = field.offset(b);
        if (l.structured()) {
            const std::size_t layer = static_cast<std::size_t>(l.rowLength) * static_cast<std::size_t>(l.rows);
            for (int k = 0; k < l.layers; ++k) {
                const std::size_t o = first + static_cast<std::size_t>(k) * layer;
                gridInto(s.x.data() + o, s.y.data() + o, s.z.data() + o, l.rowLength, l.rows,
                         [&](std::size_t n, const Vec& v) { put(o + n, v); });
            }
        } else {
            facesInto(s, first, static_cast<std::size_t>(l.nodes), field.blockTriangles(b), sx, sy, sz, put);
        }
    }
}

}  // namespace

void gridNormals(const double* x, const double* y, const double* z, int I, int J, double* nx, double* ny,
                 double* nz) {
    gridInto(x, y, z, I, J, [&](std::size_t k, const Vec& v) { store(v, k, nx, ny, nz); });
}

void faceNormals(const Surface& s, std::size_t first, std::size_t nodes, std::span<const std::int32_t> triangles,
                 double* nx, double* ny, double* nz) {
    facesInto(s, first, nodes, triangles, nx, ny, nz, [&](std::size_t k, const Vec& v) { store(v, k, nx, ny, nz); });
}

const arrayWorks::NormalCache& cachedNormals(const FieldMasterD& field) {
    // Threads that read one container at the same time may all find the
    // cache empty: one fills it, the others wait for it. (Changing the
    // positions while another thread reads is a race of the caller's.)
    static std::mutex filling;
    const std::lock_guard<std::mutex> lock(filling);
    arrayWorks::NormalCache& cache = field.normalCache();
    if (cache.valid) return cache;
    const std::size_t total = field.totalNodes();
    cache.x.resize(total);
    cache.y.resize(total);
    cache.z.resize(total);
    double *x = cache.x.data(), *y = cache.y.data(), *z = cache.z.data();
    allNormals(field, x, y, z, [&](std::size_t k, const Vec& v) { store(v, k, x, y, z); });
    cache.valid = true;
    return cache;
}

arrayWorks::VectorFunction& updateNormals(FieldMasterD& field) {
    // A "$_N" of another kind or shape is replaced in its place.
    const int i = field.findFunction(arrayWorks::kNormalsName);
    arrayWorks::VectorFunction* f = i < 0 ? nullptr : field.vector(i);
    bool fits = f != nullptr && f->blockCount() == field.blockCount();
    for (int b = 0; fits && b < field.blockCount(); ++b) fits = f->values.blocks[static_cast<std::size_t>(b)].count == field.nodeCount(b);
    if (!fits) {
        auto fresh = std::make_shared<arrayWorks::VectorFunction>(arrayWorks::kNormalsName, field.nodeCounts());
        f = fresh.get();
        if (i < 0) field.functions.push_back(std::move(fresh));
        else field.functions[static_cast<std::size_t>(i)] = std::move(fresh);
    }
    Vec* out = f->data();
    // Grids alone and not cached: the same kernel straight into "$_N",
    // leaving the cache to be filled when asked for. Face blocks sum their
    // triangles' products in the cache's columns, so they fill it.
    bool faces = false;
    for (int b = 0; b < field.blockCount(); ++b) faces = faces || !field.layout(b).structured();
    const arrayWorks::NormalCache& cache = faces ? cachedNormals(field) : field.normalCache();
    if (!cache.valid) {
        allNormals(field, nullptr, nullptr, nullptr, [&](std::size_t k, const Vec& v) { out[k] = v; });
        return *f;
    }
    for (std::size_t n = 0; n < f->size(); ++n) out[n] = Vec(cache.x[n], cache.y[n], cache.z[n]);
    return *f;
}

}  // namespace tundrel
