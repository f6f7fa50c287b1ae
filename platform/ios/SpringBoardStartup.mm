#include "ios/SpringBoardStartup.h"

#include <CydiaSubstrate/CydiaSubstrate.h>
#include <objc/runtime.h>

#include "Control/Helper.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Platform.h"
#include "ios/CFMessagePorts.h"
#include "ios/IOSPlatform.h"
#include "ios/PointerAuth.h"
#include "ios/PrivateAPI.h"
#include "ios/UIScreenDisplay.h"

namespace tactora::ios {

namespace {

// The system's own pop-up views turn with SpringBoard by listening for this notification.
void postOrientation(UIInterfaceOrientation orientation) {
    noteInterfaceOrientation(static_cast<int>(orientation));
    @autoreleasepool {
        [[NSNotificationCenter defaultCenter]
            postNotificationName:[NSString stringWithUTF8String:orientationChangedNotification]
                          object:[NSNumber numberWithInt:static_cast<int>(orientation)]];
    }
}

// Each previous implementation is kept as the hooking library wrote it (before the hook went
// live) and made callable under pointer authentication at each call (PointerAuth.h): libraries
// differ in whether the IMP they hand back is signed.

// -[SpringBoard noteInterfaceOrientationChanged:duration:] (iOS 5 to 8).
using OrientationChanged = void (*)(id, SEL, UIInterfaceOrientation, double);
IMP previousOrientationChanged;
void orientationChanged(id self, SEL command, UIInterfaceOrientation orientation, double duration) {
    postOrientation(orientation);
    auto previous = callableFunction<OrientationChanged>(reinterpret_cast<void*>(previousOrientationChanged));
    if (previous) previous(self, command, orientation, duration);
}

// The same callback with a log message (iOS 9 and later; still present on 13.5.1 to 15.5).
using OrientationChangedLogged = void (*)(id, SEL, UIInterfaceOrientation, double, id);
IMP previousOrientationChangedLogged;
void orientationChangedLogged(id self, SEL command, UIInterfaceOrientation orientation, double duration, id message) {
    postOrientation(orientation);
    auto previous =
        callableFunction<OrientationChangedLogged>(reinterpret_cast<void*>(previousOrientationChangedLogged));
    if (previous) previous(self, command, orientation, duration, message);
}

// ... and with mirrored-display and force flags (iOS 11 and later; in the class dumps of
// SpringBoard for iOS 13.5.1, 14.0 and 15.5).
using OrientationChangedMirrored = void (*)(id, SEL, UIInterfaceOrientation, double, BOOL, BOOL, id);
IMP previousOrientationChangedMirrored;
void orientationChangedMirrored(id self, SEL command, UIInterfaceOrientation orientation, double duration,
                                BOOL updateMirroredDisplays, BOOL force, id message) {
    postOrientation(orientation);
    auto previous =
        callableFunction<OrientationChangedMirrored>(reinterpret_cast<void*>(previousOrientationChangedMirrored));
    if (previous) previous(self, command, orientation, duration, updateMirroredDisplays, force, message);
}

// The replacement goes in as an ordinary (signed) function pointer: the Objective-C runtime
// authenticates an IMP it is given, where a hooking library patching a branch would not.
template <class Function>
bool hookIfPresent(Class target, SEL selector, Function replacement, IMP* previous) {
    if (!class_getInstanceMethod(target, selector)) return false;
    MSHookMessageEx(target, selector, reinterpret_cast<IMP>(replacement), previous);
    return true;
}

// Lives as long as SpringBoard.
std::unique_ptr<LocalMessagePort> settingsPort;

}  // namespace

void startSpringBoard() {
    Class springBoard = objc_getClass("SpringBoard");
    if (!springBoard) return;  // not SpringBoard: nothing to hook, no port
    // Every form of the orientation callback this SpringBoard has. SpringBoard of iOS 13.5.1, 14.0
    // and 15.5 (class dumps) has both the log-message form and the mirrored-display form, and
    // which of them a turn goes through is not visible from outside; hooking each one present
    // means no turn is missed, and a turn announced twice changes nothing (the same orientation
    // is noted and posted again).
    bool hooked = false;
    hooked |= hookIfPresent(springBoard, @selector(noteInterfaceOrientationChanged:duration:), &orientationChanged,
                            &previousOrientationChanged);
    hooked |= hookIfPresent(springBoard, @selector(noteInterfaceOrientationChanged:duration:logMessage:),
                            &orientationChangedLogged, &previousOrientationChangedLogged);
    SEL mirrored = @selector(noteInterfaceOrientationChanged:duration:updateMirroredDisplays:force:logMessage:);
    hooked |= hookIfPresent(springBoard, mirrored, &orientationChangedMirrored, &previousOrientationChangedMirrored);
    if (!hooked) TACTORA_DIAGNOSTIC("startSpringBoard", "no orientation callback found in SpringBoard");
    // The settings screen lives in a privileged process: no RocketBootstrap. Common modes keep the
    // port served while SpringBoard tracks a touch.
    settingsPort = messagePorts().openLocal(
        settingsPortName,
        [](std::int32_t messageId, std::span<const std::uint8_t> data) {
            myCallBack(messageId, data);
            return std::vector<std::uint8_t>{};
        },
        LocalPortOptions{.exposeThroughRocketBootstrap = false, .commonModes = true});
    TACTORA_DIAGNOSTIC("startSpringBoard", settingsPort ? "settings port open" : "settings port could not be created");
}

}  // namespace tactora::ios
