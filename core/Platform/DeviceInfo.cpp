#include "Platform/DeviceInfo.h"

#include <algorithm>
#include <set>

namespace tactora {

namespace {

// The registry's word goes only where the bundle's own Info.plist is silent: the cache held the
// Info.plist's values, and scripts written against it expect those.
void fill(DeviceInfo::AppInfo& info, const char* key, const std::string& value) {
    if (!value.empty()) info.try_emplace(key, value);
}

DeviceInfo::AppInfo describe(const DeviceInfo::RegisteredApp& app) {
    DeviceInfo::AppInfo info = app.infoPlist.value_or(DeviceInfo::AppInfo{});
    info["CFBundleIdentifier"] = app.identifier;
    fill(info, "CFBundleDisplayName", app.name);
    fill(info, "CFBundleExecutable", app.executable);
    fill(info, "CFBundleVersion", app.version);
    fill(info, "CFBundleShortVersionString", app.shortVersion);
    // Where the application is and what kind it is are the registry's facts, never the bundle's.
    if (!app.bundlePath.empty()) info["Path"] = app.bundlePath;
    if (!app.type.empty()) info["ApplicationType"] = app.type;
    if (!app.dataContainer.empty()) info["Container"] = app.dataContainer;
    if (app.entitlements) info["Entitlements"] = *app.entitlements;
    return info;
}

}  // namespace

DeviceInfo::InstallationCache installationCacheOf(const std::vector<DeviceInfo::RegisteredApp>& apps) {
    std::vector<const DeviceInfo::RegisteredApp*> ordered;
    for (const auto& app : apps) {
        if (!app.identifier.empty()) ordered.push_back(&app);
    }
    // Stable, so of two records with one identifier the registry's first is the one kept.
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto* a, const auto* b) { return a->identifier < b->identifier; });
    DeviceInfo::InstallationCache cache;
    std::set<std::string> seen;
    for (const auto* app : ordered) {
        if (!seen.insert(app->identifier).second) continue;
        (app->type == "User" ? cache.user : cache.system).push_back(describe(*app));
    }
    return cache;
}

}  // namespace tactora
