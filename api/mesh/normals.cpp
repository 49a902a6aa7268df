#include "api/mesh/normals.h"

#include <algorithm>

void change_normal_fe(region_fe& reg_fe, int patch) {
    if (!reg_fe.patches.exists(patch)) return;
    FacePatch& p = reg_fe.patch(patch);
    const std::size_t faces = std::min(static_cast<std::size_t>(std::max(p.faces, 0)), p.faceIndex.size() / 4);
    for (std::size_t f = 0; f < faces; ++f) {
        std::int32_t* face = p.faceIndex.data() + 4 * f;
        // The slots that hold a corner, in order.
        int slot[4];
        int corners = 0;
        for (int k = 0; k < 4; ++k)
            if (face[k] != -1) slot[corners++] = k;
        if (corners < 3) continue;
        for (int lo = 1, hi = corners - 1; lo < hi; ++lo, --hi) std::swap(face[slot[lo]], face[slot[hi]]);
    }
}
