#include "api/fields/pressure_ports.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "api/fields/approximation.h"
#include "api/fields/fields.h"
#include "api/fields/projection.h"
#include "api/fields/surface.h"
#include "api/fields/surface_bvh.h"
#include "api/host.h"
#include "api/markersImport.h"
#include "dialogs/dialogs.h"

namespace tundrel {

PressurePortsParameters& pressurePortsParameters() {
    static PressurePortsParameters remembered;
    return remembered;
}

namespace {

namespace msg = pressure_ports_messages;

// Values below this are the no-value mark.
constexpr double kNoValueBelow = -9.9e9;

// Steps 6 to 10: the message of a failure, or nothing when the function was
// added.
const char* buildField(FieldMasterD& field, const std::string& fieldName, const std::string& newName,
                       const markers& set, const PressurePortsParameters& p) {
    const Surface surface(field);
    const SurfaceBvh bvh(surface);
    const std::vector<MarkerProjection> projected = projectMarkers(set, surface, bvh, p.direction);

    // Squares compared, so the sign of the deflexion does not matter.
    const double allowed2 = p.maxDeflexion * p.maxDeflexion;
    if (!projected.empty()) {
        double nearest2 = std::numeric_limits<double>::infinity();
        for (const MarkerProjection& m : projected) nearest2 = std::min(nearest2, m.distance * m.distance);
        if (allowed2 < nearest2) return msg::kSmallDeflexion;
    }

    std::vector<z::zVec<double>> ports;
    std::vector<double> values;
    for (const MarkerProjection& m : projected) {
        if (m.distance * m.distance > allowed2) continue;
        ports.emplace_back(m.x, m.y, m.z);
        const double v = set[m.marker].value;
        if (!(v < kNoValueBelow)) values.push_back(v);
    }
    if (ports.empty()) return msg::kNoProjection;

    PortApproximation approximation;
    switch (approximation.build(ports, values, p.order)) {
        case ApproximationStatus::SizesDiffer: return msg::kSizes;
        case ApproximationStatus::Unsolvable: return msg::kUnsolvable;
        case ApproximationStatus::Solved: break;
    }

    const std::size_t n = surface.nodeCount();
    std::vector<double> result(n);
    approximation.evaluate(surface.x.data(), surface.y.data(), surface.z.data(), n, result.data());
    if (const auto* current = field.functionNamed<double>(fieldName); current != nullptr && current->size() == n)
        for (std::size_t k = 0; k < n; ++k)
            if (current->data()[k] < kNoValueBelow) result[k] = arrayWorks::kNoValue;

    arrayWorks::ScalarFunction& added = field.addScalar(newName, arrayWorks::kNoValue);
    std::copy(result.begin(), result.end(), added.data());
    return nullptr;
}

// The construction after the dialog, checks in order.
void construct(FieldMasterD& field, const std::string& fieldName, const std::string& newName,
               PressurePortsParameters& p) {
    markers set;
    importMarkers(p.markersFile, set, 0);
    const int coordinates = int{set.hasX} + int{set.hasY} + int{set.hasZ};
    if (coordinates == 2 && !chooseActiveAxes(set.hasX, set.hasY, set.hasZ, p.direction)) return;
    if (!set.hasValue) return showMessage(msg::kNoFunction);
    if (coordinates == 0) return showMessage(msg::kNoCoordinates);
    if (set.name != fieldName) return showMessage(msg::kNameDiffers);
    if (const char* failure = buildField(field, fieldName, newName, set, p)) showMessage(failure);
}

}  // namespace

}  // namespace tundrel

void pressure_ports(FieldMasterD& field, std::string& fieldName) {
    tundrel::BusyScope busy;  // the dialogs take the wait cursor off while they are open
    tundrel::PressurePortsParameters& p = tundrel::pressurePortsParameters();
    tundrel::PressurePortsDialog dialog;
    dialog.newFieldName = fieldName + "_pp";
    dialog.markersFile = p.markersFile;
    dialog.maxDeflexion = p.maxDeflexion;
    dialog.order = p.order;
    do {
        if (!tundrel::runDialog(dialog)) return;
        p.markersFile = dialog.markersFile;
        p.maxDeflexion = dialog.maxDeflexion;
        p.order = dialog.order;
    } while (!tundrel::acceptNewFunctionName(field, dialog.newFieldName));
    tundrel::construct(field, fieldName, dialog.newFieldName, p);
}
