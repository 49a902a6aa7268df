// The pressure-port field: a new scalar function spread over the surface
// from the values of pressure ports read from a marker file.
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "api/export.h"
#include "api/field_selection.h"
#include "api/fields/core_result.h"
#include "api/markers.h"

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

// The parameters of the pressure-port field. The ports come from the marker
// set when one is given, else from the marker file (read with image height 0).
// The defaults are the dialog's on its first call; pressurePortsDefaults adds
// the name it proposes.
struct PressurePortsParameters {
    std::string newName;
    std::string markersFile = "Untitled.mrk";
    std::optional<markers> markerSet;  // used instead of the file when present
    double maxDeflexion = 0.0;         // farthest a used marker lies from the surface
    int order = 0;                     // of the approximation, 0 to 2
    bool direction = true;             // markers with two coordinates: true "Normal", false "Reverse"
};

// The first call's values with the name fieldName + "_pp".
inline PressurePortsParameters pressurePortsDefaults(const std::string& fieldName) {
    PressurePortsParameters p;
    p.newName = fieldName + "_pp";
    return p;
}

// The values pressure_ports remembers between calls while the library is
// loaded (marker file, deflexion, order, direction; the name and the set are
// not kept).
TUNDREL_API PressurePortsParameters& pressurePortsParameters();

// What became of one marker of the set in a run.
enum class PortUse {
    used,             // its value took part in the field
    inactive,         // switched off in the marker file
    notProjected,     // active, but its projection missed the surface
    beyondDeflexion,  // farther from the surface than the maximum deflexion
    noValue,          // within the deflexion, but its value is the no-value mark
};
// "used", "inactive", "not projected", "beyond deflexion", "no value".
TUNDREL_API const char* portUseName(PortUse use) noexcept;

// One marker of the set, in the set's order. Numbers that do not apply are
// NaN (the projection of a marker that missed the surface, the field's value
// of a port that was not used, the prediction before crossValidatePorts).
struct PortRecord {
    static constexpr double none = std::numeric_limits<double>::quiet_NaN();
    int number = 0;                    // the marker's own number
    double x = 0.0, y = 0.0, z = 0.0;  // as read (absent coordinates are 0)
    double px = none, py = none, pz = none;  // its projection on the surface
    double distance = none;  // from the marker to its projection
    PortUse use = PortUse::inactive;
    double value = 0.0;                // the port's reading
    double fieldValue = none;  // the new field at the projection
    double predicted = none;  // the field of the other used ports at the projection
    double predictionError = none;  // predicted - value
};

// What a run found.
struct PressurePortsFacts {
    int markers = 0;    // in the set
    int projected = 0;  // active markers that met the surface
    int used = 0;       // of those, within the maximum deflexion
    // A record per marker. Filled on success, and when the ports' values do
    // not match them ("Error 1"), to tell which ports have no value.
    std::vector<PortRecord> ports;
};
using PressurePortsResult = CoreResult<PressurePortsFacts>;

// The dialog's rules for these values, in the dialog's order (order,
// deflexion, name, file; the file only when no set is given): its message or
// an empty string.
TUNDREL_API std::string checkParameters(const PressurePortsParameters& p);

// The construction without a dialog: the parameters are checked by the
// dialog's rules, a new name that exists is refused with "The function name
// alredy exist", then checks 1 and 3 to 10 of pressure_ports run in that
// order, with `direction` for markers with two coordinates. Returns the new
// function or the message that ended the run; an unreadable marker file
// throws arrayWorks::FileError. Nothing is shown and nothing remembered.
TUNDREL_API PressurePortsResult buildPressurePorts(FieldMasterD& field, const std::string& fieldName,
                                                   const PressurePortsParameters& p);

// The interactive part of pressure_ports over `values`: the parameters
// dialog opens with them and every OK stores the typed values back, until the
// name is new (the clash shown and the dialog asked again); then the marker
// file is read and, for a set with two coordinates, the direction asked
// (stored back as well). The parameters to build with, the set read in place
// of the file; nothing on Cancel.
TUNDREL_API std::optional<PressurePortsParameters> askPressurePorts(const FieldMasterD& field,
                                                                    PressurePortsParameters& values);

// Leave-one-out check of a run's records: for each used port, the field
// built with the same order from the other used ports, evaluated at its
// projection, goes into `predicted` and `predictionError`. Where the others
// cannot carry the order (too few, or a system without solution) both stay
// NaN. Cost: one approximation per used port; progress goes to the host.
TUNDREL_API void crossValidatePorts(std::vector<PortRecord>& ports, int order);

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
