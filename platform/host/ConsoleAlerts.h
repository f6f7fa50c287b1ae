#pragma once

#include <cstdio>
#include <mutex>

#include "Platform/Alerts.h"

namespace tactora::host {

// Alerts printed on the terminal, one block each:
//
//   ┌ Error
//   │ Failed to create Scripts directory. Info:Permission denied
//   └ [OK]
//
// Nobody answers them. So that code waiting for an alert to go away is not left waiting, each
// alert reports, through the main queue, that it was shown and then dismissed with its cancel
// button (index 0). No button is ever clicked: clickedButtonAtIndex is never called, and a
// password prompt reads as cancelled.
class ConsoleAlerts final : public Alerts {
public:
    explicit ConsoleAlerts(std::FILE* out = stdout) : out_(out) {}
    void showAlert(AlertRequest alert) override;

private:
    std::FILE* out_;
    std::mutex mutex_;
};

}  // namespace tactora::host
