// Reading and writing the coordinates of one node of a face patch.
#include <string>

#include "api/mesh/mesh.h"
#include "api/detail/geometry_rules.h"

namespace {

// The checks both directions make. The bounds are tested with a strict
// greater-than: patch == patch count and node == node count pass here and
// meet the checked access of the containers afterwards.
FacePatch* acceptedPatch(region_fe& r, int patch, int node) {
    if (patch < 0 || patch > r.patchCount()) return nullptr;
    FacePatch& p = r.patch(patch);
    if (p.variableCount() < 3) return nullptr;
    if (p.nodes < node) return nullptr;
    return &p;
}

enum class Axis { none, x, y, z };

Axis axisOf(const NodeVariable& v) {
    static constexpr Axis kAxes[] = {Axis::x, Axis::y, Axis::z};
    const int axis = coordinateAxis(v.name);
    return axis < 0 ? Axis::none : kAxes[axis];
}

}  // namespace

int out_point_fe(region_fe& r, int patch, int node, double& x, double& y, double& z) {
    FacePatch* p = acceptedPatch(r, patch, node);
    if (p == nullptr) return -1;
    // Read into locals first: a node outside the variable throws before any
    // of the caller's doubles changes.
    double got[3] = {x, y, z};
    for (const auto& v : p->variables) {
        if (!v) continue;
        const Axis a = axisOf(*v);
        if (a != Axis::none) got[static_cast<int>(a) - 1] = v->at(node, 0);
    }
    x = got[0];
    y = got[1];
    z = got[2];
    return 0;
}

int in_point_fe(region_fe& r, int patch, int node, double& x, double& y, double& z) {
    FacePatch* p = acceptedPatch(r, patch, node);
    if (p == nullptr) return -1;
    const double given[3] = {x, y, z};
    for (const auto& v : p->variables) {
        if (!v) continue;
        const Axis a = axisOf(*v);
        if (a != Axis::none) v->at(node, 0) = given[static_cast<int>(a) - 1];
    }
    return 0;
}
