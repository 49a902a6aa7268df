// Fields on geometry: the exported operations on the field container.
#pragma once

#include <string>

#include "api/export.h"
#include "api/field_selection.h"
#include "api/geo.h"
#include "api/ngeo.h"
#include "api/zvec.h"

// Moves geometry with its node values into the container: one block per
// structured patch, then one per face patch; node positions from "x", "y",
// "z"; one scalar function per other variable name; the normals "$_N"; the
// selection "$_selection" with nothing selected; the flow conditions into
// `flow`.
TUNDREL_API void Region_to_fieldMaster(region reg, region_fe reg_fe, FieldMasterD& field, z::ambientFlow& flow);

// Back to geometry: nothing when the container has no block; otherwise both
// patch lists are emptied and every block becomes a patch "Patch_N" with "x",
// "y", "z" and one variable per function whose name does not begin with "$_".
TUNDREL_API void fieldMaster_to_Region(FieldMasterD& field, z::ambientFlow flow, region& reg, region_fe& reg_fe);

// Show "Not available" and change nothing.
TUNDREL_API void convert(FieldMasterD& field);
TUNDREL_API void IR_camera(FieldMasterD& field);
TUNDREL_API void temperature_gages(FieldMasterD& field);

namespace tundrel {

// True when no function of the container is named exactly `name` (letter
// case counts); otherwise shows "The function name alredy exist" and gives
// false, and the operation that wanted to add the function asks again.
bool acceptNewFunctionName(const FieldMasterD& field, const std::string& name);

}  // namespace tundrel
