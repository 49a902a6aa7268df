#include "api/mesh/normals.h"
#include "api/detail/geometry_rules.h"

void change_normal_fe(region_fe& reg_fe, int patch) {
    if (!reg_fe.patches.exists(patch)) return;
    FacePatch& p = reg_fe.patch(patch);
    tundrel::reverseFaces(p);
}
