// Orientation of the faces of a face patch.
#pragma once

#include "api/export.h"
#include "api/ngeo.h"

// Turns every face of face patch `patch` the other way round, so that the
// normals the faces give flip: a face keeps its first corner and lists the
// others in reverse order ((a, b, c) becomes (a, c, b), (a, b, c, d) becomes
// (a, d, c, b)); -1 entries stay where they are. Faces with fewer than three
// corners, the nodes and the variables stay as they are. A patch number
// outside the list, or an empty slot, changes nothing.
TUNDREL_API void change_normal_fe(region_fe& reg_fe, int patch);
