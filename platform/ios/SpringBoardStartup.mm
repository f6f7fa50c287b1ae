#include "ios/SpringBoardStartup.h"

#include <CydiaSubstrate/CydiaSubstrate.h>
#include <objc/runtime.h>

#include "Control/Helper.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Platform.h"
#include "ios/CFMessagePorts.h"
#include "ios/IOSPlatform.h"
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

// -[SpringBoard noteInterfaceOrientationChanged:duration:] (iOS 5 to 8).
using OrientationChanged = void (*)(id, SEL, UIInterfaceOrientation, double);
OrientationChanged previousOrientationChanged;
void orientationChanged(id self, SEL command, UIInterfaceOrientation orientation, double duration) {
    postOrientation(orientation);
    previousOrientationChanged(self, command, orientation, duration);
}

// The same callback with a log message (iOS 9 and 10).
using OrientationChangedLogged = void (*)(id, SEL, UIInterfaceOrientation, double, id);
OrientationChangedLogged previousOrientationChangedLogged;
void orientationChangedLogged(id self, SEL command, UIInterfaceOrientation orientation, double duration, id message) {
    postOrientation(orientation);
    previousOrientationChangedLogged(self, command, orientation, duration, message);
}

// ... and with mirrored-display and force flags (iOS 11 and later).
using OrientationChangedMirrored = void (*)(id, SEL, UIInterfaceOrientation, double, BOOL, BOOL, id);
OrientationChangedMirrored previousOrientationChangedMirrored;
void orientationChangedMirrored(id self, SEL command, UIInterfaceOrientation orientation, double duration,
                                BOOL updateMirroredDisplays, BOOL force, id message) {
    postOrientation(orientation);
    previousOrientationChangedMirrored(self, command, orientation, duration, updateMirroredDisplays, force, message);
}

template <class Function>
bool hookIfPresent(Class target, SEL selector, Function replacement, Function* previous) {
    if (!class_getInstanceMethod(target, selector)) return false;
    MSHookMessageEx(target, selector, reinterpret_cast<IMP>(replacement), reinterpret_cast<IMP*>(previous));
    return true;
}

// Lives as long as SpringBoard.
std::unique_ptr<LocalMessagePort> settingsPort;

}  // namespace

void startSpringBoard() {
    Class springBoard = objc_getClass("SpringBoard");
    if (!springBoard) return;  // not SpringBoard: nothing to hook, no port
    // Whichever form of the orientation callback this SpringBoard has.
    bool hooked =
        hookIfPresent(springBoard, @selector(noteInterfaceOrientationChanged:duration:), &orientationChanged,
                      &previousOrientationChanged) ||
        hookIfPresent(springBoard, @selector(noteInterfaceOrientationChanged:duration:logMessage:),
                      &orientationChangedLogged, &previousOrientationChangedLogged) ||
        hookIfPresent(springBoard,
                      @selector(noteInterfaceOrientationChanged:duration:updateMirroredDisplays:force:logMessage:),
                      &orientationChangedMirrored, &previousOrientationChangedMirrored);
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
