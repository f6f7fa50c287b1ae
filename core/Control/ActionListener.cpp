#include "Control/ActionListener.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "Control/ActivatorManager.h"
#include "Control/ScriptManager.h"
#include "Kernel/Recorder.h"
#include "Managers/DataManager.h"
#include "Managers/Encrypt.h"
#include "Managers/FileManager.h"
#include "Managers/PlaySettingsManager.h"
#include "Models/Global.h"
#include "Platform/Feedback.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"
#include "Views/Localization.h"

namespace tactora {

namespace {

void vibrate() { platform().feedback->vibrate(); }

}  // namespace

ActionListener::ActionListener() : global_(Global::sharedInstance()) {}

std::shared_ptr<ActionListener> ActionListener::load() {
    EventRegistry& activator = *platform().eventRegistry;
    if (!activator.isRunningInsideSpringBoard()) return nullptr;
    // Never freed: the registry keeps a plain pointer for the life of the process.
    static std::vector<std::shared_ptr<ActionListener>> listeners;
    auto listener = std::make_shared<ActionListener>();
    listeners.push_back(listener);
    activator.registerListener(listener.get(), listenerName);
    FileManager::prepareDirectories();
    DataManager::initDb();
    ActivatorManager::initControlActions();
    return listener;
}

bool ActionListener::isAnyPopupViewShowing() const {
    return isControlPanelShowing_ || isPlaySettingsViewShowing_ || isDecryptScriptAlertViewShowing_ ||
           isAnyAlertViewShowing_;
}

void ActionListener::activatorReceiveEvent(LAEvent& event) {
    if (isAnyPopupViewShowing()) return;
    auto trigger = ActivatorManager::getActivatorTriggerByEventName(event.name());
    if (!trigger) return;

    const bool playing = global_.isPlaying();
    const bool recording = global_.isRecording();
    const bool ready = global_.isReadyToPlay();
    const bool idle = !playing && !recording && !ready;
    const bool inRecording = recording && !playing && !ready;
    const bool inPlaying = playing && !recording && !ready;
    const bool inReady = ready && !playing && !recording;
    const bool inReadyPlaying = ready && playing && !recording;

    switch (trigger->forWhat()) {
        case forWhatControlPanel:
            if (idle) showControlPanel();
            else if (inRecording) stopRecordingWithAlert();
            else if (inPlaying) ScriptManager::stopPlaying();
            else if (inReady || inReadyPlaying) quitReadyToPlayStatus();
            else return;
            break;
        case forWhatStartStopPlaying:
            if (inReady) playScriptNow();
            else if (inReadyPlaying) ScriptManager::stopPlaying();
            else return;
            break;
        case forWhatPlayScript: {
            // While one script plays or waits, another script's trigger does nothing.
            auto current = global_.currentPlaySettings();
            if (trigger->scriptTitle() && current && current->scriptTitle() != trigger->scriptTitle()) return;
            if (idle) {
                // A title from the store is a file name in the scripts directory, nothing else.
                if (!trigger->scriptTitle() || !FileManager::isScriptTitle(*trigger->scriptTitle())) return;
                forwardToPlay((std::filesystem::path(platform().paths->map(devicepaths::scriptsDirectory)) /
                               *trigger->scriptTitle())
                                  .string());
            } else if (inPlaying) {
                ScriptManager::stopPlaying();
            } else if (inReady || inReadyPlaying) {
                quitReadyToPlayStatus();
            } else {
                return;
            }
            break;
        }
        default:
            return;
    }
    event.setHandled(true);
}

void ActionListener::stopRecordingWithAlert() {
    stopRecording();
    vibrate();
    AlertRequest alert;
    alert.title = localizedText("Tactora");
    alert.message = localizedText("Recording Finished!");
    alert.cancelButton = localizedText("OK");
    showOwnAlert(std::move(alert));
}

void ActionListener::initCurrentPlaySettingsFor(const std::string& path) {
    std::string title = std::filesystem::path(path).filename().string();
    auto settings = PlaySettingsManager().findPlaySettingsByScriptTitle(title);
    if (!settings) {
        settings = std::make_shared<PlaySettings>();
        settings->setScriptTitle(title);
    }
    settings->setScriptPath(path);
    global_.setCurrentPlaySettings(settings);
}

void ActionListener::forwardToPlay(const std::string& path) {
    initCurrentPlaySettingsFor(path);
    auto settings = global_.currentPlaySettings();
    std::string extension = FileManager::lowerCasedExtension(path);
    if (extension == "lua") {
        settings->setPlayType(0);
    } else if (extension == "e") {
        settings->setPlayType(1);
        const std::string key = scriptPasswordKey(path);
        std::string password = platform().userDefaults->stringForKey(key).value_or("");
        std::optional<std::string> content = Encrypt::decryptScript(path, password);
        if (!content) {
            // A remembered password that no longer works is forgotten before asking.
            if (!password.empty()) platform().userDefaults->removeObject(key);
            showDecryptScriptAlertView();
            return;
        }
        settings->setScriptContent(std::move(content));
    } else {
        // Deliberately leaves the settings in place.
        return;
    }
    if (settings->playDirectly()) playScriptNow();
    else showPlaySettingsView();
}

void ActionListener::playScriptNow() { ScriptManager::runScript(); }

void ActionListener::quitReadyToPlayStatus() {
    if (global_.isPlaying()) ScriptManager::stopPlaying();
    global_.setCurrentPlaySettings(nullptr);
    global_.setIsReadyToPlay(false);
    vibrate();
    AlertRequest alert;
    alert.title = localizedText("Tactora");
    alert.message = localizedText("Quited Ready-to-Play Status!");
    alert.cancelButton = "OK";  // the one button title that is not localised
    showOwnAlert(std::move(alert));
}

void ActionListener::showControlPanel() {
    controlPanel_ = ControlPanelView::make(this);
    controlPanel_->show();
    isControlPanelShowing_ = true;
}

void ActionListener::showPlaySettingsView() {
    playSettingsView_ = PlaySettingsView::make(shared_from_this());
    playSettingsView_->show();
    isPlaySettingsViewShowing_ = true;
}

void ActionListener::showDecryptScriptAlertView() {
    decryptScriptAlertView_ = DecryptScriptAlertView::make(shared_from_this());
    decryptScriptAlertView_->show();
    isDecryptScriptAlertViewShowing_ = true;
}

void ActionListener::showPlayLaterTipAlertView() {
    AlertRequest alert;
    alert.title = localizedText("Tip");
    alert.message = localizedText("PLAY_LATER_TIP");
    alert.cancelButton = localizedText("OK");
    alert.otherButtons = {localizedText("Don't show again")};
    alert.tag = playLaterTipAlertTag;
    showOwnAlert(std::move(alert));
}

void ActionListener::showOwnAlert(AlertRequest alert) {
    std::weak_ptr<ActionListener> weak = weak_from_this();
    const int tag = alert.tag;
    alert.didPresent = [weak] {
        if (auto self = weak.lock()) self->didPresentAlertView();
    };
    alert.clickedButtonAtIndex = [weak, tag](int index, const std::string&) {
        if (auto self = weak.lock()) self->alertViewClickedButtonAtIndex(tag, index);
    };
    alert.didDismissWithButtonIndex = [weak](int index) {
        if (auto self = weak.lock()) self->alertViewDidDismissWithButtonIndex(index);
    };
    platform().alerts->showAlert(std::move(alert));
}

void ActionListener::controlPanelViewDidClickOnRecord(ControlPanelView&) {
    vibrate();
    startRecording();
}

void ActionListener::controlPanelViewDidSelectScript(ControlPanelView&, const std::string& path) {
    forwardToPlay(path);
}

void ActionListener::controlPanelViewDidDismiss(ControlPanelView& panel) {
    if (controlPanel_.get() == &panel) controlPanel_.reset();
    isControlPanelShowing_ = false;
}

void ActionListener::playSettingsViewDidConfirmToPlay(PlaySettingsView&) {
    auto settings = global_.currentPlaySettings();
    if (!settings) return;
    switch (settings->playNowOrLater()) {
        case 0:
            playScriptNow();
            break;
        case 1:
            global_.setIsReadyToPlay(true);
            if (!platform().userDefaults->boolForKey(playLaterTipHideKey)) showPlayLaterTipAlertView();
            break;
        default:
            break;
    }
}

void ActionListener::playSettingsViewDidDismiss(PlaySettingsView& panel) {
    if (playSettingsView_.get() == &panel) playSettingsView_.reset();
    isPlaySettingsViewShowing_ = false;
}

void ActionListener::decryptScriptAlertViewDidConfirmToPlay(DecryptScriptAlertView&) {
    auto settings = global_.currentPlaySettings();
    if (settings && settings->playDirectly()) playScriptNow();
    else showPlaySettingsView();
}

void ActionListener::decryptScriptAlertViewDidDismiss(DecryptScriptAlertView& prompt) {
    if (decryptScriptAlertView_.get() == &prompt) decryptScriptAlertView_.reset();
    isDecryptScriptAlertViewShowing_ = false;
}

void ActionListener::didPresentAlertView() { isAnyAlertViewShowing_ = true; }

void ActionListener::alertViewDidDismissWithButtonIndex(int) { isAnyAlertViewShowing_ = false; }

void ActionListener::alertViewClickedButtonAtIndex(int tag, int buttonIndex) {
    if (tag == playLaterTipAlertTag && buttonIndex == 1) platform().userDefaults->setObject(playLaterTipHideKey, true);
}

}  // namespace tactora
