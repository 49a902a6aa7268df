#include "qt/view/view_model.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "api/formats/safe_write.h"
#include "api/host.h"

namespace tundrel::view {

namespace {

std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines) s += (s.empty() ? "" : "\n") + l;
    return s;
}

std::string extensions() {
    std::string s;
    for (const GeometryFormat& f : geometryFormats())
        for (std::string_view e : f.extensions) s += (s.empty() ? "" : ", ") + std::string(e);
    return s;
}

bool isReserved(const std::string& name) { return name.rfind("$_", 0) == 0; }

// Faces a patch's index list holds: entries up to each -1.
long long faceCountOf(const FacePatch& p) { return std::max(p.faces, 0); }

// Refinement and mirroring stop short of this many faces in all.
constexpr long long kMaxFaces = 20'000'000;

}  // namespace

FieldStatistics fieldStatistics(std::string name, std::span<const double> values) {
    FieldStatistics s;
    s.name = std::move(name);
    double lo = std::numeric_limits<double>::infinity(), hi = -lo, sum = 0.0;
    for (double v : values) {
        if (!(v >= kNoValueBelow)) {
            ++s.noValue;
            continue;
        }
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        sum += v;
        ++s.values;
    }
    if (s.values > 0) {
        s.min = lo;
        s.max = hi;
        s.mean = sum / static_cast<double>(s.values);
    } else {
        s.min = s.max = s.mean = std::nan("");
    }
    return s;
}

Model::Model() : field_(std::make_unique<FieldMasterD>()) {}
Model::~Model() = default;

bool Model::load(const std::string& file) {
    if (findGeometryFormat(file_extension(file)) == nullptr) {
        showMessage(file + ": unknown file format (" + extensions() + ")");
        return false;
    }
    region reg;
    region_fe fe;
    CollectingHost held(host());
    bool ok = false;
    {
        HostScope scope(held);
        ok = import_data(file, false, reg, fe);
    }
    if (ok && reg.patchCount() == 0 && fe.patchCount() == 0) {
        showMessage(file + ": no patches in the file");
        return false;
    }
    if (!ok) {
        const std::string reason = fileReadReason(file);
        const std::string where = file + (reason.empty() ? "" : ": " + reason);
        showMessage(held.messages.empty() ? "Cannot read " + where : joined(held.messages) + "\n(" + where + ")");
        return false;
    }
    if (!held.messages.empty()) showMessage(joined(held.messages) + "\n(" + file + ")");
    reg_ = std::move(reg);
    fe_ = std::move(fe);
    file_ = file;
    const bool structured = reg_.patchCount() > 0 || fe_.patchCount() == 0;
    title_ = structured ? reg_.name : fe_.name;
    fromPatches();
    return true;
}

bool Model::save(const std::string& file) {
    const GeometryFormat* format = findGeometryFormat(file_extension(file));
    if (format == nullptr) {
        showMessage(file + ": unknown file format (" + extensions() + ")");
        return false;
    }
    std::vector<std::string> lost;
    if (!format->structuredPatches && reg_.patchCount() > 0)
        lost.push_back(std::to_string(reg_.patchCount()) + " structured patches");
    if (!format->facePatches && fe_.patchCount() > 0)
        lost.push_back(std::to_string(fe_.patchCount()) + " face patches");
    if (!format->holds.fields) lost.push_back("the fields");
    if (!format->holds.noValue) lost.push_back("no-value marks (written as 0)");
    const SafeWriteResult r = exportDataSafely(file, {}, reg_, fe_);
    if (!r) {
        showMessage(r.message.empty() ? "Cannot write " + file : r.message);
        return false;
    }
    if (!lost.empty()) {
        std::string what;
        for (const std::string& l : lost) what += (what.empty() ? "" : ", ") + l;
        showMessage(file + " is written; " + std::string(format->name) + " does not keep " + what);
    }
    return true;
}

std::vector<std::string> Model::scalarNames() const {
    std::vector<std::string> names;
    for (int i = 0; i < field_->functionCount(); ++i) {
        const auto* f = field_->functionAt(i);
        if (f != nullptr && field_->scalar(i) != nullptr && !isReserved(f->name()) &&
            std::find(names.begin(), names.end(), f->name()) == names.end())
            names.push_back(f->name());
    }
    return names;
}

std::span<const double> Model::values(const std::string& name) const {
    const int i = field_->findFunction(name);
    const arrayWorks::ScalarFunction* s = i < 0 ? nullptr : field_->scalar(i);
    if (s == nullptr) return {};
    return {s->data(), s->size()};
}

std::vector<PatchSummary> Model::patches() const {
    std::vector<PatchSummary> list;
    for (int k = 0; k < reg_.patchCount(); ++k) {
        const StructPatch& p = reg_.patch(k);
        list.push_back({p.name, true,
                        std::to_string(p.I) + " x " + std::to_string(p.J) + (p.K > 1 ? " x " + std::to_string(p.K) : ""),
                        std::max(p.N, 0), static_cast<long long>(std::max(p.I - 1, 0)) * std::max(p.J - 1, 0)});
    }
    for (int k = 0; k < fe_.patchCount(); ++k) {
        const FacePatch& p = fe_.patch(k);
        list.push_back({p.name, false, std::to_string(faceCountOf(p)) + " faces", std::max(p.nodes, 0), faceCountOf(p)});
    }
    return list;
}

std::vector<FieldStatistics> Model::statistics() const {
    std::vector<FieldStatistics> list;
    for (const std::string& n : scalarNames()) list.push_back(fieldStatistics(n, values(n)));
    return list;
}

long long Model::nodeCount() const { return static_cast<long long>(field_->x().size()); }

long long Model::faceCount() const {
    long long faces = 0;
    for (const PatchSummary& p : patches()) faces += p.faces;
    return faces;
}

std::string Model::addedField(int functionsBefore) const {
    for (int i = field_->functionCount() - 1; i >= functionsBefore; --i)
        if (field_->scalar(i) != nullptr && !isReserved(field_->functionAt(i)->name()))
            return field_->functionAt(i)->name();
    return {};
}

std::string Model::selfIllumination(const std::string& fieldName) {
    if (empty()) return {};
    const int before = field_->functionCount();
    std::string name = fieldName;
    self_illumination(*field_, name);
    const std::string added = addedField(before);
    if (!added.empty()) toPatches();
    return added;
}

std::string Model::pressurePorts(const std::string& fieldName) {
    if (empty()) return {};
    const int before = field_->functionCount();
    std::string name = fieldName;
    try {
        pressure_ports(*field_, name);
    } catch (const arrayWorks::FileError& e) {
        showMessage(std::string(e.message));
        return {};
    }
    const std::string added = addedField(before);
    if (!added.empty()) toPatches();
    return added;
}

bool Model::triangulate() {
    if (reg_.patchCount() == 0) {
        showMessage("The model has no structured patches to triangulate");
        return false;
    }
    const int before = fe_.patchCount();
    if (!mesh::triangulateModel(reg_, fe_) || fe_.patchCount() == before) {
        showMessage("No structured patch of the model can be triangulated (each needs 2 x 2 nodes at least)");
        return false;
    }
    fromPatches();
    return true;
}

bool Model::ensureFaces() {
    if (fe_.patchCount() > 0) return true;
    return triangulate();
}

bool Model::refine() {
    if (empty() || !ensureFaces()) return false;
    long long faces = 0;
    for (int k = 0; k < fe_.patchCount(); ++k) faces += faceCountOf(fe_.patch(k));
    if (4 * faces > kMaxFaces) {
        showMessage("Refining would make " + std::to_string(4 * faces) + " faces; the viewer stops at " +
                    std::to_string(kMaxFaces));
        return false;
    }
    // Refinement rebuilds the patch list, which empties the title and the
    // flow conditions: the model keeps its own.
    const std::string title = fe_.name;
    const double mach = fe_.Mach, alpha = fe_.alpha, beta = fe_.beta;
    std::vector<int> list(static_cast<std::size_t>(fe_.patchCount()));
    for (std::size_t k = 0; k < list.size(); ++k) list[k] = static_cast<int>(k);
    block_fe_compress(fe_, static_cast<int>(list.size()), list.data());
    fe_.name = title;
    fe_.Mach = mach;
    fe_.alpha = alpha;
    fe_.beta = beta;
    fromPatches();
    return true;
}

bool Model::mirror(mesh::MirrorPlane plane) {
    if (empty() || !ensureFaces()) return false;
    if (2 * faceCount() > kMaxFaces) {
        showMessage("Mirroring would make more than " + std::to_string(kMaxFaces) + " faces");
        return false;
    }
    const int count = fe_.patchCount();
    int mirrored = 0;
    for (int k = 0; k < count; ++k) {
        if (fe_.patch(k).variableCount() < 3) continue;
        const int total = mesh::mirrorPatch(fe_, k, plane);
        if (total < 0) continue;
        // The image carries the fields of its source, so that it writes into
        // one file with the other patches.
        mesh::carryVariables(fe_.patch(k), fe_.patch(total - 1));
        ++mirrored;
    }
    if (mirrored == 0) {
        showMessage("No face patch has x, y, z among its first three variables: nothing to mirror");
        return false;
    }
    fromPatches();
    return true;
}

void Model::fromPatches() {
    auto field = std::make_unique<FieldMasterD>();
    Region_to_fieldMaster(reg_, fe_, *field, flow_);
    field_ = std::move(field);
}

void Model::toPatches() {
    fieldMaster_to_Region(*field_, flow_, reg_, fe_);
    reg_.name = fe_.name = title_;
}

}  // namespace tundrel::view
