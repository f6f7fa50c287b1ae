#pragma once

#include <memory>
#include <string>

#include "Platform/Alerts.h"
#include "Platform/EventRegistry.h"
#include "Views/ControlPanelView.h"
#include "Views/DecryptScriptAlertView.h"
#include "Views/PlaySettingsView.h"

namespace tactora {

class Global;

// Fixed values of the controller.
inline constexpr const char* scriptPasswordKeyFormat = "script.password.%@";
inline constexpr const char* playLaterTipHideKey = "tactora.settings.playlatertiphide";
inline constexpr int playLaterTipAlertTag = 2001;

// The controller inside SpringBoard: turns assigned events, together with the flags of Global
// and the trigger's role, into one action, and is the delegate of every panel and of its own
// alerts. While any of them is open, events are left to the system. Main thread only.
class ActionListener : public LAListener,
                       public ControlPanelViewDelegate,
                       public PlaySettingsViewDelegate,
                       public DecryptScriptAlertViewDelegate,
                       public std::enable_shared_from_this<ActionListener> {
public:
    ActionListener();

    // Start-up inside SpringBoard: registers a new listener, prepares the directories, the
    // store and the default triggers, in that order. Elsewhere it does nothing and answers null.
    // The listener lives as long as the process.
    static std::shared_ptr<ActionListener> load();

    // The central dispatch; marks the event handled exactly when it acts.
    void activatorReceiveEvent(LAEvent& event) override;

    // Control panel.
    void controlPanelViewDidClickOnRecord(ControlPanelView& panel) override;
    void controlPanelViewDidSelectScript(ControlPanelView& panel, const std::string& path) override;
    void controlPanelViewDidDismiss(ControlPanelView& panel) override;
    // Play settings panel.
    void playSettingsViewDidConfirmToPlay(PlaySettingsView& panel) override;
    void playSettingsViewDidDismiss(PlaySettingsView& panel) override;
    // Password prompt.
    void decryptScriptAlertViewDidConfirmToPlay(DecryptScriptAlertView& prompt) override;
    void decryptScriptAlertViewDidDismiss(DecryptScriptAlertView& prompt) override;
    // Own alerts.
    void didPresentAlertView();
    void alertViewDidDismissWithButtonIndex(int buttonIndex);
    void alertViewClickedButtonAtIndex(int tag, int buttonIndex);

    bool isAnyPopupViewShowing() const;
    void initCurrentPlaySettingsFor(const std::string& path);
    void forwardToPlay(const std::string& path);
    void playScriptNow();
    void quitReadyToPlayStatus();
    void showControlPanel();
    void showPlaySettingsView();
    void showDecryptScriptAlertView();
    void showPlayLaterTipAlertView();

    bool isControlPanelShowing() const { return isControlPanelShowing_; }
    bool isPlaySettingsViewShowing() const { return isPlaySettingsViewShowing_; }
    bool isDecryptScriptAlertViewShowing() const { return isDecryptScriptAlertViewShowing_; }
    bool isAnyAlertViewShowing() const { return isAnyAlertViewShowing_; }

    // The panels now owned (null when closed).
    const std::shared_ptr<ControlPanelView>& controlPanel() const { return controlPanel_; }
    const std::shared_ptr<PlaySettingsView>& playSettingsView() const { return playSettingsView_; }
    const std::shared_ptr<DecryptScriptAlertView>& decryptScriptAlertView() const { return decryptScriptAlertView_; }

private:
    // Shows one of the listener's own alerts, with the listener as its delegate.
    void showOwnAlert(AlertRequest alert);
    void stopRecordingWithAlert();

    Global& global_;
    bool isControlPanelShowing_ = false;
    bool isPlaySettingsViewShowing_ = false;
    bool isDecryptScriptAlertViewShowing_ = false;
    bool isAnyAlertViewShowing_ = false;

    std::shared_ptr<ControlPanelView> controlPanel_;
    std::shared_ptr<PlaySettingsView> playSettingsView_;
    std::shared_ptr<DecryptScriptAlertView> decryptScriptAlertView_;
};

}  // namespace tactora
