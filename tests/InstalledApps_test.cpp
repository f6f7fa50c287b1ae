#include <gtest/gtest.h>

#include "Kernel/Utils.h"
#include "Platform/Platform.h"

// The records below name only the fields they need; the others are empty on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace tactora;
using App = DeviceInfo::RegisteredApp;
using Strings = std::vector<std::string>;

namespace {

// A device whose registry and cache file are both set by the test, installed for its life.
struct Device final : DeviceInfo {
    Device() { platform().deviceInfo = this; }
    std::optional<std::vector<RegisteredApp>> registry;
    std::optional<InstallationCache> cache;
    std::optional<std::vector<RegisteredApp>> registeredApplications() const override { return registry; }
    std::optional<InstallationCache> installationCache() const override { return cache; }
    ScopedPlatform scope;
};

Strings identifiers(const std::vector<DeviceInfo::AppInfo>& apps) {
    Strings ids;
    for (const auto& app : apps) ids.push_back(*app.at("CFBundleIdentifier").get<std::string>());
    return ids;
}

const std::string* text(const DeviceInfo::AppInfo& app, const std::string& key) {
    auto found = app.find(key);
    return found == app.end() ? nullptr : found->second.get<std::string>();
}

}  // namespace

TEST(InstalledApps, RegistryRecordsTakeTheCacheShape) {
    const App safari{.identifier = "com.apple.mobilesafari", .bundlePath = "/Applications/MobileSafari.app",
                     .name = "Safari", .version = "8615", .type = "System",
                     .infoPlist = DeviceInfo::AppInfo{{"CFBundleDisplayName", "Safari.plist"},
                                                      {"CFBundleIdentifier", "stale"},
                                                      {"Path", "/elsewhere"},
                                                      {"UIRequiredDeviceCapabilities", PropertyList::Array{"arm64"}}}};
    const App game{.identifier = "com.example.game", .bundlePath = "/var/containers/Bundle/Application/G/Game.app",
                   .name = "Game", .executable = "Game", .version = "42", .shortVersion = "1.2", .type = "User",
                   .dataContainer = "/var/mobile/Containers/Data/Application/D",
                   .entitlements = DeviceInfo::AppInfo{{"get-task-allow", false}}};
    Device device;
    device.registry = {safari, game, {.identifier = "com.apple.internal", .type = "Internal"},
                       {.identifier = "com.example.a", .name = "First", .type = "User"},
                       {.identifier = "com.example.a", .name = "Second", .type = "User"},
                       {.name = "No identifier", .type = "User"}};
    device.cache = DeviceInfo::InstallationCache{{{{"CFBundleIdentifier", "from.the.file"}}}, {}};
    const auto apps = Utils::appInstalledList();

    // The registry wins over the file; users first, each section by identifier, duplicates and
    // nameless records gone, every type but "User" counted as the system's.
    ASSERT_EQ(identifiers(apps),
              (Strings{"com.example.a", "com.example.game", "com.apple.internal", "com.apple.mobilesafari"}));
    EXPECT_EQ(*text(apps[0], "CFBundleDisplayName"), "First");
    EXPECT_EQ(*text(apps[2], "ApplicationType"), "Internal");
    const std::pair<const char*, std::string> fields[] = {
        {"Path", game.bundlePath}, {"Container", game.dataContainer}, {"ApplicationType", "User"}, {"CFBundleDisplayName", "Game"},
        {"CFBundleExecutable", "Game"}, {"CFBundleVersion", "42"}, {"CFBundleShortVersionString", "1.2"}};
    for (const auto& [key, value] : fields) EXPECT_EQ(*text(apps[1], key), value) << key;
    EXPECT_EQ(apps[1].at("Entitlements"), PropertyList(*game.entitlements));

    // The bundle's own Info.plist is kept whole; it keeps its names, never its identity or place.
    const auto& safariInfo = apps[3];
    EXPECT_EQ(*text(safariInfo, "CFBundleDisplayName"), "Safari.plist");
    EXPECT_EQ(*text(safariInfo, "CFBundleIdentifier"), "com.apple.mobilesafari");
    EXPECT_EQ(*text(safariInfo, "Path"), "/Applications/MobileSafari.app");
    EXPECT_EQ(safariInfo.at("UIRequiredDeviceCapabilities"), PropertyList(PropertyList::Array{"arm64"}));
    for (const char* absent : {"Container", "Entitlements", "CFBundleShortVersionString"})
        EXPECT_EQ(safariInfo.count(absent), 0u) << absent;
}

TEST(InstalledApps, CacheFileOnlyWhereTheRegistryGivesNothing) {
    Device device;
    device.cache = DeviceInfo::InstallationCache{{{{"CFBundleIdentifier", "com.user.a"}}},
                                                 {{{"CFBundleIdentifier", "com.apple.mobilesafari"}}}};
    for (auto registry : {std::optional<std::vector<App>>(), std::optional(std::vector<App>{})}) {
        device.registry = registry;
        EXPECT_EQ(identifiers(Utils::appInstalledList()), (Strings{"com.user.a", "com.apple.mobilesafari"}));
    }
    device.cache.reset();
    EXPECT_TRUE(Utils::appInstalledList().empty());
    device.registry = std::vector<App>{{.identifier = "com.example.only", .type = "User"}};
    EXPECT_EQ(identifiers(Utils::appInstalledList()), (Strings{"com.example.only"}));
}
