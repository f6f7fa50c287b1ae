#include "host/HostAlerts.h"

#include <algorithm>

namespace tactora::host {

void HostAlerts::showAlert(AlertRequest alert) {
    open_.push_back({nextId_++, std::move(alert)});
    OpenAlert& shown = open_.back();
    if (onShow) onShow(shown);
    // UIKit tells the delegate once the alert is on screen; here that is at once.
    if (auto didPresent = open_.back().request.didPresent) didPresent();
}

bool HostAlerts::pressButton(int id, int index, const std::string& text) {
    auto found = std::find_if(open_.begin(), open_.end(), [&](const OpenAlert& alert) { return alert.id == id; });
    if (found == open_.end()) return false;
    int buttons = 1 + static_cast<int>(found->request.otherButtons.size());
    if (found->request.cancelButton.empty()) --buttons;
    if (index < 0 || index >= std::max(buttons, 1)) return false;
    // Callbacks may open new alerts, so take this one out of the list before calling them.
    AlertRequest request = std::move(found->request);
    open_.erase(found);
    if (request.clickedButtonAtIndex) request.clickedButtonAtIndex(index, text);
    if (request.didDismissWithButtonIndex) request.didDismissWithButtonIndex(index);
    return true;
}

bool HostAlerts::pressButtonOfTopAlert(int index, const std::string& text) {
    if (open_.empty()) return false;
    return pressButton(open_.back().id, index, text);
}

}  // namespace tactora::host
