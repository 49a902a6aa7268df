// A bounding volume hierarchy (Embree 3) over the triangles of a surface:
// obstruction tests between two surface nodes, the first face along a ray,
// and the closest point of the surface.
#pragma once

#include <embree3/rtcore.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "api/export.h"
#include "api/fields/surface.h"

namespace tundrel {

struct SurfaceHit {
    double distance = 0.0;       // along the ray, or to the closest point
    double x = 0.0, y = 0.0, z = 0.0;  // the point on the surface
    std::int32_t triangle = -1;  // index into Surface::triangles / 3
};

class SurfaceBvh {
public:
    // Builds the hierarchy over surface.triangles at surface.x/y/z. The
    // arrays the surface views must outlive the hierarchy. Without
    // weldSeams, the obstruction tests see seam nodes of neighbouring patches
    // as distinct nodes (a scene for pictures, built faster).
    explicit SurfaceBvh(const Surface& surface, bool weldSeams = true);
    ~SurfaceBvh();
    SurfaceBvh(const SurfaceBvh&) = delete;
    SurfaceBvh& operator=(const SurfaceBvh&) = delete;

    // True when a triangle that touches neither node a nor node b crosses the
    // segment between the two nodes. Safe to call from several threads.
    bool occluded(std::int32_t a, std::int32_t b) const;

    // True when a triangle that touches none of the `count` (at most 4)
    // nodes `ignore` crosses the segment from p to q. Crossings closer to
    // either end than 1e-6 of the segment's length plus 1e-6 of the
    // surface's half extent do not count, nor do triangles at a node whose
    // position equals that of an ignored node. Safe from several threads.
    bool occludedBetween(const double p[3], const double q[3], const std::int32_t* ignore, int count) const;

    // The tests occluded(a[k], b[k]) for count (at most kPacket) pairs at
    // once, traced as one packet of rays: hidden[k] is what occluded(a[k],
    // b[k]) gives, however they are traced. `trimmed`: the middle of each
    // segment, between its ends' regions, built on first use; `asBuilt`:
    // trimmed only at the ends whose regions are already built (buildEnd),
    // for a caller that tests only a few segments a node, as building a
    // node's regions costs more than that. Safe from several threads.
    static constexpr int kPacket = 8;
    enum class Trace { trimmed, asBuilt };
    void occludedPairs(const std::int32_t* a, const std::int32_t* b, int count, bool* hidden,
                       Trace how = Trace::trimmed) const;
    // Builds the end regions of node k now, if they are in use.
    void buildEnd(std::int32_t k) const;

    // occludedPairs traces only the middle of a segment, between the regions
    // around its ends that no face counted by the test enters (on by
    // default; the answers are the same either way). For comparisons: off,
    // or with empty tangent balls looked for up to ballCap times the
    // surface's half extent (0: none). Not while tests run.
    void setEndRegions(bool on, double ballCap);
    // Whether hierarchies built from now on use them (for benchmarks).
    static void useEndRegions(bool on);

    // The first triangle met by the ray origin + t * direction, 0 < t <= maxDistance.
    std::optional<SurfaceHit> firstHit(const double origin[3], const double direction[3], double maxDistance) const;

    // The closest point of the surface to p within maxDistance.
    std::optional<SurfaceHit> closestPoint(const double p[3], double maxDistance) const;

    // Embree's scene, for callers that trace rays of their own (packets).
    // Its vertices are the surface's positions minus origin(), in single
    // precision. Safe to trace from several threads.
    RTCScene scene() const noexcept;
    std::array<double, 3> origin() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tundrel
