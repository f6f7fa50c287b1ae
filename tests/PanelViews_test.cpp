#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>

#include "RuntimeFakes.h"
#include "Control/ActivatorManager.h"
#include "Managers/DataManager.h"
#include "Managers/Encrypt.h"
#include "Managers/FileManager.h"
#include "Views/ControlPanelView.h"
#include "Views/DecryptScriptAlertView.h"
#include "Views/PlaySettingsView.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

// Writes down every delegate call in order.
struct DelegateLog final : ControlPanelViewDelegate, PlaySettingsViewDelegate, DecryptScriptAlertViewDelegate {
    std::vector<std::string> calls;
    void controlPanelViewDidClickOnRecord(ControlPanelView&) override { calls.push_back("record"); }
    void controlPanelViewDidSelectScript(ControlPanelView&, const std::string& path) override {
        calls.push_back("select " + path);
    }
    void controlPanelViewDidDismiss(ControlPanelView&) override { calls.push_back("dismiss"); }
    void playSettingsViewDidConfirmToPlay(PlaySettingsView&) override { calls.push_back("confirm"); }
    void playSettingsViewDidDismiss(PlaySettingsView&) override { calls.push_back("dismiss"); }
    void decryptScriptAlertViewDidConfirmToPlay(DecryptScriptAlertView&) override { calls.push_back("confirm"); }
    void decryptScriptAlertViewDidDismiss(DecryptScriptAlertView&) override { calls.push_back("dismiss"); }
};

class PanelTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(FileManager::prepareDirectories());
        ASSERT_TRUE(DataManager::initDb());
    }
    std::shared_ptr<PlaySettings> chooseScript(const std::string& path) {
        auto settings = std::make_shared<PlaySettings>();
        settings->setScriptTitle(std::filesystem::path(path).filename().string());
        settings->setScriptPath(path);
        Global::sharedInstance().setCurrentPlaySettings(settings);
        return settings;
    }
    ControlDevice device;
    std::shared_ptr<DelegateLog> log = std::make_shared<DelegateLog>();
};

}  // namespace

TEST_F(PanelTest, ControlPanelListsScriptFilesWithTheirMarkers) {
    for (const char* name : {"a.lua", "B.LUA", "c.E", "notes.txt", ".lua"}) device.writeScript(name);
    std::filesystem::create_directories(device.scriptsDirectory() / "folder.lua");
    device.writeScript("sub/inner.lua");  // not descended into
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger("libactivator.motion.shake", 3, "a.lua"),
                                             {LAEventModeSpringBoard});
    PlaySettings direct;
    direct.setScriptTitle("c.E");
    direct.setPlayDirectly(true);
    ASSERT_TRUE(DataManager::insertPlaySettings(direct));
    device.languages.list = {"ja"};

    auto panel = ControlPanelView::make(log.get());
    std::vector<std::string> files = panel->files();
    std::sort(files.begin(), files.end());
    EXPECT_EQ(files, (std::vector<std::string>{".lua", "B.LUA", "a.lua", "c.E"}));
    for (size_t row = 0; row < panel->numberOfRows(); ++row) {
        ControlPanelView::Cell cell = panel->cellForRow(row);
        EXPECT_EQ(cell.activatorAssignedLabel, cell.text == "a.lua" ? "◎" : "") << cell.text;
        EXPECT_EQ(cell.playSettingsLabel, cell.text == "c.E" ? "▷" : "") << cell.text;
    }
    EXPECT_EQ(panel->recordButtonTitle(), "記録");
    EXPECT_EQ(panel->cancelButtonTitle(), "キャンセル");
    EXPECT_EQ(panel->messageText(), "記録をクリックし、或いはスクリプトの実行を選びます");
}

TEST_F(PanelTest, ControlPanelReportsTheChoiceBeforeItCloses) {
    auto panel = ControlPanelView::make(log.get());
    EXPECT_EQ(panel->numberOfRows(), 0u);  // an empty directory: only the buttons

    const std::string path = device.writeScript("tap.lua");
    panel->loadFiles();
    panel->show();
    ASSERT_EQ(device.presenter.panels().size(), 1u);
    panel->didSelectRow(0);
    EXPECT_EQ(log->calls, (std::vector<std::string>{"select " + path, "dismiss"}));
    EXPECT_TRUE(device.presenter.panels().empty());
    panel->clickOnRecord();  // a closed panel does nothing more
    panel->didSelectRow(0);
    EXPECT_EQ(log->calls.size(), 2u);

    log->calls.clear();
    auto second = ControlPanelView::make(log.get());
    second->clickOnRecord();
    EXPECT_EQ(log->calls, (std::vector<std::string>{"record", "dismiss"}));
    log->calls.clear();
    ControlPanelView::make(log.get())->clickOnCancel();
    EXPECT_EQ(log->calls, (std::vector<std::string>{"dismiss"}));
}

TEST_F(PanelTest, PlaySettingsSteppersKeepTheirRangeAndFormat) {
    auto panel = PlaySettingsView::make(log);
    EXPECT_EQ(panel->repeatCountText(), "1");
    EXPECT_EQ(panel->repeatIntervalValueText(), "1s");
    EXPECT_EQ(panel->playSpeedValueText(), "1x");
    for (int i = 0; i < 9; ++i) panel->pressStepperMinus(PlaySettingsView::playSpeedStepperTag);
    EXPECT_EQ(panel->playSpeedValueText(), "0.1x");
    panel->pressStepperMinus(PlaySettingsView::playSpeedStepperTag);
    EXPECT_EQ(panel->playSpeedValueText(), "0.1x");
    for (int i = 0; i < 30; ++i) panel->pressStepperPlus(PlaySettingsView::playSpeedStepperTag);
    EXPECT_EQ(panel->playSpeedValueText(), "1.9x");

    panel->pressStepperMinus(PlaySettingsView::repeatIntervalStepperTag);
    panel->pressStepperMinus(PlaySettingsView::repeatIntervalStepperTag);
    EXPECT_EQ(panel->repeatIntervalValueText(), "0s");
    panel->pressStepperPlus(PlaySettingsView::repeatCountStepperTag);
    EXPECT_EQ(panel->repeatCountText(), "2");
    // Typing moves the stepper (clamped); the stepper then counts on from there.
    panel->typeRepeatCount("2000000");
    EXPECT_EQ(panel->repeatCountStepper().value, 1000000);
    panel->typeRepeatCount("41");
    panel->pressStepperPlus(PlaySettingsView::repeatCountStepperTag);
    EXPECT_EQ(panel->repeatCountText(), "42");
    // A tap beside the field hides the keyboard and changes no value.
    EXPECT_TRUE(panel->isEditingRepeatCount());
    panel->viewTapped();
    EXPECT_FALSE(panel->isEditingRepeatCount());
    EXPECT_EQ(panel->repeatCountText(), "42");
}

TEST_F(PanelTest, PlaySettingsButtonsWriteTheCurrentSettingsAndConfirmBeforeClosing) {
    const std::string path = device.writeScript("tap.lua");
    struct Case {
        std::string typed;
        int button;
        long repeatTime;
        int nowOrLater;
    } cases[] = {
        {"25", PlaySettingsView::playNowButtonTag, 25, 0},
        {"abc", PlaySettingsView::playLaterButtonTag, 0, 1},
        {"2000000", PlaySettingsView::playNowButtonTag, 2000000, 0},  // the text wins over the stepper
    };
    for (const Case& c : cases) {
        auto settings = chooseScript(path);
        log->calls.clear();
        auto panel = PlaySettingsView::make(log);
        panel->show();
        panel->typeRepeatCount(c.typed);
        panel->pressStepperPlus(PlaySettingsView::repeatIntervalStepperTag);
        panel->pressStepperMinus(PlaySettingsView::playSpeedStepperTag);
        panel->buttonClicked(c.button);
        EXPECT_EQ(settings->repeatTime(), c.repeatTime) << c.typed;
        EXPECT_EQ(settings->repeatInterval(), 2);
        EXPECT_FLOAT_EQ(settings->playSpeed(), 0.9f);
        EXPECT_EQ(settings->playNowOrLater(), c.nowOrLater);
        EXPECT_EQ(log->calls, (std::vector<std::string>{"confirm", "dismiss"}));
        EXPECT_TRUE(device.presenter.panels().empty());
    }
    // Nothing of it is stored.
    EXPECT_FALSE(DataManager::findPlaySettingsByScriptTitle("tap.lua"));

    auto settings = chooseScript(path);
    log->calls.clear();
    auto panel = PlaySettingsView::make(log);
    panel->typeRepeatCount("7");
    panel->buttonClicked(PlaySettingsView::cancelButtonTag);
    EXPECT_EQ(settings->repeatTime(), 1);
    EXPECT_EQ(settings->playNowOrLater(), 0);
    EXPECT_EQ(log->calls, (std::vector<std::string>{"dismiss"}));
}

TEST(PlaySettingsView, ReadsTheCountAsThePlatformReadsAnInteger) {
    struct Case {
        const char* text;
        long value;
    } cases[] = {{"25", 25}, {"  42abc", 42}, {"-3", -3}, {"+8", 8}, {"abc", 0}, {"", 0}, {"4 2", 4},
                 {"99999999999999999999", LONG_MAX}, {"-99999999999999999999", LONG_MIN}};
    for (const Case& c : cases) EXPECT_EQ(integerValueOfText(c.text), c.value) << c.text;
}

TEST_F(PanelTest, PasswordPromptRemembersTheTrimmedPasswordAndHandsOverTheText) {
    const std::string plain = device.writeScript("secret.lua", "touchDown(1, 10, 10)\n");
    Encrypt::encryptScript(plain, "pa ss");
    const std::string path = plain + ".e";
    auto settings = chooseScript(path);

    auto prompt = DecryptScriptAlertView::make(log);
    prompt->show();
    ASSERT_EQ(device.hostAlerts.openAlerts().size(), 1u);
    const AlertRequest& shown = device.hostAlerts.openAlerts()[0].request;
    EXPECT_TRUE(shown.secureTextInput);
    EXPECT_EQ(shown.message, "Dencrypt Password");
    EXPECT_EQ(shown.otherButtons, std::vector<std::string>{"Confirm"});
    ASSERT_TRUE(device.hostAlerts.pressButtonOfTopAlert(1, " pa ss\n"));

    EXPECT_EQ(log->calls, (std::vector<std::string>{"confirm", "dismiss"}));
    EXPECT_EQ(settings->scriptContent(), "touchDown(1, 10, 10)\n");
    EXPECT_EQ(device.defaults.stringForKey("script.password." + path), "pa ss");
    EXPECT_EQ(device.defaults.values.size(), 1u);
    EXPECT_TRUE(device.hostAlerts.openAlerts().empty());
}

TEST_F(PanelTest, PasswordPromptCancelOrAWrongPasswordOnlyCloses) {
    const std::string plain = device.writeScript("secret.lua", "x = 1\n");
    Encrypt::encryptScript(plain, "right");
    auto settings = chooseScript(plain + ".e");

    auto cancelled = DecryptScriptAlertView::make(log);
    cancelled->show();
    ASSERT_TRUE(device.hostAlerts.pressButtonOfTopAlert(0, "right"));  // Cancel, even with the right text
    EXPECT_EQ(log->calls, (std::vector<std::string>{"dismiss"}));
    EXPECT_FALSE(settings->scriptContent());

    for (const char* wrong : {"wrong", "", "  "}) {
        log->calls.clear();
        auto prompt = DecryptScriptAlertView::make(log);
        prompt->show();
        ASSERT_TRUE(device.hostAlerts.pressButtonOfTopAlert(1, wrong));
        EXPECT_EQ(log->calls, (std::vector<std::string>{"dismiss"})) << wrong;
        ASSERT_EQ(device.hostAlerts.openAlerts().size(), 1u);
        const AlertRequest& alert = device.hostAlerts.openAlerts()[0].request;
        EXPECT_EQ(alert.message, "Wrong password!");
        EXPECT_EQ(alert.cancelButton, "OK");
        device.hostAlerts.pressButtonOfTopAlert(0);
    }
    EXPECT_TRUE(device.defaults.values.empty());
    EXPECT_FALSE(settings->scriptContent());
}
