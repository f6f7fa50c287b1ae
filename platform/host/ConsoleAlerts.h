#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "Platform/Alerts.h"

namespace tactora::host {

// One alert as every command prints it, on one line (a message of several lines goes on indented):
//
//   alert #1: Error - Failed to create Scripts directory. Info:Permission denied [0: OK]
//
// The numbers before the buttons are the indices `tactora run`'s `press` and the control API take.
std::string alertLine(const AlertRequest& alert, int id);

// Alerts printed on the terminal, one line each (alertLine). Nobody answers them. So that code
// waiting for an alert to go away is not left waiting, each alert reports, through the main
// queue, that it was shown and then dismissed with its cancel button (index 0). No button is ever
// clicked: clickedButtonAtIndex is never called, and a password prompt reads as cancelled.
class ConsoleAlerts final : public Alerts {
public:
    explicit ConsoleAlerts(std::FILE* out = stdout) : out_(out) {}
    void showAlert(AlertRequest alert) override;

private:
    std::FILE* out_;
    std::mutex mutex_;
    int shown_ = 0;
};

}  // namespace tactora::host
