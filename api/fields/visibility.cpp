// Hidden-face removal for a camera at a point (the rule is documented with
// the declaration in self_illumination.h).
#include <cmath>
#include <vector>

#include "api/fields/self_illumination.h"
#include "api/detail/surface_bvh.h"
#include "api/detail/geometry_rules.h"

namespace {

struct FaceRef {
    int patch = 0;
    int face = 0;
    int corners = 0;            // 0 for a face that is removed unseen
    std::int32_t node[4] = {};  // global node numbers
};

// The nodes of face f of patch p that are node numbers (not -1, in range).
int faceCorners(const FacePatch& p, int f, std::int32_t out[4]) {
    int n = 0;
    for (int k = 0; k < 4; ++k) {
        const std::int32_t v = p.faceIndex[4 * static_cast<std::size_t>(f) + static_cast<std::size_t>(k)];
        if (v >= 0 && v < p.nodes) out[n++] = v;
    }
    return n;
}

// Whether patch p has usable coordinates (one value a node each).
bool hasCoordinates(const FacePatch& p, CoordinateSlots& c) {
    c = findCoordinates(p.variables);
    if (!c.complete() || p.nodes < 0) return false;
    for (int s : {c.x, c.y, c.z})
        if (p.variable(s).values.size() < static_cast<std::size_t>(p.nodes)) return false;
    return p.faceIndex.size() / 4 >= static_cast<std::size_t>(std::max(p.faces, 0));
}

}  // namespace

int unvisible_faces_remove(region_fe& reg_fe, const z::zVec<double>& eye) {
    // Every face of every patch with coordinates, as triangles in one surface.
    std::vector<double> px, py, pz;
    std::vector<std::int32_t> triangles;
    std::vector<FaceRef> faces;
    std::vector<std::size_t> firstNode(static_cast<std::size_t>(reg_fe.patchCount()), 0);
    std::vector<bool> usable(static_cast<std::size_t>(reg_fe.patchCount()), false);
    for (int k = 0; k < reg_fe.patchCount(); ++k) {
        if (!reg_fe.patches.exists(k)) continue;
        const FacePatch& p = reg_fe.patch(k);
        CoordinateSlots c;
        if (!hasCoordinates(p, c)) continue;
        usable[static_cast<std::size_t>(k)] = true;
        const std::size_t first = px.size();
        firstNode[static_cast<std::size_t>(k)] = first;
        for (int n = 0; n < p.nodes; ++n) {
            px.push_back(p.variable(c.x).values[static_cast<std::size_t>(n)]);
            py.push_back(p.variable(c.y).values[static_cast<std::size_t>(n)]);
            pz.push_back(p.variable(c.z).values[static_cast<std::size_t>(n)]);
        }
        for (int f = 0; f < p.faces; ++f) {
            FaceRef ref;
            ref.patch = k;
            ref.face = f;
            std::int32_t local[4];
            ref.corners = faceCorners(p, f, local);
            for (int i = 0; i < ref.corners; ++i) ref.node[i] = static_cast<std::int32_t>(first) + local[i];
            if (ref.corners >= 3)
                triangles.insert(triangles.end(), {ref.node[0], ref.node[1], ref.node[2]});
            if (ref.corners == 4) triangles.insert(triangles.end(), {ref.node[0], ref.node[2], ref.node[3]});
            faces.push_back(ref);
        }
    }
    if (faces.empty()) return 0;
    const tundrel::Surface surface(px, py, pz, triangles);
    const tundrel::SurfaceBvh bvh(surface);

    auto at = [&](std::int32_t g) {
        const auto u = static_cast<std::size_t>(g);
        return z::zVec<double>(surface.x[u], surface.y[u], surface.z[u]);
    };
    auto facing = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
        const z::zVec<double> p0 = at(a);
        return (at(b) - p0).cross(at(c) - p0).dot(eye - p0) > 0.0;
    };
    std::vector<char> seen(faces.size(), 0);
#pragma omp parallel for schedule(dynamic, 64)
    for (std::size_t i = 0; i < faces.size(); ++i) {
        const FaceRef& f = faces[i];
        if (f.corners < 3) continue;
        const bool front = facing(f.node[0], f.node[1], f.node[2]) ||
                           (f.corners == 4 && facing(f.node[0], f.node[2], f.node[3]));
        if (!front) continue;
        z::zVec<double> centre;
        for (int k = 0; k < f.corners; ++k) centre += at(f.node[k]);
        centre = centre / static_cast<double>(f.corners);
        const double from[3] = {eye.x, eye.y, eye.z}, to[3] = {centre.x, centre.y, centre.z};
        seen[i] = !bvh.occludedBetween(from, to, f.node, f.corners);
    }

    // Keep the seen faces and the nodes they use, patch by patch.
    int removed = 0;
    std::size_t i = 0;
    for (int k = 0; k < reg_fe.patchCount(); ++k) {
        if (!usable[static_cast<std::size_t>(k)]) continue;
        FacePatch& p = reg_fe.patch(k);
        std::vector<std::int32_t> renumber(static_cast<std::size_t>(p.nodes), -1);
        std::vector<std::int32_t> index;
        int kept = 0;
        for (int f = 0; f < p.faces; ++f, ++i) {
            if (!seen[i]) {
                ++removed;
                continue;
            }
            ++kept;
            for (int c = 0; c < 4; ++c) {
                const std::int32_t v = p.faceIndex[4 * static_cast<std::size_t>(f) + static_cast<std::size_t>(c)];
                index.push_back(v);
                if (v >= 0 && v < p.nodes) renumber[static_cast<std::size_t>(v)] = 0;
            }
        }
        std::int32_t nodes = 0;
        for (auto& r : renumber)
            if (r == 0) r = nodes++;
        for (auto& v : index)
            if (v >= 0 && v < p.nodes) v = renumber[static_cast<std::size_t>(v)];
            else v = -1;
        for (const auto& var : p.variables) {
            if (!var) continue;
            std::vector<double> values;
            values.reserve(static_cast<std::size_t>(nodes));
            for (std::size_t n = 0; n < renumber.size() && n < var->values.size(); ++n)
                if (renumber[n] >= 0) values.push_back(var->values[n]);
            values.resize(static_cast<std::size_t>(nodes), 0.0);
            var->values = std::move(values);
            var->I = var->strideJ = var->strideK = var->count = nodes;
            var->J = var->K = 1;
        }
        p.faceIndex = std::move(index);
        p.faces = kept;
        p.indexLength = 4 * kept;
        p.nodes = p.I = p.N = nodes;
        p.J = p.K = 1;
    }
    return removed;
}
