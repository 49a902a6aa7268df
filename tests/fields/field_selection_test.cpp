#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "api/TundrelApi.h"
#include "api/detail/node_normals.h"

using arrayWorks::BlockLayout;
using Vec = z::zVec<double>;

namespace {

// One single-row block per entry, a scalar "P" and a "$_selection" holding
// the given bytes (none when `withSelection` is false).
FieldMasterD selected(const std::vector<std::vector<unsigned char>>& bytes, bool withSelection = true) {
    FieldMasterD f;
    for (const auto& b : bytes) {
        BlockLayout l;
        l.nodes = l.rowLength = static_cast<int>(b.size()), l.rows = 1;
        f.addBlock(l, std::vector<Vec>(b.size()));
    }
    f.addScalar("P", 1.0);
    if (!withSelection) return f;
    auto& s = f.addSelection();
    for (std::size_t b = 0; b < bytes.size(); ++b)
        for (std::size_t n = 0; n < bytes[b].size(); ++n) s.at(static_cast<int>(b), static_cast<int>(n)) = bytes[b][n];
    return f;
}

}  // namespace

// Any nonzero byte selects; the whole is partly selected when some block is,
// else selected when some block is wholly selected, even beside unselected ones.
TEST(Selection, StatesOfEachBlockAndOfTheWhole) {
    using S = arrayWorks::SelectionState;
    const struct {
        std::vector<std::vector<unsigned char>> bytes;
        S whole;
        std::vector<S> perBlock;
    } rows[] = {
        {{{1, 1}, {1, 1, 1}}, S::AllSelected, {S::AllSelected, S::AllSelected}},
        {{{0, 0}, {1, 1, 1}, {0}}, S::AllSelected, {S::NothingSelected, S::AllSelected, S::NothingSelected}},
        {{{1, 1}, {1, 0, 1}, {0}}, S::PartlySelected, {S::AllSelected, S::PartlySelected, S::NothingSelected}},
        {{{0, 0}, {0, 0, 0}}, S::NothingSelected, {S::NothingSelected, S::NothingSelected}},
        {{{7, 255}, {0, 0, 0}}, S::AllSelected, {S::AllSelected, S::NothingSelected}},
    };
    for (const auto& row : rows) {
        const FieldMasterD f = selected(row.bytes);
        EXPECT_EQ(f.selectionState(), row.whole);
        for (int b = 0; b < f.blockCount(); ++b) EXPECT_EQ(f.blockSelectionState(b), row.perBlock[static_cast<std::size_t>(b)]);
        EXPECT_EQ(f.isSelected(0, 1), row.bytes[0][1]);
    }
}

// Every error of the queries: kind, code, message, header and line; the
// block is checked (range, then nodes) before the selection is looked for.
TEST(Selection, ErrorsNameTheCheckThatFailed) {
    using Query = std::function<void(FieldMasterD&)>;
    auto blockState = [](int b) -> Query { return [b](FieldMasterD& f) { f.blockSelectionState(b); }; };
    auto node = [](int b, int n) -> Query { return [b, n](FieldMasterD& f) { f.isSelected(b, n); }; };
    auto functionAt = [](int i) -> Query { return [i](FieldMasterD& f) { f.functionAt(i); }; };
    const char* const sel = "..\\api\\field_selection.h";
    const char* const geo = "..\\api\\geo.h";
    const Query none = [](FieldMasterD&) {};
    const struct {
        const char* name;
        std::vector<std::vector<unsigned char>> bytes;
        bool withSelection;
        Query spoil, query;
        bool state;  // StateError, else IndexError
        const char* file;
        int line;
    } rows[] = {
        {"selectionAbsent", {{1, 0}, {1, 1, 1}}, false, none, [](FieldMasterD& f) { f.selection(); }, false, sel, 26},
        {"selectionNotBytes", {{1, 0}}, false,
         [](FieldMasterD& f) { f.functions.clear(), f.addScalar("$_selection"), f.addSelection(); }, blockState(0), false,
         sel, 28},
        {"nodeBlockPastEnd", {{1, 0}, {1, 1, 1}}, true, none, node(2, 0), false, sel, 117},
        {"nodeRangeBeforeSelection", {{1, 0}, {1, 1, 1}}, false, none, node(0, 2), false, sel, 118},
        {"blockNegative", {{1, 0}, {1, 1, 1}}, true, none, blockState(-1), false, sel, 126},
        {"blockRangeBeforeSelection", {{1, 0}, {1, 1, 1}}, false, none, blockState(7), false, sel, 126},
        {"blockWithoutNodes", {{1, 0}, {}}, true, none, blockState(1), false, sel, 136},
        {"selectionLacksBlock", {{1, 0}, {1, 1, 1}}, false,
         [](FieldMasterD& f) {
             f.functions.push_back(std::make_shared<arrayWorks::SelectionFunction>("$_selection", std::vector<int>{2}));
         },
         blockState(1), false, geo, 192},
        {"selectionNotAllocated", {{1, 0}, {1, 1, 1}}, true,
         [](FieldMasterD& f) { f.selection().values.blocks[1].data = nullptr; }, blockState(1), true, geo, 193},
        {"selectionShorterThanBlock", {{1, 0}, {1, 1, 1}}, true,
         [](FieldMasterD& f) { f.selection().values.blocks[1].count = 2; }, blockState(1), false, geo, 79},
        {"functionAtNegative", {{1, 0}}, true, none, functionAt(-1), false, geo, 804},
        {"functionAtAbsentName", {{1, 0}}, true, none, [](FieldMasterD& f) { f.functionAt(f.findFunction("absent")); },
         false, geo, 804},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FieldMasterD f = selected(row.bytes, row.withSelection);
        row.spoil(f);
        const int functions = f.functionCount();
        auto check = [&](const arrayWorks::GenericError& e, bool state) {
            EXPECT_EQ(state, row.state);
            EXPECT_EQ(e.code, row.state ? 5 : 1);
            EXPECT_STREQ(e.message, row.state ? "State error!" : "Index error!");
            EXPECT_STREQ(e.file, row.file);
            EXPECT_EQ(e.line, row.line);
        };
        try {
            row.query(f);
            ADD_FAILURE() << "nothing thrown";
        } catch (const arrayWorks::StateError& e) {
            check(e, true);
        } catch (const arrayWorks::IndexError& e) {
            check(e, false);
        }
        EXPECT_EQ(f.functionCount(), functions);
    }
}

// Blocks share one column per coordinate and one triangle list; a block
// that kernels could not use is refused.
TEST(NodeLayout, AddBlockChecksAndClear) {
    FieldMasterD f;
    BlockLayout faces, odd;  // sizes of `odd` that do not multiply to its node count: one row
    faces.kind = BlockLayout::Kind::Faces;
    faces.nodes = 3, faces.triangles = {0, 2, 1};
    odd.nodes = 4, odd.rowLength = 3, odd.rows = 3;
    f.addBlock(faces, std::vector<Vec>(3));
    f.addBlock(odd, std::vector<Vec>(4));
    EXPECT_TRUE(f.layout(0).triangles.empty() && f.layout(1).rowLength == 4 && f.layout(1).rows == 1);
    faces.triangles = {0, 1, 3};
    EXPECT_THROW(f.addBlock(faces, std::vector<Vec>(3)), arrayWorks::IndexError);  // no node 3
    EXPECT_THROW(f.addBlock(odd, std::vector<Vec>(5)), arrayWorks::StateError);    // positions do not fit
    f.addScalar("P");
    EXPECT_THROW(f.addBlock(odd, std::vector<Vec>(4)), arrayWorks::StateError);    // functions already there
    f.clear();
    EXPECT_TRUE(f.blockCount() == 0 && f.totalNodes() == 0u && f.triangles().empty() && f.blockOffsets().size() == 1u);
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
    EXPECT_TRUE(tundrel::cachedNormals(f).x[0] == 1.0 && tundrel::cachedNormals(f).z[0] == 0.0);
    // "$_N" takes what the cache holds, and keeps it until asked again.
    const arrayWorks::VectorFunction& n = tundrel::updateNormals(f);
    EXPECT_EQ(n.at(0, 2), (Vec{1, 0, 0}));
    EXPECT_TRUE(f.functionNamed<Vec>("$_N") == &n && f.functionNamed<double>("$_N") == nullptr && f.findFunction("$_n") < 0);
    f.setPosition(0, 0, {0, 0, 5});
    EXPECT_EQ(n.at(0, 2), (Vec{1, 0, 0}));
}
