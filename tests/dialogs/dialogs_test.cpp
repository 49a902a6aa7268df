// The parameter dialogs driven through the scripted host, and the file
// choosers.
#include <gtest/gtest.h>

#include <tuple>
#include <memory>

#include "api/TundrelApi.h"
#include "tests/support/test_util.h"

using tundrel::ControlTexts;
using tundrel::PressurePortsDialog;

namespace {

std::unique_ptr<tundrel::Dialog> pressurePorts() {
    auto d = std::make_unique<PressurePortsDialog>();
    d->order = 1, d->maxDeflexion = 0.25, d->newFieldName = "Cp_pp", d->markersFile = "ports.mrk";
    return d;
}

std::unique_ptr<tundrel::Dialog> selfIllumination() {
    auto d = std::make_unique<tundrel::SelfIlluminationDialog>();
    d->ratio = 0.4, d->checkVisibility = true, d->newFieldName = "Cp_si";
    return d;
}

}  // namespace

class Dialogs : public testutil::HostTest {};

TEST_F(Dialogs, RefusalsKeepTheDialogOpenWithTheRangeMessage) {
    using Make = std::unique_ptr<tundrel::Dialog> (*)();
    const std::tuple<Make, ControlTexts, const char*> cases[] = {
        {pressurePorts, {{4055, "3"}}, "Please enter an integer between 0 and 2."},
        {pressurePorts, {{4055, "99999999999"}}, "Please enter an integer."},
        {pressurePorts, {{4054, "0.5 m"}}, "Please enter a number."},
        {pressurePorts, {{4057, std::string(256, 'n')}}, "Please enter no more than 255 characters."},
        {selfIllumination, {{4051, "1.0000001"}}, "Please enter a number between 0 and 1."}};
    for (const auto& [make, typed, message] : cases) {
        tundrel::ScriptedHost fresh;
        tundrel::HostScope inner{fresh};
        auto dialog = make();
        const ControlTexts before = dialog->controlText();
        fresh.answerOk(typed);
        fresh.answerCancel();
        EXPECT_FALSE(tundrel::runDialog(*dialog)) << message;
        EXPECT_EQ(fresh.messages, std::vector<std::string>{message});
        EXPECT_EQ(dialog->controlText(), before) << message;  // Cancel leaves every member as it was
        EXPECT_EQ(fresh.dialogsShown.size(), 1u);
        EXPECT_EQ(fresh.busyChanges, 2);  // the wait cursor off for the loop, then back on
        EXPECT_EQ(fresh.busyDepth, 0);
    }
}

TEST_F(Dialogs, TextsAsTheFrameworkFormatsThemAndAcceptedValues) {
    PressurePortsDialog pp;
    EXPECT_EQ(pp.controlText(), (ControlTexts{{4054, "0"}, {4055, "0"}, {4056, "_pp"}, {4057, ""}}));
    pp.maxDeflexion = 0.1 + 0.2;
    EXPECT_EQ(pp.controlText().at(4054), "0.3");  // 15 digits, as shown and read back
    host.answerOk();
    ASSERT_TRUE(tundrel::runDialog(pp));
    EXPECT_EQ(pp.maxDeflexion, 0.3);
    host.answerOk({{4055, " 2\t"}, {4054, "-1.5e-3"}, {4056, std::string(255, 'a')}, {4057, "/data/p.mrk"}});
    ASSERT_TRUE(tundrel::runDialog(pp));
    EXPECT_TRUE(pp.order == 2 && pp.maxDeflexion == -1.5e-3 && pp.newFieldName.size() == 255 &&
                pp.markersFile == "/data/p.mrk");

    tundrel::SelfIlluminationDialog si;
    EXPECT_EQ(si.controlText(), (ControlTexts{{4051, "1"}, {4052, "0"}, {4053, ""}}));
    host.answerOk({{4051, "+0"}, {4052, "1"}, {4053, "\xc3\xa9" + std::string(254, 'e')}});  // 255 characters
    ASSERT_TRUE(tundrel::runDialog(si));
    EXPECT_TRUE(si.ratio == 0.0 && si.checkVisibility && si.newFieldName.size() == 256);
    EXPECT_TRUE(messages().empty());
}

TEST_F(Dialogs, BrowseKeepsTheOtherTypedValues) {
    PressurePortsDialog pp;
    host.chooseNext("/models/wing/ports.mrk");
    host.answer({{{4055, "2"}, {4054, "0.5"}, {4056, "Cp_ports"}, {4057, "typed.mrk"}}, {4058}, true, 4004});
    ASSERT_TRUE(tundrel::runDialog(pp));
    EXPECT_TRUE(pp.order == 2 && pp.maxDeflexion == 0.5 && pp.newFieldName == "Cp_ports");
    EXPECT_EQ(pp.markersFile, "/models/wing/ports.mrk");
    ASSERT_EQ(host.choosersShown.size(), 1u);
    const tundrel::FileChooser& c = host.choosersShown[0];
    EXPECT_TRUE(c.defaultExtension == "*.mrk" && c.initialName == "Markers" && c.hideReadOnly &&
                c.promptOnOverwrite && !c.fileMustExist && !c.explorer);
    EXPECT_EQ(c.filter, "Markers files (*.mrk)|*.mrk||");

    // Chooser cancelled: the typed texts stay; a refused value: shown, no chooser.
    ControlTexts texts = pp.controlText();
    texts[4057] = "typed.mrk";
    host.chooseNext(std::nullopt);
    pp.pressButton(PressurePortsDialog::kBrowse, texts);
    EXPECT_EQ(texts.at(4057), "typed.mrk");
    texts[4055] = "7";
    host.chooseNext("/x.mrk");
    pp.pressButton(PressurePortsDialog::kBrowse, texts);
    EXPECT_EQ(host.choosersShown.size(), 2u);
    EXPECT_EQ(texts.at(4055), "7");
    EXPECT_EQ(messages(), std::vector<std::string>{"Please enter an integer between 0 and 2."});
}
