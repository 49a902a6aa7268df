// Shared pieces of the fuzz targets: a host that keeps the messages, the
// readers over the input's bytes as text, and the checks every read must
// pass. A failed check aborts, which the fuzzer and the replay report.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "api/TundrelApi.h"

namespace fuzzutil {

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Installed once: messages are kept (and dropped), dialogs cancelled.
inline tundrel::ScriptedHost& quietHost() {
    static tundrel::ScriptedHost host;
    static tundrel::HostScope scope(host);
    host.messages.clear();
    return host;
}

inline void check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "check failed: %s\n", what);
    std::abort();
}

// Reads the input with the geometry format of `extension` and checks the
// model's invariants, whatever the result; a failed read shows exactly one
// of the format's messages.
inline void readGeometry(const std::uint8_t* data, std::size_t size, std::string_view extension) {
    tundrel::ScriptedHost& host = quietHost();
    const tundrel::GeometryFormat* format = tundrel::findGeometryFormat(extension);
    check(format != nullptr, "a geometry format");
    region reg;
    region_fe fe;
    const bool ok = format->read(text(data, size), reg, fe);
    const std::string broken = tundrel::validate(reg, fe);
    if (!broken.empty()) std::fprintf(stderr, "%s\n", broken.c_str());
    check(broken.empty(), "the model's invariants");
    check(ok ? host.messages.empty() : host.messages.size() == 1, "one message for a failed read, none else");
}

// Reads the input with the marker format of `extension`; false when the
// reader threw one of the library's errors.
inline bool readMarkers(const std::uint8_t* data, std::size_t size, std::string_view extension, markers& set,
                        int imageHeight) {
    const tundrel::MarkerFormat* format = tundrel::findMarkerFormat(extension);
    check(format != nullptr, "a marker format");
    try {
        format->read(text(data, size), set, imageHeight, "input");
    } catch (const arrayWorks::GenericError&) {
        return false;
    }
    return true;
}

// What a text marker reader leaves: records numbered 1, 2, ... in file
// order, an empty name, all four flags set exactly when something was read,
// and no more records than the text can hold (each at least `recordBytes`
// characters with its separators).
inline void checkTextMarkers(const markers& set, std::size_t size, std::size_t recordBytes) {
    check(set.name.empty(), "an empty name");
    const bool any = set.count() > 0;
    check(set.hasX == any && set.hasY == any && set.hasZ == any && set.hasValue == any, "the four flags");
    check(static_cast<std::size_t>(set.count()) <= size / recordBytes + 1, "records within the text");
    for (int i = 0; i < set.count(); ++i)
        check(set.list[static_cast<std::size_t>(i)].number == i + 1, "numbers from 1 in file order");
}

}  // namespace fuzzutil
