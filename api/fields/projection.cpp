#include "api/detail/projection.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>

namespace tundrel {

namespace {

struct Box {
    double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
};

Box boundsOf(const Surface& s) {
    Box b;
    if (s.nodeCount() == 0) return b;
    const std::span<const double> c[3] = {s.x, s.y, s.z};
    for (int a = 0; a < 3; ++a) {
        const auto [lo, hi] = std::minmax_element(c[a].begin(), c[a].end());
        b.lo[a] = *lo;
        b.hi[a] = *hi;
    }
    return b;
}

}  // namespace

std::vector<MarkerProjection> projectMarkers(const markers& set, const Surface& surface, const SurfaceBvh& bvh,
                                             bool normal, double maxDistance) {
    const bool has[3] = {set.hasX, set.hasY, set.hasZ};
    const int coordinates = int{has[0]} + int{has[1]} + int{has[2]};
    const int count = set.count();
    if (coordinates < 2 || count == 0 || surface.triangleCount() == 0 || !(maxDistance >= 0.0)) return {};

    // Two coordinates: the absent axis, the direction along it and where the
    // line enters the bounding box (a little outside it).
    int axis = 0;
    const double sign = normal ? -1.0 : 1.0;
    double entry = 0.0, length = 0.0;
    if (coordinates == 2) {
        while (has[axis]) ++axis;
        const Box box = boundsOf(surface);
        double extent = 0.0;
        for (int a = 0; a < 3; ++a) extent = std::max(extent, box.hi[a] - box.lo[a]);
        const double margin = 1e-3 * extent + 1e-9;
        entry = sign < 0 ? box.hi[axis] + margin : box.lo[axis] - margin;
        length = box.hi[axis] - box.lo[axis] + 2.0 * margin;
    }

    std::vector<std::optional<MarkerProjection>> found(static_cast<std::size_t>(count));
#pragma omp parallel for schedule(dynamic, 16) if (count > 64)
    for (int i = 0; i < count; ++i) {
        const marker& m = set.list[static_cast<std::size_t>(i)];
        if (!m.active) continue;
        const double p[3] = {m.x, m.y, m.z};
        std::optional<SurfaceHit> hit;
        if (coordinates == 3) {
            hit = bvh.closestPoint(p, maxDistance);
        } else {
            double origin[3] = {p[0], p[1], p[2]};
            double direction[3] = {0.0, 0.0, 0.0};
            origin[axis] = entry;
            direction[axis] = sign;
            hit = bvh.firstHit(origin, direction, length);
            if (hit) hit->distance = 0.0;
        }
        if (!hit) continue;
        MarkerProjection r;
        r.marker = i;
        r.x = hit->x;
        r.y = hit->y;
        r.z = hit->z;
        r.distance = hit->distance;
        r.triangle = hit->triangle;
        found[static_cast<std::size_t>(i)] = r;
    }
    std::vector<MarkerProjection> out;
    for (const auto& f : found)
        if (f) out.push_back(*f);
    return out;
}

}  // namespace tundrel
