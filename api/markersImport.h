// Reading marker sets from files, chosen by the file name's extension (case
// sensitive): "mpt" and "inm" image points, "apm" 3-D points, "mrk" XML. Each
// format reads from text in memory; a file is loaded, then read as text.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "api/export.h"
#include "api/markers.h"

// Reads `file` into `set` by its extension; any other extension reads nothing
// and leaves the set alone. Every failure of a reader is thrown again as
// arrayWorks::FileError ("File error!"). `imageHeight` is used by "inm" only.
TUNDREL_API void importMarkers(const std::string& file, markers& set, int imageHeight);

// The extension as importMarkers sees it: the text after the last ".", as
// written ("" when there is no ".").
TUNDREL_API std::string markerFileExtension(const std::string& file);

// Image points, one record `X Y I1 I2 I3` (I3 nonzero: active) per marker,
// whitespace-separated. With `flipRows` ("inm") y becomes imageHeight - Y - 1.
// Numbers are the record counts from 1; name empty; all four flags true when
// something was read, all false otherwise. Throws FileError when the file
// can't be opened.
void readImageMarkers(const std::string& file, markers& set, bool flipRows, int imageHeight);

// 3-D points, one record `X Y Z` per marker, all active; otherwise as
// readImageMarkers.
void readPointMarkers(const std::string& file, markers& set);

namespace tundrel {

// One marker file format of the table importMarkers dispatches through.
struct MarkerFormat {
    std::string_view name;       // "MPT", "INM", "APM", "MRK"
    std::string_view extension;  // compared as written
    // Reads a whole file's text into `set`; `source` names the text in the
    // messages of a parse problem (the file's name). Throws the arrayWorks
    // errors.
    void (*read)(std::string_view text, markers& set, int imageHeight, const std::string& source);
    // What the reader sets in `set` before it opens its file, so also when
    // the file then cannot be opened (the text readers' name and provisional
    // flags); nullptr for nothing.
    void (*start)(markers& set);
    // Ends the read of a file that cannot be loaded: throws the format's
    // FileError (the XML reader first lets the parser report why).
    void (*cannotOpen)(const std::string& file);  // never returns
};

// "mpt", "inm", "apm", "mrk", in the order importMarkers tests them.
TUNDREL_API std::span<const MarkerFormat> markerFormats() noexcept;

// The format of an extension (case sensitive), or nullptr.
TUNDREL_API const MarkerFormat* findMarkerFormat(std::string_view extension) noexcept;

// Loads `file` and reads its text with `format`; a file that cannot be loaded
// ends in the format's cannotOpen.
TUNDREL_API void readMarkerFile(const MarkerFormat& format, const std::string& file, markers& set, int imageHeight);

}  // namespace tundrel
