#include "api/markersImport.h"

#include <cstdint>

#include "api/IOdom.h"
#include "api/formats/text.h"

using arrayWorks::FileError;
namespace src = arrayWorks::source;

std::string markerFileExtension(const std::string& file) {
    const std::size_t dot = file.rfind('.');
    if (dot == std::string::npos) return {};
    return file.substr(dot + 1);
}

void importMarkers(const std::string& file, markers& set, int imageHeight) {
    try {
        const std::string ext = markerFileExtension(file);
        if (ext == "mpt") readImageMarkers(file, set, false, imageHeight);
        else if (ext == "inm") readImageMarkers(file, set, true, imageHeight);
        else if (ext == "apm") readPointMarkers(file, set);
        else if (ext == "mrk") readXmlMarkers(file, set);
    } catch (...) {
        throw FileError(src::markersImport, 24);
    }
}

namespace {

// Refills the set from the records read and sets all four flags to whether
// anything was read: an image-point file supplies z and value too (zeros).
void refill(markers& set, const markers& read) {
    set.list.clear();
    for (const marker& m : read.list) addMarker(set, m);
    const bool any = read.count() > 0;
    set.hasX = set.hasY = set.hasZ = set.hasValue = any;
}

}  // namespace

void readImageMarkers(const std::string& file, markers& set, bool flipRows, int imageHeight) {
    set.name.clear();
    set.hasX = set.hasY = true;
    set.hasZ = set.hasValue = false;
    std::string data;
    if (!tundrel::text::loadFile(file, data)) throw FileError(src::markersImport, 37);

    tundrel::text::Scanner in(data);
    markers read;
    for (std::int32_t record = 1; record < INT32_MAX; ++record) {
        double X = 0.0, Y = 0.0;
        std::int32_t i1 = 0, i2 = 0, i3 = 0;
        in.readDouble(X);
        in.readDouble(Y);
        in.readInt(i1);
        in.readInt(i2);
        in.readInt(i3);
        if (flipRows) Y = static_cast<double>(imageHeight) - Y - 1.0;
        if (in.fail()) break;
        marker m;
        m.x = X;
        m.y = Y;
        m.active = i3 != 0;
        m.number = record;
        addMarker(read, m);
    }
    refill(set, read);
}

void readPointMarkers(const std::string& file, markers& set) {
    set.name.clear();
    set.hasX = set.hasY = set.hasZ = true;
    set.hasValue = false;
    std::string data;
    if (!tundrel::text::loadFile(file, data)) throw FileError(src::markersImport, 64);

    tundrel::text::Scanner in(data);
    markers read;
    for (std::int32_t record = 1; record < INT32_MAX; ++record) {
        double X = 0.0, Y = 0.0, Z = 0.0;
        in.readDouble(X);
        in.readDouble(Y);
        in.readDouble(Z);
        if (in.fail()) break;
        marker m;
        m.x = X;
        m.y = Y;
        m.z = Z;
        m.active = true;
        m.number = record;
        addMarker(read, m);
    }
    refill(set, read);
}
