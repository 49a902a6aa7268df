// One correction shared out over several processes: the shares' received
// sums, added up and applied, give the whole run's field.
#include <gtest/gtest.h>

#include <cmath>

#include "api/TundrelApi.h"
#include "api/fields/self_illumination.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"

using shapes::V;

namespace {

// Two bowls facing each other with a plate between them (pairs hidden from
// each other), the lower bowl and the plate selected when asked.
FieldMasterD bowlsAndPlate(bool select) {
    auto bowl = [](double z0, double s) {
        auto at = [=](int i, int j) { return V(0.5 * i - 3, 0.5 * j - 3, z0 + s * 0.15 * ((0.5 * i - 3) * (0.5 * i - 3) + (0.5 * j - 3) * (0.5 * j - 3))); };
        shapes::Block b = shapes::gridAsFaces(13, 13, at, {});
        for (std::size_t k = 0; k < b.pos.size(); ++k) {
            const V n = V(-0.3 * b.pos[k].x, -0.3 * b.pos[k].y, 1) * s;
            b.normal[k] = n / n.length();
            b.value[k] = 1.0 + 0.01 * static_cast<double>(k % 7);
        }
        return b;
    };
    std::vector<shapes::Block> blocks = {bowl(0.0, 1.0), bowl(4.0, -1.0),
        shapes::grid(9, 9, [](int i, int j) { return V(0.3 * i, 0.3 * j - 1.5, 2.0); }, {0, 0, 1})};
    blocks[0].selected.assign(blocks[0].pos.size(), select);
    blocks[2].selected.assign(blocks[2].pos.size(), select);
    return shapes::build(blocks);
}

std::vector<double> field(const FieldMasterD& f, const std::string& name) {
    const auto* fn = f.scalar(f.findFunction(name));
    return fn == nullptr ? std::vector<double>{} : std::vector<double>(fn->data(), fn->data() + fn->size());
}

}  // namespace

class WorkShares : public testutil::HostTest {};

TEST_F(WorkShares, SharesAddedUpGiveTheWholeRun) {
    const struct {
        double tolerance;
        bool visibility, select;
    } cases[] = {{0.0, false, false}, {0.0, true, false}, {0.0, false, true}, {1e-2, false, false}, {1e-2, true, true}};
    for (const auto& c : cases) {
        tundrel::SelfIlluminationParameters p = tundrel::selfIlluminationDefaults("P");
        p.ratio = 0.8;
        p.checkVisibility = c.visibility;
        p.tolerance = c.tolerance;
        FieldMasterD whole = bowlsAndPlate(c.select);
        const tundrel::SelfIlluminationResult all = tundrel::selfIlluminate(whole, "P", p);
        ASSERT_TRUE(all);
        const std::vector<double> want = field(whole, "P_si");
        for (int count = 1; count <= 4; ++count) {
            SCOPED_TRACE(testing::Message() << c.tolerance << " " << c.visibility << " " << c.select << " P=" << count);
            FieldMasterD f = bowlsAndPlate(c.select);
            std::vector<double> sums(f.totalNodes(), 0.0);
            tundrel::SelfIlluminationStats facts;
            for (int index = 0; index < count; ++index) {
                const tundrel::SelfIlluminationSums part = tundrel::selfIlluminationShare(f, "P", p, {index, count});
                ASSERT_EQ(part.sums.size(), sums.size());
                for (std::size_t k = 0; k < sums.size(); ++k) sums[k] += part.sums[k];
                facts.pairs += part.facts.pairs;
                facts.segmentTests += part.facts.segmentTests;
                EXPECT_EQ(part.facts.participants, all.facts.participants);
            }
            EXPECT_EQ(facts.pairs, all.facts.pairs);
            EXPECT_EQ(facts.segmentTests, all.facts.segmentTests);
            ASSERT_TRUE(tundrel::applySelfIllumination(f, "P", p, sums, facts));
            const std::vector<double> got = field(f, "P_si"), source = field(f, "P");
            for (std::size_t k = 0; k < got.size(); ++k) {
                // The hierarchical pass sums each receiver on one rank: the same bits.
                if (c.tolerance > 0) EXPECT_EQ(got[k], want[k]) << k;
                else EXPECT_NEAR(got[k], want[k], 1e-12 * std::abs(source[k])) << k;
            }
        }
    }
}

TEST_F(WorkShares, RefusesAShareOutsideItsCountAndSumsOfAnotherModel) {
    FieldMasterD f = bowlsAndPlate(false);
    const tundrel::SelfIlluminationParameters p = tundrel::selfIlluminationDefaults("P");
    for (const tundrel::WorkShare s : {tundrel::WorkShare{2, 2}, tundrel::WorkShare{-1, 2}, tundrel::WorkShare{0, 0}})
        EXPECT_FALSE(tundrel::selfIlluminationShare(f, "P", p, s).message.empty()) << s.index << "/" << s.count;
    EXPECT_EQ(tundrel::applySelfIllumination(f, "P", p, std::vector<double>(3, 0.0), {}).message,
              "The received sums have 3 values for a model of " + std::to_string(f.totalNodes()) + " nodes.");
    tundrel::SelfIlluminationParameters taken = p;
    taken.newName = "P";
    EXPECT_EQ(tundrel::selfIlluminationShare(f, "P", taken, {}).message, "The function name alredy exist");
    EXPECT_EQ(f.functionCount(), bowlsAndPlate(false).functionCount());
}
