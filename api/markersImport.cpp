#include "api/markersImport.h"

#include <cstdint>

#include "api/detail/xml_dom.h"
#include "api/detail/text.h"

using arrayWorks::FileError;
namespace src = arrayWorks::source;

namespace {

// Refills the set from the records read and sets all four flags to whether
// anything was read: an image-point file supplies z and value too (zeros).
void refill(markers& set, const markers& read) {
    set.list.clear();
    for (const marker& m : read.list) addMarker(set, m);
    const bool any = read.count() > 0;
    set.hasX = set.hasY = set.hasZ = set.hasValue = any;
}

void startImage(markers& set) {
    set.name.clear();
    set.hasX = set.hasY = true;
    set.hasZ = set.hasValue = false;
}

void startPoints(markers& set) {
    set.name.clear();
    set.hasX = set.hasY = set.hasZ = true;
    set.hasValue = false;
}

void readImageText(std::string_view text, markers& set, bool flipRows, int imageHeight) {
    startImage(set);
    tundrel::text::Scanner in(tundrel::text::withoutByteOrderMark(text));
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

void readPointText(std::string_view text, markers& set) {
    startPoints(set);
    tundrel::text::Scanner in(tundrel::text::withoutByteOrderMark(text));
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

[[noreturn]] void imageFileUnreadable(const std::string&) { throw FileError(src::markersImport, 37); }
[[noreturn]] void pointFileUnreadable(const std::string&) { throw FileError(src::markersImport, 64); }

const tundrel::MarkerFormat kFormats[] = {
    {"MPT", "mpt", [](std::string_view t, markers& s, int h, const std::string&) { readImageText(t, s, false, h); },
     startImage, imageFileUnreadable},
    {"INM", "inm", [](std::string_view t, markers& s, int h, const std::string&) { readImageText(t, s, true, h); },
     startImage, imageFileUnreadable},
    {"APM", "apm", [](std::string_view t, markers& s, int, const std::string&) { readPointText(t, s); },
     startPoints, pointFileUnreadable},
    {"MRK", "mrk", [](std::string_view t, markers& s, int, const std::string& f) { readXmlMarkersText(t, f, s); },
     nullptr, xmlMarkerFileUnreadable},
};

}  // namespace

namespace tundrel {

std::span<const MarkerFormat> markerFormats() noexcept { return kFormats; }

const MarkerFormat* findMarkerFormat(std::string_view extension) noexcept {
    for (const MarkerFormat& f : kFormats)
        if (f.extension == extension) return &f;
    return nullptr;
}

void readMarkerFile(const MarkerFormat& format, const std::string& file, markers& set, int imageHeight) {
    if (format.start != nullptr) format.start(set);
    std::string text;
    if (!text::loadFile(file, text)) format.cannotOpen(file);
    format.read(text, set, imageHeight, file);
}

}  // namespace tundrel

std::string markerFileExtension(const std::string& file) {
    const std::size_t dot = file.rfind('.');
    if (dot == std::string::npos) return {};
    return file.substr(dot + 1);
}

void importMarkers(const std::string& file, markers& set, int imageHeight) {
    try {
        if (const tundrel::MarkerFormat* format = tundrel::findMarkerFormat(markerFileExtension(file)))
            tundrel::readMarkerFile(*format, file, set, imageHeight);
    } catch (...) {
        throw FileError(src::markersImport, 24);
    }
}

void readImageMarkers(const std::string& file, markers& set, bool flipRows, int imageHeight) {
    tundrel::readMarkerFile(*tundrel::findMarkerFormat(flipRows ? "inm" : "mpt"), file, set, imageHeight);
}

void readPointMarkers(const std::string& file, markers& set) {
    tundrel::readMarkerFile(*tundrel::findMarkerFormat("apm"), file, set, 0);
}
