#include <gtest/gtest.h>

#include <cmath>

#include "api/TundrelApi.h"
#include "dialogs/dialogs.h"
#include "tests/support/shapes.h"
#include "tests/support/test_util.h"

using shapes::V;
using tundrel::SelfIlluminationDialog;

namespace {

// A bowl of 5 x 4 nodes, field "P" = 1 everywhere.
FieldMasterD bowlModel() {
    auto b = shapes::grid(5, 4, [](int i, int j) { return V(i, j, 0.2 * ((i - 2) * (i - 2) + (j - 1.5) * (j - 1.5))); },
                          {0, 0, 1});
    for (std::size_t k = 0; k < b.pos.size(); ++k) {
        const V& p = b.pos[k];
        b.normal[k] = V(-0.4 * (p.x - 2), -0.4 * (p.y - 1.5), 1) / V(-0.4 * (p.x - 2), -0.4 * (p.y - 1.5), 1).length();
    }
    return shapes::build({b});
}

const double* values(const FieldMasterD& f, const std::string& name) {
    const auto* fn = f.scalar(f.findFunction(name));
    return fn == nullptr ? nullptr : fn->data();
}

class SelfIlluminationDialogLoop : public testutil::HostTest {
protected:
    FieldMasterD f = bowlModel();
    std::string field = "P";
    static tundrel::ControlTexts typed(const std::string& ratio, const std::string& check, const std::string& name) {
        return {{SelfIlluminationDialog::kRatio, ratio}, {SelfIlluminationDialog::kCheckVisibility, check},
                {SelfIlluminationDialog::kNewFieldName, name}};
    }
};

}  // namespace

// The dialog's values give the field that the typed core gives for them; the
// dialog remembers ratio and flag, the core nothing.
TEST_F(SelfIlluminationDialogLoop, ProposesTheNameRemembersRatioAndFlagAndStoresTheField) {
    host.answerOk(typed("0.25", "1", "P_si"), tundrel::kSelfIlluminationDialog);
    self_illumination(f, field);
    ASSERT_EQ(host.textsShown.size(), 1u);
    EXPECT_EQ(host.textsShown[0][SelfIlluminationDialog::kNewFieldName], "P_si");
    ASSERT_NE(values(f, "P_si"), nullptr);
    EXPECT_EQ(host.busyDepth, 0);

    const auto r = tundrel::selfIlluminate(f, "P", {0.25, true, ""});  // an empty name, as the dialog takes it
    ASSERT_TRUE(r) << r.message;
    EXPECT_EQ(r.function, f.scalar(f.findFunction("")));
    for (std::size_t k = 0; k < 20; ++k) EXPECT_DOUBLE_EQ(r.function->data()[k], values(f, "P_si")[k]);
    EXPECT_NE(r.function->data()[7], values(f, "P")[7]);
    EXPECT_TRUE(r.facts.participants == 20 && r.facts.pairs == 20 * 19);
    EXPECT_EQ(tundrel::selfIlluminate(f, "P", {0.75, false, "other"}).facts.segmentTests, 0);

    // The next call opens with the values the dialog confirmed last; Cancel changes nothing.
    host.answerCancel();
    self_illumination(f, field);
    ASSERT_EQ(host.textsShown.size(), 2u);
    EXPECT_EQ(host.textsShown[1][SelfIlluminationDialog::kRatio], "0.25");
    EXPECT_EQ(host.textsShown[1][SelfIlluminationDialog::kCheckVisibility], "1");
    EXPECT_EQ(host.textsShown[1][SelfIlluminationDialog::kNewFieldName], "P_si");
    EXPECT_EQ(f.functionCount(), 6);
    EXPECT_TRUE(host.messages.empty());
    EXPECT_EQ(host.busyDepth, 0);
}

TEST_F(SelfIlluminationDialogLoop, ExistingNamesAreRefusedAndTheDialogComesBack) {
    for (const std::string taken : {"P", "$_N"}) {
        host.answerOk(typed("0.5", "0", taken));
        host.answerOk(typed("0.5", "0", "p"));  // differs in case only: accepted
        self_illumination(f, field);
        ASSERT_EQ(host.messages.size(), 1u);
        EXPECT_EQ(host.messages[0], "The function name alredy exist");
        ASSERT_EQ(host.textsShown.size(), 2u);
        EXPECT_EQ(host.textsShown[1][SelfIlluminationDialog::kNewFieldName], taken);  // the values just entered
        EXPECT_NE(values(f, "p"), nullptr);
        f = bowlModel();
        host.messages.clear();
        host.textsShown.clear();
    }
    // Refused again and then cancelled: nothing added.
    host.answerOk(typed("0.5", "0", "P"));
    host.answerCancel();
    self_illumination(f, field);
    EXPECT_EQ(f.functionCount(), 3);
}

// Parameters by the dialog's rules, then the name, then the source.
TEST_F(SelfIlluminationDialogLoop, CoreRefusesWithTheDialogsMessagesInItsOrder) {
    struct Row {
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
    for (const Row& row : rows) {
        const auto r = tundrel::selfIlluminate(f, row.source, {row.ratio, false, row.name});
        EXPECT_FALSE(r) << row.message;
        EXPECT_EQ(r.message, row.message);
    }
    // Not a scalar field: neither function nor message.
    const auto silent = tundrel::selfIlluminate(f, "$_N", {0.5, false, "N_si"});
    EXPECT_TRUE(!silent && silent.message.empty());
    EXPECT_THROW(tundrel::selfIlluminate(f, "absent", {0.5, false, "x"}), arrayWorks::IndexError);
    EXPECT_EQ(f.functionCount(), 3);
    EXPECT_TRUE(host.messages.empty());
    EXPECT_TRUE(host.dialogsShown.empty());
}
