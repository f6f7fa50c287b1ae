#include "ios/RegistryDeviceInfo.h"

#include <mach/mach.h>
#include <sys/stat.h>

#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

constexpr const char* installationCachePath = "/private/var/mobile/Library/Caches/com.apple.mobile.installation.plist";

// One section of the cache: application identifier -> information dictionary.
std::vector<DeviceInfo::AppInfo> section(id value) {
    std::vector<DeviceInfo::AppInfo> apps;
    if (![value isKindOfClass:[NSDictionary class]]) return apps;
    NSDictionary* byIdentifier = value;
    for (id key in byIdentifier) {
        id info = byIdentifier[key];
        if (![info isKindOfClass:[NSDictionary class]]) continue;
        DeviceInfo::AppInfo app;
        for (id field in (NSDictionary*)info) {
            id fieldValue = ((NSDictionary*)info)[field];
            if ([field isKindOfClass:[NSString class]] && [fieldValue isKindOfClass:[NSString class]]) {
                app[[(NSString*)field UTF8String] ?: ""] = [(NSString*)fieldValue UTF8String] ?: "";
            }
        }
        apps.push_back(std::move(app));
    }
    return apps;
}

}  // namespace

std::optional<std::string> RegistryDeviceInfo::deviceTreeProperty(std::string_view name) const {
    mach_port_t masterPort = MACH_PORT_NULL;
    if (IOMasterPort(MACH_PORT_NULL, &masterPort) != KERN_SUCCESS) return std::nullopt;
    std::optional<std::string> bytes;
    io_registry_entry_t root = IORegistryGetRootEntry(masterPort);
    std::string key(name);
    CFStringRef keyString = CFStringCreateWithCString(kCFAllocatorDefault, key.c_str(), kCFStringEncodingUTF8);
    CFTypeRef value = root && keyString ? IORegistryEntrySearchCFProperty(root, TACTORA_IODEVICETREE_PLANE, keyString,
                                                                          kCFAllocatorDefault,
                                                                          kIORegistryIterateRecursively)
                                        : nullptr;
    if (keyString) CFRelease(keyString);
    if (root) IOObjectRelease(root);
    // Only a byte string counts; the core splits it at its NUL bytes and treats no bytes as none.
    if (value && CFGetTypeID(value) == CFDataGetTypeID()) {
        auto data = static_cast<CFDataRef>(value);
        bytes.emplace(reinterpret_cast<const char*>(CFDataGetBytePtr(data)), static_cast<size_t>(CFDataGetLength(data)));
    }
    if (value) CFRelease(value);
    mach_port_deallocate(mach_task_self(), masterPort);
    return bytes;
}

std::optional<DeviceInfo::InstallationCache> RegistryDeviceInfo::installationCache() const {
    struct stat info;
    if (stat(installationCachePath, &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
    @autoreleasepool {
        NSDictionary* cache = [NSDictionary dictionaryWithContentsOfFile:@(installationCachePath)];
        if (![cache isKindOfClass:[NSDictionary class]]) return std::nullopt;
        return InstallationCache{section(cache[@"User"]), section(cache[@"System"])};
    }
}

}  // namespace tactora::ios
