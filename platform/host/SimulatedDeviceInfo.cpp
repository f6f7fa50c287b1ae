#include "host/SimulatedDeviceInfo.h"

namespace tactora::host {

SimulatedDeviceInfo::SimulatedDeviceInfo(const DeviceProfile& profile) {
    using namespace std::string_literals;
    properties_["model"] = profile.model + '\0';
    properties_["device-imei"] = "35 000000 000000 0"s + '\0';
    properties_["backlight-level"] = "128"s + '\0';
}

std::optional<std::string> SimulatedDeviceInfo::deviceTreeProperty(std::string_view name) const {
    const auto found = properties_.find(name);
    if (found == properties_.end()) return std::nullopt;
    return found->second;
}

void SimulatedDeviceInfo::setProperty(const std::string& name, std::optional<std::string> bytes) {
    if (bytes)
        properties_[name] = std::move(*bytes);
    else
        properties_.erase(name);
}

}  // namespace tactora::host
