// File exchange: the dispatch by extension and the table of geometry formats
// it goes through. Readers append to the caller's objects; writers write the
// export items first..last (the region's patches, then the face patches of
// the region_fe). Every failure is shown through the host and gives false.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "api/export.h"
#include "api/geo.h"
#include "api/ngeo.h"

// Reads `file` by its extension ("apt", "fld", "dat", "wrl", any letter case)
// into `reg` / `reg_fe`; with `transpose` set and a successful read, every
// patch of `reg` is transposed. An unknown extension gives false, silently.
TUNDREL_API bool import_data(const std::string& file, bool transpose, region& reg, region_fe& reg_fe);

// Writes every patch of `reg` and (except for FLD) every face patch of
// `reg_fe` to `file`, or, with `split`, each to its own file name_N.ext.
// `precision` and `scientific` set the number format. An unknown extension
// gives false, silently.
TUNDREL_API bool export_data(const std::string& file, int precision, bool split, bool scientific, region& reg,
                             region_fe& reg_fe);

// The lowered text after the last "." of `name`, or "" when there is none or
// it is the last character.
TUNDREL_API std::string file_extension(const std::string& name);

// A new patch with the first and second directions exchanged.
TUNDREL_API std::shared_ptr<StructPatch> transpose_patch(const StructPatch& p);

namespace tundrel {

// What a file of a format keeps of a model beyond its geometry, so that a
// front end can say what a conversion loses. A format that does not describe
// itself keeps everything.
struct GeometryFormatHolds {
    bool fields = true;         // variables other than x, y, z
    bool title = true;
    bool flow = true;           // Mach, alpha, beta
    bool flowNeedsMach = false; // the flow conditions are written only when Mach > 0
    bool noValue = true;        // false: no-value nodes are written as 0
    bool mixedVariables = false;  // items of one file may carry different variables
};

// One geometry format of the table import_data and export_data dispatch
// through.
struct GeometryFormat {
    std::string_view name;                          // "APT", "FLD", "DAT", "VRML", "VTK"
    std::span<const std::string_view> extensions;   // lower case, without the dot
    bool structuredPatches;                         // reads and writes region patches
    bool facePatches;                               // reads and writes region_fe face patches
    // Reads a whole file's text: appends to `reg` / `reg_fe`, or shows the
    // format's message and gives false (what was appended before stays).
    bool (*read)(std::string_view text, region& reg, region_fe& reg_fe);
    // Shown when the file cannot be loaded (missing, not a regular file,
    // unreadable, too large for memory).
    const char* cannotOpen;
    // Writes the export items first..last to `file` (FLD: patches only).
    bool (*write)(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
                  bool scientific);
    // Reads a file that names other files (VTK's multiblock lists its
    // pieces); nullptr where `read` of the file's text is the whole read.
    bool (*readFile)(const std::string& file, region& reg, region_fe& reg_fe);
    // Writes the export items first..last with binary data; nullptr for a
    // format that is text only.
    bool (*writeBinary)(const std::string& file, region& reg, region_fe& reg_fe, int first, int last);
    GeometryFormatHolds holds{};
};

// How exportGeometry writes: the number format of text, one file per item,
// binary data where the format has them.
struct GeometryWriteOptions {
    int precision = 6;
    bool scientific = false;
    bool split = false;
    bool binary = false;
};

// The geometry formats, in the order the dispatch tests them: APT, FLD, DAT,
// VRML, VTK (vtm, vts, vtp).
TUNDREL_API std::span<const GeometryFormat> geometryFormats() noexcept;

// The format of a lowered extension ("wrl"), or nullptr.
TUNDREL_API const GeometryFormat* findGeometryFormat(std::string_view extension) noexcept;

// Loads `file` and reads its text with `format`; a file that cannot be
// loaded shows the format's cannotOpen message and gives false.
TUNDREL_API bool readGeometryFile(const GeometryFormat& format, const std::string& file, region& reg,
                                  region_fe& reg_fe);

// export_data with binary data for the formats that have them (a text-only
// format writes text): the same items, file names and result.
TUNDREL_API bool exportGeometry(const std::string& file, const GeometryWriteOptions& options, region& reg,
                                region_fe& reg_fe);

}  // namespace tundrel
