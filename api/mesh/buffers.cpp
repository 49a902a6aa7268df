// Face patches through a buffer region_fe: copies, merging, the "_simm" copy
// and its mirror image, and refinement by edge midpoints.
#include <algorithm>
#include <bit>
#include <limits>
#include <string>
#include <utility>

#include "api/mesh/mesh.h"
#include "api/detail/geometry_rules.h"

namespace {

using arrayWorks::IndexError;
namespace source = arrayWorks::source;

int checkedCount(std::int64_t n) {
    if (n < 0 || n > std::numeric_limits<std::int32_t>::max()) throw IndexError(source::ngeo, __LINE__);
    return static_cast<int>(n);
}

// The first `nodes` values of v, checked against its length.
const double* nodeValues(const NodeVariable& v, int nodes) {
    if (nodes < 0 || v.values.size() < static_cast<std::size_t>(nodes)) throw IndexError(source::ngeo, __LINE__);
    return v.values.data();
}

void takeHeader(const region_fe& from, region_fe& to) {
    to.name = from.name;
    to.Mach = from.Mach;
    to.alpha = from.alpha;
    to.beta = from.beta;
}

// copy_reg_fe_to_buf for a buffer that nobody else holds: a patch that
// already has exactly the first patch's variables is taken over instead of
// copied, which gives the same content without a second copy.
void takeBuffer(region_fe& buffer, region_fe& r) {
    if (buffer.patchCount() == 0) return;
    const int variables = buffer.patch(0).variableCount();
    arrayWorks::PtrList<FacePatch> patches;
    for (int k = 0; k < buffer.patchCount(); ++k) {
        const auto& p = buffer.patches.shared(k);
        patches.append(p->variableCount() == variables ? p : tundrel::mesh::deepCopy(*p, variables));
    }
    takeHeader(buffer, r);
    r.patches = std::move(patches);
}

// The edges split so far, each with its midpoint node. Both tables find an
// edge from either end, so that neighbours share midpoints.
class HashedEdges {
public:
    explicit HashedEdges(int faces) {
        // About 1.5 edges a face on a closed or gridded surface: the table
        // ends about three quarters full for those, and grows beyond that.
        rehash(std::bit_ceil(std::max<std::size_t>(16, 2 * static_cast<std::size_t>(faces))));
    }

    // Starts loading the slot of (a, b) ahead of its lookup: on a large
    // patch nearly every lookup would otherwise wait for memory.
    void prefetch(std::int32_t a, std::int32_t b) const { __builtin_prefetch(&slots_[slot(makeKey(a, b))]); }

    // The midpoint of (a, b), or `next` stored as its midpoint when new.
    std::int32_t find(std::int32_t a, std::int32_t b, std::int32_t next) {
        const std::uint64_t key = makeKey(a, b);
        for (std::size_t s = slot(key);; s = (s + 1) & mask_) {
            Slot& at = slots_[s];
            if (at.key == key) return at.mid;
            if (at.key == kEmpty) {
                at = {key, next};
                if (++size_ * 4 > slots_.size() * 3) rehash(slots_.size() * 2);
                return next;
            }
        }
    }

private:
    static constexpr std::uint64_t kEmpty = ~std::uint64_t{0};
    struct Slot {
        std::uint64_t key;  // the lower node number in the high half
        std::int32_t mid;
    };

    static std::uint64_t makeKey(std::int32_t a, std::int32_t b) {
        const auto lo = static_cast<std::uint32_t>(std::min(a, b));
        const auto hi = static_cast<std::uint32_t>(std::max(a, b));
        return (std::uint64_t{lo} << 32) | hi;
    }
    std::size_t slot(std::uint64_t key) const {
        return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ull) >> shift_);
    }
    void rehash(std::size_t capacity) {
        std::vector<Slot> old(capacity, Slot{kEmpty, 0});
        old.swap(slots_);
        mask_ = capacity - 1;
        shift_ = 64 - std::countr_zero(capacity);
        for (const Slot& e : old) {
            if (e.key == kEmpty) continue;
            std::size_t t = slot(e.key);
            while (slots_[t].key != kEmpty) t = (t + 1) & mask_;
            slots_[t] = e;
        }
    }

    std::vector<Slot> slots_;
    std::size_t size_ = 0, mask_ = 0;
    int shift_ = 0;
};

class LinearEdges {
public:
    explicit LinearEdges(int) {}

    std::int32_t find(std::int32_t a, std::int32_t b, std::int32_t next) {
        for (const Entry& e : edges_)
            if (e.first == a && e.second == b) return e.mid;
        // Stored both ways round; a lookup compares in the given order.
        edges_.push_back({a, b, next});
        edges_.push_back({b, a, next});
        return next;
    }

private:
    struct Entry {
        std::int32_t first, second, mid;
    };
    std::vector<Entry> edges_;
};

template <class Edges>
std::shared_ptr<FacePatch> refine(const FacePatch& p) {
    const int faces = p.faces;
    const int outFaces = checkedCount(4 * static_cast<std::int64_t>(faces));
    const int outLength = checkedCount(16 * static_cast<std::int64_t>(faces));
    if (p.faceIndex.size() < 4 * static_cast<std::size_t>(faces)) throw IndexError(source::ngeo, __LINE__);

    std::vector<std::int32_t> index;
    index.reserve(static_cast<std::size_t>(outLength));
    std::vector<std::pair<std::int32_t, std::int32_t>> ends;  // of each midpoint, in order
    ends.reserve(static_cast<std::size_t>(faces) * 3 / 2 + 16);
    Edges edges(faces);
    const std::int32_t nodes = p.nodes;
    auto midpoint = [&](std::int32_t a, std::int32_t b) {
        const std::int64_t next = static_cast<std::int64_t>(nodes) + static_cast<std::int64_t>(ends.size());
        const std::int32_t m = edges.find(a, b, static_cast<std::int32_t>(checkedCount(next)));
        if (m == next) ends.emplace_back(a, b);
        return m;
    };

    const std::int32_t* in = p.faceIndex.data();
    constexpr int kAhead = 16;  // faces
    for (int f = 0; f < faces; ++f, in += 4) {
        if constexpr (requires { edges.prefetch(0, 0); }) {
            if (f + kAhead < faces) {
                const std::int32_t* ahead = in + 4 * kAhead;
                edges.prefetch(ahead[0], ahead[1]);
                edges.prefetch(ahead[1], ahead[2]);
                edges.prefetch(ahead[2], ahead[0]);
            }
        }
        const std::int32_t p0 = in[0], p1 = in[1], p2 = in[2];
        if (p0 < 0 || p0 >= nodes || p1 < 0 || p1 >= nodes || p2 < 0 || p2 >= nodes)
            throw IndexError(source::ngeo, __LINE__);
        const std::int32_t m0 = midpoint(p0, p1);
        const std::int32_t m1 = midpoint(p1, p2);
        const std::int32_t m2 = midpoint(p2, p0);
        const std::int32_t quads[16] = {p0, m0, m2, -1, m0, p1, m1, -1, m1, p2, m2, -1, m0, m1, m2, -1};
        index.insert(index.end(), std::begin(quads), std::end(quads));
    }

    const int outNodes = checkedCount(static_cast<std::int64_t>(nodes) + static_cast<std::int64_t>(ends.size()));
    auto q = std::make_shared<FacePatch>(outNodes, 0, outFaces);  // the index list is filled here
    q->name = p.name;
    q->indexLength = outLength;
    q->faceIndex = std::move(index);
    for (const auto& v : p.variables) {
        if (!v) throw arrayWorks::StateError(source::ngeo, __LINE__);
        const double* from = nodeValues(*v, nodes);
        NodeVariable& to = q->addVariable(v->name);
        double* values = to.values.data();
        std::copy_n(from, nodes, values);
        values += nodes;
        for (const auto& [a, b] : ends) *values++ = (from[a] + from[b]) * 0.5;
    }
    return q;
}

}  // namespace

namespace tundrel::mesh {

std::shared_ptr<FacePatch> deepCopy(const FacePatch& p, int variables) {
    auto q = std::make_shared<FacePatch>(p.nodes, p.indexLength, p.faces);
    q->name = p.name;
    q->faceIndex = p.faceIndex;
    for (int v = 0; v < variables; ++v) {
        const NodeVariable& from = p.variable(v);
        const double* values = nodeValues(from, p.nodes);
        std::copy_n(values, p.nodes, q->addVariable(from.name).values.begin());
    }
    return q;
}

std::shared_ptr<FacePatch> refinedPatch(const FacePatch& p, EdgeSearch search) {
    return search == EdgeSearch::hashed ? refine<HashedEdges>(p) : refine<LinearEdges>(p);
}

int mirrorPatch(region_fe& r, int k, MirrorPlane plane) {
    const FacePatch& p = r.patch(k);
    int axis[3] = {-1, -1, -1};  // position among the first three of x, y, z
    for (int v = 0; v < 3; ++v)
        if (const int a = coordinateAxis(p.variable(v).name); a >= 0) axis[a] = v;
    if (axis[0] < 0 || axis[1] < 0 || axis[2] < 0) return -1;
    const int across = plane == MirrorPlane::yz ? axis[0] : plane == MirrorPlane::xz ? axis[1] : axis[2];

    const int count = add_patch_fe(r, k);
    const FacePatch& from = r.patch(k);
    FacePatch& image = r.patch(count - 1);
    for (int v = 0; v < 3; ++v) {
        const double* values = nodeValues(from.variable(v), from.nodes);
        NodeVariable& to = image.variable(v);
        const double sign = v == across ? -1.0 : 1.0;
        for (int n = 0; n < from.nodes; ++n) to.values[static_cast<std::size_t>(n)] = sign * values[n];
    }
    tundrel::reverseFaces(image);
    return count;
}

void carryVariables(const FacePatch& from, FacePatch& to) {
    if (from.nodes != to.nodes) throw arrayWorks::IndexError(arrayWorks::source::ngeo, __LINE__);
    for (int v = 0; v < from.variableCount(); ++v) {
        const NodeVariable& source = from.variable(v);
        if (to.findVariable(source.name) != nullptr) continue;
        const double* values = nodeValues(source, from.nodes);
        NodeVariable& added = to.addVariable(source.name);
        std::copy(values, values + from.nodes, added.values.begin());
    }
}

}  // namespace tundrel::mesh

void AddBlock_to_buf(region_fe& src, region_fe& buf, int k) {
    if (k < 0 || k >= src.patchCount()) return;
    buf.append(tundrel::mesh::deepCopy(src.patch(k), src.patch(0).variableCount()));
}

bool copy_reg_fe_to_buf(region_fe& src, region_fe& buf) {
    if (src.patchCount() == 0) return true;
    // Copied aside first, so that copying a region_fe onto itself, or an
    // error half way, leaves `buf` whole.
    const int variables = src.patch(0).variableCount();
    arrayWorks::PtrList<FacePatch> patches;
    for (int k = 0; k < src.patchCount(); ++k) patches.append(tundrel::mesh::deepCopy(src.patch(k), variables));
    takeHeader(src, buf);
    buf.patches = std::move(patches);  // the old patches go with their last holder
    return true;
}

bool merge_in_reg_fe(region_fe& r, int a, int b) {
    if (a < 0 || b < 0 || a == b) return false;
    const int count = r.patchCount();
    if (b < count && r.patch(b).faces == 0) return false;
    if (count == 0 || a >= count || b >= count) return true;

    region_fe buffer;
    takeHeader(r, buffer);
    const int variables = r.patch(0).variableCount();
    for (int q = 0; q < count; ++q) {
        const FacePatch& p = r.patch(q);
        if (q == b || p.faces == 0) continue;
        if (q != a) {
            buffer.append(tundrel::mesh::deepCopy(p, variables));
            continue;
        }
        const FacePatch& s = r.patch(b);
        const int nodes = checkedCount(static_cast<std::int64_t>(p.nodes) + s.nodes);
        const int length = checkedCount(static_cast<std::int64_t>(p.indexLength) + s.indexLength);
        const int faces = checkedCount(static_cast<std::int64_t>(p.faces) + s.faces);
        auto m = std::make_shared<FacePatch>(nodes, length, faces);
        m->name = p.name;
        if (p.faceIndex.size() < static_cast<std::size_t>(p.indexLength) ||
            s.faceIndex.size() < static_cast<std::size_t>(s.indexLength))
            throw IndexError(source::ngeo, __LINE__);
        auto tail = std::copy_n(p.faceIndex.begin(), p.indexLength, m->faceIndex.begin());
        std::transform(s.faceIndex.begin(), s.faceIndex.begin() + s.indexLength, tail,
                       [shift = p.nodes](std::int32_t e) { return e == -1 ? e : e + shift; });
        for (int v = 0; v < variables; ++v) {
            const NodeVariable& va = p.variable(v);
            const NodeVariable& vb = s.variable(v);
            const double* first = nodeValues(va, p.nodes);
            const double* second = nodeValues(vb, s.nodes);
            double* to = m->addVariable(va.name).values.data();
            std::copy_n(second, s.nodes, std::copy_n(first, p.nodes, to));
        }
        buffer.append(std::move(m));
    }
    takeBuffer(buffer, r);
    return true;
}

int add_patch_fe(region_fe& r, int k) {
    const FacePatch& p = r.patch(k);
    auto q = std::make_shared<FacePatch>(p.nodes, p.indexLength, p.faces);
    q->name = p.name + "_simm";
    for (int v = 0; v < 3; ++v) q->addVariable(p.variable(v).name);
    q->faceIndex = p.faceIndex;
    return r.append(std::move(q)) + 1;
}

void faces_increase_in_buff(region_fe src, region_fe& buf, int k) {
    if (k < 0 || src.patchCount() == 0 || k >= src.patchCount()) return;
    auto q = tundrel::mesh::refinedPatch(src.patch(k));
    takeHeader(src, buf);
    buf.append(std::move(q));
}

void block_fe_compress(region_fe& r, int n, int* list) {
    if (n < 1 || list == nullptr || r.patchCount() == 0 || n > r.patchCount()) return;
    const std::vector<int> chosen(list, list + n);
    region_fe buffer;  // empty: no name, no flow conditions
    for (int q = 0; q < r.patchCount(); ++q) {
        if (std::find(chosen.begin(), chosen.end(), q) == chosen.end()) {
            AddBlock_to_buf(r, buffer, q);
            continue;
        }
        region_fe refined;
        faces_increase_in_buff(r, refined, q);
        // The refined patch is the only one in this buffer and thus its own
        // first: a deep copy of it would be the same patch again.
        for (const auto& p : refined.patches) buffer.append(p);
    }
    takeBuffer(buffer, r);
}
