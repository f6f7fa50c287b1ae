#include <gtest/gtest.h>

#include "Kernel/Utils.h"
#include "Platform/Platform.h"

// The records below name only the fields they need; the others are empty on purpose.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace tactora;
using App = DeviceInfo::RegisteredApp;
using Info = DeviceInfo::AppInfo;

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

}  // namespace

// Users first, each section by identifier; duplicates and nameless records are gone and every type
// but "User" counts as the system's. The bundle's own Info.plist is kept whole: it keeps its names,
// never its identity or place.
TEST(InstalledApps, RegistryRecordsTakeTheCacheShape) {
    const Info entitlements{{"get-task-allow", false}};
    const PropertyList::Array arm64{"arm64"};
    Device device;
    device.registry = {
        {.identifier = "com.apple.mobilesafari", .bundlePath = "/Applications/MobileSafari.app", .name = "Safari",
         .version = "8615", .type = "System",
         .infoPlist = Info{{"CFBundleDisplayName", "Safari.plist"}, {"CFBundleIdentifier", "stale"},
                           {"Path", "/elsewhere"}, {"UIRequiredDeviceCapabilities", arm64}}},
        {.identifier = "com.example.game", .bundlePath = "/G/Game.app", .name = "Game", .executable = "Game",
         .version = "42", .shortVersion = "1.2", .type = "User", .dataContainer = "/D", .entitlements = entitlements},
        {.identifier = "com.apple.internal", .type = "Internal"},
        {.identifier = "com.example.a", .name = "First", .type = "User"},
        {.identifier = "com.example.a", .name = "Second", .type = "User"},
        {.name = "No identifier", .type = "User"}};
    device.cache = DeviceInfo::InstallationCache{{{{"CFBundleIdentifier", "from.the.file"}}}, {}};  // the registry wins
    const std::vector<Info> expected = {
        {{"CFBundleIdentifier", "com.example.a"}, {"CFBundleDisplayName", "First"}, {"ApplicationType", "User"}},
        {{"CFBundleIdentifier", "com.example.game"}, {"CFBundleDisplayName", "Game"}, {"CFBundleExecutable", "Game"},
         {"CFBundleVersion", "42"}, {"CFBundleShortVersionString", "1.2"}, {"Path", "/G/Game.app"},
         {"ApplicationType", "User"}, {"Container", "/D"}, {"Entitlements", entitlements}},
        {{"CFBundleIdentifier", "com.apple.internal"}, {"ApplicationType", "Internal"}},
        {{"CFBundleIdentifier", "com.apple.mobilesafari"}, {"CFBundleDisplayName", "Safari.plist"},
         {"CFBundleVersion", "8615"}, {"Path", "/Applications/MobileSafari.app"}, {"ApplicationType", "System"},
         {"UIRequiredDeviceCapabilities", arm64}}};
    EXPECT_EQ(Utils::appInstalledList(), expected);
}

TEST(InstalledApps, CacheFileOnlyWhereTheRegistryGivesNothing) {
    Device device;
    const Info user{{"CFBundleIdentifier", "com.user.a"}}, system{{"CFBundleIdentifier", "com.apple.mobilesafari"}};
    device.cache = DeviceInfo::InstallationCache{{user}, {system}};
    for (auto registry : {std::optional<std::vector<App>>(), std::optional(std::vector<App>{})}) {
        device.registry = registry;
        EXPECT_EQ(Utils::appInstalledList(), (std::vector<Info>{user, system}));
    }
    device.cache.reset();
    EXPECT_TRUE(Utils::appInstalledList().empty());
    device.registry = std::vector<App>{{.identifier = "com.example.only", .type = "User"}};
    EXPECT_EQ(Utils::appInstalledList(), (std::vector<Info>{{{"CFBundleIdentifier", "com.example.only"}, {"ApplicationType", "User"}}}));
}
