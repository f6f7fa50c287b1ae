#include "host/ConsoleAlerts.h"

#include <memory>
#include <string>

#include "Platform/Platform.h"
#include "Platform/Queues.h"

namespace tactora::host {

void ConsoleAlerts::showAlert(AlertRequest alert) {
    {
        std::lock_guard lock(mutex_);
        if (!alert.title.empty()) std::fprintf(out_, "┌ %s\n", alert.title.c_str());
        // A message of several lines keeps the frame on each.
        std::size_t start = 0;
        do {
            std::size_t end = alert.message.find('\n', start);
            std::string line = alert.message.substr(start, end == std::string::npos ? std::string::npos : end - start);
            std::fprintf(out_, "│ %s\n", line.c_str());
            start = end == std::string::npos ? std::string::npos : end + 1;
        } while (start != std::string::npos);
        if (alert.secureTextInput) std::fprintf(out_, "│ (password field)\n");
        std::string buttons;
        if (!alert.cancelButton.empty()) buttons += "[" + alert.cancelButton + "]";
        for (const std::string& button : alert.otherButtons) buttons += (buttons.empty() ? "[" : " [") + button + "]";
        std::fprintf(out_, "└ %s\n", buttons.c_str());
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
