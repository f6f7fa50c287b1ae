#include <gtest/gtest.h>

#include "Kernel/Utils.h"
#include "Platform/Platform.h"

using namespace tactora;
using App = DeviceInfo::RegisteredApp;
using Strings = std::vector<std::string>;

namespace {

// A device whose registry and cache file are both set by the test.
struct Device final : DeviceInfo {
    std::optional<std::vector<RegisteredApp>> registry;
    std::optional<InstallationCache> cache;
    std::optional<std::vector<RegisteredApp>> registeredApplications() const override { return registry; }
    std::optional<InstallationCache> installationCache() const override { return cache; }
};

Strings identifiers(const std::vector<DeviceInfo::AppInfo>& apps) {
    Strings ids;
    for (const auto& app : apps) ids.push_back(*app.at("CFBundleIdentifier").get<std::string>());
    return ids;
}

App app(std::string identifier, std::string type, std::string name = "") {
    App record;
    record.identifier = std::move(identifier);
    record.type = std::move(type);
    record.name = std::move(name);
    return record;
}

const std::string* text(const DeviceInfo::AppInfo& app, const std::string& key) {
    auto found = app.find(key);
    return found == app.end() ? nullptr : found->second.get<std::string>();
}

}  // namespace

TEST(InstalledApps, RegistryRecordsTakeTheCacheShape) {
    App safari = app("com.apple.mobilesafari", "System", "Safari");
    safari.bundlePath = "/Applications/MobileSafari.app";
    safari.version = "8615";
    safari.infoPlist = DeviceInfo::AppInfo{{"CFBundleDisplayName", "Safari.plist"},
                                           {"CFBundleIdentifier", "stale"},
                                           {"Path", "/elsewhere"},
                                           {"UIRequiredDeviceCapabilities", PropertyList::Array{"arm64"}}};
    App game = app("com.example.game", "User", "Game");
    game.bundlePath = "/var/containers/Bundle/Application/G/Game.app";
    game.executable = "Game";
    game.version = "42";
    game.shortVersion = "1.2";
    game.dataContainer = "/var/mobile/Containers/Data/Application/D";
    game.entitlements = DeviceInfo::AppInfo{{"get-task-allow", false}};
    App internal = app("com.apple.internal", "Internal");
    App first = app("com.example.a", "User", "First");
    App duplicate = app("com.example.a", "User", "Second");
    App anonymous = app("", "User", "No identifier");

    Device device;
    device.registry = {safari, game, internal, first, duplicate, anonymous};
    device.cache = DeviceInfo::InstallationCache{{{{"CFBundleIdentifier", "from.the.file"}}}, {}};
    ScopedPlatform scope;
    platform().deviceInfo = &device;
    const auto apps = Utils::appInstalledList();

    // The registry wins over the file; users first, each section by identifier, duplicates and
    // nameless records gone, every type but "User" counted as the system's.
    ASSERT_EQ(identifiers(apps),
              (Strings{"com.example.a", "com.example.game", "com.apple.internal", "com.apple.mobilesafari"}));
    EXPECT_EQ(*text(apps[0], "CFBundleDisplayName"), "First");

    const auto& gameInfo = apps[1];
    const std::pair<const char*, std::string> fields[] = {
        {"Path", game.bundlePath}, {"Container", game.dataContainer}, {"ApplicationType", "User"}, {"CFBundleDisplayName", "Game"},
        {"CFBundleExecutable", "Game"}, {"CFBundleVersion", "42"}, {"CFBundleShortVersionString", "1.2"}};
    for (const auto& [key, value] : fields) EXPECT_EQ(*text(gameInfo, key), value) << key;
    EXPECT_EQ(gameInfo.at("Entitlements"), PropertyList(*game.entitlements));

    // The bundle's own Info.plist is kept whole; it keeps its names, never its identity or place.
    const auto& safariInfo = apps[3];
    EXPECT_EQ(*text(safariInfo, "CFBundleDisplayName"), "Safari.plist");
    EXPECT_EQ(*text(safariInfo, "CFBundleIdentifier"), "com.apple.mobilesafari");
    EXPECT_EQ(*text(safariInfo, "Path"), "/Applications/MobileSafari.app");
    EXPECT_EQ(safariInfo.at("UIRequiredDeviceCapabilities"), PropertyList(PropertyList::Array{"arm64"}));
    EXPECT_EQ(text(safariInfo, "Container"), nullptr);
    EXPECT_EQ(safariInfo.count("Entitlements"), 0u);
    EXPECT_EQ(text(safariInfo, "CFBundleShortVersionString"), nullptr);
    EXPECT_EQ(*text(apps[2], "ApplicationType"), "Internal");
}

TEST(InstalledApps, CacheFileOnlyWhereTheRegistryGivesNothing) {
    Device device;
    device.cache = DeviceInfo::InstallationCache{{{{"CFBundleIdentifier", "com.user.a"}}},
                                                 {{{"CFBundleIdentifier", "com.apple.mobilesafari"}}}};
    ScopedPlatform scope;
    platform().deviceInfo = &device;
    for (auto registry : {std::optional<std::vector<App>>(), std::optional(std::vector<App>{})}) {
        device.registry = registry;
        EXPECT_EQ(identifiers(Utils::appInstalledList()), (Strings{"com.user.a", "com.apple.mobilesafari"}));
    }
    device.cache.reset();
    EXPECT_TRUE(Utils::appInstalledList().empty());
    device.registry = std::vector<App>{app("com.example.only", "User")};
    EXPECT_EQ(identifiers(Utils::appInstalledList()), (Strings{"com.example.only"}));
}
