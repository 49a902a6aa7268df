// The self-illumination correction: node areas, the kernel against a plain
// loop, the obstruction test, edge cases, and the dialog beside the typed core.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <random>

#include "api/TundrelApi.h"
#include "api/fields/self_illumination.h"
#include "api/detail/surface_bvh.h"
#include "dialogs/dialogs.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"
#include "api/detail/self_illumination_kernel.h"

using shapes::V;
using tundrel::SelfIlluminationDialog;

namespace {

// A bowl z = z0 + s a (x^2 + y^2) over an I x J grid, normals on its concave side.
shapes::Block bowl(int I, int J, double z0, double s, bool faces) {
    const double a = 0.15, h = 0.5;
    auto at = [=](int i, int j) {
        const double x = h * (i - 0.5 * (I - 1)), y = h * (j - 0.5 * (J - 1));
        return V(x, y, z0 + s * a * (x * x + y * y));
    };
    shapes::Block b = faces ? shapes::gridAsFaces(I, J, at, {}) : shapes::grid(I, J, at, {});
    for (std::size_t k = 0; k < b.pos.size(); ++k) {
        const V n = V(-2 * a * b.pos[k].x, -2 * a * b.pos[k].y, 1) * s;
        b.normal[k] = n / n.length();
    }
    return b;
}

// Every node's result against the plain loop, to 1e-12 of the magnitudes of its terms.
void expectMatchesReference(const std::vector<double>& got, const FieldMasterD& f, double ratio,
                            const std::function<bool(int, int)>& visible = {}) {
    std::vector<double> mag;
    const std::vector<double> want = shapes::referenceCorrection(f, "P", ratio, visible, &mag);
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t k = 0; k < got.size(); ++k)
        EXPECT_NEAR(got[k], want[k], 1e-12 * (mag[k] + std::abs(want[k]))) << "node " << k;
}

std::vector<double> values(const FieldMasterD& f, const std::string& name) {
    const auto* fn = f.scalar(f.findFunction(name));
    return fn == nullptr ? std::vector<double>{} : std::vector<double>(fn->data(), fn->data() + fn->size());
}

}  // namespace

TEST(NodeArea, FlatGridCountsQuarterHalfAndWholeCells) {
    const double h = 0.5;
    for (bool faces : {false, true}) {
        auto at = [h](int i, int j) { return V(h * i, h * j, 7.0); };
        FieldMasterD f = shapes::build({faces ? shapes::gridAsFaces(4, 3, at, {0, 0, 1}) : shapes::grid(4, 3, at, {0, 0, 1})});
        // Node (i, j) = i + 4 j. Interior 1 cell, edges 1/2, corners 1/4 on
        // the grid; the triangles give the corner where two meet (3 and 8)
        // two thirds of a half cell and the other two corners one third.
        const double rows[][3] = {{5, 1.0, 1.0},      {6, 1.0, 1.0},      {1, 0.5, 0.5},      {4, 0.5, 0.5},
                                  {0, 0.25, 1.0 / 6}, {3, 0.25, 2.0 / 6}, {8, 0.25, 2.0 / 6}, {11, 0.25, 1.0 / 6}};
        for (const auto& r : rows)
            EXPECT_NEAR(tundrel::detail::nodeArea(f, 0, static_cast<int>(r[0])), r[faces ? 2 : 1] * h * h, 1e-15) << r[0];
        EXPECT_THROW(tundrel::detail::nodeArea(f, 0, 12), arrayWorks::IndexError);
        EXPECT_THROW(tundrel::detail::nodeArea(f, 1, 0), arrayWorks::IndexError);
    }
}

// Shape 0: two bowls facing each other (one structured, one of faces) and a
// small ball between them with outward normals, two nodes without value.
// Shape 1: inside a closed convex ball every pair faces itself and nothing is
// in between, every unordered pair tested once. Shape 2: two plates facing
// each other with a screen half way: exactly the pairs whose segment crosses
// the screen drop out, each facing pair tested once. Values random in [1, 2].
TEST(SelfIlluminationKernel, AgreesWithThePlainLoop) {
    const struct {
        int shape, selection;  // selection 0 none, 1 some nodes, 2 every block but the last
        bool visibility;
        double ratio;
        std::int64_t segmentTests;  // -1: some, at most one for two pairs
    } cases[] = {{0, 0, false, 0.37, 0},     {0, 1, false, 1.0, 0},        {0, 2, false, 0.5, 0}, {0, 0, true, 0.37, -1},
                 {0, 1, true, 1.0, -1},      {1, 0, true, 0.8, 282 * 281 / 2}, {2, 2, true, 1.0, 36 * 36}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.shape << " " << c.selection << " " << c.visibility);
        auto at = [](double z) { return [z](int i, int j) { return V(i, j, z); }; };
        std::vector<shapes::Block> blocks =
            c.shape == 0   ? std::vector{bowl(9, 7, 0.0, 1.0, false), bowl(8, 8, 3.0, -1.0, true),
                                       shapes::sphere(4, 7, 0.6, {0.2, -0.1, 1.5}, false)}
            : c.shape == 1 ? std::vector{shapes::sphere(14, 20, 1.5, {0.3, 0.1, -0.2})}
                           // the screen over 1.2 < x < 3.7 at z = 1: no midpoint of two nodes lies on its edge
                           : std::vector{shapes::grid(6, 6, at(0.0), {0, 0, 1}), shapes::grid(6, 6, at(2.0), {0, 0, -1}),
                                         shapes::grid(2, 2, [](int i, int j) { return V(1.2 + 2.5 * i, -0.3 + 5.6 * j, 1.0); },
                                                      {0, 0, 1})};
        std::mt19937 rng(11);
        std::uniform_real_distribution<double> u(1.0, 2.0);
        for (std::size_t b = 0; b < blocks.size(); ++b)
            for (std::size_t k = 0; k < blocks[b].value.size(); ++k) {
                blocks[b].value[k] = u(rng);
                blocks[b].selected[k] = c.selection == 1 ? 2 * (k % 3 != 1) : c.selection == 2 && b + 1 < blocks.size();
            }
        if (c.shape == 0) blocks[1].value[5] = blocks[0].value[20] = arrayWorks::kNoValue;
        FieldMasterD f = shapes::build(blocks);

        const tundrel::Surface s(f);
        const tundrel::SurfaceBvh bvh(s);
        std::function<bool(int, int)> visible;
        if (c.shape == 0 && c.visibility) visible = [&](int a, int b) { return !bvh.occluded(a, b); };
        if (c.shape == 2)
            visible = [&](int a, int b) {
                const double mx = 0.5 * (f.x()[static_cast<std::size_t>(a)] + f.x()[static_cast<std::size_t>(b)]);
                return !(mx > 1.2 && mx < 3.7);
            };
        tundrel::SelfIlluminationStats stats;
        const std::vector<double> got = tundrel::detail::selfIlluminationValues(f, "P", c.ratio, c.visibility, &stats);
        expectMatchesReference(got, f, c.ratio, visible);
        EXPECT_EQ(stats.pairs, stats.participants * (stats.participants - 1));
        if (c.segmentTests >= 0) EXPECT_EQ(stats.segmentTests, c.segmentTests);
        else EXPECT_TRUE(stats.segmentTests > 0 && stats.segmentTests <= stats.pairs / 2);
    }
}

// ---- the correction proper ----------------------------------------------------

class SelfIlluminationCorrection : public testutil::HostTest {
protected:
    // Plate A (P = 1) at z = 0 and plate B (P = 3) at z = dz facing it;
    // coordinates of at least 1 (the coincidence rule is relative to them).
    static FieldMasterD plates(double dz) {
        auto a = shapes::grid(3, 3, [](int i, int j) { return V(1 + i, 1 + j, 0.0); }, {0, 0, 1}, 1.0);
        auto b = shapes::grid(3, 3, [dz](int i, int j) { return V(1 + i, 1 + j, dz); }, {0, 0, -1}, 3.0);
        return shapes::build({a, b});
    }
    static std::vector<double> run(FieldMasterD& f) {
        EXPECT_TRUE(tundrel::detail::correctSelfIllumination(f, "P", 1.0, false, "P_si"));
        return values(f, "P_si");
    }
};

TEST_F(SelfIlluminationCorrection, CoincidentNodesAndNodesWithoutValue) {
    // 1e-11 apart (below 1e-10 of the coordinates): nothing is exchanged; 1e-9 apart they do.
    for (double dz : {0.0, 1e-11}) {
        FieldMasterD f = plates(dz);
        EXPECT_EQ(run(f), values(f, "P")) << dz;
    }
    FieldMasterD apart = plates(1e-9);
    EXPECT_LT(run(apart)[4], 1.0 - 0.1);
    EXPECT_TRUE(host.busyDepth == 0 && host.busyChanges > 0 && host.lastDone == host.lastTotal);

    // A node without value keeps the marker and gives nothing, as if unselected.
    FieldMasterD marked = plates(1.0), unselected = plates(1.0);
    marked.scalar(marked.findFunction("P"))->at(1, 4) = arrayWorks::kNoValue;
    for (int b = 0; b < 2; ++b)
        for (int n = 0; n < 9; ++n) unselected.selection().at(b, n) = !(b == 1 && n == 4);
    const auto a = run(marked), b = run(unselected);
    EXPECT_EQ(a[13], arrayWorks::kNoValue);
    EXPECT_EQ(b[13], 3.0);
    for (std::size_t k = 0; k < a.size(); ++k)
        EXPECT_TRUE(k == 13 || a[k] == b[k]) << k;
}

TEST_F(SelfIlluminationCorrection, BadNamesAndKindsLeaveTheContainerAsItWas) {
    auto line = [&](FieldMasterD& f, const std::string& source) {
        try {
            tundrel::detail::correctSelfIllumination(f, source, 1.0, false, source + "_si");
        } catch (const arrayWorks::IndexError& e) {
            return std::string(e.file) + ":" + std::to_string(e.line);
        }
        return std::string();
    };
    FieldMasterD f = plates(1.0);
    EXPECT_EQ(line(f, "Q"), "..\\api\\geo.h:804");
    EXPECT_FALSE(tundrel::detail::correctSelfIllumination(f, "$_N", 1.0, false, "N_si"));  // not a scalar field
    EXPECT_FALSE(tundrel::detail::correctSelfIllumination(f, "P", 1.0, false, "P"));       // name exists
    EXPECT_EQ(f.functionCount(), 3);

    FieldMasterD noNormals = plates(1.0), noSelection = plates(1.0);
    noNormals.functions.erase(noNormals.functions.begin() + noNormals.findFunction(arrayWorks::kNormalsName));
    noSelection.functions.erase(noSelection.functions.begin() + noSelection.findFunction("$_selection"));
    EXPECT_EQ(line(noNormals, "P"), "..\\api\\geo.h:804");
    EXPECT_EQ(line(noSelection, "P"), "..\\api\\field_selection.h:26");
    EXPECT_TRUE(noNormals.functionCount() == 2 && noSelection.functionCount() == 2);
}

// ---- the dialog and the typed core ----------------------------------------------

class SelfIlluminationDialogLoop : public testutil::HostTest {
protected:
    FieldMasterD f = shapes::build({bowl(5, 4, 0.0, 1.0, false)});  // P = 1 everywhere
    std::string field = "P";
    static tundrel::ControlTexts typed(const std::string& ratio, const std::string& check, const std::string& name) {
        return {{SelfIlluminationDialog::kRatio, ratio}, {SelfIlluminationDialog::kCheckVisibility, check},
                {SelfIlluminationDialog::kNewFieldName, name}};
    }
};

// The dialog's values give the field that the typed core gives for them; the
// dialog remembers ratio and flag, the core nothing.
TEST_F(SelfIlluminationDialogLoop, ProposesTheNameRemembersRatioAndFlagAndStoresTheField) {
    host.answerOk(typed("0.25", "1", "P_si"), tundrel::kSelfIlluminationDialog);
    self_illumination(f, field);
    ASSERT_EQ(host.textsShown.size(), 1u);
    EXPECT_EQ(host.textsShown[0][SelfIlluminationDialog::kNewFieldName], "P_si");
    const std::vector<double> stored = values(f, "P_si");
    ASSERT_EQ(stored.size(), 20u);
    EXPECT_NE(stored[7], 1.0);

    const auto r = tundrel::selfIlluminate(f, "P", {0.25, true, ""});  // an empty name, as the dialog takes it
    ASSERT_TRUE(r) << r.message;
    EXPECT_EQ(r.function, f.scalar(f.findFunction("")));
    for (std::size_t k = 0; k < 20; ++k) EXPECT_DOUBLE_EQ(r.function->data()[k], stored[k]);
    EXPECT_TRUE(r.facts.participants == 20 && r.facts.pairs == 20 * 19);
    EXPECT_EQ(tundrel::selfIlluminate(f, "P", {0.75, false, "other"}).facts.segmentTests, 0);

    // The next call opens with the values the dialog confirmed last; Cancel changes nothing.
    host.answerCancel();
    self_illumination(f, field);
    ASSERT_EQ(host.textsShown.size(), 2u);
    EXPECT_EQ(host.textsShown[1], typed("0.25", "1", "P_si"));
    EXPECT_EQ(f.functionCount(), 6);
    EXPECT_TRUE(host.messages.empty());
    EXPECT_EQ(host.busyDepth, 0);
}

// Parameters by the dialog's rules, then the name, then the source.
TEST_F(SelfIlluminationDialogLoop, CoreRefusesWithTheDialogsMessagesInItsOrder) {
    const struct {
        double ratio;
        std::string source, name;
        const char* message;
    } rows[] = {
        {1.5, "P", "P", "Please enter a number between 0 and 1."},  // the ratio before the name
        {std::nan(""), "P", "x", "Please enter a number."},
        {0.5, "P", std::string(256, 'n'), "Please enter no more than 255 characters."},
        {0.5, "P", "$_N", "The function name alredy exist"},
        {0.5, "absent", "P", "The function name alredy exist"},  // the name before the source
    };
    for (const auto& row : rows) {
        const auto r = tundrel::selfIlluminate(f, row.source, {row.ratio, false, row.name});
        EXPECT_FALSE(r) << row.message;
        EXPECT_EQ(r.message, row.message);
    }
    // Not a scalar field: neither function nor message.
    const auto silent = tundrel::selfIlluminate(f, "$_N", {0.5, false, "N_si"});
    EXPECT_TRUE(!silent && silent.message.empty());
    EXPECT_THROW(tundrel::selfIlluminate(f, "absent", {0.5, false, "x"}), arrayWorks::IndexError);
    EXPECT_EQ(f.functionCount(), 3);
    EXPECT_TRUE(host.messages.empty() && host.dialogsShown.empty());

    // The dialog refuses a taken name and comes back with the values just
    // entered; a name that differs in case only is taken; Cancel adds nothing.
    for (const std::string taken : {"P", "$_N"}) {
        host.messages.clear();
        host.textsShown.clear();
        host.answerOk(typed("0.5", "0", taken));
        if (taken == "$_N") host.answerOk(typed("0.5", "0", "p"));
        else host.answerCancel();
        self_illumination(f, field);
        EXPECT_EQ(host.messages, std::vector<std::string>{"The function name alredy exist"});
        ASSERT_EQ(host.textsShown.size(), 2u);
        EXPECT_EQ(host.textsShown[1][SelfIlluminationDialog::kNewFieldName], taken);
    }
    EXPECT_EQ(values(f, "p").size(), 20u);
    EXPECT_EQ(f.functionCount(), 4);
}

// ---- the hierarchical correction --------------------------------------------------

// At tolerance 1e-3 the correction c = source - result stays within 1e-3 of
// the exact one's largest, with and without the obstruction test, while far
// clusters are taken whole. Inside a closed sphere every value 1 tends to
// 1 - ratio / 4 (ratio f / 4 less on a cap of the fraction f); two bowls
// facing each other with a plate between them have pairs the plate hides.
TEST(SelfIlluminationHierarchy, StaysWithinTheToleranceOfTheExactCorrection) {
    const testutil::WalkItself walk;
    const struct {
        int shape;  // 0 sphere, 1 cap (the nodes with z > 0.5 selected), 2 bowls and plate, 3 thin wing over a bowl,
                    // 4 two small plates far apart facing each other (taken whole by groups of receivers),
                    // 5 two plates facing each other, a screen that takes no part hiding their middles,
                    // 6 shape 4 with a screen that takes no part hiding half of each plate from the other
                    //   (whole groups of receivers judge clusters by a few of them)
        bool visibility;
        double tolerance, limit;  // limit: the value every participant tends to, or 0
    } cases[] = {{0, false, 1e-3, 1 - 0.8 / 4},        {0, true, 1e-3, 1 - 0.8 / 4}, {1, false, 1e-3, 1 - 0.8 * 0.25 / 4},
                 {2, false, 1e-3, 0}, {2, true, 1e-3, 0}, {2, true, 1e-2, 0}, {2, false, 1e-6, 0}, {3, false, 1e-3, 0},
                 {4, false, 1e-3, 0}, {5, true, 1e-3, 0},    {6, true, 1e-3, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.shape << " " << c.visibility << " " << c.tolerance);
        std::vector<shapes::Block> blocks;
        if (c.shape < 2) {
            blocks = {shapes::sphere(30, 60, 1.0)};
            for (std::size_t k = 0; k < blocks[0].pos.size(); ++k) blocks[0].selected[k] = c.shape == 1 && blocks[0].pos[k].z > 0.5;
        } else if (c.shape == 4 || c.shape == 6) {
            auto plate = [](double z, double n) {
                return shapes::grid(16, 16, [=](int i, int j) { return V(0.05 * i + 0.1 * z, 0.05 * j, z); }, {0, 0, n});
            };
            blocks = {plate(0.0, 1.0), plate(20.0, -1.0)};
            if (c.shape == 6) {
                blocks.push_back(shapes::grid(8, 8, [](int i, int j) { return V(0.2 * i - 0.025, 0.2 * j - 0.6, 10.0); }, {0, 0, 1}));
                std::fill(blocks[0].selected.begin(), blocks[0].selected.end(), 1);
                std::fill(blocks[1].selected.begin(), blocks[1].selected.end(), 1);
            }
        } else if (c.shape == 5) {
            // Unobstructed, the middles would take most light; the largest
            // correction is at the rims, and tells what may be left out.
            auto plate = [](double z, double n, double w, int m) {
                return shapes::grid(m, m, [=](int i, int j) { return V(w * i / (m - 1) - w / 2, w * j / (m - 1) - w / 2, z); },
                                    {0, 0, n});
            };
            blocks = {plate(0.0, 1.0, 2.0, 24), plate(1.0, -1.0, 2.0, 24), plate(0.5, 1.0, 1.85, 12)};
            std::fill(blocks[0].selected.begin(), blocks[0].selected.end(), 1);
            std::fill(blocks[1].selected.begin(), blocks[1].selected.end(), 1);
        } else if (c.shape == 3) {  // both sides of the wing in its clusters
            auto side = [](double z, double n) {  // values 1, as the check below assumes
                return shapes::grid(30, 30, [=](int i, int j) { return V(0.1 * i - 1.5, 0.1 * j - 1.5, z); }, {0, 0, n});
            };
            blocks = {bowl(25, 25, 0.0, 1.0, true), side(2.0, -1.0), side(2.01, 1.0)};
        } else {
            blocks = {bowl(25, 25, 0.0, 1.0, true), bowl(25, 25, 4.0, -1.0, false),
                      shapes::grid(15, 15, [](int i, int j) { return V(0.2 * i, 0.2 * j - 1.5, 2.0); }, {0, 0, 1})};
        }
        const FieldMasterD f = shapes::build(blocks);
        tundrel::SelfIlluminationStats stats;
        const auto exact = tundrel::detail::selfIlluminationValues(f, "P", 0.8, c.visibility);
        const auto approx = tundrel::detail::selfIlluminationValues(f, "P", 0.8, c.visibility, &stats, c.tolerance);
        double largest = 0, worst = 0;
        for (std::size_t k = 0; k < exact.size(); ++k) {
            largest = std::max(largest, 1.0 - exact[k]);
            worst = std::max(worst, std::abs(exact[k] - approx[k]));
            if (c.limit > 0 && (c.shape == 0 || blocks[0].selected[k])) {
                EXPECT_NEAR(approx[k], c.limit, 2e-3) << k;
            }
        }
        EXPECT_LE(worst, c.tolerance * largest);
        // Far clusters were taken whole (the cap and the bowls are too small
        // for that at 1e-3, and so is the sphere for clusters judged by rays).
        if ((c.shape == 0 && !c.visibility) || c.shape == 4 || c.tolerance > 1e-3) {
            EXPECT_GT(stats.clusterTerms, c.shape == 4 ? 0 : stats.participants);
        }
        EXPECT_EQ(stats.segmentTests > 0, c.visibility);
    }
}

// The correction is a matter of angles and of areas over squared distances:
// the model scaled by a power of two (every length exact) gives the same
// one. A bound or a rule that weighs lengths of different powers against
// each other would leave out or take whole other clusters and leaves.
TEST(SelfIlluminationHierarchy, GivesTheSameCorrectionAtEveryScale) {
    for (const bool visibility : {false, true}) {
        std::vector<double> unscaled;
        for (const double scale : {1.0, 0x1p-12, 0x1p12}) {
            SCOPED_TRACE(testing::Message() << visibility << " " << scale);
            std::vector<shapes::Block> blocks = {
                bowl(25, 25, 0.0, 1.0, true), bowl(25, 25, 4.0, -1.0, false),
                shapes::grid(15, 15, [](int i, int j) { return V(0.2 * i, 0.2 * j - 1.5, 2.0); }, {0, 0, 1})};
            for (auto& b : blocks)
                for (auto& p : b.pos) p = p * scale;
            const auto got = tundrel::detail::selfIlluminationValues(shapes::build(blocks), "P", 0.8, visibility,
                                                                     nullptr, 1e-3);
            if (unscaled.empty()) unscaled = got;
            ASSERT_EQ(got.size(), unscaled.size());
            for (std::size_t k = 0; k < got.size(); ++k) EXPECT_NEAR(got[k], unscaled[k], 1e-12) << k;
        }
    }
}

// With the obstruction test a tolerance runs the exact pass where the walks
// would trace about as many rays as it does (the inside of a closed sphere:
// every pair exchanges, near by), and the walk where far parts can be judged
// by a few rays (two plates far apart; at 5e-2, as a cluster is judged by
// rays only where its shares are within the tolerance of the largest
// correction: here clusters of a thirty-second of a plate).
TEST(SelfIlluminationHierarchy, RunsTheExactPassWhereThatIsCheaper) {
    auto plate = [](double z, double n) {
        return shapes::grid(32, 32, [=](int i, int j) { return V(0.025 * i + 0.1 * z, 0.025 * j, z); }, {0, 0, n});
    };
    const struct {
        std::vector<shapes::Block> blocks;
        double tolerance;
        bool exact;
    } cases[] = {{{shapes::sphere(20, 40, 1.0)}, 1e-3, true}, {{plate(0.0, 1.0), plate(20.0, -1.0)}, 5e-2, false}};
    for (const auto& c : cases) {
        const FieldMasterD f = shapes::build(c.blocks);
        const auto exact = tundrel::detail::selfIlluminationValues(f, "P", 0.8, true);
        tundrel::SelfIlluminationStats stats;
        const auto got = tundrel::detail::selfIlluminationValues(f, "P", 0.8, true, &stats, c.tolerance);
        ASSERT_EQ(got.size(), exact.size());
        if (c.exact) {
            EXPECT_EQ(std::memcmp(got.data(), exact.data(), got.size() * sizeof(double)), 0);
            EXPECT_EQ(stats.clusterTerms, 0);
        } else {
            EXPECT_GT(stats.clusterTerms, stats.participants);
            EXPECT_LT(stats.segmentTests, stats.participants * (stats.participants - 1) / 4);
        }
    }
}

// The answers the walks keep for each other only spare rays: with room for
// no pair of leaves, for a few (dropped and taken again as the walks go on),
// or for all, the walk gives the same bits.
TEST(SelfIlluminationHierarchy, KeptAnswersChangeNothing) {
    const FieldMasterD f = shapes::build({bowl(25, 25, 0.0, 1.0, true), bowl(25, 25, 4.0, -1.0, false),
                                          shapes::grid(15, 15, [](int i, int j) { return V(0.2 * i, 0.2 * j - 1.5, 2.0); },
                                                       {0, 0, 1})});
    const tundrel::Surface s(f);
    const std::vector<double> area = tundrel::detail::nodeAreas(f, s, std::vector<unsigned char>(s.nodeCount(), 1));
    const std::vector<double> v = values(f, "P");
    tundrel::detail::IlluminationNodes nodes;
    for (std::size_t k = 0; k < s.nodeCount(); ++k) nodes.add(s, f.normals()->data()[k], k, area[k], v[k]);
    const tundrel::SurfaceBvh bvh(s);
    std::vector<double> first;
    std::int64_t rays[3] = {};
    for (int run = 0; run < 3; ++run) {
        tundrel::detail::FarFieldRule rule = tundrel::detail::farFieldRule(1e-3);
        rule.exactWhenCheaper = false;
        rule.pairsKept = run == 0 ? 8.0 : run == 1 ? 0.02 : 0.0;
        tundrel::SelfIlluminationStats stats;
        const std::vector<double> got = tundrel::detail::hierarchicalSums(nodes, 0.8, rule, &bvh, &stats);
        rays[run] = stats.segmentTests;
        if (first.empty()) first = got;
        ASSERT_EQ(got.size(), first.size());
        EXPECT_EQ(std::memcmp(got.data(), first.data(), got.size() * sizeof(double)), 0) << rule.pairsKept;
    }
    // Kept answers spared rays, and fewer kept spared fewer.
    EXPECT_LT(rays[0], rays[1]);
    EXPECT_LE(rays[1], rays[2]);
}

// A run repeats to the bit, with and without the obstruction test, however
// the threads happen to share the rows.
TEST(SelfIlluminationKernel, RepeatsToTheBit) {
    const FieldMasterD f = shapes::build({bowl(20, 19, 0.0, 1.0, true), bowl(15, 15, 3.0, -1.0, false)});
    const int threads = omp_get_max_threads();
    omp_set_num_threads(3);
    std::vector<std::vector<double>> runs[2];
    for (const bool visibility : {false, true})
        for (int run = 0; run < 5; ++run) runs[visibility].push_back(tundrel::detail::selfIlluminationValues(f, "P", 0.7, visibility));
    omp_set_num_threads(threads);  // before any assertion can leave the test
    for (const auto& same : runs)
        for (const auto& again : same)
            ASSERT_EQ(std::memcmp(same[0].data(), again.data(), same[0].size() * sizeof(double)), 0);
}

// A plate taken whole by a far one: the expansion of order q errs as
// (size / distance)^(q + 1), so four times the distance divides the error
// by 4^(q + 1). Order 1 is the receivers' own terms (moments W and D), order 2
// the groups' field (W, D and Q, a parent's gathered from its children's);
// a moment or a shift of the wrong order leaves an error of lower order.
TEST(SelfIlluminationHierarchy, FarTermsErrAsTheirOrderSays) {
    for (const int order : {1, 2}) {
        double error[2] = {0, 0};
        for (int far = 0; far < 2; ++far) {
            const double gap = far == 0 ? 8.0 : 32.0;
            auto plate = [](double z, double n, double shift) {
                shapes::Block b = shapes::grid(16, 16, [=](int i, int j) { return V(0.06 * i + shift, 0.05 * j, z); }, {0, 0, n});
                for (std::size_t k = 0; k < b.pos.size(); ++k) b.value[k] = 1.0 + 0.8 * b.pos[k].x + 0.3 * b.pos[k].y * b.pos[k].y;
                return b;
            };
            const FieldMasterD f = shapes::build({plate(0.0, 1.0, 0.0), plate(gap, -1.0, 0.3 * gap)});
            const tundrel::Surface s(f);
            const std::vector<double> area = tundrel::detail::nodeAreas(f, s, std::vector<unsigned char>(s.nodeCount(), 1));
            const std::vector<double> v = values(f, "P");
            tundrel::detail::IlluminationNodes nodes;
            for (std::size_t k = 0; k < s.nodeCount(); ++k) nodes.add(s, f.normals()->data()[k], k, area[k], v[k]);
            tundrel::detail::FarFieldRule rule;
            rule.order = order;
            rule.theta = 0.5;
            tundrel::SelfIlluminationStats stats;
            const std::vector<double> exact = tundrel::detail::illuminationSums(nodes, 0.7, nullptr);
            const std::vector<double> got = tundrel::detail::hierarchicalSums(nodes, 0.7, rule, nullptr, &stats);
            ASSERT_GT(stats.clusterTerms, 0);
            double worst = 0, largest = 0;
            for (std::size_t i = 0; i < exact.size(); ++i) {
                worst = std::max(worst, std::abs(got[i] - exact[i]));
                largest = std::max(largest, std::abs(exact[i]));
            }
            error[far] = worst / largest;
        }
        SCOPED_TRACE(testing::Message() << "order " << order << ": " << error[0] << " then " << error[1]);
        EXPECT_GT(error[1], 0.0);
        EXPECT_GT(error[0] / error[1], 0.75 * std::pow(4.0, order + 1));
    }
}

// With nothing taken whole (theta 0, no tolerance) the hierarchical walk
// must reach every pair once, whatever the leaf size (single nodes, leaves
// that part a group, leaves larger than a group): it then sums what the
// exact pass sums, with and without the obstruction test.
TEST(SelfIlluminationHierarchy, WithoutFarClustersEqualsTheExactSums) {
    const FieldMasterD f = shapes::build({bowl(12, 11, 0.0, 1.0, true), bowl(9, 9, 3.0, -1.0, false)});
    const tundrel::Surface s(f);
    const std::vector<double> area = tundrel::detail::nodeAreas(f, s, std::vector<unsigned char>(s.nodeCount(), 1));
    tundrel::detail::IlluminationNodes nodes;
    for (std::size_t k = 0; k < s.nodeCount(); ++k) nodes.add(s, f.normals()->data()[k], k, area[k], 1.0 + 0.1 * k);
    const tundrel::SurfaceBvh bvh(s);
    for (const tundrel::SurfaceBvh* b : {static_cast<const tundrel::SurfaceBvh*>(nullptr), &bvh}) {
        const std::vector<double> exact = tundrel::detail::illuminationSums(nodes, 0.7, b);
        for (int leaf : {1, 5, 16, 45}) {
            SCOPED_TRACE(testing::Message() << "leaf " << leaf << " bvh " << (b != nullptr));
            tundrel::detail::FarFieldRule rule;
            rule.order = 2;
            rule.leafSize = leaf;
            const std::vector<double> got = tundrel::detail::hierarchicalSums(nodes, 0.7, rule, b);
            ASSERT_EQ(got.size(), exact.size());
            for (std::size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], exact[i], 1e-12 * (1 + std::abs(exact[i]))) << i;
        }
    }
}
