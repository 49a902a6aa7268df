#include "api/ngeo.h"
#include "api/detail/geometry_rules.h"

#include <algorithm>
#include <limits>
#include <utility>

FacePatch::FacePatch(int nodes_, int indexLength_, int faces_)
    : PatchBase(nodes_, 1, 1), nodes(nodes_), faces(faces_), indexLength(indexLength_) {
    if (faces_ < 0 || indexLength_ < 0) throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
    faceIndex.assign(static_cast<std::size_t>(indexLength_), -1);
}

FacePatch::~FacePatch() = default;  // variables go with their last holder

void FacePatch::clear() {
    for (const auto& v : variables)
        if (v) v->clear();
}

region_fe::region_fe() = default;
region_fe::region_fe(const region_fe&) = default;
region_fe& region_fe::operator=(const region_fe&) = default;
region_fe::~region_fe() = default;

namespace tundrel {

void reverseFace(std::int32_t* face) noexcept {
    // The slots that hold a corner, in order.
    int slot[4];
    int corners = 0;
    for (int k = 0; k < 4; ++k)
        if (face[k] != -1) slot[corners++] = k;
    if (corners < 3) return;
    for (int lo = 1, hi = corners - 1; lo < hi; ++lo, --hi) std::swap(face[slot[lo]], face[slot[hi]]);
}

void reverseFaces(FacePatch& p) noexcept {
    const std::size_t faces = std::min(static_cast<std::size_t>(std::max(p.faces, 0)), p.faceIndex.size() / 4);
    for (std::size_t f = 0; f < faces; ++f) reverseFace(p.faceIndex.data() + 4 * f);
}

namespace {

std::string checkVariables(const PatchBase& p, std::int64_t nodes, const std::string& where) {
    for (int k = 0; k < p.variables.size(); ++k) {
        if (!p.variables.exists(k)) continue;
        const NodeVariable& v = *p.variables.get(k);
        if (static_cast<std::int64_t>(v.values.size()) != nodes)
            return where + ": variable \"" + v.name + "\" holds " + std::to_string(v.values.size()) + " values for " +
                   std::to_string(nodes) + " nodes";
        if (v.count != nodes)
            return where + ": variable \"" + v.name + "\" counts " + std::to_string(v.count) + " values for " +
                   std::to_string(nodes) + " nodes";
    }
    return {};
}

}  // namespace

std::string validate(const region& reg, const region_fe& reg_fe) {
    for (int k = 0; k < reg.patches.size(); ++k) {
        const std::string where = "patch " + std::to_string(k);
        if (!reg.patches.exists(k)) continue;  // an empty slot is a state of its own
        const StructPatch& p = *reg.patches.get(k);
        if (p.I < 0 || p.J < 0 || p.K < 0 || static_cast<std::int64_t>(p.I) * p.J * p.K != p.N)
            return where + ": " + std::to_string(p.N) + " nodes for counts " + std::to_string(p.I) + " x " +
                   std::to_string(p.J) + " x " + std::to_string(p.K);
        if (std::string broken = checkVariables(p, p.N, where); !broken.empty()) return broken;
    }
    for (int k = 0; k < reg_fe.patches.size(); ++k) {
        const std::string where = "face patch " + std::to_string(k);
        if (!reg_fe.patches.exists(k)) continue;
        const FacePatch& p = *reg_fe.patches.get(k);
        if (p.nodes < 0 || p.nodes != p.N)
            return where + ": " + std::to_string(p.nodes) + " nodes for a patch of " + std::to_string(p.N);
        if (p.faces < 0 || p.indexLength < 0 || static_cast<std::size_t>(p.indexLength) != p.faceIndex.size() ||
            static_cast<std::int64_t>(p.faces) * 4 > p.indexLength)
            return where + ": " + std::to_string(p.faces) + " faces do not fit an index list of " +
                   std::to_string(p.faceIndex.size()) + " entries";
        for (std::size_t i = 0; i < p.faceIndex.size(); ++i) {
            const std::int32_t n = p.faceIndex[i];
            if (n < -1 || n >= p.nodes)
                return where + ": faceIndex[" + std::to_string(i) + "] = " + std::to_string(n) +
                       " is not -1 or a node number below " + std::to_string(p.nodes);
        }
        if (std::string broken = checkVariables(p, p.nodes, where); !broken.empty()) return broken;
    }
    return {};
}

}  // namespace tundrel
