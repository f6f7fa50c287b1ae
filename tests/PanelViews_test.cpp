#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "Control/ActivatorManager.h"
#include "Managers/Encrypt.h"
#include "Managers/FileManager.h"
#include "RuntimeFakes.h"
#include "Views/ControlPanelView.h"
#include "Views/DecryptScriptAlertView.h"
#include "Views/PlaySettingsView.h"

using namespace tactora;
using namespace tactora::testing;
using Strings = std::vector<std::string>;

namespace {

// Writes down every delegate call in order.
struct DelegateLog final : ControlPanelViewDelegate, PlaySettingsViewDelegate, DecryptScriptAlertViewDelegate {
    Strings calls;
    void controlPanelViewDidClickOnRecord(ControlPanelView&) override { calls.push_back("record"); }
    void controlPanelViewDidSelectScript(ControlPanelView&, const std::string& path) override { calls.push_back("select " + path); }
    void controlPanelViewDidDismiss(ControlPanelView&) override { calls.push_back("dismiss"); }
    void playSettingsViewDidConfirmToPlay(PlaySettingsView&) override { calls.push_back("confirm"); }
    void playSettingsViewDidDismiss(PlaySettingsView&) override { calls.push_back("dismiss"); }
    void decryptScriptAlertViewDidConfirmToPlay(DecryptScriptAlertView&) override { calls.push_back("confirm"); }
    void decryptScriptAlertViewDidDismiss(DecryptScriptAlertView&) override { calls.push_back("dismiss"); }
};

class PanelTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(FileManager::prepareDirectories() && DataManager::initDb()); }
    // Makes `path` the current script, with new settings, and forgets earlier delegate calls.
    std::shared_ptr<PlaySettings> chooseScript(const std::string& path) {
        auto settings = std::make_shared<PlaySettings>();
        settings->setScriptTitle(std::filesystem::path(path).filename().string());
        settings->setScriptPath(path);
        Global::sharedInstance().setCurrentPlaySettings(settings);
        log->calls.clear();
        return settings;
    }
    ControlDevice device;
    std::shared_ptr<DelegateLog> log = std::make_shared<DelegateLog>();
};

}  // namespace

TEST_F(PanelTest, ControlPanelListsScriptFilesWithTheirMarkers) {
    for (const char* name : {"a.lua", "B.LUA", "c.E", "notes.txt", ".lua", "sub/inner.lua"}) device.writeScript(name);
    std::filesystem::create_directories(device.scriptsDirectory() / "folder.lua");
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger("libactivator.motion.shake", 3, "a.lua"), {LAEventModeSpringBoard});
    PlaySettings direct;
    direct.setScriptTitle("c.E"), direct.setPlayDirectly(true);
    ASSERT_TRUE(DataManager::insertPlaySettings(direct));
    device.languages.list = {"ja"};

    auto panel = ControlPanelView::make(log.get());
    Strings files = panel->files();
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (Strings{".lua", "B.LUA", "a.lua", "c.E"}));  // no folder, nothing below one
    for (size_t row = 0; row < panel->numberOfRows(); ++row) {
        ControlPanelView::Cell cell = panel->cellForRow(row);
        EXPECT_EQ(cell.activatorAssignedLabel, cell.text == "a.lua" ? "◎" : "") << cell.text;
        EXPECT_EQ(cell.playSettingsLabel, cell.text == "c.E" ? "▷" : "") << cell.text;
    }
    EXPECT_EQ(panel->recordButtonTitle(), "記録");
    EXPECT_EQ(panel->cancelButtonTitle(), "キャンセル");
    EXPECT_EQ(panel->messageText(), "記録をクリックし、或いはスクリプトの実行を選びます");
}

// Each choice is reported before the panel closes; a closed panel reports nothing more.
TEST_F(PanelTest, ControlPanelReportsTheChoiceBeforeItCloses) {
    auto first = ControlPanelView::make(log.get());
    EXPECT_EQ(first->numberOfRows(), 0u);  // an empty directory: only the buttons
    const std::string path = device.writeScript("tap.lua");
    first->loadFiles();
    const std::pair<void (*)(ControlPanelView&), Strings> cases[] = {
        {[](ControlPanelView& p) { p.didSelectRow(0); }, {"select " + path, "dismiss"}},
        {[](ControlPanelView& p) { p.clickOnRecord(); }, {"record", "dismiss"}},
        {[](ControlPanelView& p) { p.clickOnCancel(); }, {"dismiss"}}};
    for (const auto& [act, calls] : cases) {
        auto panel = first ? std::move(first) : ControlPanelView::make(log.get());
        log->calls.clear();
        panel->show();
        ASSERT_EQ(device.presenter.panels().size(), 1u);
        act(*panel);
        EXPECT_TRUE(device.presenter.panels().empty());
        panel->clickOnRecord(), panel->didSelectRow(0);
        EXPECT_EQ(log->calls, calls);
    }
}

TEST_F(PanelTest, PlaySettingsSteppersKeepTheirRangeAndFormat) {
    auto panel = PlaySettingsView::make(log);
    const int count = PlaySettingsView::repeatCountStepperTag, interval = PlaySettingsView::repeatIntervalStepperTag,
              speed = PlaySettingsView::playSpeedStepperTag;
    // Presses of one stepper (below zero: its minus button), then the count, interval and speed shown.
    const struct { int tag, presses; Strings texts; } steps[] = {
        {count, 0, {"1", "1s", "1x"}},    {speed, -9, {"1", "1s", "0.1x"}},    {speed, -1, {"1", "1s", "0.1x"}},
        {speed, 30, {"1", "1s", "1.9x"}}, {interval, -2, {"1", "0s", "1.9x"}}, {count, 1, {"2", "0s", "1.9x"}}};
    for (const auto& step : steps) {
        for (int i = 0; i < std::abs(step.presses); ++i)
            step.presses < 0 ? panel->pressStepperMinus(step.tag) : panel->pressStepperPlus(step.tag);
        EXPECT_EQ((Strings{panel->repeatCountText(), panel->repeatIntervalValueText(), panel->playSpeedValueText()}), step.texts);
    }
    // Typing moves the stepper (clamped); the stepper then counts on from there.
    panel->typeRepeatCount("2000000");
    EXPECT_EQ(panel->repeatCountStepper().value, 1000000);
    panel->typeRepeatCount("41");
    panel->pressStepperPlus(count);
    EXPECT_EQ(panel->repeatCountText(), "42");
    // A tap beside the field hides the keyboard and changes no value.
    EXPECT_TRUE(panel->isEditingRepeatCount());
    panel->viewTapped();
    EXPECT_FALSE(panel->isEditingRepeatCount());
    EXPECT_EQ(panel->repeatCountText(), "42");
}

// The play buttons write the panel's values into the current settings (never into the store) and
// confirm before closing; Cancel writes nothing.
TEST_F(PanelTest, PlaySettingsButtonsWriteTheCurrentSettingsAndConfirmBeforeClosing) {
    const std::string path = device.writeScript("tap.lua");
    const struct { std::string typed; int button; long repeatTime; int nowOrLater; } cases[] = {
        {"25", PlaySettingsView::playNowButtonTag, 25, 0}, {"abc", PlaySettingsView::playLaterButtonTag, 0, 1},
        {"2000000", PlaySettingsView::playNowButtonTag, 2000000, 0},  // the text wins over the stepper
        {"7", PlaySettingsView::cancelButtonTag, 1, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed);
        const bool written = c.button != PlaySettingsView::cancelButtonTag;
        auto settings = chooseScript(path);
        auto panel = PlaySettingsView::make(log);
        panel->show();
        panel->typeRepeatCount(c.typed);
        panel->pressStepperPlus(PlaySettingsView::repeatIntervalStepperTag);
        panel->pressStepperMinus(PlaySettingsView::playSpeedStepperTag);
        panel->buttonClicked(c.button);
        EXPECT_EQ(settings->repeatTime(), c.repeatTime);
        EXPECT_EQ(settings->repeatInterval(), written ? 2 : 1);
        EXPECT_FLOAT_EQ(settings->playSpeed(), written ? 0.9f : 1.0f);
        EXPECT_EQ(settings->playNowOrLater(), c.nowOrLater);
        EXPECT_EQ(log->calls, (written ? Strings{"confirm", "dismiss"} : Strings{"dismiss"}));
        EXPECT_TRUE(device.presenter.panels().empty());
    }
    EXPECT_FALSE(DataManager::findPlaySettingsByScriptTitle("tap.lua"));
}

TEST(PlaySettingsView, ReadsTheCountAsThePlatformReadsAnInteger) {
    const std::pair<const char*, long> cases[] = {{"25", 25}, {"  42abc", 42}, {"-3", -3}, {"+8", 8}, {"abc", 0}, {"", 0},
        {"4 2", 4}, {"99999999999999999999", LONG_MAX}, {"-99999999999999999999", LONG_MIN}};
    for (const auto& [text, value] : cases) EXPECT_EQ(integerValueOfText(text), value) << text;
}

// Only Confirm with the right password (trimmed) hands over the text and remembers the password;
// a wrong one says so, Cancel says nothing.
TEST_F(PanelTest, PasswordPromptRemembersTheTrimmedPasswordAndHandsOverTheText) {
    const std::string plain = device.writeScript("secret.lua", "touchDown(1, 10, 10)\n");
    Encrypt::encryptScript(plain, "pa ss");
    const std::string path = plain + ".e";
    const struct { int button; const char* typed; bool opens; } cases[] = {
        {0, "pa ss", false}, {1, "wrong", false}, {1, "", false}, {1, "  ", false}, {1, " pa ss\n", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed);
        auto settings = chooseScript(path);
        auto prompt = DecryptScriptAlertView::make(log);
        prompt->show();
        ASSERT_EQ(device.hostAlerts.openAlerts().size(), 1u);
        const AlertRequest& shown = device.hostAlerts.openAlerts()[0].request;
        EXPECT_TRUE(shown.secureTextInput);
        EXPECT_EQ(shown.message + "|" + shown.otherButtons.at(0), "Dencrypt Password|Confirm");
        ASSERT_TRUE(device.hostAlerts.pressButtonOfTopAlert(c.button, c.typed));
        EXPECT_EQ(log->calls, (c.opens ? Strings{"confirm", "dismiss"} : Strings{"dismiss"}));
        const bool wrong = c.button == 1 && !c.opens;
        EXPECT_EQ(device.alertMessages(), (wrong ? Strings{"Wrong password!"} : Strings{}));
        if (wrong) {
            EXPECT_EQ(device.hostAlerts.openAlerts()[0].request.cancelButton, "OK");
        }
        while (device.hostAlerts.pressButtonOfTopAlert(0)) continue;
        EXPECT_EQ(settings->scriptContent(), c.opens ? std::optional<std::string>("touchDown(1, 10, 10)\n") : std::nullopt);
        EXPECT_EQ(device.defaults.values.size(), c.opens ? 1u : 0u);
    }
    EXPECT_EQ(device.defaults.stringForKey("script.password." + path), "pa ss");
}
