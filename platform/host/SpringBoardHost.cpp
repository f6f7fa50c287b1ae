#include "host/SpringBoardHost.h"

#include <mutex>

#include "Control/ActionListener.h"
#include "Platform/Platform.h"
#include "Views/ControlPanelView.h"
#include "Views/PlaySettingsView.h"
#include "host/MainLoop.h"

namespace tactora::host {

void SpringBoardFeedback::vibrate() {
    vibrations_.fetch_add(1, std::memory_order_relaxed);
    if (onFeedback) onFeedback("vibrate");
}

void SpringBoardFeedback::playBundledSound() {
    if (onFeedback) onFeedback("sound");
}

SpringBoardHost::SpringBoardHost(MainLoop& loop, const std::string& registryPath, std::ostream* console)
    : loop_(loop),
      console_(console),
      registry_(registryPath),
      hidSource_(*platform().queues) {
    alerts_.onShow = [this](const HostAlerts::OpenAlert& alert) {
        std::string line = "alert #" + std::to_string(alert.id) + ": ";
        if (!alert.request.title.empty()) line += alert.request.title + " - ";
        line += alert.request.message + " [0: " + alert.request.cancelButton;
        for (size_t i = 0; i < alert.request.otherButtons.size(); ++i)
            line += ", " + std::to_string(i + 1) + ": " + alert.request.otherButtons[i];
        line += "]";
        if (alert.request.secureTextInput) line += " (password field)";
        say(line);
    };
    presenter_.onPresent = [this](PresentedPanel& panel) {
        if (auto* control = dynamic_cast<ControlPanelView*>(&panel)) {
            std::string line = "panel: " + control->titleText() + " - " + control->messageText() + " [" +
                               control->recordButtonTitle() + "]";
            for (size_t row = 0; row < control->numberOfRows(); ++row) {
                auto cell = control->cellForRow(row);
                line += "\n  " + std::to_string(row) + ": " + cell.text;
                if (!cell.activatorAssignedLabel.empty()) line += " " + cell.activatorAssignedLabel;
                if (!cell.playSettingsLabel.empty()) line += " " + cell.playSettingsLabel;
            }
            say(line);
        } else if (auto* settings = dynamic_cast<PlaySettingsView*>(&panel)) {
            say("panel: " + settings->titleText() + " - " + settings->messageText() + " " +
                settings->repeatCountLabelText() + settings->repeatCountText() + " " +
                settings->repeatIntervalLabelText() + settings->repeatIntervalValueText() + " " +
                settings->playSpeedLabelText() + settings->playSpeedValueText());
        }
    };
    feedback_.onFeedback = [this](const char* what) { say(std::string("feedback: ") + what); };

    Platform& p = platform();
    saved_ = p;
    p.eventRegistry = &registry_;
    p.alerts = &alerts_;
    p.presenter = &presenter_;
    p.hidSource = &hidSource_;
    p.feedback = &feedback_;
}

SpringBoardHost::~SpringBoardHost() {
    // The ports that were in force before this host installed its own.
    Platform& p = platform();
    p.eventRegistry = saved_.eventRegistry;
    p.alerts = saved_.alerts;
    p.presenter = saved_.presenter;
    p.hidSource = saved_.hidSource;
    p.feedback = saved_.feedback;
}

std::shared_ptr<ActionListener> SpringBoardHost::start() {
    listener_ = ActionListener::load();
    return listener_;
}

void SpringBoardHost::say(const std::string& line) {
    if (!console_) return;
    static std::mutex mutex;  // feedback may come from a script's thread
    std::lock_guard lock(mutex);
    *console_ << line << std::endl;
}

}  // namespace tactora::host
