// Patches to build models from: a structured grid, face patches over an
// index list, the octahedron, and what the mesh tests ask of a face patch.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "api/detail/geometry_rules.h"

namespace testutil {

// A structured patch with x, y, z (and optional extra variables) on a grid.
inline std::shared_ptr<StructPatch> gridPatch(int I, int J, std::vector<std::string> extra = {}) {
    auto p = std::make_shared<StructPatch>(I, J, 1);
    auto& x = p->addVariable("x");
    auto& y = p->addVariable("y");
    auto& z = p->addVariable("z");
    for (int j = 0; j < J; ++j)
        for (int i = 0; i < I; ++i) {
            const std::size_t n = static_cast<std::size_t>(i + I * j);
            x.values[n] = i;
            y.values[n] = j;
            z.values[n] = 0.5 * i * j;
        }
    for (std::size_t e = 0; e < extra.size(); ++e) {
        auto& v = p->addVariable(extra[e]);
        for (std::size_t n = 0; n < v.values.size(); ++n) v.values[n] = 10.0 * (e + 1) + n;
    }
    return p;
}

// A face patch over `index` with the named variables; variable v holds
// 100 * v + node at each node.
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

// The octahedron around `centre`, corners on the axes, faces turned outward.
inline std::shared_ptr<FacePatch> octahedron(std::array<double, 3> centre = {0, 0, 0}) {
    std::vector<std::int32_t> index;  // node 2q + (s < 0) sits on axis q at side s
    for (int sx : {0, 1})
        for (int sy : {0, 1})
            for (int sz : {0, 1}) {
                const int a = sx, b = 2 + sy, c = 4 + sz;
                if ((sx + sy + sz) % 2 == 0) index.insert(index.end(), {a, b, c, -1});
                else index.insert(index.end(), {a, c, b, -1});
            }
    auto f = facePatch(6, index);
    for (int n = 0; n < 6; ++n)
        for (int q = 0; q < 3; ++q) f->variable(q).values[n] = centre[q] + (n / 2 == q ? (n % 2 ? -1.0 : 1.0) : 0.0);
    return f;
}

// How many faces run each edge in each direction.
inline std::map<std::pair<int, int>, int> directedEdges(const FacePatch& p) {
    std::map<std::pair<int, int>, int> use;
    for (int f = 0; f < p.faces; ++f)
        for (int e = 0; e < 3; ++e) ++use[{p.faceIndex[4 * f + e], p.faceIndex[4 * f + (e + 1) % 3]}];
    return use;
}

inline std::array<double, 3> point(const FacePatch& p, int n) {
    const CoordinateSlots c = findCoordinates(p.variables);
    return {p.variable(c.x).values[n], p.variable(c.y).values[n], p.variable(c.z).values[n]};
}

// Whether every face's normal (b - a) x (c - a) points away from `centre`.
inline bool facesPointAwayFrom(const FacePatch& p, std::array<double, 3> centre) {
    for (int f = 0; f < p.faces; ++f) {
        const auto a = point(p, p.faceIndex[4 * f]), b = point(p, p.faceIndex[4 * f + 1]),
                   c = point(p, p.faceIndex[4 * f + 2]);
        double u[3], v[3], m[3];
        for (int q = 0; q < 3; ++q) u[q] = b[q] - a[q], v[q] = c[q] - a[q], m[q] = a[q] - centre[q];
        if ((u[1] * v[2] - u[2] * v[1]) * m[0] + (u[2] * v[0] - u[0] * v[2]) * m[1] + (u[0] * v[1] - u[1] * v[0]) * m[2] <= 0)
            return false;
    }
    return true;
}

}  // namespace testutil
