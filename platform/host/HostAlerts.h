#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Platform/Alerts.h"

namespace tactora::host {

// Alerts held open until someone presses a button (the console, the control API, a test). Each
// open alert has a number of its own; the newest is on top. Main loop only.
class HostAlerts final : public Alerts {
public:
    struct OpenAlert {
        int id;
        AlertRequest request;
    };

    void showAlert(AlertRequest alert) override;

    // Presses button `index` of alert `id` with `text` in its text field: the alert's click
    // callback, then it closes and its dismiss callback runs. False when no such alert or button.
    bool pressButton(int id, int index, const std::string& text = {});
    // The same for the newest alert.
    bool pressButtonOfTopAlert(int index, const std::string& text = {});

    const std::vector<OpenAlert>& openAlerts() const { return open_; }
    // Called with every alert as it opens (the console prints it).
    std::function<void(const OpenAlert&)> onShow;

private:
    std::vector<OpenAlert> open_;
    int nextId_ = 1;
};

}  // namespace tactora::host
