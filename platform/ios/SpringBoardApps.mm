#include "ios/SpringBoardApps.h"

#include <dlfcn.h>
#include <signal.h>

#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

// SBApplication's activationState while the application is in front (iOS 5 to 8).
constexpr int activationStateForeground = 3;

SBApplication* applicationFor(const std::string& bundleId) {
    NSString* identifier = [NSString stringWithUTF8String:bundleId.c_str()];
    Class controllerClass = NSClassFromString(@"SBApplicationController");
    if (!identifier || ![controllerClass respondsToSelector:@selector(sharedInstance)]) return nil;
    SBApplicationController* controller = [controllerClass sharedInstance];
    if ([controller respondsToSelector:@selector(applicationWithBundleIdentifier:)]) {
        return [controller applicationWithBundleIdentifier:identifier];
    }
    if ([controller respondsToSelector:@selector(applicationWithDisplayIdentifier:)]) {
        return [controller applicationWithDisplayIdentifier:identifier];
    }
    return nil;
}

int pidOf(SBApplication* application) {
    if ([application respondsToSelector:@selector(processState)]) return application.processState.pid;
    if ([application respondsToSelector:@selector(pid)]) return [application pid];
    return 0;
}

}  // namespace

void SpringBoardApps::launch(const std::string& bundleId) {
    void* services = dlopen(TACTORA_SPRINGBOARDSERVICES_PATH, RTLD_LAZY);
    if (!services) return;
    auto launchApplication = reinterpret_cast<SBSLaunchApplicationWithIdentifierFunction>(
        dlsym(services, "SBSLaunchApplicationWithIdentifier"));
    if (launchApplication) {
        @autoreleasepool {
            if (NSString* identifier = [NSString stringWithUTF8String:bundleId.c_str()]) {
                launchApplication((__bridge CFStringRef)identifier, false);  // result ignored
            }
        }
    }
    dlclose(services);
}

void SpringBoardApps::terminate(const std::string& bundleId) {
    @autoreleasepool {
        int pid = pidOf(applicationFor(bundleId));
        if (pid >= 1) kill(pid, SIGTERM);
    }
}

bool SpringBoardApps::isForeground(const std::string& bundleId) const {
    @autoreleasepool {
        SBApplication* application = applicationFor(bundleId);
        if (!application) return false;
        if ([application respondsToSelector:@selector(activationState)]) {
            return [application activationState] == activationStateForeground;
        }
        if ([application respondsToSelector:@selector(processState)]) return application.processState.isForeground;
        return false;
    }
}

}  // namespace tactora::ios
