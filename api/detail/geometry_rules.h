// Rules the readers, writers, mesh operations and the field transfer share:
// which variables are the coordinates, letter case, face reversal. Internal:
// never installed, never exported.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "api/geo.h"
#include "api/ngeo.h"

// Positions of the coordinate variables ("x", "y", "z" in any letter case) in
// a variable list; -1 where absent. When a name occurs twice the later wins.
struct CoordinateSlots {
    int x = -1, y = -1, z = -1;
    bool complete() const noexcept { return x >= 0 && y >= 0 && z >= 0; }
};
CoordinateSlots findCoordinates(const arrayWorks::PtrList<NodeVariable>& variables);
// The axis a variable name stands for: 0, 1, 2 for "x", "y", "z" in any
// letter case (lowered with tolower, as `lowered` does), -1 for any other name.
int coordinateAxis(std::string_view name) noexcept;
inline bool isCoordinateName(std::string_view name) noexcept { return coordinateAxis(name) >= 0; }
// Lower-cases with the C library's tolower, character by character.
std::string lowered(const std::string& text);

namespace tundrel {

// Turns one face of a four-slot face list the other way round: it keeps its
// first corner and lists the others in reverse order ((a, b, c) becomes
// (a, c, b), (a, b, c, d) becomes (a, d, c, b)); -1 slots stay where they are
// and faces of fewer than three corners stay as they are.
void reverseFace(std::int32_t* face) noexcept;
// Every face of `p` (its face count, as far as its face list reaches).
void reverseFaces(FacePatch& p) noexcept;

}  // namespace tundrel
