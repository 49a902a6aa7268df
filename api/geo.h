// Structured surface geometry: named node variables, structured patches and
// the region that holds them; and the checked arrays that the field container
// builds on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "api/arrayWorks.h"
#include "api/export.h"

namespace tundrel {

// The "no value" thresholds. A node value of kNoValue means no value; the
// pressure ports take every value below kNoValueBelow for no value; the
// geometry writers write every value below kWrittenAsZeroBelow as 0.
inline constexpr double kNoValue = -1e10;
inline constexpr double kNoValueBelow = -9.9e9;
inline constexpr double kWrittenAsZeroBelow = -1000000000.0;

}  // namespace tundrel

namespace arrayWorks {

// Line numbers of the checks of the field container's arrays, as the errors
// report them.
namespace geo_lines {
inline constexpr int kArrayNotAllocated = 77;
inline constexpr int kArrayIndex = 79;
inline constexpr int kBlockIndex = 192;
inline constexpr int kBlockNotAllocated = 193;
inline constexpr int kFunctionIndex = 804;
}  // namespace geo_lines

// A checked array: pointer to the elements and a signed element count. The
// elements belong to whoever made the array (the field container keeps them in
// a std::vector and points here).
template <class T>
struct CheckedArray {
    T* data = nullptr;
    std::int32_t count = 0;

    T& at(int n) const {
        if (data == nullptr) throw StateError(source::geo, geo_lines::kArrayNotAllocated);
        if (n < 0 || n >= count) throw IndexError(source::geo, geo_lines::kArrayIndex);
        return data[n];
    }
};

// One checked array per block.
template <class T>
struct CheckedBlocks {
    std::vector<CheckedArray<T>> blocks;

    const CheckedArray<T>& block(int b) const {
        if (b < 0 || b >= static_cast<int>(blocks.size())) throw IndexError(source::geo, geo_lines::kBlockIndex);
        const CheckedArray<T>& a = blocks[static_cast<std::size_t>(b)];
        if (a.data == nullptr) throw StateError(source::geo, geo_lines::kBlockNotAllocated);
        return a;
    }
    T& at(int b, int n) const { return block(b).at(n); }
};

}  // namespace arrayWorks

// A named array of doubles, one per node, laid out with sizes I, J, K and
// strides 1, I, I*J; zero-filled on creation.
class TUNDREL_API NodeVariable {
public:
    NodeVariable(const std::string& name, int I, int J, int K);
    virtual ~NodeVariable();

    std::int32_t I = 0, strideI = 1;
    std::int32_t J = 0, strideJ = 0;
    std::int32_t K = 0, strideK = 0;
    std::int32_t count = 0;
    std::string name;
    std::vector<double> values;

    // Value at (i, j) of the first layer, checked.
    double& at(int i, int j);
    // Unchecked access by node number.
    double& operator[](std::size_t n) { return values[n]; }
    double operator[](std::size_t n) const { return values[n]; }

    // Releases the values and resets sizes and name.
    void clear();
};

// What structured and face patches share: a name, node counts and the
// ordered list of named node variables.
class TUNDREL_API PatchBase {
public:
    PatchBase(int I, int J, int K);
    virtual ~PatchBase();

    std::string name;
    std::int32_t I = 0, J = 0, K = 0, N = 0;
    arrayWorks::PtrList<NodeVariable> variables;

    // The variable of that name, created with zeros when absent.
    NodeVariable& addVariable(const std::string& name);
    // The variable of that name, or nullptr.
    NodeVariable* findVariable(const std::string& name) const;
    // Checked access by position.
    NodeVariable& variable(int k) const { return *variables.get(k); }
    int variableCount() const noexcept { return variables.size(); }
};

// A structured patch: a grid of I x J x K nodes, node (i, j, k) numbered
// i + I*j + I*J*k. Throws IndexError for a negative count or one whose node
// count does not fit 32 bits.
class TUNDREL_API StructPatch : public PatchBase {
public:
    StructPatch(int I, int J, int K);
    ~StructPatch() override;

    // Checked node number of (i, j).
    int nodeIndex(int i, int j) const;
};

// The outer shape shared by region and region_fe.
template <class Patch>
class RegionOf {
public:
    RegionOf() = default;
    RegionOf(const RegionOf&) = default;
    RegionOf& operator=(const RegionOf&) = default;
    RegionOf(RegionOf&&) noexcept = default;
    RegionOf& operator=(RegionOf&&) noexcept = default;
    virtual ~RegionOf() = default;

    std::string name;
    arrayWorks::PtrList<Patch> patches;
    double Mach = 0.0, alpha = 0.0, beta = 0.0;

    int patchCount() const noexcept { return patches.size(); }
    // Checked access by position.
    Patch& patch(int k) const { return *patches.get(k); }
    // Appends and returns the new patch's number.
    int append(std::shared_ptr<Patch> p) {
        patches.append(std::move(p));
        return patches.size() - 1;
    }
};

// Structured surface geometry. A copy shares the patches of the original.
class TUNDREL_API region : public RegionOf<StructPatch> {
public:
    region();
    region(const region&);
    region& operator=(const region&);
    ~region() override;
};
