#include "api/fields/surface.h"

#include "api/arrayWorks.h"

namespace tundrel {

namespace {

// Two triangles per cell of a structured block (I nodes a row, J rows a
// layer; every layer a grid of its own).
void gridTriangles(const arrayWorks::BlockLayout& l, std::int32_t first, std::vector<std::int32_t>& out) {
    const int I = l.rowLength;
    if (I < 2) return;
    const int J = l.rows > 0 ? l.rows : l.nodes / I;
    const long long perLayer = static_cast<long long>(I) * J;
    for (long long layer = 0; perLayer > 0 && (layer + 1) * perLayer <= l.nodes; ++layer)
        for (int j = 0; j + 1 < J; ++j)
            for (int i = 0; i + 1 < I; ++i) {
                const auto c = static_cast<std::int32_t>(first + layer * perLayer + i + I * j);
                out.insert(out.end(), {c, c + 1, c + I, c + I, c + 1, c + I + 1});
            }
}

}  // namespace

Surface extractSurface(const FieldMasterD& field) {
    Surface s;
    const auto& pos = field.positions();
    const std::size_t n = pos.size();
    // Global node numbers are 32-bit, as everywhere in the container.
    if (n > static_cast<std::size_t>(INT32_MAX)) throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
    s.x.resize(n);
    s.y.resize(n);
    s.z.resize(n);
    for (std::size_t k = 0; k < n; ++k) {
        s.x[k] = pos[k].x;
        s.y[k] = pos[k].y;
        s.z[k] = pos[k].z;
    }

    const int normals = field.findFunction(arrayWorks::kNormalsName);
    if (normals >= 0) {
        const arrayWorks::VectorFunction* nf = field.vector(normals);
        if (nf != nullptr && nf->size() == n) {
            s.nx.resize(n);
            s.ny.resize(n);
            s.nz.resize(n);
            const z::zVec<double>* v = nf->data();
            for (std::size_t k = 0; k < n; ++k) {
                s.nx[k] = v[k].x;
                s.ny[k] = v[k].y;
                s.nz[k] = v[k].z;
            }
        }
    }

    for (int b = 0; b < field.blockCount(); ++b) {
        const arrayWorks::BlockLayout& l = field.layout(b);
        const auto first = static_cast<std::int32_t>(field.offset(b));
        s.blockOffset.push_back(static_cast<std::size_t>(first));
        if (l.kind == arrayWorks::BlockLayout::Kind::Structured) {
            gridTriangles(l, first, s.triangles);
            continue;
        }
        // Face blocks: a node number outside the block is an index error.
        for (std::int32_t v : l.triangles)
            if (v < 0 || v >= l.nodes) throw arrayWorks::IndexError(arrayWorks::source::field_selection, __LINE__);
        for (std::int32_t v : l.triangles) s.triangles.push_back(first + v);
    }
    s.blockOffset.push_back(n);
    return s;
}

}  // namespace tundrel
