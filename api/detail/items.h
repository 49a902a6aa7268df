// The export items of a writer: the region's patches, then the face patches.
#pragma once

#include "api/host.h"

namespace tundrel {

// Shows `message` and returns false unless first..last is a non-empty range
// of the `items` export items.
inline bool checkItemRange(int first, int last, int items, const char* message) {
    if (first < 0 || first > last || last >= items) {
        showMessage(message);
        return false;
    }
    return true;
}

}  // namespace tundrel
