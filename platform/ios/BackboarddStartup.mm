#include "ios/BackboarddStartup.h"

#import <Foundation/Foundation.h>
#include <CydiaSubstrate/CydiaSubstrate.h>
#include <dlfcn.h>
#include <mach-o/dyld.h>

#include <memory>
#include <string>

#include "Kernel/TouchInjector.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "ios/IOSInstallation.h"
#include "ios/PointerAuth.h"
#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

#define TACTORA_IOKIT_PATH "/System/Library/Frameworks/IOKit.framework/IOKit"
// MSFindSymbol takes the name as the symbol table spells it: the exported C function
// IOHIDEventSystemConnectionDispatchEvent is "_IOHIDEventSystemConnectionDispatchEvent" there.
// IOKit's stubs of the iOS 13.7, 14.5, 15.6 and 16.5 SDKs all export it (next to a private
// "__IOHIDEventSystemConnectionDispatchEvent", which is another function).
#define TACTORA_DISPATCH_SYMBOL "_IOHIDEventSystemConnectionDispatchEvent"

// Both live as long as backboardd.
TouchInjector* injector;
std::unique_ptr<LocalMessagePort> injectionPort;

// The hooking library writes the trampoline here before the hook goes live, as a raw or signed
// address depending on the library; each call makes it callable under pointer authentication
// (PointerAuth.h), so no event passes before a callable pointer is there.
void* previousDispatchEvent;

// Every event the HID system hands to a client connection passes here, on backboardd's event
// threads. A real touch drops the synthetic fingers still held down.
void dispatchEvent(IOHIDEventSystemConnectionRef connection, IOHIDEventRef event) {
    if (connection && event &&
        TouchInjector::isRealDigitizerDispatch(IOHIDEventSystemConnectionGetType(connection), IOHIDEventGetType(event))) {
        injector->realDigitizerEventArrived();
    }
    using Previous = IOHIDEventSystemConnectionDispatchEventFunction;
    if (auto previous = callableFunction<Previous>(previousDispatchEvent)) previous(connection, event);
}

void hookDispatch() {
    dlopen(TACTORA_IOKIT_PATH, RTLD_LAZY);
    void* symbol = MSFindSymbol(nullptr, TACTORA_DISPATCH_SYMBOL);
    if (!symbol) {
        TACTORA_DIAGNOSTIC("startBackboardd", "no " TACTORA_DISPATCH_SYMBOL ": real touches will not cancel held fingers");
        return;
    }
    // The hooking library gets plain code addresses (the symbol table's address is one already).
    MSHookFunction(symbol, codeAddress(&dispatchEvent), &previousDispatchEvent);
    if (!previousDispatchEvent) TACTORA_DIAGNOSTIC("startBackboardd", "hooking " TACTORA_DISPATCH_SYMBOL " failed");
    noteDispatchHookInstalled(previousDispatchEvent != nullptr);  // the self-test reports it
}

// backboardd itself, whichever way it is asked: by its bundle identifier (its embedded Info.plist
// says "com.apple.backboardd") or by its executable, /usr/libexec/backboardd on iOS 13 to 16. The
// class BKApplication that once marked it is in no class dump of backboardd for iOS 13.5 to 16.4.
bool isBackboardd() {
    @autoreleasepool {
        if ([[NSBundle mainBundle].bundleIdentifier isEqualToString:@"com.apple.backboardd"]) return true;
    }
    char path[1024];
    uint32_t size = sizeof path;
    if (_NSGetExecutablePath(path, &size) != 0) return false;
    const std::string executable(path);
    const auto slash = executable.rfind('/');
    return executable.substr(slash == std::string::npos ? 0 : slash + 1) == "backboardd";
}

}  // namespace

void startBackboardd() {
    if (!isBackboardd()) return;
    injector = new TouchInjector;
    hookDispatch();
    // Exposed through RocketBootstrap and served on the main run loop; on failure the receiver
    // writes its diagnostic line and stays inactive.
    injectionPort = startInjectionReceiver(*injector);
    if (injectionPort) TACTORA_DIAGNOSTIC("startBackboardd", "injection port open");
}

}  // namespace tactora::ios
