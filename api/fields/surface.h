// Flat arrays of a field container for the kernels: node positions, normals
// and the surface triangles, all nodes of all blocks numbered together (node
// n of block b is number offset(b) + n), taken once from the container so
// that loops over nodes or faces need no checked access.
#pragma once

#include <cstdint>
#include <vector>

#include "api/export.h"
#include "api/field_selection.h"

namespace tundrel {

struct Surface {
    // Node positions, structure of arrays.
    std::vector<double> x, y, z;
    // Unit node normals ("$_N"); empty when the container has none.
    std::vector<double> nx, ny, nz;
    // Three global node numbers a triangle: structured blocks give two
    // triangles a grid cell, (c, c+1, c+I) and (c+I, c+1, c+I+1) with
    // c = i + I*j; face blocks their own triangles.
    std::vector<std::int32_t> triangles;
    // First global node number of each block, and one past the last.
    std::vector<std::size_t> blockOffset;

    std::size_t nodeCount() const noexcept { return x.size(); }
    std::size_t triangleCount() const noexcept { return triangles.size() / 3; }
};

// Positions, normals (when "$_N" exists) and triangles of every block.
Surface extractSurface(const FieldMasterD& field);

}  // namespace tundrel
