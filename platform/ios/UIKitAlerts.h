#pragma once

#include "Platform/Alerts.h"

namespace tactora::ios {

// Alerts as UIAlertControllers, each presented from a window of its own above everything else.
class UIKitAlerts final : public Alerts {
public:
    void showAlert(AlertRequest alert) override;
};

}  // namespace tactora::ios
