// File exchange: the dispatch by extension and the readers and writers of the
// four geometry formats. Readers append to the caller's objects; writers write
// the export items first..last (the region's patches, then the face patches of
// the region_fe). Every failure is shown through the host and gives false.
#pragma once

#include <string>

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

TUNDREL_API bool read_apt(const std::string& file, region& reg);
TUNDREL_API bool write_apt(const std::string& file, region& reg, region_fe& reg_fe, int first, int last,
                           int precision, bool scientific);

// FLD: a titled list of structured patches with extra variables and the flow
// conditions; face patches are not written.
TUNDREL_API bool read_fld(const std::string& file, region& reg);
TUNDREL_API bool write_fld(const std::string& file, region& reg, int first, int last, int precision, bool scientific);

// DAT (Tecplot ASCII): ordered zones go to and come from `reg`, finite-element
// zones of triangles (quadrilaterals are split on reading) `reg_fe`.
TUNDREL_API bool read_dat(const std::string& file, region& reg, region_fe& reg_fe);
TUNDREL_API bool write_dat(const std::string& file, region& reg, region_fe& reg_fe, int first, int last,
                           int precision, bool scientific);

// VRML: reads the IndexedFaceSets of a VRML 1.0 or 2.0 file into face patches
// of `reg_fe` ("PatchVRML_" and the patch's position); writes items as one
// VRML 2.0 world, structured patches cut into triangles.
TUNDREL_API bool read_vrml(const std::string& file, region& reg, region_fe& reg_fe);
TUNDREL_API bool write_vrml(const std::string& file, region& reg, region_fe& reg_fe, int first, int last,
                            int precision, bool scientific);
