#include "ios/IOSInstallation.h"

#import <Foundation/Foundation.h>
#include <dlfcn.h>
#include <objc/runtime.h>
#include <sys/sysctl.h>

#include <atomic>
#include <string>

#include "ios/IOSPaths.h"

namespace tactora::ios {

namespace {

// Set once on backboardd's main thread at load, read on the same thread when the status request
// comes; atomic all the same, as nothing else orders the two.
std::atomic<bool> hookInstalled{false};

}  // namespace

void noteDispatchHookInstalled(bool installed) { hookInstalled.store(installed, std::memory_order_relaxed); }

std::string IOSInstallation::layout() const { return *builtPackageRoot ? "rootless" : "rootful"; }

std::string IOSInstallation::loadedSlice() const {
    // Each slice of the fat library is compiled on its own, so the compiler knows which one runs:
    // dyld picks arm64e in processes that use pointer authentication (A12 and later), else arm64.
#if defined(__arm64e__)
    return "arm64e";
#elif defined(__arm64__)
    return "arm64";
#else
    return "unknown";
#endif
}

std::string IOSInstallation::systemVersion() const {
    // NSProcessInfo works in every process, UIKit application or not (iOS 8 and later).
    NSOperatingSystemVersion version = [[NSProcessInfo processInfo] operatingSystemVersion];
    return "iOS " + std::to_string(version.majorVersion) + "." + std::to_string(version.minorVersion) +
           (version.patchVersion ? "." + std::to_string(version.patchVersion) : std::string());
}

std::string IOSInstallation::deviceModel() const {
    // "hw.machine" is the model identifier ("iPhone12,1") on every iOS version.
    char model[64] = {};
    size_t size = sizeof model - 1;
    if (sysctlbyname("hw.machine", model, &size, nullptr, 0) != 0) return {};
    return model;
}

bool IOSInstallation::hasActivator() const {
    // LAActivator is libactivator's public class; it is registered once the library is loaded.
    return objc_getClass("LAActivator") != nil;
}

bool IOSInstallation::hasRocketBootstrap() const {
    return dlsym(RTLD_DEFAULT, "rocketbootstrap_cfmessageportcreateremote") != nullptr;
}

bool IOSInstallation::dispatchHookInstalled() const { return hookInstalled.load(std::memory_order_relaxed); }

}  // namespace tactora::ios
