#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/PropertyList.h"

namespace tactora {

// Facts about the device that live outside the process: the IOKit device tree, the system's
// application registry and its old installation cache.
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

    // One application as the system's application registry (LaunchServices) describes it. Empty
    // text and no dictionary mean the registry did not say.
    struct RegisteredApp {
        std::string identifier;
        std::string bundlePath;     // the ".app" directory
        std::string name;           // the name shown under the icon, in the user's language
        std::string executable;
        std::string version;        // "CFBundleVersion"
        std::string shortVersion;   // "CFBundleShortVersionString"
        std::string type;           // "User", "System", "Internal", ...
        std::string dataContainer;  // the sandbox home (Documents, Library, tmp)
        std::optional<AppInfo> infoPlist;
        std::optional<AppInfo> entitlements;
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

    // Every installed application the registry knows. Nothing when the registry cannot be asked
    // (its classes or selectors missing). Default: nothing.
    virtual std::optional<std::vector<RegisteredApp>> registeredApplications() const { return std::nullopt; }
};

// The registry's applications in the installation cache's shape: each one's Info.plist, with the
// facts the cache added ("Path", "ApplicationType", "Container", "Entitlements") and the registry's
// names and versions where the Info.plist lacks them. "User" applications form the user section,
// every other type the system one; each section in identifier order, an identifier listed once,
// an application without one left out.
DeviceInfo::InstallationCache installationCacheOf(const std::vector<DeviceInfo::RegisteredApp>& apps);

}  // namespace tactora
