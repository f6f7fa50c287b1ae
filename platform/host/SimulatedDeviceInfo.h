#pragma once

#include <map>
#include <string>

#include "Platform/DeviceInfo.h"
#include "host/DeviceProfiles.h"

namespace tactora::host {

// The device tree of a simulated device: a few properties made from its profile ("model",
// "device-imei", "backlight-level", each a NUL-terminated byte string as on the device), and no
// installation cache (as on every current system).
class SimulatedDeviceInfo final : public DeviceInfo {
public:
    explicit SimulatedDeviceInfo(const DeviceProfile& profile);

    std::optional<std::string> deviceTreeProperty(std::string_view name) const override;

    // Sets (or with nothing, removes) a property's raw bytes.
    void setProperty(const std::string& name, std::optional<std::string> bytes);

private:
    std::map<std::string, std::string, std::less<>> properties_;
};

}  // namespace tactora::host
