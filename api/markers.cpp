#include "api/markers.h"

#include <algorithm>

int addMarker(markers& set, const marker& m) {
    marker copy = m;
    if (copy.number == 0) {
        std::int32_t largest = 0;
        for (const marker& other : set.list) largest = std::max(largest, other.number);
        copy.number = largest + 1;
    }
    set.list.push_back(copy);
    return set.count();
}
