// Surfaces for the field tests and benchmarks: grids, spheres and screens
// built straight into a field container, and plain reference computations
// that work on the container's checked accessors.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "api/field_selection.h"

namespace shapes {

using V = z::zVec<double>;
constexpr double kPi = 3.14159265358979;

struct Block {
    arrayWorks::BlockLayout layout;
    std::vector<V> pos, normal;
    std::vector<double> value;
    std::vector<unsigned char> selected;
};

// An I x J grid, node (i, j) at at(i, j), every normal n.
inline Block grid(int I, int J, const std::function<V(int, int)>& at, V n, double value = 1.0) {
    Block b;
    b.layout.kind = arrayWorks::BlockLayout::Kind::Structured;
    b.layout.nodes = I * J;
    b.layout.rowLength = I;
    b.layout.rows = J;
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) b.pos.push_back(at(i, j));
    b.normal.assign(b.pos.size(), n);
    b.value.assign(b.pos.size(), value);
    b.selected.assign(b.pos.size(), 0);
    return b;
}

// The same grid as a face block of two triangles a cell.
inline Block gridAsFaces(int I, int J, const std::function<V(int, int)>& at, V n, double value = 1.0) {
    Block b = grid(I, J, at, n, value);
    b.layout.kind = arrayWorks::BlockLayout::Kind::Faces;
    b.layout.rowLength = 0;
    b.layout.rows = 0;
    for (int j = 0; j + 1 < J; ++j)
        for (int i = 0; i + 1 < I; ++i) {
            const int c = i + I * j;
            b.layout.triangles.insert(b.layout.triangles.end(), {c, c + 1, c + I, c + I, c + 1, c + I + 1});
        }
    return b;
}

// A closed sphere of radius R about c: two poles and (rings) x (segments)
// nodes between them, as one face block; normals point inwards when inward.
// Straight meridians make a convex polyhedron; staggered rings (every other
// ring turned by half a segment) one with slightly concave edges.
inline Block sphere(int rings, int segments, double R, V c = {}, bool inward = true, bool staggered = false) {
    Block b;
    b.layout.kind = arrayWorks::BlockLayout::Kind::Faces;
    auto add = [&](double theta, double phi) {
        const V u(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta));
        b.pos.push_back(c + u * R);
        b.normal.push_back(inward ? -u : u);
    };
    add(0.0, 0.0);
    for (int r = 1; r <= rings; ++r)
        for (int s = 0; s < segments; ++s) add(kPi * r / (rings + 1), 2 * kPi * (s + (staggered ? 0.5 * (r % 2) : 0.0)) / segments);
    add(kPi, 0.0);
    const int south = static_cast<int>(b.pos.size()) - 1;
    auto ring = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    auto& t = b.layout.triangles;
    for (int s = 0; s < segments; ++s) {
        t.insert(t.end(), {0, ring(1, s), ring(1, s + 1)});
        t.insert(t.end(), {south, ring(rings, s + 1), ring(rings, s)});
    }
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            t.insert(t.end(), {ring(r, s), ring(r + 1, s), ring(r, s + 1)});
            t.insert(t.end(), {ring(r, s + 1), ring(r + 1, s), ring(r + 1, s + 1)});
        }
    b.layout.nodes = static_cast<int>(b.pos.size());
    b.value.assign(b.pos.size(), 1.0);
    b.selected.assign(b.pos.size(), 0);
    return b;
}

// The blocks as a container: positions, "$_N", "$_selection" and the scalar
// field `name`.
inline FieldMasterD build(const std::vector<Block>& blocks, const std::string& name = "P") {
    FieldMasterD f;
    for (const Block& b : blocks) f.addBlock(b.layout, b.pos);
    auto& n = f.addVector(arrayWorks::kNormalsName);
    auto& s = f.addSelection();
    auto& v = f.addScalar(name);
    for (int k = 0; k < static_cast<int>(blocks.size()); ++k)
        for (int i = 0; i < blocks[static_cast<std::size_t>(k)].layout.nodes; ++i) {
            const auto u = static_cast<std::size_t>(i);
            n.at(k, i) = blocks[static_cast<std::size_t>(k)].normal[u];
            s.at(k, i) = blocks[static_cast<std::size_t>(k)].selected[u];
            v.at(k, i) = blocks[static_cast<std::size_t>(k)].value[u];
        }
    return f;
}

// ---- reference computations, deliberately plain --------------------------

// Segment a-b against triangle (p, q, r) in double precision: 1 when it
// crosses the triangle at least `margin` inside its edges and ends, 0 when it
// misses by at least that much, -1 in between (a grazing segment, which
// either answer fits).
inline int segmentCrosses(const V& a, const V& b, const V& p, const V& q, const V& r, double margin) {
    const V d = b - a, e1 = q - p, e2 = r - p;
    const V h = d.cross(e2);
    const double det = e1.dot(h);
    if (std::abs(det) < 1e-300) return 0;
    const V s = a - p;
    const double u = s.dot(h) / det;
    const V qv = s.cross(e1);
    const double v = d.dot(qv) / det;
    const double t = e2.dot(qv) / det;
    const double lo = std::min({u, v, 1 - u - v, t, 1 - t});
    if (lo > margin) return 1;
    if (lo < -margin) return 0;
    return -1;
}

// Obstruction by looping over every triangle of the surface, skipping those
// with a corner at the position of either end: 1, 0, or -1 when the segment
// only grazes some triangle.
inline int occludedBruteForce(const std::vector<V>& pos, std::span<const std::int32_t> tris, std::int32_t a,
                              std::int32_t b, double margin = 1e-7) {
    const V pa = pos[static_cast<std::size_t>(a)], pb = pos[static_cast<std::size_t>(b)];
    int verdict = 0;
    for (std::size_t t = 0; t + 2 < tris.size(); t += 3) {
        const V& p = pos[static_cast<std::size_t>(tris[t])];
        const V& q = pos[static_cast<std::size_t>(tris[t + 1])];
        const V& r = pos[static_cast<std::size_t>(tris[t + 2])];
        bool touches = false;
        for (const V* c : {&p, &q, &r}) touches = touches || *c == pa || *c == pb;
        if (touches) continue;
        const int c = segmentCrosses(pa, pb, p, q, r, margin);
        if (c == 1) return 1;
        if (c == -1) verdict = -1;
    }
    return verdict;
}

}  // namespace shapes

#include <functional>

#include "api/fields/self_illumination.h"
#include "api/detail/self_illumination_kernel.h"

namespace shapes {

// The correction as a plain double loop over the container's checked
// accessors, following the pair rule to the letter. `visible(R, E)` (global
// node numbers), when given, stands for the obstruction test. magnitude[k]
// receives |value| plus the summed magnitudes of the shares of node k.
// With receivers >= 0 only that many receivers are visited, and `areas`
// keeps the node areas from call to call (for timing).
inline std::vector<double> referenceCorrection(const FieldMasterD& f, const std::string& name, double ratio,
                                               const std::function<bool(int, int)>& visible = {},
                                               std::vector<double>* magnitude = nullptr, int receivers = -1,
                                               std::vector<double>* areas = nullptr) {
    const auto& src = *f.scalar(f.findFunction(name));
    const auto& nrm = *f.vector(f.findFunction(arrayWorks::kNormalsName));
    const bool all = f.selectionState() == arrayWorks::NothingSelected;
    auto takes = [&](int b, int n) { return (all || f.isSelected(b, n) != 0) && src.at(b, n) != -1e10; };
    std::vector<double> own;
    std::vector<double>& area = areas != nullptr ? *areas : own;
    if (area.size() != f.totalNodes()) area.assign(f.totalNodes(), -1.0);
    auto areaOf = [&](int b, int n) {
        double& a = area[f.offset(b) + static_cast<std::size_t>(n)];
        if (a == -1.0) a = tundrel::detail::nodeArea(f, b, n);
        return a;
    };
    std::vector<double> result(f.totalNodes());
    if (magnitude != nullptr) magnitude->assign(f.totalNodes(), 0.0);
    for (int b = 0; b < f.blockCount(); ++b)
        for (int n = 0; n < f.nodeCount(b); ++n) result[f.offset(b) + static_cast<std::size_t>(n)] = src.at(b, n);
    int visited = 0;
    for (int bR = 0; bR < f.blockCount(); ++bR)
        for (int nR = 0; nR < f.nodeCount(bR); ++nR) {
            if (!takes(bR, nR) || (receivers >= 0 && visited++ >= receivers)) continue;
            const int gR = static_cast<int>(f.offset(bR)) + nR;
            const V PR = f.position(bR, nR), NR = nrm.at(bR, nR);
            const double AR = areaOf(bR, nR);
            double sum = 0.0, mag = std::abs(src.at(bR, nR));
            for (int bE = 0; bE < f.blockCount(); ++bE)
                for (int nE = 0; nE < f.nodeCount(bE); ++nE) {
                    const int gE = static_cast<int>(f.offset(bE)) + nE;
                    if (gE == gR || !takes(bE, nE)) continue;
                    const V PE = f.position(bE, nE), NE = nrm.at(bE, nE);
                    const V d = PE - PR;
                    const double r = d.length();
                    const double m = std::max({std::abs(PR.x), std::abs(PR.y), std::abs(PR.z), std::abs(PE.x),
                                               std::abs(PE.y), std::abs(PE.z)});
                    if (!(r > 1e-10 * m)) continue;
                    const V u = d / r;
                    const double cosR = NR.dot(u), cosE = NE.dot(-u);
                    if (!(cosR > 0 && cosE > 0)) continue;
                    if (visible && !visible(gR, gE)) continue;
                    const double AE = areaOf(bE, nE);
                    const double S = std::sqrt(kPi * r * r + cosR * AR);
                    const double share = (S - r * std::sqrt(kPi)) * src.at(bE, nE) * AE * cosE * ratio / (2 * S * AR);
                    sum += share;
                    mag += std::abs(share);
                }
            if (AR > 0) result[static_cast<std::size_t>(gR)] -= sum;
            if (magnitude != nullptr) (*magnitude)[static_cast<std::size_t>(gR)] = mag;
        }
    return result;
}

}  // namespace shapes
