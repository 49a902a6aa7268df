#include <gtest/gtest.h>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"
#include "api/detail/geometry_rules.h"

using arrayWorks::GenericError;
using arrayWorks::IndexError;

namespace {

// Runs f, which must throw an error of the family, and returns its record.
template <class F>
arrayWorks::ErrorInfo caught(F&& f) {
    try {
        f();
    } catch (const GenericError& e) {
        return e;
    }
    ADD_FAILURE() << "nothing thrown";
    return {"", 0, "", 0};
}

}  // namespace

TEST(PtrList, CheckedAccessDistinguishesRangeFromEmptySlot) {
    arrayWorks::PtrList<int> list;
    EXPECT_EQ(caught([&] { list.get(0); }).code, 1);
    list.append(std::make_shared<int>(7));
    list.append(std::make_shared<int>(8));
    EXPECT_EQ(*list.get(1), 8);
    EXPECT_EQ(caught([&] { list.get(-1); }).code, 1);
    EXPECT_EQ(caught([&] { list.get(2); }).code, 1);
    list.reset(0);
    EXPECT_FALSE(list.exists(0));
    EXPECT_EQ(caught([&] { list.get(0); }).code, 5);
    EXPECT_EQ(*list.get(1), 8);  // a failed check changes nothing
}

TEST(StructPatch, VariablesUniqueExactNamedIndexedIFastestAndCountsChecked) {
    StructPatch p(3, 2, 1);
    NodeVariable& x = p.addVariable("X");
    EXPECT_EQ(&p.addVariable("X"), &x);
    EXPECT_EQ(p.variableCount(), 1);
    EXPECT_EQ(x.values, std::vector<double>(6, 0.0));
    x.at(2, 1) = 4.5;
    EXPECT_EQ(x.values[5], 4.5);
    EXPECT_EQ(p.findVariable("x"), nullptr);
    EXPECT_EQ(caught([&] { p.nodeIndex(0, 2); }).line, caught([&] { p.nodeIndex(3, 0); }).line + 1);
    EXPECT_EQ(caught([&] { p.variable(1); }).code, 1);
    EXPECT_THROW(StructPatch(-1, 2, 1), IndexError);
    EXPECT_THROW(StructPatch(100000, 100000, 1), IndexError);

    // Coordinates in any letter case, a later duplicate winning.
    for (const char* name : {"cp", "y", "Z", "x"}) p.addVariable(name);
    CoordinateSlots c = findCoordinates(p.variables);
    EXPECT_TRUE(c.complete());
    EXPECT_EQ((std::vector<int>{c.x, c.y, c.z}), (std::vector<int>{4, 2, 3}));
}

TEST(TriangleList, CheckedRowsColumnsAndErase) {
    arrayWorks::TriangleList t(3, arrayWorks::NodeTriple(1, 2, 3));
    EXPECT_EQ(arrayWorks::TriangleList(-2, {}).count(), 0);
    t.get(1, 0) = 10;
    t.get(2, 2) = 30;
    auto row_line = caught([&] { t.get(3, 0); }).line;
    EXPECT_EQ(caught([&] { t.get(0, 3); }).line, row_line + 1);
    EXPECT_EQ(caught([&] { t.get(0, -1); }).code, 1);
    t.erase(2);
    EXPECT_EQ(t.count(), 2);
    EXPECT_EQ(t.row(1), arrayWorks::NodeTriple(10, 2, 3));
    t.erase(0);
    EXPECT_EQ(t.row(0), arrayWorks::NodeTriple(10, 2, 3));
    EXPECT_EQ(caught([&] { t.erase(1); }).code, 1);
    arrayWorks::NodeTriple n;
    EXPECT_EQ(caught([&] { n[3]; }).code, 1);
}

TEST(CheckedBlocks, BlockAndNodeChecksCarryTheirLines) {
    std::vector<double> store(3, 1.0);
    arrayWorks::CheckedBlocks<double> b;
    b.blocks.push_back({store.data(), 3});
    b.blocks.push_back({nullptr, 0});
    EXPECT_EQ(b.at(0, 2), 1.0);
    struct Row {
        int block, node, code, line;
    } rows[] = {{2, 0, 1, 192}, {-1, 0, 1, 192}, {1, 0, 5, 193}, {0, 3, 1, 79}, {0, -1, 1, 79}};
    for (const Row& r : rows) {
        auto e = caught([&] { b.at(r.block, r.node); });
        EXPECT_EQ(e.code, r.code) << r.block << "," << r.node;
        EXPECT_EQ(e.line, r.line) << r.block << "," << r.node;
        EXPECT_STREQ(e.file, "..\\api\\geo.h");
    }
    arrayWorks::CheckedArray<double> empty;
    EXPECT_EQ(caught([&] { empty.at(0); }).line, 77);
}
