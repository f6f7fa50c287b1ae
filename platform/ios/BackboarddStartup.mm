#include "ios/BackboarddStartup.h"

#include <CydiaSubstrate/CydiaSubstrate.h>
#include <dlfcn.h>
#include <objc/runtime.h>

#include <memory>

#include "Kernel/TouchInjector.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "ios/IOSInstallation.h"
#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

#define TACTORA_IOKIT_PATH "/System/Library/Frameworks/IOKit.framework/IOKit"
// The Mach-O symbol of the C function _IOHIDEventSystemConnectionDispatchEvent (C names gain a
// leading underscore in the symbol table).
#define TACTORA_DISPATCH_SYMBOL "__IOHIDEventSystemConnectionDispatchEvent"

// Both live as long as backboardd.
TouchInjector* injector;
std::unique_ptr<LocalMessagePort> injectionPort;

IOHIDEventSystemConnectionDispatchEventFunction previousDispatchEvent;

// Every event the HID system hands to a client connection passes here, on backboardd's event
// threads. A real touch drops the synthetic fingers still held down.
void dispatchEvent(IOHIDEventSystemConnectionRef connection, IOHIDEventRef event) {
    if (connection && event &&
        TouchInjector::isRealDigitizerDispatch(IOHIDEventSystemConnectionGetType(connection), IOHIDEventGetType(event))) {
        injector->realDigitizerEventArrived();
    }
    previousDispatchEvent(connection, event);
}

void hookDispatch() {
    dlopen(TACTORA_IOKIT_PATH, RTLD_LAZY);
    void* symbol = MSFindSymbol(nullptr, TACTORA_DISPATCH_SYMBOL);
    if (!symbol) {
        TACTORA_DIAGNOSTIC("startBackboardd", "no " TACTORA_DISPATCH_SYMBOL ": real touches will not cancel held fingers");
        return;
    }
    MSHookFunction(symbol, reinterpret_cast<void*>(&dispatchEvent), reinterpret_cast<void**>(&previousDispatchEvent));
    noteDispatchHookInstalled(previousDispatchEvent != nullptr);  // the self-test reports it
}

}  // namespace

void startBackboardd() {
    if (!objc_getClass("BKApplication")) return;  // not backboardd
    injector = new TouchInjector;
    hookDispatch();
    // Exposed through RocketBootstrap and served on the main run loop; on failure the receiver
    // writes its diagnostic line and stays inactive.
    injectionPort = startInjectionReceiver(*injector);
    if (injectionPort) TACTORA_DIAGNOSTIC("startBackboardd", "injection port open");
}

}  // namespace tactora::ios
