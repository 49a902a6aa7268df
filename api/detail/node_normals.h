// Unit node normals of the blocks of a field container, oriented as the grid
// and the faces run. The kernels read and write coordinate columns.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/export.h"
#include "api/field_selection.h"
#include "api/fields/surface.h"

namespace tundrel {

// Normals of one structured grid of I x J nodes (node (i, j) at index
// i + I*j of x, y, z) into the same indices of nx, ny, nz: along dP/di x
// dP/dj at the node, with central differences inside and one-sided ones at
// the edges. Where that product vanishes (a row collapsed to a point, as at
// the pole of a sphere) the node takes the summed normals of the grid cells
// around it, each cell's normal being the product of its diagonals
// (P[i+1,j+1] - P[i,j]) x (P[i,j+1] - P[i+1,j]). A node without any gets
// (0, 0, 0).
void gridNormals(const double* x, const double* y, const double* z, int I, int J, double* nx,
                             double* ny, double* nz);

// Normals of the nodes first .. first + nodes - 1 of a triangle list (three
// node numbers a triangle, each in that range) into the same indices of nx,
// ny, nz: the sum of the products (P1 - P0) x (P2 - P0) of the triangles
// around the node (so weighted with their areas), made unit length.
// Triangles listed counter-clockwise seen from outside give outward normals.
// A node in no triangle, or whose sum vanishes, gets (0, 0, 0).
void faceNormals(const Surface& s, std::size_t first, std::size_t nodes,
                             std::span<const std::int32_t> triangles, double* nx, double* ny, double* nz);

// Stores the container's derived normals (those of cachedNormals, computed
// straight into "$_N" when not cached) in the vector function "$_N",
// appending it when the container has none, and returns it.
arrayWorks::VectorFunction& updateNormals(FieldMasterD& field);

}  // namespace tundrel
