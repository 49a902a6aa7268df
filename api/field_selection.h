// The field container: blocks of surface nodes (one per patch) with their
// positions and layout, and an ordered list of named functions with one value
// per node of every block. The function "$_selection" is the user's node
// selection (one byte a node, nonzero = selected), "$_N" the node normals
// (users may change it; the normals derived from the positions are cached
// apart, see NormalCache).
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/export.h"
#include "api/geo.h"
#include "api/zvec.h"

namespace arrayWorks {

inline constexpr const char* kSelectionName = "$_selection";
inline constexpr const char* kNormalsName = "$_N";
// A scalar value meaning "no value at this node".
inline constexpr double kNoValue = tundrel::kNoValue;
// The message that refuses a new function named like an existing one.
inline constexpr const char* kDuplicateNameMessage = "The function name alredy exist";

// Line numbers of the selection checks, as the errors report them.
namespace selection_lines {
inline constexpr int kNotFound = 26;
inline constexpr int kNotASelection = 28;
inline constexpr int kNodeBlock = 117;
inline constexpr int kNodeIndex = 118;
inline constexpr int kBlock = 126;
inline constexpr int kEmptyBlock = 136;
}  // namespace selection_lines

// 0 nothing selected, 1 all selected, 2 partly selected.
enum SelectionState : int { NothingSelected = 0, AllSelected = 1, PartlySelected = 2 };

enum class FunctionKind { Scalar, Vector, Selection };

// One named function on the container's node layout.
class TUNDREL_API FieldFunction {
public:
    explicit FieldFunction(std::string name) : name_(std::move(name)) {}
    FieldFunction(const FieldFunction&) = delete;
    FieldFunction& operator=(const FieldFunction&) = delete;
    virtual ~FieldFunction() = default;

    virtual FunctionKind kind() const = 0;
    virtual int blockCount() const = 0;
    virtual std::string name() const { return name_; }
    void rename(std::string name) { name_ = std::move(name); }

protected:
    std::string name_;
};

// A function whose values are of type V: one contiguous array of every node,
// block after block, seen through one checked array per block.
template <class V>
class BlockFunction final : public FieldFunction {
public:
    BlockFunction(std::string name, const std::vector<int>& nodeCounts, const V& fill = V{})
        : FieldFunction(std::move(name)) {
        std::size_t total = 0;
        for (int n : nodeCounts) total += static_cast<std::size_t>(n);
        storage_.assign(total, fill);
        std::size_t offset = 0;
        for (int n : nodeCounts) {
            values.blocks.push_back({storage_.data() + offset, n});
            offset += static_cast<std::size_t>(n);
        }
    }

    FunctionKind kind() const override {
        if constexpr (std::is_same_v<V, double>) return FunctionKind::Scalar;
        else if constexpr (std::is_same_v<V, unsigned char>) return FunctionKind::Selection;
        else return FunctionKind::Vector;
    }
    int blockCount() const override { return static_cast<int>(values.blocks.size()); }

    // Checked value of node n of block b.
    V& at(int b, int n) const { return values.at(b, n); }
    // Every value, block after block (node n of block b at offset(b) + n).
    V* data() noexcept { return storage_.data(); }
    const V* data() const noexcept { return storage_.data(); }
    std::size_t size() const noexcept { return storage_.size(); }

    CheckedBlocks<V> values;

private:
    std::vector<V> storage_;
};

using ScalarFunction = BlockFunction<double>;
using VectorFunction = BlockFunction<z::zVec<double>>;
using SelectionFunction = BlockFunction<unsigned char>;

// How the nodes of a block are connected.
struct BlockLayout {
    enum class Kind { Structured, Faces };
    Kind kind = Kind::Structured;
    int nodes = 0;
    // Structured blocks: nodes per row (the patch's I) and rows (J); node n
    // lies in row n / rowLength, column n % rowLength. A patch of several
    // layers (K > 1) holds `layers` such grids one after the other; surfaces
    // have one.
    int rowLength = 0;
    int rows = 0;
    int layers = 1;
    // Face blocks: three node numbers (of the block) a triangle; a
    // four-cornered face gives the two triangles (a, b, c) and (a, c, d).
    // addBlock moves them into the container's triangle list, so the layouts
    // the container keeps hold none (see FieldMaster::blockTriangles).
    std::vector<std::int32_t> triangles;
    // Face blocks: the face index list of the patch as it was, four entries a
    // face, -1 for "no node"; kept so that the way back gives the same faces.
    std::vector<std::int32_t> faceIndex;
    // The name of the patch the block was made from.
    std::string name;

    int triangleCount() const noexcept { return static_cast<int>(triangles.size() / 3); }
    bool structured() const noexcept { return kind == Kind::Structured; }
};

// Node normals derived from the positions, one column a coordinate; filled
// on demand (tundrel::cachedNormals) and dropped whenever a position changes.
struct NormalCache {
    std::vector<double> x, y, z;
    bool valid = false;
};

// Three coordinate columns of n nodes.
struct Columns {
    double* x = nullptr;
    double* y = nullptr;
    double* z = nullptr;
    std::size_t size = 0;
};

template <class Vec>
class FieldMaster {
public:
    FieldMaster() = default;
    FieldMaster(const FieldMaster&) = delete;
    FieldMaster& operator=(const FieldMaster&) = delete;
    FieldMaster(FieldMaster&&) noexcept = default;
    FieldMaster& operator=(FieldMaster&&) noexcept = default;
    virtual ~FieldMaster() = default;

    virtual int blockCount() const { return static_cast<int>(layouts_.size()); }
    virtual int nodeCount(int b) const { return layout(b).nodes; }

    // ---- node layout and positions -------------------------------------
    // The container holds every node of every block once: the coordinates
    // as three columns, block after block (node n of block b at offset(b) +
    // n), and one triangle list in those global numbers. Structured blocks
    // give two triangles a grid cell, (c, c+1, c+I) and (c+I, c+1, c+I+1)
    // with c = i + I*j, layer by layer; face blocks their own triangles.

    // Room for that many nodes and triangles in all, so that adding blocks
    // does not move the columns.
    void reserve(std::size_t nodes, std::size_t triangles) {
        x_.reserve(nodes);
        y_.reserve(nodes);
        z_.reserve(nodes);
        triangles_.reserve(3 * triangles);
    }

    // Appends a block with its coordinates from x, y, z (one value a node;
    // a null column gives zeros). Blocks are added before any function; adding one
    // later throws StateError; a triangle corner outside the block, or more
    // nodes in all than 32-bit node numbers reach, throws IndexError. A
    // structured layout whose rowLength x rows x layers is not its node count
    // is taken as one row of all its nodes.
    int addBlock(BlockLayout layout, const double* x, const double* y, const double* z) {
        if (!functions.empty() || layout.nodes < 0) throw StateError(source::field_selection, __LINE__);
        if (layout.triangles.size() % 3 != 0) throw IndexError(source::field_selection, __LINE__);
        for (std::int32_t c : layout.triangles)
            if (c < 0 || c >= layout.nodes) throw IndexError(source::field_selection, __LINE__);
        const std::size_t first = x_.size();
        if (first + static_cast<std::size_t>(layout.nodes) > static_cast<std::size_t>(INT32_MAX))
            throw IndexError(source::field_selection, __LINE__);
        if (layout.structured() && (layout.rowLength < 1 || layout.rows < 1 || layout.layers < 1 ||
                                    static_cast<std::int64_t>(layout.rowLength) * layout.rows * layout.layers !=
                                        layout.nodes)) {
            layout.rowLength = layout.nodes;
            layout.rows = layout.nodes > 0 ? 1 : 0;
            layout.layers = 1;
        }
        const auto base = static_cast<std::int32_t>(first);
        if (layout.structured()) {
            appendGridTriangles(layout, base);
        } else {
            triangles_.reserve(triangles_.size() + layout.triangles.size());
            for (std::int32_t c : layout.triangles) triangles_.push_back(base + c);
            layout.triangles = {};
        }
        const std::size_t end = first + static_cast<std::size_t>(layout.nodes);
        for (auto [column, from] : {std::pair{&x_, x}, std::pair{&y_, y}, std::pair{&z_, z}}) {
            if (from != nullptr) column->insert(column->end(), from, from + layout.nodes);
            else column->resize(end);
        }
        offsets_.push_back(end);
        triangleOffsets_.push_back(triangles_.size() / 3);
        layouts_.push_back(std::move(layout));
        invalidateNormals();
        return blockCount() - 1;
    }
    // A block with every node at (0, 0, 0); write the positions with
    // blockCoordinates().
    int addBlock(BlockLayout layout) { return addBlock(std::move(layout), nullptr, nullptr, nullptr); }
    // A block with the positions given, one per node (another count throws
    // StateError).
    int addBlock(BlockLayout layout, const std::vector<Vec>& positions) {
        if (static_cast<std::size_t>(std::max(layout.nodes, 0)) != positions.size())
            throw StateError(source::field_selection, __LINE__);
        const int b = addBlock(std::move(layout));
        const Columns c = blockCoordinates(b);
        for (std::size_t n = 0; n < c.size; ++n) {
            c.x[n] = positions[n].x;
            c.y[n] = positions[n].y;
            c.z[n] = positions[n].z;
        }
        return b;
    }
    const BlockLayout& layout(int b) const {
        if (b < 0 || b >= blockCount()) throw IndexError(source::field_selection, __LINE__);
        return layouts_[static_cast<std::size_t>(b)];
    }
    // Node count of every block, in order.
    std::vector<int> nodeCounts() const {
        std::vector<int> counts;
        for (const auto& l : layouts_) counts.push_back(l.nodes);
        return counts;
    }
    // Nodes of all blocks together; block b starts at offset(b).
    std::size_t totalNodes() const noexcept { return x_.size(); }
    std::size_t offset(int b) const {
        layout(b);
        return offsets_[static_cast<std::size_t>(b)];
    }
    // First node of every block, and one past the last node.
    std::span<const std::size_t> blockOffsets() const noexcept { return offsets_; }

    Vec position(int b, int n) const {
        const std::size_t k = node(b, n);
        return Vec(x_[k], y_[k], z_[k]);
    }
    void setPosition(int b, int n, const Vec& p) {
        const std::size_t k = node(b, n);
        x_[k] = p.x;
        y_[k] = p.y;
        z_[k] = p.z;
        invalidateNormals();
    }
    // The coordinates of block b to write; drops the derived normals.
    Columns blockCoordinates(int b) {
        const std::size_t first = offset(b);
        invalidateNormals();
        return {x_.data() + first, y_.data() + first, z_.data() + first,
                static_cast<std::size_t>(layouts_[static_cast<std::size_t>(b)].nodes)};
    }
    // Every coordinate, block after block.
    std::span<const double> x() const noexcept { return x_; }
    std::span<const double> y() const noexcept { return y_; }
    std::span<const double> z() const noexcept { return z_; }

    // Three global node numbers a triangle, block after block.
    std::span<const std::int32_t> triangles() const noexcept { return triangles_; }
    // First triangle of every block, and one past the last triangle.
    std::span<const std::size_t> triangleOffsets() const noexcept { return triangleOffsets_; }
    // The triangles of block b, in global node numbers.
    std::span<const std::int32_t> blockTriangles(int b) const {
        layout(b);
        const std::size_t t0 = triangleOffsets_[static_cast<std::size_t>(b)];
        const std::size_t t1 = triangleOffsets_[static_cast<std::size_t>(b) + 1];
        return std::span<const std::int32_t>(triangles_).subspan(3 * t0, 3 * (t1 - t0));
    }

    // The derived node normals; see tundrel::cachedNormals.
    NormalCache& normalCache() const noexcept { return normals_; }
    void invalidateNormals() noexcept { normals_.valid = false; }

    // Removes every block and every function.
    void clear() noexcept {
        functions.clear();
        layouts_.clear();
        x_.clear();
        y_.clear();
        z_.clear();
        triangles_.clear();
        offsets_.assign(1, 0);
        triangleOffsets_.assign(1, 0);
        invalidateNormals();
    }

    // ---- functions --------------------------------------------------------
    int functionCount() const noexcept { return static_cast<int>(functions.size()); }

    FieldFunction* functionAt(int i) const {
        if (i < 0 || i >= functionCount()) throw IndexError(source::geo, geo_lines::kFunctionIndex);
        return functions[static_cast<std::size_t>(i)].get();
    }

    // Index of the first function of exactly that name, or -1.
    int findFunction(const std::string& name) const {
        for (int i = 0; i < functionCount(); ++i) {
            const auto& f = functions[static_cast<std::size_t>(i)];
            if (f && f->name() == name) return i;
        }
        return -1;
    }
    bool hasFunction(const std::string& name) const { return findFunction(name) >= 0; }

    // The function at i as a value type, or nullptr when it is of another kind.
    template <class V>
    BlockFunction<V>* functionAs(int i) const {
        return dynamic_cast<BlockFunction<V>*>(functionAt(i));
    }
    ScalarFunction* scalar(int i) const { return functionAs<double>(i); }
    VectorFunction* vector(int i) const { return functionAs<z::zVec<double>>(i); }
    // The first function of that name as a value type; nullptr when there is
    // none or the first of that name is of another kind.
    template <class V>
    BlockFunction<V>* functionNamed(const std::string& name) const {
        const int i = findFunction(name);
        return i < 0 ? nullptr : functionAs<V>(i);
    }
    // The node normals "$_N", or nullptr.
    VectorFunction* normals() const { return functionNamed<z::zVec<double>>(kNormalsName); }

    // Appends a complete new function (one value per node of every block) and
    // returns it. Names are not checked here; the operations that add a
    // function refuse duplicates themselves.
    template <class V>
    BlockFunction<V>& addFunction(const std::string& name, const V& fill = V{}) {
        auto f = std::make_shared<BlockFunction<V>>(name, nodeCounts(), fill);
        BlockFunction<V>& ref = *f;
        functions.push_back(std::move(f));
        return ref;
    }
    ScalarFunction& addScalar(const std::string& name, double fill = 0.0) { return addFunction<double>(name, fill); }
    VectorFunction& addVector(const std::string& name, const z::zVec<double>& fill = {}) {
        return addFunction<z::zVec<double>>(name, fill);
    }
    SelectionFunction& addSelection(const std::string& name = kSelectionName, unsigned char fill = 0) {
        return addFunction<unsigned char>(name, fill);
    }

    // ---- selection --------------------------------------------------------
    SelectionFunction& selection() const {
        for (int i = 0;; ++i) {
            if (i >= functionCount()) throw IndexError(source::field_selection, selection_lines::kNotFound);
            const FieldFunction* f = functionAt(i);
            if (f == nullptr || f->name() != kSelectionName) continue;
            auto* s = dynamic_cast<SelectionFunction*>(functionAt(i));
            if (s == nullptr) throw IndexError(source::field_selection, selection_lines::kNotASelection);
            return *s;
        }
    }

    // Every query checks the block (range, then node count) before it reads
    // the selection.
    SelectionState blockSelectionState(int b) const {
        const int nodes = checkBlock(b);
        return classify(selection(), b, nodes);
    }

    // Every block is classified, in order; then 2 when some block is partly
    // selected; else 1 when some block is fully selected (even if others are
    // not selected at all); else 0.
    SelectionState selectionState() const {
        if (blockCount() < 1) return NothingSelected;
        const SelectionFunction* s = nullptr;
        bool anyPart = false, anyAll = false;
        for (int b = 0; b < blockCount(); ++b) {
            const int nodes = checkBlock(b);
            if (s == nullptr) s = &selection();
            const SelectionState st = classify(*s, b, nodes);
            anyPart = anyPart || st == PartlySelected;
            anyAll = anyAll || st == AllSelected;
        }
        if (anyPart) return PartlySelected;
        return anyAll ? AllSelected : NothingSelected;
    }

    unsigned char isSelected(int b, int n) const {
        if (b < 0 || b >= blockCount()) throw IndexError(source::field_selection, selection_lines::kNodeBlock);
        if (n < 0 || n >= nodeCount(b)) throw IndexError(source::field_selection, selection_lines::kNodeIndex);
        return selection().at(b, n);
    }

    // The ordered list of functions.
    std::vector<std::shared_ptr<FieldFunction>> functions;

private:
    // The block checks of the selection queries, before the selection is read.
    int checkBlock(int b) const {
        if (b < 0 || b >= blockCount()) throw IndexError(source::field_selection, selection_lines::kBlock);
        const int nodes = nodeCount(b);
        if (nodes < 1) throw IndexError(source::field_selection, selection_lines::kEmptyBlock);
        return nodes;
    }

    SelectionState classify(const SelectionFunction& s, int b, int nodes) const {
        bool some = false, someNot = false;
        for (int n = 0; n < nodes; ++n) (s.at(b, n) != 0 ? some : someNot) = true;
        if (some && someNot) return PartlySelected;
        return some ? AllSelected : NothingSelected;
    }

    std::size_t node(int b, int n) const {
        if (n < 0 || n >= layout(b).nodes) throw IndexError(source::field_selection, __LINE__);
        return offsets_[static_cast<std::size_t>(b)] + static_cast<std::size_t>(n);
    }

    // Two triangles a cell of every layer of a structured block.
    void appendGridTriangles(const BlockLayout& l, std::int32_t first) {
        const int I = l.rowLength;
        if (I < 2) return;
        const int J = l.rows;
        const long long perLayer = static_cast<long long>(I) * J;
        const long long cells = static_cast<long long>(I - 1) * std::max(J - 1, 0) * l.layers;
        std::size_t t = triangles_.size();
        triangles_.resize(t + static_cast<std::size_t>(6 * cells));
        std::int32_t* out = triangles_.data();
        for (long long layer = 0; perLayer > 0 && (layer + 1) * perLayer <= l.nodes; ++layer)
            for (int j = 0; j + 1 < J; ++j)
                for (int i = 0; i + 1 < I; ++i, t += 6) {
                    const auto c = static_cast<std::int32_t>(first + layer * perLayer + i + I * j);
                    out[t] = c, out[t + 1] = c + 1, out[t + 2] = c + I;
                    out[t + 3] = c + I, out[t + 4] = c + 1, out[t + 5] = c + I + 1;
                }
    }

    std::vector<BlockLayout> layouts_;
    std::vector<double> x_, y_, z_;
    std::vector<std::int32_t> triangles_;
    std::vector<std::size_t> offsets_ = {0};
    std::vector<std::size_t> triangleOffsets_ = {0};
    mutable NormalCache normals_;
};

}  // namespace arrayWorks

// The field container of the library's exported operations.
using FieldMasterD = arrayWorks::FieldMaster<z::zVec<double>>;
