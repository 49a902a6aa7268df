// Face patches for the mesh tests.
#pragma once

#include <array>
#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "api/TundrelApi.h"

namespace meshtest {

// A face patch over `index` (four entries a face) with the named variables;
// variable v holds 100 * v + node at each node.
inline std::shared_ptr<FacePatch> facePatch(int nodes, std::vector<std::int32_t> index,
                                            std::vector<std::string> names = {"X", "Y", "Z"},
                                            const std::string& name = "") {
    const int length = static_cast<int>(index.size());
    auto f = std::make_shared<FacePatch>(nodes, length, length / 4);
    f->name = name;
    f->faceIndex = std::move(index);
    for (std::size_t v = 0; v < names.size(); ++v) {
        NodeVariable& var = f->addVariable(names[v]);
        for (int n = 0; n < nodes; ++n) var.values[static_cast<std::size_t>(n)] = 100.0 * v + n;
    }
    return f;
}

inline std::vector<std::int32_t> faces(const FacePatch& p, int f) {
    return {p.faceIndex.begin() + 4 * f, p.faceIndex.begin() + 4 * f + 4};
}

// The regular icosahedron on the unit sphere, every face turned outward.
inline std::shared_ptr<FacePatch> icosahedron() {
    const double g = (1.0 + std::sqrt(5.0)) / 2.0;
    std::vector<std::array<double, 3>> v;
    for (double a : {-1.0, 1.0})
        for (double b : {-g, g}) {
            v.push_back({0, a, b});
            v.push_back({a, b, 0});
            v.push_back({b, 0, a});
        }
    auto d2 = [&](int i, int j) {
        double s = 0;
        for (int k = 0; k < 3; ++k) s += (v[i][k] - v[j][k]) * (v[i][k] - v[j][k]);
        return s;
    };
    std::vector<std::int32_t> index;
    for (int i = 0; i < 12; ++i)
        for (int j = i + 1; j < 12; ++j)
            for (int k = j + 1; k < 12; ++k) {
                if (std::abs(d2(i, j) - 4) > 1e-9 || std::abs(d2(j, k) - 4) > 1e-9 || std::abs(d2(i, k) - 4) > 1e-9)
                    continue;
                // (b - a) x (c - a) against the centroid decides the turn.
                std::array<double, 3> e1, e2;
                for (int q = 0; q < 3; ++q) e1[q] = v[j][q] - v[i][q], e2[q] = v[k][q] - v[i][q];
                const double out = (e1[1] * e2[2] - e1[2] * e2[1]) * (v[i][0] + v[j][0] + v[k][0]) +
                                   (e1[2] * e2[0] - e1[0] * e2[2]) * (v[i][1] + v[j][1] + v[k][1]) +
                                   (e1[0] * e2[1] - e1[1] * e2[0]) * (v[i][2] + v[j][2] + v[k][2]);
                if (out > 0) index.insert(index.end(), {i, j, k, -1});
                else index.insert(index.end(), {i, k, j, -1});
            }
    auto f = facePatch(12, index);
    for (int n = 0; n < 12; ++n)
        for (int q = 0; q < 3; ++q) f->variable(q).values[static_cast<std::size_t>(n)] = v[n][q] / std::hypot(1.0, g);
    return f;
}

// How many faces use each undirected edge, and each directed one.
struct EdgeUse {
    std::map<std::pair<int, int>, int> undirected, directed;
};

inline EdgeUse edgeUse(const FacePatch& p) {
    EdgeUse u;
    for (int f = 0; f < p.faces; ++f)
        for (int e = 0; e < 3; ++e) {
            const int a = p.faceIndex[4 * f + e], b = p.faceIndex[4 * f + (e + 1) % 3];
            ++u.undirected[{std::min(a, b), std::max(a, b)}];
            ++u.directed[{a, b}];
        }
    return u;
}

// Position of node n of patch p.
inline std::array<double, 3> point(const FacePatch& p, int n) {
    const CoordinateSlots c = findCoordinates(p.variables);
    return {p.variable(c.x).values[n], p.variable(c.y).values[n], p.variable(c.z).values[n]};
}

// The sum over faces of (normal . (centroid - centre)): positive when every
// face of a convex surface around `centre` points outward.
inline bool facesPointAwayFrom(const FacePatch& p, std::array<double, 3> centre) {
    for (int f = 0; f < p.faces; ++f) {
        const auto a = point(p, p.faceIndex[4 * f]), b = point(p, p.faceIndex[4 * f + 1]),
                   c = point(p, p.faceIndex[4 * f + 2]);
        std::array<double, 3> e1, e2, m;
        for (int q = 0; q < 3; ++q) e1[q] = b[q] - a[q], e2[q] = c[q] - a[q], m[q] = (a[q] + b[q] + c[q]) / 3 - centre[q];
        const double out = (e1[1] * e2[2] - e1[2] * e2[1]) * m[0] + (e1[2] * e2[0] - e1[0] * e2[2]) * m[1] +
                           (e1[0] * e2[1] - e1[1] * e2[0]) * m[2];
        if (out <= 0) return false;
    }
    return true;
}

}  // namespace meshtest
