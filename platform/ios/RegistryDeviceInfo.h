#pragma once

#include "Platform/DeviceInfo.h"

namespace tactora::ios {

// The IOKit device tree and the installation cache file.
class RegistryDeviceInfo final : public DeviceInfo {
public:
    std::optional<std::string> deviceTreeProperty(std::string_view name) const override;
    std::optional<InstallationCache> installationCache() const override;
};

}  // namespace tactora::ios
