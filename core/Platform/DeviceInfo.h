#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/PropertyList.h"

namespace tactora {

// Facts about the device that live outside the process: the IOKit device tree and the
// system's installation cache.
class DeviceInfo {
public:
    // One application's whole information dictionary from the installation cache
    // ("CFBundleIdentifier", "CFBundleDisplayName", "Path", "CFBundleIcons", ...), nested values
    // included.
    using AppInfo = PropertyList::Dictionary;

    // The installation cache's two sections, each in the order the dictionary lists its keys.
    struct InstallationCache {
        std::vector<AppInfo> user;
        std::vector<AppInfo> system;
    };

    virtual ~DeviceInfo() = default;

    // The raw bytes of the property `name` found anywhere in the "IODeviceTree" plane. Nothing
    // when there is no such property or its value is not a byte string. Default: nothing.
    virtual std::optional<std::string> deviceTreeProperty(std::string_view name) const {
        (void)name;
        return std::nullopt;
    }

    // The installation cache "/private/var/mobile/Library/Caches/com.apple.mobile.installation.plist"
    // when it exists as a file and reads as a dictionary (it exists only on older systems).
    // Default: nothing.
    virtual std::optional<InstallationCache> installationCache() const { return std::nullopt; }
};

}  // namespace tactora
