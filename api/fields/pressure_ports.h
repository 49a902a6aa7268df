// The pressure-port field: a new scalar function spread over the surface
// from the values of pressure ports read from a marker file.
#pragma once

#include <string>

#include "api/export.h"
#include "api/field_selection.h"

// Asks in "Pressure ports parameters" for the order of the approximation
// (0 to 2), the maximum deflexion of the markers from the surface, the new
// field's name (proposed: fieldName + "_pp") and the marker file; a name that
// exists is refused with "The function name alredy exist" and the dialog
// asked again; Cancel changes nothing. The file, deflexion and order
// confirmed are remembered for the next call.
//
// Then, each failure shown as a message and ending the call with nothing
// added:
//  1. the marker file is read (image height 0); an unreadable one throws
//     arrayWorks::FileError out of the call;
//  2. a set with exactly two of x, y, z asks for the projection direction in
//     "Active axes for the markers" (remembered; Cancel ends silently);
//  3. no values: "Function is absent in the markers file";
//  4. no coordinate at all: "Two or three markers koordinates are absent in
//     the markers file";
//  5. the set's function name differs from fieldName: "Function name of the
//     markers is not coincide with field name" (the marker readers leave the
//     name empty, so only an empty fieldName goes on);
//  6. the active markers are projected onto the surface (see projection.h);
//     when every one of them lies farther from its projection than the
//     maximum deflexion (squares compared): "Deflextion has small value";
//  7. markers farther than the maximum deflexion are not used;
//  8. none used: "Are not projection of the markers on the geometry";
//  9. the approximation of the used ports' values at their projections (see
//     approximation.h) with the chosen order: a used port whose value is the
//     no-value mark (below -9.9e9) leaves the values one short of the ports,
//     and counts that do not match give "Error 1"; a system without solution
//     "Error 2";
// 10. the approximation at every node becomes the new scalar function, after
//     the others; nodes whose value in the field named fieldName (when there
//     is a scalar one) is below -9.9e9 keep -1e10.
TUNDREL_API void pressure_ports(FieldMasterD& field, std::string& fieldName);

namespace tundrel {

// The values kept between calls while the library is loaded.
struct PressurePortsParameters {
    std::string markersFile = "Untitled.mrk";
    double maxDeflexion = 0.0;
    int order = 0;
    bool direction = true;  // "Normal"
};
TUNDREL_API PressurePortsParameters& pressurePortsParameters();

namespace pressure_ports_messages {
inline constexpr const char* kNoFunction = "Function is absent in the markers file";
inline constexpr const char* kNoCoordinates = "Two or three markers koordinates are absent in the markers file";
inline constexpr const char* kNameDiffers = "Function name of the markers is not coincide with field name";
inline constexpr const char* kSmallDeflexion = "Deflextion has small value";
inline constexpr const char* kNoProjection = "Are not projection of the markers on the geometry";
inline constexpr const char* kSizes = "Error 1";
inline constexpr const char* kUnsolvable = "Error 2";
}  // namespace pressure_ports_messages

}  // namespace tundrel
