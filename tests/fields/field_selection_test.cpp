#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "api/detail/node_normals.h"
#include "tests/support/test_util.h"

using arrayWorks::BlockLayout;
using Vec = z::zVec<double>;

namespace {

namespace src = arrayWorks::source;
namespace sel = arrayWorks::selection_lines;
namespace geo = arrayWorks::geo_lines;

// A container with one single-row block per node count.
FieldMasterD blocks(const std::vector<int>& counts) {
    FieldMasterD f;
    for (int c : counts) {
        BlockLayout l;
        l.nodes = c;
        l.rowLength = c;
        l.rows = 1;
        f.addBlock(l, std::vector<Vec>(static_cast<std::size_t>(c)));
    }
    return f;
}

// A container with a "$_selection" holding the given bytes, block by block.
FieldMasterD selected(const std::vector<std::vector<unsigned char>>& bytes) {
    std::vector<int> counts;
    for (const auto& b : bytes) counts.push_back(static_cast<int>(b.size()));
    FieldMasterD f = blocks(counts);
    f.addScalar("P", 1.0);
    auto& s = f.addSelection();
    for (std::size_t b = 0; b < bytes.size(); ++b)
        for (std::size_t n = 0; n < bytes[b].size(); ++n) s.at(static_cast<int>(b), static_cast<int>(n)) = bytes[b][n];
    return f;
}

}  // namespace

// ---- every error of the queries: kind, code, message, header, line ---------

struct ErrorCase {
    const char* name;
    std::function<FieldMasterD()> make;
    std::function<void(const FieldMasterD&)> query;
    bool state;  // StateError, else IndexError
    const char* file;
    int line;
};
void PrintTo(const ErrorCase& c, std::ostream* os) { *os << c.name; }

class SelectionErrors : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(SelectionErrors, ThrowsTheCheckThatFailed) {
    const ErrorCase& c = GetParam();
    const FieldMasterD f = c.make();
    const int functions = f.functionCount();
    bool thrown = false, state = false;
    auto check = [&](const arrayWorks::GenericError& e) {
        thrown = true;
        EXPECT_EQ(state, c.state);
        EXPECT_EQ(e.code, c.state ? 5 : 1);
        EXPECT_STREQ(e.message, c.state ? "State error!" : "Index error!");
        EXPECT_STREQ(e.file, c.file);
        EXPECT_EQ(e.line, c.line);
    };
    try {
        c.query(f);
    } catch (const arrayWorks::StateError& e) {
        state = true;
        check(e);
    } catch (const arrayWorks::IndexError& e) {
        check(e);
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(f.functionCount(), functions);
}

namespace {

FieldMasterD twoBlocks() { return selected({{1, 0}, {1, 1, 1}}); }
FieldMasterD withoutSelection() {
    FieldMasterD f = blocks({2, 3});
    f.addScalar("P");
    return f;
}
FieldMasterD withEmptyBlock() { return selected({{1, 0}, {}}); }
// The selection's block arrays do not match the blocks.
FieldMasterD selectionMissingBlock() {
    FieldMasterD f = blocks({2, 3});
    f.functions.push_back(std::make_shared<arrayWorks::SelectionFunction>("$_selection", std::vector<int>{2}));
    return f;
}
FieldMasterD selectionUnallocated() {
    FieldMasterD f = twoBlocks();
    f.selection().values.blocks[1].data = nullptr;
    return f;
}
FieldMasterD selectionShort() {
    FieldMasterD f = twoBlocks();
    f.selection().values.blocks[1].count = 2;
    return f;
}
FieldMasterD selectionAsScalar() {
    FieldMasterD f = blocks({2});
    f.addScalar("$_selection");
    f.addSelection();
    return f;
}

auto blockState(int b) {
    return [b](const FieldMasterD& f) { f.blockSelectionState(b); };
}
auto node(int b, int n) {
    return [b, n](const FieldMasterD& f) { f.isSelected(b, n); };
}
auto functionAt(int i) {
    return [i](const FieldMasterD& f) { f.functionAt(i); };
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Table, SelectionErrors,
    ::testing::Values(
        ErrorCase{"selectionAbsent", withoutSelection, [](const FieldMasterD& f) { f.selection(); }, false,
                  src::field_selection, sel::kNotFound},
        ErrorCase{"selectionNotBytes", selectionAsScalar, blockState(0), false, src::field_selection,
                  sel::kNotASelection},
        ErrorCase{"nodeBlockPastEnd", twoBlocks, node(2, 0), false, src::field_selection, sel::kNodeBlock},
        ErrorCase{"nodeRangeBeforeSelection", withoutSelection, node(0, 2), false, src::field_selection,
                  sel::kNodeIndex},
        ErrorCase{"blockNegative", twoBlocks, blockState(-1), false, src::field_selection, sel::kBlock},
        ErrorCase{"blockRangeBeforeSelection", withoutSelection, blockState(7), false, src::field_selection,
                  sel::kBlock},
        ErrorCase{"blockWithoutNodes", withEmptyBlock, blockState(1), false, src::field_selection, sel::kEmptyBlock},
        ErrorCase{"selectionLacksBlock", selectionMissingBlock, blockState(1), false, src::geo, geo::kBlockIndex},
        ErrorCase{"selectionNotAllocated", selectionUnallocated, blockState(1), true, src::geo,
                  geo::kBlockNotAllocated},
        ErrorCase{"selectionShorterThanBlock", selectionShort, blockState(1), false, src::geo, geo::kArrayIndex},
        ErrorCase{"functionAtNegative", twoBlocks, functionAt(-1), false, src::geo, geo::kFunctionIndex},
        ErrorCase{"functionAtAbsentName", twoBlocks,
                  [](const FieldMasterD& f) { f.functionAt(f.findFunction("absent")); }, false, src::geo,
                  geo::kFunctionIndex}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- lookups and blocks ---------------------------------------------------------

TEST(Functions, FindFunctionMatchesTheWholeNameExactlyAndFindsTheFirst) {
    FieldMasterD f = blocks({2});
    f.addScalar("cp");
    f.addScalar("$_N");
    f.addVector("$_N");
    f.addScalar("cp");
    EXPECT_EQ(f.findFunction("cp"), 0);
    EXPECT_EQ(f.findFunction("$_N"), 1);
    for (const char* absent : {"CP", "c", "cp ", "", "$_n"}) EXPECT_EQ(f.findFunction(absent), -1) << absent;
    EXPECT_NE(f.functionAt(3), f.functionAt(0));
    // Typed lookups go by the first of a name and tell the kinds apart.
    EXPECT_EQ(f.normals(), nullptr);
    EXPECT_NE(f.functionNamed<double>("cp"), nullptr);
    EXPECT_EQ(f.functionNamed<Vec>("cp"), nullptr);
    EXPECT_EQ(f.functionAt(2)->kind(), arrayWorks::FunctionKind::Vector);
}

// ---- the node layout ------------------------------------------------------------

TEST(NodeLayout, BlocksShareOneColumnPerCoordinateAndOneTriangleList) {
    FieldMasterD f;
    BlockLayout grid;
    grid.nodes = 6, grid.rowLength = 3, grid.rows = 2;
    BlockLayout faces;
    faces.kind = BlockLayout::Kind::Faces;
    faces.nodes = 3, faces.triangles = {0, 2, 1};
    BlockLayout odd;  // sizes that do not multiply to the node count: one row
    odd.nodes = 4, odd.rowLength = 3, odd.rows = 3;
    f.addBlock(grid, {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 1, 0}, {1, 1, 0}, {2, 1, 0}});
    f.addBlock(faces, {{0, 0, 1}, {1, 0, 1}, {0, 1, 1}});
    f.addBlock(odd, std::vector<Vec>(4));
    EXPECT_EQ(std::vector<double>(f.z().begin(), f.z().end()), (std::vector<double>{0, 0, 0, 0, 0, 0, 1, 1, 1, 0, 0, 0, 0}));
    EXPECT_EQ(std::vector<std::int32_t>(f.triangles().begin(), f.triangles().end()),
              (std::vector<std::int32_t>{0, 1, 3, 3, 1, 4, 1, 2, 4, 4, 2, 5, 6, 8, 7}));
    EXPECT_EQ(std::vector<std::int32_t>(f.blockTriangles(1).begin(), f.blockTriangles(1).end()),
              (std::vector<std::int32_t>{6, 8, 7}));
    EXPECT_TRUE(f.layout(1).triangles.empty());
    EXPECT_EQ(f.layout(2).rowLength, 4);
    EXPECT_EQ(f.layout(2).rows, 1);
    EXPECT_EQ(std::vector<std::size_t>(f.blockOffsets().begin(), f.blockOffsets().end()),
              (std::vector<std::size_t>{0, 6, 9, 13}));
    EXPECT_EQ(f.position(1, 2), (Vec{0, 1, 1}));
    EXPECT_THROW(f.position(1, 3), arrayWorks::IndexError);

    faces.triangles = {0, 1, 3};
    EXPECT_THROW(f.addBlock(faces, std::vector<Vec>(3)), arrayWorks::IndexError);
    EXPECT_THROW(f.addBlock(grid, std::vector<Vec>(5)), arrayWorks::StateError);
    f.addScalar("P");
    EXPECT_THROW(f.addBlock(grid, std::vector<Vec>(6)), arrayWorks::StateError);
    EXPECT_EQ(f.blockCount(), 3);
    f.clear();
    EXPECT_EQ(f.totalNodes(), 0u);
    EXPECT_TRUE(f.triangles().empty());
    EXPECT_EQ(f.blockOffsets().size(), 1u);
}

// The derived normals follow every position change, whichever way it is made.
TEST(NodeLayout, CachedNormalsFollowThePositions) {
    FieldMasterD f;
    BlockLayout grid;
    grid.nodes = 4, grid.rowLength = 2, grid.rows = 2;
    f.addBlock(grid, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}});
    EXPECT_EQ(tundrel::cachedNormals(f).z[3], 1.0);
    f.setPosition(0, 1, {-1, 0, 0});  // the grid mirrored: turned over
    f.setPosition(0, 3, {-1, 1, 0});
    EXPECT_EQ(tundrel::cachedNormals(f).z[3], -1.0);
    const arrayWorks::Columns c = f.blockCoordinates(0);
    for (std::size_t n = 0; n < c.size; ++n) std::swap(c.x[n], c.z[n]);  // into the plane x = 0
    EXPECT_EQ(tundrel::cachedNormals(f).x[0], 1.0);
    EXPECT_EQ(tundrel::cachedNormals(f).z[0], 0.0);
    // "$_N" takes what the cache holds, and keeps it until asked again.
    const arrayWorks::VectorFunction& n = tundrel::updateNormals(f);
    EXPECT_EQ(n.at(0, 2), (Vec{1, 0, 0}));
    f.setPosition(0, 0, {0, 0, 5});
    EXPECT_EQ(n.at(0, 2), (Vec{1, 0, 0}));
}
