#include "ios/RegistryDeviceInfo.h"

#include <mach/mach.h>
#include <objc/message.h>
#include <sys/stat.h>

#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

constexpr const char* installationCachePath = "/private/var/mobile/Library/Caches/com.apple.mobile.installation.plist";

std::string text(NSString* string) {
    const char* utf8 = string.UTF8String;
    return utf8 ? utf8 : "";
}

// A property-list object as the core's value, everything below it included. NSNumber holds both
// truth values and numbers: its CFBoolean, integer and real kinds are told apart by CoreFoundation.
PropertyList plain(id object) {
    if ([object isKindOfClass:[NSString class]]) return text(object);
    if ([object isKindOfClass:[NSNumber class]]) {
        auto number = (__bridge CFNumberRef)object;
        if (CFGetTypeID(number) == CFBooleanGetTypeID()) return PropertyList([object boolValue] == YES);
        if (CFNumberIsFloatType(number)) return PropertyList([object doubleValue]);
        return PropertyList(static_cast<std::int64_t>([object longLongValue]));
    }
    if ([object isKindOfClass:[NSDate class]]) {
        return PropertyList(PropertyList::Date{[(NSDate*)object timeIntervalSinceReferenceDate]});
    }
    if ([object isKindOfClass:[NSData class]]) {
        auto bytes = static_cast<const std::uint8_t*>([(NSData*)object bytes]);
        return PropertyList(PropertyList::Data(bytes, bytes + [(NSData*)object length]));
    }
    if ([object isKindOfClass:[NSArray class]]) {
        PropertyList::Array items;
        for (id item in (NSArray*)object) items.push_back(plain(item));
        return PropertyList(std::move(items));
    }
    if ([object isKindOfClass:[NSDictionary class]]) {
        PropertyList::Dictionary entries;
        for (id key in (NSDictionary*)object) {
            if ([key isKindOfClass:[NSString class]]) entries[text(key)] = plain(((NSDictionary*)object)[key]);
        }
        return PropertyList(std::move(entries));
    }
    return PropertyList();  // nothing else occurs in a property list
}

// One section of the cache: application identifier -> information dictionary, each kept whole.
std::vector<DeviceInfo::AppInfo> section(id value) {
    std::vector<DeviceInfo::AppInfo> apps;
    if (![value isKindOfClass:[NSDictionary class]]) return apps;
    NSDictionary* byIdentifier = value;
    for (id key in byIdentifier) {
        id info = byIdentifier[key];
        if (![info isKindOfClass:[NSDictionary class]]) continue;
        apps.push_back(*plain(info).get<PropertyList::Dictionary>());
    }
    return apps;
}

// The text `object` answers to `selector`, when it answers to it with text (an NSURL gives its
// path). A proxy may lack a property on some system; it then says nothing, and never raises.
std::string answer(id object, SEL selector) {
    if (![object respondsToSelector:selector]) return "";
    id value = ((id (*)(id, SEL))objc_msgSend)(object, selector);
    if ([value isKindOfClass:[NSURL class]]) value = [(NSURL*)value path];
    return [value isKindOfClass:[NSString class]] ? text(value) : "";
}

std::optional<DeviceInfo::AppInfo> dictionary(id value) {
    if (![value isKindOfClass:[NSDictionary class]]) return std::nullopt;
    return *plain(value).get<PropertyList::Dictionary>();
}

DeviceInfo::RegisteredApp registered(LSApplicationProxy* proxy) {
    DeviceInfo::RegisteredApp app;
    app.identifier = answer(proxy, @selector(bundleIdentifier));
    if (app.identifier.empty()) app.identifier = answer(proxy, @selector(applicationIdentifier));
    app.bundlePath = answer(proxy, @selector(bundleURL));
    app.name = answer(proxy, @selector(localizedName));
    app.executable = answer(proxy, @selector(bundleExecutable));
    app.version = answer(proxy, @selector(bundleVersion));
    app.shortVersion = answer(proxy, @selector(shortVersionString));
    app.type = answer(proxy, @selector(applicationType));
    app.dataContainer = answer(proxy, @selector(dataContainerURL));
    if ([proxy respondsToSelector:@selector(entitlements)]) app.entitlements = dictionary(proxy.entitlements);
    // The bundle's own Info.plist, which the old cache was built from. SpringBoard may read every
    // application bundle (it draws their icons from them).
    if (!app.bundlePath.empty()) {
        NSString* infoPath = [@(app.bundlePath.c_str()) stringByAppendingPathComponent:@"Info.plist"];
        app.infoPlist = dictionary([NSDictionary dictionaryWithContentsOfFile:infoPath]);
    }
    return app;
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

std::optional<std::vector<DeviceInfo::RegisteredApp>> RegistryDeviceInfo::registeredApplications() const {
    @autoreleasepool {
        Class workspaceClass = NSClassFromString(@"LSApplicationWorkspace");
        if (![workspaceClass respondsToSelector:@selector(defaultWorkspace)]) return std::nullopt;
        LSApplicationWorkspace* workspace = [workspaceClass defaultWorkspace];
        NSArray* proxies = nil;
        if ([workspace respondsToSelector:@selector(allInstalledApplications)]) {
            proxies = [workspace allInstalledApplications];
        } else if ([workspace respondsToSelector:@selector(allApplications)]) {
            proxies = [workspace allApplications];
        }
        if (![proxies isKindOfClass:[NSArray class]]) return std::nullopt;
        std::vector<RegisteredApp> apps;
        for (id proxy in proxies) {
            @autoreleasepool {
                apps.push_back(registered(proxy));
            }
        }
        return apps;
    }
}

}  // namespace tactora::ios
