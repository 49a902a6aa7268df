#include "api/fields/normals.h"

#include <algorithm>
#include <cmath>

namespace tundrel {

namespace {

using Vec = z::zVec<double>;

// v / |v|, or (0, 0, 0) when v has no usable length.
Vec unit(const Vec& v) {
    const double l = v.length();
    if (!(l > 0.0) || !std::isfinite(l)) return {};
    return v / l;
}

}  // namespace

void gridNormals(const Vec* p, int I, int J, Vec* out) {
    if (I < 1 || J < 1) return;
    auto at = [&](int i, int j) -> const Vec& { return p[static_cast<std::size_t>(i) + static_cast<std::size_t>(I) * j]; };
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
            out[static_cast<std::size_t>(i) + static_cast<std::size_t>(I) * j] = unit(n);
        }
}

void faceNormals(const Vec* p, int nodes, const std::int32_t* triangles, std::size_t triangleCount, Vec* out) {
    if (nodes < 1) return;
    for (int n = 0; n < nodes; ++n) out[n] = {};
    for (std::size_t t = 0; t < triangleCount; ++t) {
        const std::int32_t a = triangles[3 * t], b = triangles[3 * t + 1], c = triangles[3 * t + 2];
        const Vec f = (p[b] - p[a]).cross(p[c] - p[a]);
        out[a] += f;
        out[b] += f;
        out[c] += f;
    }
    for (int n = 0; n < nodes; ++n) out[n] = unit(out[n]);
}

std::vector<Vec> nodeNormals(const FieldMasterD& field) {
    std::vector<Vec> normals(field.totalNodes());
    const Vec* positions = field.positions().data();
    for (int b = 0; b < field.blockCount(); ++b) {
        const arrayWorks::BlockLayout& l = field.layout(b);
        const std::size_t first = field.offset(b);
        if (l.structured()) {
            const std::size_t layer = static_cast<std::size_t>(l.rowLength) * static_cast<std::size_t>(l.rows);
            for (int k = 0; k < l.layers; ++k)
                gridNormals(positions + first + k * layer, l.rowLength, l.rows, normals.data() + first + k * layer);
        } else {
            faceNormals(positions + first, l.nodes, l.triangles.data(), l.triangles.size() / 3, normals.data() + first);
        }
    }
    return normals;
}

arrayWorks::VectorFunction& updateNormals(FieldMasterD& field) {
    const std::vector<Vec> normals = nodeNormals(field);
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
    for (std::size_t n = 0; n < normals.size(); ++n) f->data()[n] = normals[n];
    return *f;
}

}  // namespace tundrel
