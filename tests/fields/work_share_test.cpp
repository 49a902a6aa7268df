// One correction shared out over several processes: the shares' received
// sums, added up and applied, give the whole run's field.
#include <gtest/gtest.h>

#include <cmath>

#include "api/TundrelApi.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"

namespace {

// The inside of a sphere with a plate across it that hides pairs from each
// other; the lower half and the plate selected when asked.
FieldMasterD sphereAndPlate(bool select) {
    std::vector<shapes::Block> b = {shapes::sphere(12, 24, 2.0),
        shapes::grid(9, 9, [](int i, int j) { return shapes::V(0.3 * i - 1.2, 0.3 * j - 1.2, 0.2); }, {0, 0, 1})};
    for (std::size_t k = 0; k < b[0].pos.size(); ++k) {
        b[0].value[k] = 1.0 + 0.01 * static_cast<double>(k % 7);
        b[0].selected[k] = select && b[0].pos[k].z < 0;
    }
    b[1].selected.assign(b[1].pos.size(), select);
    return shapes::build(b);
}

std::vector<double> field(const FieldMasterD& f, const std::string& name) {
    const auto* fn = f.scalar(f.findFunction(name));
    return fn == nullptr ? std::vector<double>{} : std::vector<double>(fn->data(), fn->data() + fn->size());
}

}  // namespace

class WorkShares : public testutil::HostTest {};

TEST_F(WorkShares, SharesAddedUpGiveTheWholeRun) {
    const testutil::WalkItself walk;  // the walk's shares, where the exact pass would be cheaper too
    const struct {
        double tolerance;
        bool visibility, select;
    } cases[] = {{0.0, false, false}, {0.0, true, false}, {0.0, false, true}, {1e-2, false, false}, {1e-2, true, true}};
    for (const auto& c : cases) {
        tundrel::SelfIlluminationParameters p{0.8, c.visibility, "P_si", c.tolerance};
        FieldMasterD whole = sphereAndPlate(c.select);
        const tundrel::SelfIlluminationResult all = tundrel::selfIlluminate(whole, "P", p);
        ASSERT_TRUE(all);
        const std::vector<double> want = field(whole, "P_si"), source = field(whole, "P");
        for (int count = 1; count <= 4; ++count) {
            SCOPED_TRACE(testing::Message() << c.tolerance << " " << c.visibility << " " << c.select << " P=" << count);
            FieldMasterD f = sphereAndPlate(c.select);
            std::vector<double> sums(f.totalNodes(), 0.0);
            tundrel::SelfIlluminationStats facts;
            for (int index = 0; index < count; ++index) {
                const tundrel::SelfIlluminationSums part = tundrel::selfIlluminationShare(f, "P", p, {index, count});
                ASSERT_EQ(part.sums.size(), sums.size());
                for (std::size_t k = 0; k < sums.size(); ++k) sums[k] += part.sums[k];
                facts.pairs += part.facts.pairs;
                facts.segmentTests += part.facts.segmentTests;
            }
            EXPECT_EQ(facts.pairs, all.facts.pairs);
            // Hierarchical walks with the obstruction test share traced
            // answers, so who traced which pair depends on the share.
            if (c.tolerance > 0 && c.visibility) EXPECT_GT(facts.segmentTests, 0);
            else EXPECT_EQ(facts.segmentTests, all.facts.segmentTests);
            ASSERT_TRUE(tundrel::applySelfIllumination(f, "P", p, sums, facts));
            const std::vector<double> got = field(f, "P_si");
            // The hierarchical pass sums each receiver in one share: the same bits.
            for (std::size_t k = 0; k < got.size(); ++k)
                EXPECT_NEAR(got[k], want[k], c.tolerance > 0 ? 0.0 : 1e-12 * std::abs(source[k])) << k;
        }
        EXPECT_FALSE(tundrel::selfIlluminationShare(whole, "P", p, {2, 2}).message.empty());
    }
}
