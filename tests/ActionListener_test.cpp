#include "Control/ActionListener.h"

#include <gtest/gtest.h>

#include "Control/ActivatorManager.h"
#include "Control/ScriptManager.h"
#include "Managers/Encrypt.h"
#include "RuntimeFakes.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

const std::string panelEvent = LAEventNameVolumeDownHoldShort, startStopEvent = LAEventNameVolumeDownPress;
const std::string shakeEvent = "libactivator.motion.shake";

class ActionListenerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(listener = ActionListener::load()); }
    void TearDown() override {
        // Let a run that is still going end before the device goes.
        if (global().isPlaying()) ScriptManager::stopPlaying();
        device.runUntil([&] { return !global().isPlaying() && !global().luaBridge(); });
    }

    bool send(const std::string& event) { return device.registry.sendEvent(event); }
    Global& global() { return Global::sharedInstance(); }
    bool hasAlert(const std::string& message) { return std::ranges::count(device.alertMessages(), message) > 0; }
    void closeAlerts() { while (device.hostAlerts.pressButtonOfTopAlert(0)) continue; }
    // Picks `title` from the control panel and answers the play settings panel with Play Later.
    void playLater(const std::string& title) {
        ASSERT_TRUE(send(panelEvent));
        ASSERT_TRUE(listener->controlPanel());
        auto files = listener->controlPanel()->files();
        auto row = std::ranges::find(files, title);
        ASSERT_NE(row, files.end());
        listener->controlPanel()->didSelectRow(row - files.begin());
        ASSERT_TRUE(listener->playSettingsView());
        listener->playSettingsView()->buttonClicked(PlaySettingsView::playLaterButtonTag);
    }
    bool runUntil(const std::function<bool()>& done) { return device.runUntil(done); }

    ControlDevice device;
    std::shared_ptr<ActionListener> listener;
};

}  // namespace

TEST_F(ActionListenerTest, RecordingStartsFromThePanelAndTheControlEventEndsIt) {
    EXPECT_FALSE(send(startStopEvent));  // idle: left to the system
    ASSERT_TRUE(send(panelEvent));
    EXPECT_TRUE(listener->isControlPanelShowing());
    EXPECT_FALSE(send(panelEvent));  // the panel is open
    const int vibrations = device.feedback.vibrations;
    listener->controlPanel()->clickOnRecord();
    EXPECT_FALSE(listener->isControlPanelShowing());
    EXPECT_TRUE(global().isRecording());
    EXPECT_EQ(device.feedback.vibrations, vibrations + 1);

    EXPECT_FALSE(send(startStopEvent));
    ASSERT_TRUE(send(panelEvent));
    EXPECT_FALSE(global().isRecording());
    EXPECT_EQ(device.feedback.vibrations, vibrations + 2);
    EXPECT_TRUE(hasAlert("Recording Finished!"));
    EXPECT_TRUE(listener->isAnyAlertViewShowing());
    EXPECT_FALSE(send(panelEvent));  // our own alert is open
    closeAlerts();
    EXPECT_FALSE(listener->isAnyPopupViewShowing());
    EXPECT_TRUE(send(panelEvent));
}

TEST_F(ActionListenerTest, PlayLaterWaitsForStartStopAndTheControlEventQuitsInOneStep) {
    device.writeScript("loop.lua", "while true do usleep(20000) end\n");
    device.languages.list = {"ja"};
    playLater("loop.lua");
    EXPECT_TRUE(global().isReadyToPlay());
    EXPECT_FALSE(global().isPlaying());

    // The tip is open: events are ignored and left unhandled.
    ASSERT_EQ(device.hostAlerts.openAlerts().size(), 1u);
    const AlertRequest& tip = device.hostAlerts.openAlerts()[0].request;
    EXPECT_EQ(tip.tag, playLaterTipAlertTag);
    EXPECT_EQ(tip.cancelButton, "オーケー");
    EXPECT_FALSE(send(startStopEvent));
    EXPECT_FALSE(global().isPlaying());
    ASSERT_TRUE(device.hostAlerts.pressButtonOfTopAlert(1));  // "Don't show again"
    EXPECT_TRUE(device.defaults.boolForKey(playLaterTipHideKey));

    // Start/stop plays and stops again and again; the script stays ready.
    ASSERT_TRUE(send(startStopEvent));
    ASSERT_TRUE(runUntil([&] { return global().isPlaying(); }));
    ASSERT_TRUE(send(startStopEvent));
    ASSERT_TRUE(runUntil([&] { return !global().isPlaying() && !global().luaBridge(); }));
    EXPECT_TRUE(global().isReadyToPlay());
    ASSERT_TRUE(global().currentPlaySettings());
    EXPECT_EQ(global().currentPlaySettings()->scriptTitle(), "loop.lua");
    closeAlerts();
    ASSERT_TRUE(send(startStopEvent));
    ASSERT_TRUE(runUntil([&] { return global().isPlaying(); }));

    // Ready-playing: the control event stops the run and leaves "ready" at once.
    ASSERT_TRUE(send(panelEvent));
    EXPECT_FALSE(global().isPlaying() || global().isReadyToPlay() || global().currentPlaySettings());
    ASSERT_FALSE(device.hostAlerts.openAlerts().empty());
    const AlertRequest& quit = device.hostAlerts.openAlerts().back().request;
    EXPECT_EQ(quit.message, "実行準備状態を終了しました！");
    EXPECT_EQ(quit.cancelButton, "OK");  // never localised
    ASSERT_TRUE(runUntil([&] { return !global().luaBridge(); }));
    closeAlerts();

    // With the tip hidden, the next play later asks nothing; the control event quits "ready".
    playLater("loop.lua");
    EXPECT_TRUE(global().isReadyToPlay());
    EXPECT_TRUE(device.hostAlerts.openAlerts().empty());
    ASSERT_TRUE(send(panelEvent));
    EXPECT_FALSE(global().isReadyToPlay());
    EXPECT_TRUE(hasAlert("実行準備状態を終了しました！"));
}

TEST_F(ActionListenerTest, EncryptedScriptsUseTheRememberedPasswordAndForgetAWrongOne) {
    const std::string plain = device.writeScript("secret.lua", "x = 1\n");
    Encrypt::encryptScript(plain, "right");
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger(shakeEvent, forWhatPlayScript, "secret.lua.e"),
                                             {LAEventModeSpringBoard});
    const std::string key = "script.password." + plain + ".e";

    // A remembered password that no longer works is forgotten, and the prompt asks.
    device.defaults.setObject(key, std::string("stale"));
    ASSERT_TRUE(send(shakeEvent));
    EXPECT_FALSE(device.defaults.objectForKey(key));
    ASSERT_TRUE(listener->isDecryptScriptAlertViewShowing());
    ASSERT_TRUE(device.hostAlerts.pressButtonOfTopAlert(1, "right"));
    EXPECT_FALSE(listener->isDecryptScriptAlertViewShowing());
    ASSERT_TRUE(listener->isPlaySettingsViewShowing());
    EXPECT_EQ(global().currentPlaySettings()->scriptContent(), "x = 1\n");
    EXPECT_EQ(global().currentPlaySettings()->playType(), 1);
    listener->playSettingsView()->buttonClicked(PlaySettingsView::cancelButtonTag);

    // Now it is remembered: a script that plays directly starts without any panel.
    global().setCurrentPlaySettings(nullptr);
    PlaySettings direct;
    direct.setScriptTitle("secret.lua.e"), direct.setPlayDirectly(true);
    ASSERT_TRUE(DataManager::insertPlaySettings(direct));
    ASSERT_TRUE(send(shakeEvent));
    EXPECT_FALSE(listener->isAnyPopupViewShowing());
    ASSERT_TRUE(runUntil([&] { return !global().isPlaying() && !global().currentPlaySettings(); }));
}
