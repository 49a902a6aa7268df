// Structured patches to face patches, and cutting faces out into a new patch.
#include <algorithm>
#include <limits>
#include <string>

#include "api/host.h"
#include "api/mesh/mesh.h"
#include "api/detail/geometry_rules.h"

namespace {

constexpr const char* kNoCoordinates = "Error in Header. No predefined variables X or Y or Z are found";
constexpr const char* kBadIndex = "Error in Index Array structure";

int checkedCount(std::int64_t n) {
    if (n < 0 || n > std::numeric_limits<std::int32_t>::max())
        throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
    return static_cast<int>(n);
}

}  // namespace

bool converter_reg_to_reg_fe(region& src, region_fe& dst) {
    if (src.patchCount() == 0) return true;
    const StructPatch& first = src.patch(0);
    const int variables = first.variableCount();
    if (variables < 3) return true;
    if (!findCoordinates(first.variables).complete()) {
        tundrel::showMessage(kNoCoordinates);
        return false;
    }

    for (int n = 0; n < src.patchCount(); ++n) {
        const StructPatch& p = src.patch(n);
        const int I = p.I, J = p.J;
        if (I < 2 || J < 2) continue;  // its number stays taken

        const int faces = checkedCount(2 * static_cast<std::int64_t>(I - 1) * (J - 1));
        const int length = checkedCount(4 * static_cast<std::int64_t>(faces));
        const int nodes = checkedCount(static_cast<std::int64_t>(I) * J);  // K may be 0
        auto f = std::make_shared<FacePatch>(nodes, length, faces);
        f->name = "Patch___" + std::to_string(n);

        std::vector<std::pair<const NodeVariable*, NodeVariable*>> pairs;
        pairs.reserve(static_cast<std::size_t>(variables));
        for (int v = 0; v < variables; ++v) {
            const NodeVariable& from = p.variable(v);
            if (from.values.size() < static_cast<std::size_t>(nodes))
                throw arrayWorks::IndexError(arrayWorks::source::geo, __LINE__);
            pairs.emplace_back(&from, &f->addVariable(from.name));
        }

        std::int32_t* out = f->faceIndex.data();
        for (int i = 0; i < I - 1; ++i) {
            for (int j = 0; j < J - 1; ++j) {
                const std::int32_t c = i + I * j;
                *out++ = c;
                *out++ = c + 1;
                *out++ = c + I;
                *out++ = -1;
                *out++ = c + I;
                *out++ = c + 1;
                *out++ = c + I + 1;
                *out++ = -1;
            }
        }

        // The first layer only.
        for (const auto& [from, to] : pairs)
            std::copy_n(from->values.begin(), nodes, to->values.begin());
        dst.append(std::move(f));
    }
    return true;
}

void Add_to_regionFe(region_fe& r, int k, std::vector<int> faces) {
    const FacePatch& source = r.patch(k);
    const std::size_t n = faces.size();
    const int length = checkedCount(4 * static_cast<std::int64_t>(n));

    std::vector<std::int32_t> index(static_cast<std::size_t>(length));
    std::vector<std::int32_t> nodes;
    for (std::size_t q = 0; q < n; ++q) {
        const std::int64_t at = 4 * static_cast<std::int64_t>(faces[q]);
        if (faces[q] < 0 || at + 4 > static_cast<std::int64_t>(source.faceIndex.size()))
            throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
        for (int e = 0; e < 4; ++e) {
            const std::int32_t node = source.faceIndex[static_cast<std::size_t>(at + e)];
            index[4 * q + static_cast<std::size_t>(e)] = node;
            if (node != -1) nodes.push_back(node);
        }
    }
    const bool fewNodes = nodes.size() < 2;
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    const int m = fewNodes ? 1 : static_cast<int>(nodes.size());

    auto f = std::make_shared<FacePatch>(m, length, static_cast<int>(n));
    f->name = "PatchVRML_" + std::to_string(r.patchCount());
    for (int v = 0; v < 3; ++v) {
        const NodeVariable& from = source.variable(v);
        NodeVariable& to = f->addVariable(from.name);
        // With no node collected the one node has no source and stays zero.
        for (std::size_t q = 0; q < nodes.size() && q < static_cast<std::size_t>(m); ++q) {
            const std::int32_t old = nodes[q];
            if (old < 0 || static_cast<std::size_t>(old) >= from.values.size())
                throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
            to.values[q] = from.values[static_cast<std::size_t>(old)];
        }
    }

    for (std::int32_t& e : index) {
        if (e == -1) continue;
        const auto at = std::lower_bound(nodes.begin(), nodes.end(), e);
        if (at == nodes.end() || *at != e) {
            tundrel::showMessage(kBadIndex);
            return;
        }
        e = static_cast<std::int32_t>(at - nodes.begin());
    }
    f->faceIndex = std::move(index);
    r.append(std::move(f));
}

namespace tundrel::mesh {

bool triangulateModel(region& reg, region_fe& fe) {
    const int before = fe.patchCount();
    if (!converter_reg_to_reg_fe(reg, fe)) return false;
    if (fe.patchCount() == before) return true;
    if (before == 0) {
        fe.name = reg.name;
        fe.Mach = reg.Mach;
        fe.alpha = reg.alpha;
        fe.beta = reg.beta;
    }
    arrayWorks::PtrList<StructPatch> kept;
    for (int k = 0; k < reg.patchCount(); ++k) {
        const StructPatch& p = reg.patch(k);
        if (p.I < 2 || p.J < 2) kept.append(reg.patches.shared(k));
    }
    reg.patches = std::move(kept);
    return true;
}

}  // namespace tundrel::mesh
