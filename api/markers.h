// Markers: numbered points on the model surface (pressure ports or reference
// marks) with up to three coordinates, one value and an active switch, and
// the named set that a marker file fills.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "api/arrayWorks.h"
#include "api/export.h"

// One marker, stored by value in its set.
struct TUNDREL_API marker {
    double x = 0.0;      // image column for image-point files
    double y = 0.0;      // image row for image-point files
    double z = 0.0;
    double value = 0.0;  // the port's value
    bool active = false; // takes part in processing
    std::int32_t number = 0;  // 0 when added: the next free number
};

// A marker set. `name` is the field the values belong to; the four flags say
// which of x, y, z and value the file supplied.
class TUNDREL_API markers {
public:
    std::string name;
    std::vector<marker> list;
    bool hasX = false;
    bool hasY = false;
    bool hasZ = false;
    bool hasValue = false;

    int count() const noexcept { return static_cast<int>(list.size()); }

    // The i-th marker; an index outside 0..count()-1 throws IndexError.
    marker& at(int i) { return list[checked(i)]; }
    const marker& at(int i) const { return list[checked(i)]; }
    marker& operator[](int i) { return at(i); }
    const marker& operator[](int i) const { return at(i); }

private:
    std::size_t checked(int i) const {
        if (i < 0 || i >= count())
            throw arrayWorks::IndexError(arrayWorks::source::markers, 65);
        return static_cast<std::size_t>(i);
    }
};

// Appends a copy of `m` and returns the new count. A number of 0 becomes one
// more than the largest number in the set (1 for an empty set; negative
// numbers don't count); any other number is kept, duplicates included.
TUNDREL_API int addMarker(markers& set, const marker& m);
