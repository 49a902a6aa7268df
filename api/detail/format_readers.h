// The readers and writers of the geometry formats, as the format table holds
// them. Internal: the table in formats.h is the way in.
#pragma once

#include <string>
#include <string_view>

#include "api/geo.h"
#include "api/ngeo.h"

namespace tundrel::formats {

// Each reader takes a whole file's text, appends what it reads and shows the
// format's message on failure.
bool read_apt_text(std::string_view text, region& reg);
bool read_fld_text(std::string_view text, region& reg);
bool read_dat_text(std::string_view text, region& reg, region_fe& reg_fe);
bool read_vrml_text(std::string_view text, region& reg, region_fe& reg_fe);

bool write_apt(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific);
// Face patches are never written to FLD.
bool write_fld(const std::string& file, region& reg, int first, int last, int precision, bool scientific);
bool write_dat(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific);
bool write_vrml(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
                bool scientific);

// The messages shown when a file cannot be loaded.
inline constexpr const char* kAptCannotOpen = "It is impossible to open selected file";
inline constexpr const char* kFldCannotOpen = "It is impossible to open selected FLD file";
inline constexpr const char* kDatCannotOpen = "It's impossible to open DAT file";
// VRML shows the same message for a file it cannot open and for one without
// a VRML header.
inline constexpr const char* kVrmlCannotOpen = "It is impossible to open VRML or identify it's header";

}  // namespace tundrel::formats
