// XML marker files ("mrk"). The parser behind it (Xerces-C) stays inside the
// library: see api/detail/xml_dom.h.
#pragma once

#include <string>

#include "api/export.h"
#include "api/markers.h"

// Fills `set` from an XML marker file: "ObjectMarkers" holding "NodesNumber"
// (N) and "Function" elements with id "x", "y", "z", "f", "active", "id",
// each N tokens. A function with another count (or absent) clears its flag;
// the name of the set is left alone. Parse problems are shown by the reporter
// and end in arrayWorks::FileError.
TUNDREL_API void readXmlMarkers(const std::string& file, markers& set);
