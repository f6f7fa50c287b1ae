#include "host/ConsoleAlerts.h"

#include <memory>
#include <string>

#include "Platform/Platform.h"
#include "Platform/Queues.h"

namespace tactora::host {

std::string alertLine(const AlertRequest& alert, int id) {
    std::string line = "alert #" + std::to_string(id) + ": ";
    if (!alert.title.empty()) line += alert.title + " - ";
    for (char c : alert.message) line += c == '\n' ? std::string("\n    ") : std::string(1, c);
    line += " [0: " + alert.cancelButton;
    for (std::size_t i = 0; i < alert.otherButtons.size(); ++i)
        line += ", " + std::to_string(i + 1) + ": " + alert.otherButtons[i];
    line += "]";
    if (alert.secureTextInput) line += " (password field)";
    return line;
}

void ConsoleAlerts::showAlert(AlertRequest alert) {
    {
        std::lock_guard lock(mutex_);
        std::fprintf(out_, "%s\n", alertLine(alert, ++shown_).c_str());
        std::fflush(out_);
    }
    if (!alert.didPresent && !alert.didDismissWithButtonIndex) return;
    auto shown = std::make_shared<AlertRequest>(std::move(alert));
    platform().queues->runOnMain([shown] {
        if (shown->didPresent) shown->didPresent();
        if (shown->didDismissWithButtonIndex) shown->didDismissWithButtonIndex(0);
    });
}

}  // namespace tactora::host
