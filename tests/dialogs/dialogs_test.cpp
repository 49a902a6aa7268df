// The parameter dialogs driven through the scripted host, and the file
// choosers.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "api/TundrelApi.h"
#include "tests/test_util.h"

using testutil::HostTest;
using tundrel::ActiveAxesDialog;
using tundrel::ControlTexts;
using tundrel::PressurePortsDialog;
using tundrel::SelfIlluminationDialog;

namespace {

std::unique_ptr<tundrel::Dialog> pressurePorts() {
    auto d = std::make_unique<PressurePortsDialog>();
    d->order = 1;
    d->maxDeflexion = 0.25;
    d->newFieldName = "Cp_pp";
    d->markersFile = "ports.mrk";
    return d;
}

std::unique_ptr<tundrel::Dialog> selfIllumination() {
    auto d = std::make_unique<SelfIlluminationDialog>();
    d->ratio = 0.4;
    d->checkVisibility = true;
    d->newFieldName = "Cp_si";
    return d;
}

std::unique_ptr<tundrel::Dialog> activeAxes() {
    auto d = std::make_unique<ActiveAxesDialog>();
    d->axis1 = "X";
    d->axis2 = "Z";
    d->direction = false;
    return d;
}

const std::string k256(256, 'n');

}  // namespace

// A typed value that the dialog refuses: the dialog stays open with the
// framework's message, and a Cancel afterwards leaves every member as it was.
struct RefusalCase {
    const char* name;
    std::function<std::unique_ptr<tundrel::Dialog>()> make;
    ControlTexts typed;
    const char* message;
};

void PrintTo(const RefusalCase& c, std::ostream* os) { *os << c.name; }

class DialogRefusals : public HostTest, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(DialogRefusals, KeepTheDialogOpenWithTheRangeMessage) {
    const RefusalCase& c = GetParam();
    auto dialog = c.make();
    const ControlTexts before = dialog->controlText();
    host.answerOk(c.typed);
    host.answerCancel();
    EXPECT_FALSE(tundrel::runDialog(*dialog));
    ASSERT_EQ(messages().size(), 1u);
    EXPECT_EQ(messages()[0], c.message);
    EXPECT_EQ(dialog->controlText(), before);
    EXPECT_EQ(host.dialogsShown.size(), 1u);  // one modal loop, kept open
    EXPECT_EQ(host.busyDepth, 0);
    EXPECT_EQ(host.busyChanges, 2);  // the wait cursor off and back on
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DialogRefusals,
    ::testing::Values(
        RefusalCase{"orderAbove", pressurePorts, {{4055, "3"}}, "Please enter an integer between 0 and 2."},
        RefusalCase{"orderBelow", pressurePorts, {{4055, "-1"}}, "Please enter an integer between 0 and 2."},
        RefusalCase{"orderReal", pressurePorts, {{4055, "1.5"}}, "Please enter an integer."},
        RefusalCase{"orderEmpty", pressurePorts, {{4055, ""}}, "Please enter an integer."},
        RefusalCase{"orderOverflow", pressurePorts, {{4055, "99999999999"}}, "Please enter an integer."},
        RefusalCase{"deflexionWord", pressurePorts, {{4054, "small"}}, "Please enter a number."},
        RefusalCase{"deflexionTrailing", pressurePorts, {{4054, "0.5 m"}}, "Please enter a number."},
        RefusalCase{"deflexionInfinite", pressurePorts, {{4054, "inf"}}, "Please enter a number."},
        RefusalCase{"newNameTooLong", pressurePorts, {{4056, k256}}, "Please enter no more than 255 characters."},
        RefusalCase{"fileTooLong", pressurePorts, {{4057, k256}}, "Please enter no more than 255 characters."},
        RefusalCase{"firstRefusalWins", pressurePorts, {{4055, "3"}, {4054, "x"}},
                    "Please enter an integer between 0 and 2."},
        RefusalCase{"ratioAbove", selfIllumination, {{4051, "1.0000001"}}, "Please enter a number between 0 and 1."},
        RefusalCase{"ratioBelow", selfIllumination, {{4051, "-0.01"}, {4053, "new"}},
                    "Please enter a number between 0 and 1."},
        RefusalCase{"ratioWord", selfIllumination, {{4051, "half"}}, "Please enter a number."},
        RefusalCase{"siNameTooLong", selfIllumination, {{4052, "0"}, {4053, k256}},
                    "Please enter no more than 255 characters."},
        RefusalCase{"axisTooLong", activeAxes, {{4061, "1"}, {4062, "0"}, {4059, k256}},
                    "Please enter no more than 255 characters."}),
    [](const auto& info) { return std::string(info.param.name); });

class Dialogs : public HostTest {};

TEST_F(Dialogs, ShowTheirMembersAsTheFrameworkFormatsThem) {
    PressurePortsDialog pp;
    EXPECT_EQ(pp.controlText(), (ControlTexts{{4054, "0"}, {4055, "0"}, {4056, "_pp"}, {4057, ""}}));
    pp.maxDeflexion = 1.0 / 3.0;
    pp.order = 2;
    EXPECT_EQ(pp.controlText().at(4054), "0.333333333333333");
    EXPECT_EQ(pp.controlText().at(4055), "2");
    pp.maxDeflexion = 1e-20;
    EXPECT_EQ(pp.controlText().at(4054), "1e-20");

    SelfIlluminationDialog si;
    EXPECT_EQ(si.controlText(), (ControlTexts{{4051, "1"}, {4052, "0"}, {4053, ""}}));

    ActiveAxesDialog aa;
    EXPECT_EQ(aa.controlText(), (ControlTexts{{4059, ""}, {4060, ""}, {4061, "1"}, {4062, "0"}}));
    aa.direction = false;
    EXPECT_EQ(aa.controlText().at(4061), "0");
    EXPECT_EQ(aa.controlText().at(4062), "1");
}

TEST_F(Dialogs, AcceptedValuesReachTheMembers) {
    PressurePortsDialog pp;
    host.answerOk({{4055, " 2\t"}, {4054, "-1.5e-3"}, {4056, std::string(255, 'a')}, {4057, "/data/p.mrk"}});
    ASSERT_TRUE(tundrel::runDialog(pp));
    EXPECT_EQ(pp.order, 2);
    EXPECT_EQ(pp.maxDeflexion, -1.5e-3);  // no range on the deflexion
    EXPECT_EQ(pp.newFieldName.size(), 255u);
    EXPECT_EQ(pp.markersFile, "/data/p.mrk");

    // Bounds are inclusive; a refused value, then a good one.
    SelfIlluminationDialog si;
    host.answerOk({{4051, "2"}});
    host.answerOk({{4051, "+0"}, {4052, "1"}, {4053, "P_si"}});
    ASSERT_TRUE(tundrel::runDialog(si));
    EXPECT_EQ(si.ratio, 0.0);
    EXPECT_TRUE(si.checkVisibility);
    EXPECT_EQ(si.newFieldName, "P_si");
    host.answerOk({{4051, "1"}, {4052, "0"}, {4053, "\xc3\xa9" + std::string(254, 'e')}});  // 255 characters
    ASSERT_TRUE(tundrel::runDialog(si));
    EXPECT_EQ(si.ratio, 1.0);
    EXPECT_FALSE(si.checkVisibility);
    EXPECT_EQ(messages(), std::vector<std::string>{"Please enter a number between 0 and 1."});

    // Shown texts accepted unchanged come back as the 15 digits shown.
    PressurePortsDialog again;
    again.maxDeflexion = 0.1 + 0.2;
    host.answerOk();
    ASSERT_TRUE(tundrel::runDialog(again));
    EXPECT_EQ(again.maxDeflexion, 0.3);
}

TEST_F(Dialogs, CancelLeavesTheMembers) {
    auto pp = pressurePorts();
    const ControlTexts before = pp->controlText();
    host.answer({{{4055, "2"}, {4056, "other"}}, {}, false, 0});
    EXPECT_FALSE(tundrel::runDialog(*pp));
    EXPECT_EQ(pp->controlText(), before);
    EXPECT_TRUE(messages().empty());
}

TEST_F(Dialogs, BrowseKeepsTheOtherTypedValues) {
    PressurePortsDialog pp;
    pp.newFieldName = "Cp_pp";
    host.chooseNext("/models/wing/ports.mrk");
    host.answer({{{4055, "2"}, {4054, "0.5"}, {4056, "Cp_ports"}, {4057, "typed.mrk"}}, {4058}, true, 4004});
    ASSERT_TRUE(tundrel::runDialog(pp));
    EXPECT_EQ(pp.order, 2);
    EXPECT_EQ(pp.maxDeflexion, 0.5);
    EXPECT_EQ(pp.newFieldName, "Cp_ports");
    EXPECT_EQ(pp.markersFile, "/models/wing/ports.mrk");
    ASSERT_EQ(host.choosersShown.size(), 1u);
    const tundrel::FileChooser& c = host.choosersShown[0];
    EXPECT_EQ(c.defaultExtension, "*.mrk");
    EXPECT_EQ(c.initialName, "Markers");
    EXPECT_EQ(c.filter, "Markers files (*.mrk)|*.mrk||");
    EXPECT_TRUE(c.hideReadOnly && c.promptOnOverwrite);
    EXPECT_FALSE(c.fileMustExist || c.explorer);
}

TEST_F(Dialogs, BrowseCancelledOrRefusedKeepsTheTypedTexts) {
    PressurePortsDialog pp;
    ControlTexts texts = pp.controlText();
    texts[4057] = "typed.mrk";
    texts[4056] = "typed";
    host.chooseNext(std::nullopt);
    pp.pressButton(PressurePortsDialog::kBrowse, texts);
    EXPECT_EQ(texts.at(4057), "typed.mrk");
    EXPECT_EQ(pp.markersFile, "typed.mrk");
    EXPECT_EQ(pp.newFieldName, "typed");

    // A refused value is shown and no chooser opens.
    texts[4055] = "7";
    host.chooseNext("/x.mrk");
    pp.pressButton(PressurePortsDialog::kBrowse, texts);
    EXPECT_EQ(host.choosersShown.size(), 1u);
    EXPECT_EQ(texts.at(4055), "7");
    EXPECT_EQ(pp.markersFile, "typed.mrk");
    EXPECT_EQ(messages(), std::vector<std::string>{"Please enter an integer between 0 and 2."});
}

// chooseActiveAxes: the two present coordinates and the direction.
struct AxesCase {
    bool hasX, hasY, hasZ;
    const char* axis1;
    const char* axis2;
};

class ActiveAxes : public HostTest, public ::testing::WithParamInterface<AxesCase> {};

TEST_P(ActiveAxes, ShowTheTwoPresentCoordinates) {
    const AxesCase& c = GetParam();
    bool direction = false;
    host.answerOk({}, tundrel::kActiveAxesDialog);
    ASSERT_TRUE(tundrel::chooseActiveAxes(c.hasX, c.hasY, c.hasZ, direction));
    EXPECT_FALSE(direction);
    ASSERT_EQ(host.textsShown.size(), 1u);
    const ControlTexts& shown = host.textsShown[0];
    EXPECT_EQ(shown.at(4059), c.axis1);
    EXPECT_EQ(shown.at(4060), c.axis2);
    EXPECT_EQ(shown.at(4061), "0");  // opened with the direction given
    EXPECT_EQ(shown.at(4062), "1");
}

INSTANTIATE_TEST_SUITE_P(Cases, ActiveAxes,
                         ::testing::Values(AxesCase{true, true, false, "X", "Y"}, AxesCase{true, true, true, "X", "Y"},
                                           AxesCase{true, false, true, "X", "Z"}, AxesCase{false, true, true, "Y", "Z"},
                                           AxesCase{true, false, false, "", ""}, AxesCase{false, false, true, "", ""},
                                           AxesCase{false, false, false, "", ""}));

TEST_F(Dialogs, ChooseActiveAxesWritesTheDirectionBackOnlyOnOk) {
    bool direction = true;
    host.answerOk({{4061, "0"}, {4062, "1"}});
    EXPECT_TRUE(tundrel::chooseActiveAxes(true, false, true, direction));
    EXPECT_FALSE(direction);
    host.answerOk({{4061, "1"}, {4062, "0"}});
    EXPECT_TRUE(tundrel::chooseActiveAxes(true, false, true, direction));
    EXPECT_TRUE(direction);
    host.answer({{{4061, "0"}, {4062, "1"}}, {}, false, 0});
    EXPECT_FALSE(tundrel::chooseActiveAxes(true, false, true, direction));
    EXPECT_TRUE(direction);
    EXPECT_EQ(host.busyDepth, 0);
    EXPECT_EQ(host.dialogsShown, (std::vector<int>{4005, 4005, 4005}));
}

TEST(DialogTemplates, EveryCheckedControlIsInItsTemplate) {
    std::vector<int> ids;
    for (const tundrel::DialogResource& r : tundrel::dialogResources()) {
        ids.push_back(r.layout.id);
        EXPECT_EQ(r.layout.font, "MS Sans Serif");
        EXPECT_EQ(r.layout.fontSize, 8);
        for (const tundrel::ControlCheck& check : r.checks) {
            int found = 0;
            for (const tundrel::ControlTemplate& control : r.layout.controls) found += control.id == check.control;
            EXPECT_EQ(found, 1) << r.layout.id << " " << check.control;
        }
        for (const tundrel::ControlTemplate& control : r.layout.controls) {
            if (control.kind != tundrel::ControlKind::Edit && control.kind != tundrel::ControlKind::ReadOnlyEdit)
                continue;
            int checked = 0;
            for (const tundrel::ControlCheck& check : r.checks) checked += check.control == control.id;
            EXPECT_EQ(checked, 1) << r.layout.id << " " << control.id;
        }
        EXPECT_EQ(tundrel::dialogResource(r.layout.id), &r);
    }
    EXPECT_EQ(ids, (std::vector<int>{4000, 4001, 4003, 4004, 4005, 4006, 4007}));
    EXPECT_EQ(tundrel::dialogResource(4002), nullptr);
    EXPECT_EQ(PressurePortsDialog().dialogTemplate().id, 4004);
    EXPECT_EQ(SelfIlluminationDialog().dialogTemplate().id, 4003);
    EXPECT_EQ(ActiveAxesDialog().dialogTemplate().id, 4005);
}

TEST(FileChoosers, FiltersAndOptions) {
    EXPECT_EQ(tundrel::imageFileFilter(),
              "Princeton Files (*.spe)|*.spe|PCO Files (*.b16)|*.b16|PMIS Files (*.pmi)|*.pmi|"
              "Photonic Files (*.flf)|*.flf|Photonic Files (*.tif)|*.tif|Pericolor Files (*.p)|*.p|"
              "All Files (*.*)|*.*||");
    const tundrel::FileChooser image = tundrel::imageFileChooser();
    EXPECT_EQ(image.filter, tundrel::imageFileFilter());
    EXPECT_TRUE(image.defaultExtension.empty() && image.initialName.empty());
    EXPECT_TRUE(image.hideReadOnly && image.fileMustExist && image.explorer);
    EXPECT_FALSE(image.promptOnOverwrite);

    struct Case {
        tundrel::FileChooser chooser;
        const char* ext;
        const char* initial;
        const char* filter;
    };
    for (const Case& c : {Case{tundrel::pointMarkerFileChooser(), "*.apm", "Markers", "Markers files (*.apm)|*.apm||"},
                          Case{tundrel::imageMarkerFileChooser(), "*.mpt", "Markers", "Markers files (*.mpt)|*.mpt||"},
                          Case{tundrel::cameraFileChooser(), "*.cam", "Camera", "Camera files (*.cam)|*.cam||"}}) {
        EXPECT_EQ(c.chooser.defaultExtension, c.ext);
        EXPECT_EQ(c.chooser.initialName, c.initial);
        EXPECT_EQ(c.chooser.filter, c.filter);
        EXPECT_TRUE(c.chooser.hideReadOnly && c.chooser.promptOnOverwrite);
        EXPECT_FALSE(c.chooser.fileMustExist || c.chooser.explorer);
    }
}
