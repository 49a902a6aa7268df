// Unit node normals of the blocks of a field container, oriented as the grid
// and the faces run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "api/export.h"
#include "api/field_selection.h"
#include "api/zvec.h"

namespace tundrel {

// Normals of one structured grid of I x J nodes (node (i, j) at p[i + I*j])
// into out[0 .. I*J): along dP/di x dP/dj at the node, with central
// differences inside and one-sided ones at the edges. Where that product
// vanishes (a row collapsed to a point, as at the pole of a sphere) the node
// takes the summed normals of the grid cells around it, each cell's normal
// being the product of its diagonals (P[i+1,j+1] - P[i,j]) x (P[i,j+1] -
// P[i+1,j]). A node without any gets (0, 0, 0).
void gridNormals(const z::zVec<double>* p, int I, int J, z::zVec<double>* out);

// Normals of the nodes of a triangle list (three node numbers a triangle,
// each in [0, nodes)) into out[0 .. nodes): the sum of the products (P1 - P0)
// x (P2 - P0) of the triangles around the node (so weighted with their areas),
// made unit length. Triangles listed counter-clockwise seen from outside give
// outward normals. A node in no triangle, or whose sum vanishes, gets (0, 0, 0).
void faceNormals(const z::zVec<double>* p, int nodes, const std::int32_t* triangles,
                             std::size_t triangleCount, z::zVec<double>* out);

// Normals of every node of every block of the container, block after block
// (structured blocks layer by layer).
std::vector<z::zVec<double>> nodeNormals(const FieldMasterD& field);

// Stores nodeNormals() in the vector function "$_N", appending it when the
// container has none, and returns it.
arrayWorks::VectorFunction& updateNormals(FieldMasterD& field);

}  // namespace tundrel
