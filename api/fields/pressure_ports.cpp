#include "api/fields/pressure_ports.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "api/detail/approximation.h"
#include "api/fields/fields.h"
#include "api/detail/projection.h"
#include "api/fields/surface.h"
#include "api/detail/surface_bvh.h"
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
constexpr double kNoValueBelow = tundrel::kNoValueBelow;

// Progress of the construction: the projection and the solution are a step
// each, then the nodes; every step may end the run.
class PortsProgress {
public:
    explicit PortsProgress(std::size_t nodes) : total_(static_cast<std::int64_t>(nodes) + 2) {}
    bool stop(std::int64_t done) { return progressStep(done, total_); }
    // Evaluates the approximation at every node, in slices of at least
    // kSlice nodes; false when asked to stop between two slices.
    bool evaluate(const PortApproximation& a, const Surface& s, double* out) {
        const std::size_t n = s.nodeCount();
        const std::size_t slice = std::max<std::size_t>(kSlice, n / 50);
        for (std::size_t k = 0; k < n; k += slice) {
            const std::size_t m = std::min(slice, n - k);
            a.evaluate(s.x.data() + k, s.y.data() + k, s.z.data() + k, m, out + k);
            if (stop(static_cast<std::int64_t>(k + m) + 2)) return false;
        }
        return true;
    }

private:
    static constexpr std::size_t kSlice = 4096;
    std::int64_t total_;
};
// A record per marker, before projection: inactive ones stay so, active ones
// start as not projected.
std::vector<PortRecord> portRecords(const markers& set) {
    std::vector<PortRecord> records(static_cast<std::size_t>(set.count()));
    for (int i = 0; i < set.count(); ++i) {
        const marker& m = set[i];
        PortRecord& r = records[static_cast<std::size_t>(i)];
        r.number = m.number;
        r.x = m.x;
        r.y = m.y;
        r.z = m.z;
        r.value = m.value;
        r.use = m.active ? PortUse::notProjected : PortUse::inactive;
    }
    return records;
}

// Steps 6 to 10: the new function, or the message of a failure.
PressurePortsResult buildField(FieldMasterD& field, const std::string& fieldName, const std::string& newName,
                               const markers& set, const PressurePortsParameters& p) {
    PressurePortsResult r;
    r.facts.markers = set.count();
    std::vector<PortRecord> records = portRecords(set);
    const Surface surface(field);
    PortsProgress progress(surface.nodeCount());
    if (progress.stop(0)) return PressurePortsResult::stoppedEarly();
    const SurfaceBvh bvh(surface);
    const std::vector<MarkerProjection> projected = projectMarkers(set, surface, bvh, p.direction);
    if (progress.stop(1)) return PressurePortsResult::stoppedEarly();

    // Squares compared, so the sign of the deflexion does not matter.
    const double allowed2 = p.maxDeflexion * p.maxDeflexion;
    r.facts.projected = static_cast<int>(projected.size());
    if (!projected.empty()) {
        double nearest2 = std::numeric_limits<double>::infinity();
        for (const MarkerProjection& m : projected) nearest2 = std::min(nearest2, m.distance * m.distance);
        if (allowed2 < nearest2) return PressurePortsResult::refused(msg::kSmallDeflexion);
    }

    std::vector<z::zVec<double>> ports;
    std::vector<double> values;
    std::vector<std::size_t> usedRecords;
    for (const MarkerProjection& m : projected) {
        PortRecord& record = records[static_cast<std::size_t>(m.marker)];
        record.px = m.x;
        record.py = m.y;
        record.pz = m.z;
        record.distance = m.distance;
        record.use = PortUse::beyondDeflexion;
        if (m.distance * m.distance > allowed2) continue;
        ports.emplace_back(m.x, m.y, m.z);
        const double v = set[m.marker].value;
        record.use = v < kNoValueBelow ? PortUse::noValue : PortUse::used;
        if (!(v < kNoValueBelow)) values.push_back(v);
        usedRecords.push_back(static_cast<std::size_t>(m.marker));
    }
    if (ports.empty()) return PressurePortsResult::refused(msg::kNoProjection);
    r.facts.used = static_cast<int>(ports.size());

    PortApproximation approximation;
    switch (approximation.build(ports, values, p.order)) {
        case ApproximationStatus::SizesDiffer: {
            PressurePortsResult refused = PressurePortsResult::refused(msg::kSizes);
            refused.facts = std::move(r.facts);
            refused.facts.ports = std::move(records);
            return refused;
        }
        case ApproximationStatus::Unsolvable: return PressurePortsResult::refused(msg::kUnsolvable);
        case ApproximationStatus::Solved: break;
    }
    if (progress.stop(2)) return PressurePortsResult::stoppedEarly();
    for (std::size_t k : usedRecords) {
        PortRecord& record = records[k];
        record.fieldValue = approximation(z::zVec<double>(record.px, record.py, record.pz));
    }

    const std::size_t n = surface.nodeCount();
    std::vector<double> result(n);
    if (!progress.evaluate(approximation, surface, result.data())) return PressurePortsResult::stoppedEarly();
    if (const auto* current = field.functionNamed<double>(fieldName); current != nullptr && current->size() == n)
        for (std::size_t k = 0; k < n; ++k)
            if (current->data()[k] < kNoValueBelow) result[k] = arrayWorks::kNoValue;

    arrayWorks::ScalarFunction& added = field.addScalar(newName, arrayWorks::kNoValue);
    std::copy(result.begin(), result.end(), added.data());
    r.function = &added;
    r.facts.ports = std::move(records);
    return r;
}

// Checks 3 to 10 over a marker set that was read (check 1) and, with two
// coordinates, given its direction (check 2).
PressurePortsResult construct(FieldMasterD& field, const std::string& fieldName, const markers& set,
                              const PressurePortsParameters& p) {
    const int coordinates = int{set.hasX} + int{set.hasY} + int{set.hasZ};
    if (!set.hasValue) return PressurePortsResult::refused(msg::kNoFunction);
    if (coordinates == 0) return PressurePortsResult::refused(msg::kNoCoordinates);
    if (set.name != fieldName) return PressurePortsResult::refused(msg::kNameDiffers);
    return buildField(field, fieldName, p.newName, set, p);
}

}  // namespace

const char* portUseName(PortUse use) noexcept {
    switch (use) {
        case PortUse::used: return "used";
        case PortUse::inactive: return "inactive";
        case PortUse::notProjected: return "not projected";
        case PortUse::beyondDeflexion: return "beyond deflexion";
        case PortUse::noValue: return "no value";
    }
    return "";
}

void crossValidatePorts(std::vector<PortRecord>& ports, int order) {
    std::vector<std::size_t> used;
    for (std::size_t k = 0; k < ports.size(); ++k)
        if (ports[k].use == PortUse::used) used.push_back(k);
    std::vector<z::zVec<double>> points;
    std::vector<double> values;
    const auto total = static_cast<std::int64_t>(used.size());
    std::int64_t done = 0;
    for (std::size_t left : used) {
        host().progress(done++, total);
        points.clear();
        values.clear();
        for (std::size_t k : used)
            if (k != left) {
                points.emplace_back(ports[k].px, ports[k].py, ports[k].pz);
                values.push_back(ports[k].value);
            }
        PortRecord& record = ports[left];
        PortApproximation others;
        if (points.empty() || others.build(points, values, order) != ApproximationStatus::Solved) {
            record.predicted = record.predictionError = PortRecord::none;
            continue;
        }
        record.predicted = others(z::zVec<double>(record.px, record.py, record.pz));
        record.predictionError = record.predicted - record.value;
    }
    host().progress(total, total);
}

std::string checkParameters(const PressurePortsParameters& p) {
    using D = PressurePortsDialog;
    constexpr int id = kPressurePortsDialog;
    for (std::string m : {intRefusal(id, D::kOrder, p.order), numberRefusal(id, D::kMaxDeflexion, p.maxDeflexion),
                          textRefusal(id, D::kNewFieldName, p.newName),
                          p.markerSet ? std::string() : textRefusal(id, D::kMarkersFile, p.markersFile)})
        if (!m.empty()) return m;
    return {};
}

PressurePortsResult buildPressurePorts(FieldMasterD& field, const std::string& fieldName,
                                       const PressurePortsParameters& p) {
    if (std::string m = checkParameters(p); !m.empty()) return PressurePortsResult::refused(std::move(m));
    if (field.findFunction(p.newName) >= 0) return PressurePortsResult::refused(arrayWorks::kDuplicateNameMessage);
    if (p.markerSet) return construct(field, fieldName, *p.markerSet, p);
    markers set;
    importMarkers(p.markersFile, set, 0);
    return construct(field, fieldName, set, p);
}

std::optional<PressurePortsParameters> askPressurePorts(const FieldMasterD& field, PressurePortsParameters& values) {
    PressurePortsDialog dialog;
    dialog.newFieldName = values.newName;
    dialog.markersFile = values.markersFile;
    dialog.maxDeflexion = values.maxDeflexion;
    dialog.order = values.order;
    do {
        if (!runDialog(dialog)) return std::nullopt;
        values.newName = dialog.newFieldName;
        values.markersFile = dialog.markersFile;
        values.maxDeflexion = dialog.maxDeflexion;
        values.order = dialog.order;
    } while (!acceptNewFunctionName(field, dialog.newFieldName));

    markers set;
    importMarkers(values.markersFile, set, 0);
    const int coordinates = int{set.hasX} + int{set.hasY} + int{set.hasZ};
    if (coordinates == 2 && !chooseActiveAxes(set.hasX, set.hasY, set.hasZ, values.direction)) return std::nullopt;
    PressurePortsParameters run = values;
    run.markerSet = std::move(set);
    return run;
}

}  // namespace tundrel

void pressure_ports(FieldMasterD& field, std::string& fieldName) {
    tundrel::BusyScope busy;  // the dialogs take the wait cursor off while they are open
    tundrel::PressurePortsParameters& remembered = tundrel::pressurePortsParameters();
    remembered.newName = fieldName + "_pp";
    const auto run = tundrel::askPressurePorts(field, remembered);
    if (!run) return;
    const tundrel::PressurePortsResult r = tundrel::buildPressurePorts(field, fieldName, *run);
    if (!r && !r.message.empty()) tundrel::showMessage(r.message);
}
