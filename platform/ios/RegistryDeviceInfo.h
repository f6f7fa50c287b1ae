#pragma once

#include "Platform/DeviceInfo.h"

namespace tactora::ios {

// The IOKit device tree, LaunchServices' application registry and the installation cache file.
class RegistryDeviceInfo final : public DeviceInfo {
public:
    std::optional<std::string> deviceTreeProperty(std::string_view name) const override;
    std::optional<InstallationCache> installationCache() const override;
    std::optional<std::vector<RegisteredApp>> registeredApplications() const override;
};

}  // namespace tactora::ios
