#include "host/SpringBoardHost.h"

#include <mutex>

#include "Control/ActionListener.h"
#include "host/ConsoleAlerts.h"
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
    alerts_.onShow = [this](const HostAlerts::OpenAlert& alert) { say(alertLine(alert.request, alert.id)); };
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
    // Said where it happens, so that a reader of the console knows what the line stands for.
    feedback_.onFeedback = [this](const char* what) {
        say(std::string("feedback: ") + what + " (the phone would " +
            (std::string(what) == "vibrate" ? "vibrate" : "play its sound") + " here)");
    };

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
