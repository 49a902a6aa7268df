// The readers and writers of the geometry formats, as the format table holds
// them. Internal: the table in formats.h is the way in.
#pragma once

#include <functional>
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
// VTK XML: a .vts or .vtp piece from its text; a multiblock (.vtm) with its
// pieces, which `load` gives by the path the multiblock names (false: cannot
// be loaded); a file of any of the three from disk, a multiblock's pieces
// found relative to its folder.
using VtkPieceLoader = std::function<bool(const std::string& path, std::string& text)>;
bool read_vtk_text(std::string_view text, region& reg, region_fe& reg_fe);
bool read_vtk_multiblock_text(std::string_view text, const VtkPieceLoader& load, region& reg, region_fe& reg_fe);
bool read_vtk_file(const std::string& file, region& reg, region_fe& reg_fe);

bool write_apt(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific);
// Face patches are never written to FLD.
bool write_fld(const std::string& file, region& reg, int first, int last, int precision, bool scientific);
bool write_dat(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific);
bool write_vrml(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
                bool scientific);
// VTK XML by the file's extension: .vtm writes the items as pieces in a
// folder beside it (NAME.vtm, NAME/patch_N.vts|vtp, N the item number); .vts
// and .vtp take one item of their kind. ASCII with the given number format,
// or appended raw binary.
bool write_vtk(const std::string& file, region& reg, region_fe& reg_fe, int first, int last, int precision,
               bool scientific);
bool write_vtk_binary(const std::string& file, region& reg, region_fe& reg_fe, int first, int last);

// The messages shown when a file cannot be loaded.
inline constexpr const char* kAptCannotOpen = "It is impossible to open selected file";
inline constexpr const char* kFldCannotOpen = "It is impossible to open selected FLD file";
inline constexpr const char* kDatCannotOpen = "It's impossible to open DAT file";
// VRML shows the same message for a file it cannot open and for one without
// a VRML header.
inline constexpr const char* kVrmlCannotOpen = "It is impossible to open VRML or identify it's header";
inline constexpr const char* kVtkCannotOpen = "It is impossible to open the VTK file";

}  // namespace tundrel::formats
