// Unstructured surface geometry: face patches and the region_fe that holds
// them; the checked node triple and triangle list.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "api/geo.h"

// A face patch: a row of `nodes` nodes with named node variables and a face
// index list of four integers a face (a triangle is its three 0-based node
// numbers followed by -1).
class TUNDREL_API FacePatch : public PatchBase {
public:
    FacePatch(int nodes, int indexLength, int faces);
    ~FacePatch() override;

    std::int32_t nodes = 0;
    std::int32_t faces = 0;
    std::int32_t indexLength = 0;
    std::vector<std::int32_t> faceIndex;

    // Releases every variable's values and resets its sizes and name.
    void clear();
};

// Unstructured surface geometry. A copy shares the patches of the original.
class TUNDREL_API region_fe : public RegionOf<FacePatch> {
public:
    region_fe();
    region_fe(const region_fe&);
    region_fe& operator=(const region_fe&);
    ~region_fe() override;
};

namespace tundrel {

// Checks what every region and region_fe must hold, from any reader or any
// caller (empty slots aside): node counts I*J*K (nodes for face patches), none
// negative; every variable as long as its patch; a face list as long as its
// stated length and with room for four entries a face; every face entry -1 or
// a node of its patch. Empty when all holds, else what is broken first.
TUNDREL_API std::string validate(const region& reg, const region_fe& reg_fe);

}  // namespace tundrel

namespace arrayWorks {

// The three node numbers of a triangle, checked.
class NodeTriple {
public:
    NodeTriple() = default;
    NodeTriple(std::int32_t a, std::int32_t b, std::int32_t c) : v_{a, b, c} {}

    std::int32_t& operator[](int k) {
        if (k < 0 || k >= 3) throw IndexError(source::ngeo, __LINE__);
        return v_[static_cast<std::size_t>(k)];
    }
    std::int32_t operator[](int k) const {
        if (k < 0 || k >= 3) throw IndexError(source::ngeo, __LINE__);
        return v_[static_cast<std::size_t>(k)];
    }
    bool operator==(const NodeTriple&) const = default;

private:
    std::array<std::int32_t, 3> v_{0, 0, 0};
};

// A growable list of node triples, checked.
class TriangleList {
public:
    TriangleList() = default;
    TriangleList(int n, const NodeTriple& t) : rows_(static_cast<std::size_t>(n < 0 ? 0 : n), t) {}

    int count() const noexcept { return static_cast<int>(rows_.size()); }

    std::int32_t& get(int i, int k) {
        if (i < 0 || rows_.empty() || i >= count()) throw IndexError(source::ngeo, __LINE__);
        if (k < 0 || k >= 3) throw IndexError(source::ngeo, __LINE__);
        return rows_[static_cast<std::size_t>(i)][k];
    }
    const NodeTriple& row(int i) const {
        if (i < 0 || rows_.empty() || i >= count()) throw IndexError(source::ngeo, __LINE__);
        return rows_[static_cast<std::size_t>(i)];
    }
    void append(const NodeTriple& t) { rows_.push_back(t); }

    void erase(int i) {
        if (i < 0 || i >= count()) throw IndexError(source::ngeo, __LINE__);
        for (int r = i; r + 1 < count(); ++r)
            for (int k = 0; k < 3; ++k) rows_[static_cast<std::size_t>(r)][k] = rows_[static_cast<std::size_t>(r + 1)][k];
        rows_.pop_back();
    }

private:
    std::vector<NodeTriple> rows_;
};

}  // namespace arrayWorks
