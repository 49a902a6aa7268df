// Mesh editing: structured patches to face patches, cutting faces out into a
// new patch, copying patches through a buffer region_fe, merging, the mirror
// copy of a patch, refinement by edge midpoints, and node coordinate access.
//
// Patches are held by shared pointers: the copies these operations make are
// real (deep) copies, and a patch that drops out of every list is released.
// Checked accesses on the way (patch and variable positions, node numbers)
// throw the arrayWorks errors; no operation here writes to a terminal.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "api/export.h"
#include "api/geo.h"
#include "api/ngeo.h"

// Triangulates every structured patch of `src` that is at least 2 x 2 into a
// face patch appended to `dst`, named "Patch___" and the patch's position in
// `src` (narrower patches are skipped but still use up their number). Each
// grid cell (i, j) with c = i + I*j gives (c, c+1, c+I) and (c+I, c+1, c+I+1),
// i in the outer loop. The variables of the first patch decide how many are
// carried over and must contain "x", "y", "z" (any letter case): otherwise the
// message "Error in Header. No predefined variables X or Y or Z are found" is
// shown and the result is false. An empty `src`, or a first patch with fewer
// than three variables, gives true and changes nothing.
TUNDREL_API bool converter_reg_to_reg_fe(region& src, region_fe& dst);

// Cuts the faces `faces` of patch `k` out into a new compact patch appended to
// `r` and named "PatchVRML_" and its number. The new patch holds the first
// three variables of patch k (the coordinates) on the distinct nodes of those
// faces, in ascending order of their old numbers.
TUNDREL_API void Add_to_regionFe(region_fe& r, int k, std::vector<int> faces);

// Appends a deep copy of patch k of `src` to `buf`; nothing for an invalid k.
TUNDREL_API void AddBlock_to_buf(region_fe& src, region_fe& buf, int k);

// Replaces the patches of `buf` by deep copies of those of `src` and takes
// over its name and flow conditions; an empty `src` leaves `buf` as it is.
// Always true.
TUNDREL_API bool copy_reg_fe_to_buf(region_fe& src, region_fe& buf);

// Joins patch b into patch a: b's nodes follow a's, b's faces follow a's with
// their node numbers shifted. Patches without faces are dropped. False (and
// nothing changed) when a or b is negative, a == b, or patch b has no face;
// patch numbers at or above the patch count change nothing and give true.
TUNDREL_API bool merge_in_reg_fe(region_fe& r, int a, int b);

// Appends a patch with the faces of patch k, named as k with "_simm", holding
// variables named as k's first three (the coordinates), all zero. Returns the
// new patch count.
TUNDREL_API int add_patch_fe(region_fe& r, int k);

// Appends to `buf` patch k of `src` with every triangle split in four at its
// edge midpoints, and gives `buf` the name and flow conditions of `src`. An
// edge shared by two triangles gets one midpoint, whichever direction each
// runs it in. Nothing for an invalid k.
TUNDREL_API void faces_increase_in_buff(region_fe src, region_fe& buf, int k);

// Refines in place every patch of `r` whose number is among list[0..n-1];
// nothing when n < 1, n is above the patch count or `r` is empty.
TUNDREL_API void block_fe_compress(region_fe& r, int n, int* list);

// Reads the coordinates of node `node` of patch `patch`. 0 on success, -1 when
// refused: patch < 0 or above the patch count, fewer than three variables, or
// node above the node count. The bounds themselves pass these tests (callers
// keep patch and node below the counts) and end in the containers' checked
// access.
TUNDREL_API int out_point_fe(region_fe& r, int patch, int node, double& x, double& y, double& z);
// Writes the coordinates of a node; the same checks and results.
TUNDREL_API int in_point_fe(region_fe& r, int patch, int node, double& x, double& y, double& z);

namespace tundrel::mesh {

// How the refinement finds an edge it split before.
enum class EdgeSearch {
    hashed,  // a hash table on the node pair: linear in the number of faces
    linear,  // a scan of every split edge: the plain reference version
};

// Patch p with every triangle split in four at its edge midpoints: name and
// variables of p, p's nodes followed by the midpoints in the order they were
// made (the edges of each triangle taken as (P0,P1), (P1,P2), (P2,P0)), and
// the faces (P0,M0,M2), (M0,P1,M1), (M1,P2,M2), (M0,M1,M2) for each triangle.
// Throws IndexError for a face whose first three entries are not nodes of p.
std::shared_ptr<FacePatch> refinedPatch(const FacePatch& p, EdgeSearch search = EdgeSearch::hashed);

// A deep copy of p holding its first `variables` variables.
std::shared_ptr<FacePatch> deepCopy(const FacePatch& p, int variables);

// The plane a mirror copy reflects in.
enum class MirrorPlane { xy, yz, xz };

// Appends the mirror image of patch k (add_patch_fe, then the coordinates of
// k with the one across the plane negated: z for xy, x for yz, y for xz) with
// every face turned round as change_normal_fe turns it ((a, b, c) becomes
// (a, c, b), a quad (a, b, c, d) becomes (a, d, c, b)), so that a closed half
// model and its image both keep outward normals. Returns the new patch count, or -1 when the new patch
// lacks one of "x", "y", "z" (nothing is appended then).
TUNDREL_API int mirrorPatch(region_fe& r, int k, MirrorPlane plane);

// Turns every structured patch of `reg` that can be triangulated (2 x 2 nodes
// at least) into a face patch appended to `fe` (converter_reg_to_reg_fe);
// the narrower ones stay structured. When `fe` had no patches it takes the
// model's title and flow conditions. False when the conversion fails; true,
// with nothing changed, when no patch can be triangulated.
TUNDREL_API bool triangulateModel(region& reg, region_fe& fe);

// Gives patch `to` (the mirror image of `from`, or any patch with the same
// nodes) every variable of `from` it lacks, with from's values node by node,
// appended in from's order; the variables `to` has keep their values. So an
// image made by mirrorPatch carries the fields of its source (scalars: the
// same value at the mirrored node). Throws IndexError when the node counts
// differ.
TUNDREL_API void carryVariables(const FacePatch& from, FacePatch& to);

}  // namespace tundrel::mesh
