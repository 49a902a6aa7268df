// Markers placed on the surface.
//
// Markers with all three coordinates go to the closest point of the surface;
// their distance is the one to that point. Markers with two coordinates are
// lines along the absent axis: the line is followed, from beyond the
// surface's bounding box, in the direction of the axis multiplied by -1 when
// `normal` is true (so "Normal" looks along the decreasing axis, as from
// above for x and y) and as it is when false, to the first face it meets;
// the point found lies on the marker's line, so its distance is 0. Sets
// with fewer coordinates place nothing. Inactive markers are left out, as
// are markers that meet no face (or none within maxDistance).
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "api/export.h"
#include "api/fields/surface.h"
#include "api/detail/surface_bvh.h"
#include "api/markers.h"

namespace tundrel {

struct MarkerProjection {
    int marker = -1;                   // index in the set
    double x = 0.0, y = 0.0, z = 0.0;  // the point on the surface
    double distance = 0.0;             // of the marker from that point
    std::int32_t triangle = -1;        // index into Surface::triangles / 3
};

// The projections, in the order of the markers. `bvh` is the hierarchy of
// `surface`. Parallel over the markers.
std::vector<MarkerProjection> projectMarkers(const markers& set, const Surface& surface,
                                                         const SurfaceBvh& bvh, bool normal,
                                                         double maxDistance = std::numeric_limits<double>::infinity());

}  // namespace tundrel
