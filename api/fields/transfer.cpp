// Geometry to field container and back.
#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "api/fields/fields.h"
#include "api/detail/node_normals.h"
#include "api/detail/geometry_rules.h"

using arrayWorks::BlockLayout;
using Vec = z::zVec<double>;

namespace {

// Names beginning with "$_" belong to the container's own functions.
bool isReservedName(const std::string& name) { return name.rfind("$_", 0) == 0; }

// The variable's values when they cover `nodes` nodes, else nullptr.
const double* valuesOf(const NodeVariable* v, int nodes) {
    if (v == nullptr || v->values.size() < static_cast<std::size_t>(nodes)) return nullptr;
    return v->values.data();
}

// Appends a block for patch p and writes its "x", "y", "z" (any letter
// case) straight into the container's coordinate columns; a missing
// coordinate stays 0.
void addPatch(FieldMasterD& field, BlockLayout l, const PatchBase& p) {
    const CoordinateSlots s = findCoordinates(p.variables);
    auto column = [&](int slot) { return slot < 0 ? nullptr : valuesOf(p.variables.get(slot), l.nodes); };
    const double *x = column(s.x), *y = column(s.y), *z = column(s.z);
    field.addBlock(std::move(l), x, y, z);
}

BlockLayout structuredLayout(const StructPatch& p) {
    BlockLayout l;
    l.kind = BlockLayout::Kind::Structured;
    l.nodes = std::max(p.N, 0);
    l.rowLength = p.I;
    l.rows = p.J;
    l.layers = p.K;
    l.name = p.name;
    return l;
}

// The faces of a face patch, four entries a face, with their triangles: the
// corners of a face are its entries other than -1, in order; three give a
// triangle, four the triangles (a, b, c) and (a, c, d). A face with fewer
// corners, or with an entry that is no node of the patch, gives none.
BlockLayout faceLayout(const FacePatch& p) {
    BlockLayout l;
    l.kind = BlockLayout::Kind::Faces;
    l.nodes = std::max(p.nodes, 0);
    l.name = p.name;
    const std::size_t faces =
        std::min(static_cast<std::size_t>(std::max(p.faces, 0)), p.faceIndex.size() / 4);
    l.faceIndex.assign(p.faceIndex.begin(), p.faceIndex.begin() + static_cast<std::ptrdiff_t>(4 * faces));
    for (std::size_t f = 0; f < faces; ++f) {
        std::int32_t c[4];
        int corners = 0;
        bool valid = true;
        for (int k = 0; k < 4; ++k) {
            const std::int32_t e = l.faceIndex[4 * f + static_cast<std::size_t>(k)];
            if (e == -1) continue;
            if (e < 0 || e >= l.nodes) valid = false;
            else c[corners++] = e;
        }
        if (!valid || corners < 3) continue;
        l.triangles.insert(l.triangles.end(), {c[0], c[1], c[2]});
        if (corners == 4) l.triangles.insert(l.triangles.end(), {c[0], c[2], c[3]});
    }
    return l;
}

// The value that node n of block b gives a patch variable: a scalar as it
// is, a selection byte as 0 or its number, a vector its x component.
// Functions of another type or shape give "no value".
class ValueReader {
public:
    ValueReader(const arrayWorks::FieldFunction& f, int b, int nodes) {
        if (auto* s = dynamic_cast<const arrayWorks::ScalarFunction*>(&f)) scalar_ = block(s->values, b, nodes);
        else if (auto* v = dynamic_cast<const arrayWorks::VectorFunction*>(&f)) vector_ = block(v->values, b, nodes);
        else if (auto* c = dynamic_cast<const arrayWorks::SelectionFunction*>(&f)) byte_ = block(c->values, b, nodes);
    }
    // The block's values when the function is scalar, else nullptr.
    const double* scalars() const { return scalar_; }
    double operator()(int n) const {
        if (scalar_) return scalar_[n];
        if (vector_) return vector_[n].x;
        if (byte_) return byte_[n];
        return arrayWorks::kNoValue;
    }

private:
    template <class V>
    static const V* block(const arrayWorks::CheckedBlocks<V>& values, int b, int nodes) {
        if (b >= static_cast<int>(values.blocks.size())) return nullptr;
        const auto& a = values.blocks[static_cast<std::size_t>(b)];
        return a.data != nullptr && a.count == nodes ? a.data : nullptr;
    }
    const double* scalar_ = nullptr;
    const Vec* vector_ = nullptr;
    const unsigned char* byte_ = nullptr;
};

}  // namespace

void Region_to_fieldMaster(region reg, region_fe reg_fe, FieldMasterD& field, z::ambientFlow& flow) {
    field.clear();

    // Room for every node and (at most) every triangle at once.
    std::size_t nodes = 0, triangles = 0;
    for (const auto& p : reg.patches)
        if (p) {
            nodes += static_cast<std::size_t>(std::max(p->N, 0));
            triangles += 2 * static_cast<std::size_t>(std::max(p->I - 1, 0)) *
                         static_cast<std::size_t>(std::max(p->J - 1, 0)) * static_cast<std::size_t>(std::max(p->K, 0));
        }
    for (const auto& p : reg_fe.patches)
        if (p) {
            nodes += static_cast<std::size_t>(std::max(p->nodes, 0));
            triangles += 2 * std::min(static_cast<std::size_t>(std::max(p->faces, 0)), p->faceIndex.size() / 4);
        }
    field.reserve(nodes, triangles);

    std::vector<const PatchBase*> sources;
    for (const auto& p : reg.patches) {
        if (!p) continue;
        addPatch(field, structuredLayout(*p), *p);
        sources.push_back(p.get());
    }
    for (const auto& p : reg_fe.patches) {
        if (!p) continue;
        addPatch(field, faceLayout(*p), *p);
        sources.push_back(p.get());
    }

    // One scalar function per variable name, in the order the names first
    // occur; a block without the variable holds "no value".
    std::vector<std::string> names;
    for (const PatchBase* p : sources)
        for (const auto& v : p->variables) {
            if (!v || isCoordinateName(v->name) || isReservedName(v->name)) continue;
            if (std::find(names.begin(), names.end(), v->name) == names.end()) names.push_back(v->name);
        }
    for (const std::string& name : names) {
        arrayWorks::ScalarFunction& f = field.addScalar(name, arrayWorks::kNoValue);
        for (int b = 0; b < field.blockCount(); ++b) {
            const int nodes = field.nodeCount(b);
            const double* values = valuesOf(sources[static_cast<std::size_t>(b)]->findVariable(name), nodes);
            if (values != nullptr) std::copy(values, values + nodes, f.data() + field.offset(b));
        }
    }

    tundrel::updateNormals(field);
    field.addSelection();

    // The flow conditions of the structured geometry, or of the face geometry
    // when there is no structured patch.
    if (reg.patchCount() > 0 || reg_fe.patchCount() == 0) flow = {reg.Mach, reg.alpha, reg.beta};
    else flow = {reg_fe.Mach, reg_fe.alpha, reg_fe.beta};
}

void fieldMaster_to_Region(FieldMasterD& field, z::ambientFlow flow, region& reg, region_fe& reg_fe) {
    if (field.blockCount() < 1) return;
    reg.patches.clear();
    reg_fe.patches.clear();

    // The functions that become variables: every one not named "$_...".
    // Names the patch holds already (the coordinates, an earlier function of
    // the same name) are passed over, as a patch holds each name once.
    std::vector<const arrayWorks::FieldFunction*> out;
    std::vector<std::string> outNames;
    for (const auto& f : field.functions) {
        if (!f) continue;
        std::string name = f->name();
        if (isReservedName(name) || isCoordinateName(name)) continue;
        if (std::find(outNames.begin(), outNames.end(), name) != outNames.end()) continue;
        out.push_back(f.get());
        outNames.push_back(std::move(name));
    }

    for (int b = 0; b < field.blockCount(); ++b) {
        const BlockLayout& l = field.layout(b);
        std::shared_ptr<PatchBase> patch;
        if (l.structured()) {
            auto sp = std::make_shared<StructPatch>(l.rowLength, l.rows, l.layers);
            reg.append(sp);
            patch = sp;
        } else {
            std::vector<std::int32_t> faces = l.faceIndex;
            if (faces.empty()) {
                const auto first = static_cast<std::int32_t>(field.offset(b));
                const std::span<const std::int32_t> t = field.blockTriangles(b);
                for (std::size_t k = 0; k + 2 < t.size(); k += 3)
                    faces.insert(faces.end(), {t[k] - first, t[k + 1] - first, t[k + 2] - first, -1});
            }
            const int count = static_cast<int>(faces.size());
            auto fp = std::make_shared<FacePatch>(l.nodes, count, count / 4);
            fp->faceIndex = std::move(faces);
            reg_fe.append(fp);
            patch = fp;
        }
        patch->name = "Patch_" + std::to_string(b);

        const std::size_t first = field.offset(b), count = static_cast<std::size_t>(l.nodes);
        const std::pair<const char*, std::span<const double>> columns[] = {
            {"x", field.x()}, {"y", field.y()}, {"z", field.z()}};
        for (const auto& [name, column] : columns) {
            const std::span<const double> from = column.subspan(first, count);
            std::copy(from.begin(), from.end(), patch->addVariable(name).values.begin());
        }
        for (std::size_t k = 0; k < out.size(); ++k) {
            NodeVariable& v = patch->addVariable(outNames[k]);
            const ValueReader value(*out[k], b, l.nodes);
            if (const double* s = value.scalars()) std::copy(s, s + l.nodes, v.values.begin());
            else
                for (int n = 0; n < l.nodes; ++n) v.values[static_cast<std::size_t>(n)] = value(n);
        }
    }

    reg.Mach = reg_fe.Mach = flow.Mach;
    reg.alpha = reg_fe.alpha = flow.alpha;
    reg.beta = reg_fe.beta = flow.beta;
}
