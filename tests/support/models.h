// Patches to build models from: a structured grid and face patches over an
// index list.
#pragma once

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

}  // namespace testutil
