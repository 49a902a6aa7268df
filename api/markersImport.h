// Reading marker sets from files, chosen by the file name's extension (case
// sensitive): "mpt" and "inm" image points, "apm" 3-D points, "mrk" XML.
#pragma once

#include <string>

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
