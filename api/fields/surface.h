// A view of the surface a field container holds: node positions as three
// columns and the triangles, all nodes of all blocks numbered together (node
// n of block b is number offset(b) + n). Nothing is copied: the view points
// into the container (or into whatever arrays it was made from), which must
// outlive it and keep its blocks while it is used.
#pragma once

#include <cstdint>
#include <span>

#include "api/export.h"
#include "api/field_selection.h"

namespace tundrel {

struct Surface {
    // Node positions, structure of arrays.
    std::span<const double> x, y, z;
    // Three global node numbers a triangle: structured blocks give two
    // triangles a grid cell, (c, c+1, c+I) and (c+I, c+1, c+I+1) with
    // c = i + I*j; face blocks their own triangles.
    std::span<const std::int32_t> triangles;
    // First global node number of each block, and one past the last; empty
    // for a view of bare arrays.
    std::span<const std::size_t> blockOffset;
    // First triangle of each block, and one past the last.
    std::span<const std::size_t> blockTriangle;

    Surface() = default;
    // The whole surface of a container.
    explicit Surface(const FieldMasterD& field)
        : x(field.x()), y(field.y()), z(field.z()), triangles(field.triangles()), blockOffset(field.blockOffsets()),
          blockTriangle(field.triangleOffsets()) {}
    // Bare arrays of nodes and triangles.
    Surface(std::span<const double> px, std::span<const double> py, std::span<const double> pz,
            std::span<const std::int32_t> t)
        : x(px), y(py), z(pz), triangles(t) {}

    std::size_t nodeCount() const noexcept { return x.size(); }
    std::size_t triangleCount() const noexcept { return triangles.size() / 3; }
};

// The node normals derived from the container's positions, oriented as the
// grids and the faces run (see normals.h), as three columns; computed when
// the positions changed since the last call, else the cached ones.
TUNDREL_API const arrayWorks::NormalCache& cachedNormals(const FieldMasterD& field);

}  // namespace tundrel
