#include "ios/HIDDispatch.h"

#include <mach/mach_time.h>

#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

// One client of the event system for every synthetic event of the process, made on first use.
IOHIDEventSystemClientRef eventClient() {
    static IOHIDEventSystemClientRef client = IOHIDEventSystemClientCreate(kCFAllocatorDefault);
    return client;
}

void dispatchAndRelease(IOHIDEventRef event) {
    if (!event) return;
    if (IOHIDEventSystemClientRef client = eventClient()) IOHIDEventSystemClientDispatchEvent(client, event);
    CFRelease(event);
}

}  // namespace

void IOKitHIDDispatch::dispatchDigitizer(const HandEventDescription& hand) {
    // The hand is created empty and filled in once its fingers are attached.
    IOHIDEventRef handEvent =
        IOHIDEventCreateDigitizerEvent(kCFAllocatorDefault, hand.timestamp, hand.transducerType, hand.index,
                                       hand.identity, 0, 0, 0, 0, 0, 0, 0, false, false, 0);
    if (!handEvent) return;
    IOHIDEventSetIntegerValue(handEvent, kIOHIDEventFieldDigitizerIsDisplayIntegrated, hand.displayIntegrated);
    IOHIDEventSetIntegerValue(handEvent, kIOHIDEventFieldIsBuiltIn, hand.builtIn);
    IOHIDEventSetSenderID(handEvent, hand.senderID);

    for (const FingerEventDescription& finger : hand.fingers) {
        IOHIDEventRef fingerEvent = IOHIDEventCreateDigitizerFingerEvent(
            kCFAllocatorDefault, hand.timestamp, finger.index, finger.identity, finger.eventMask, finger.x, finger.y,
            0, 0, 0, finger.range, finger.touch, 0);
        if (!fingerEvent) continue;
        IOHIDEventAppendEvent(handEvent, fingerEvent, 0);
        CFRelease(fingerEvent);  // the hand holds it now
    }

    IOHIDEventSetFloatValue(handEvent, kIOHIDEventFieldDigitizerX, hand.x);
    IOHIDEventSetFloatValue(handEvent, kIOHIDEventFieldDigitizerY, hand.y);
    IOHIDEventSetIntegerValue(handEvent, kIOHIDEventFieldDigitizerEventMask, static_cast<CFIndex>(hand.eventMask));
    IOHIDEventSetIntegerValue(handEvent, kIOHIDEventFieldDigitizerRange, hand.range);
    IOHIDEventSetIntegerValue(handEvent, kIOHIDEventFieldDigitizerTouch, hand.touch);
    dispatchAndRelease(handEvent);
}

void IOKitHIDDispatch::dispatchKeyboard(const KeyboardEventDescription& key) {
    IOHIDEventRef event =
        IOHIDEventCreateKeyboardEvent(kCFAllocatorDefault, key.timestamp, key.usagePage, key.usage, key.down, 0);
    if (!event) return;
    IOHIDEventSetSenderID(event, key.senderID);
    dispatchAndRelease(event);
}

DigitizerDisplay IOKitHIDDispatch::display() const {
    DigitizerDisplay display;
    @autoreleasepool {
        Class windowServer = NSClassFromString(@"CAWindowServer");
        if ([windowServer respondsToSelector:@selector(serverIfRunning)]) {
            CAWindowServerDisplay* lcd = [[windowServer serverIfRunning] displayWithName:@"LCD"];
            CGRect bounds = lcd ? lcd.bounds : CGRectZero;
            display.width = static_cast<float>(bounds.size.width);
            display.height = static_cast<float>(bounds.size.height);
        }
        // backboardd is no UIKit application: it has no main screen object to ask. The scale comes
        // from GraphicsServices, which reads the device's facts and answers in any process (UIKit
        // takes its screen scale from the same facts); whether the screen class answers the
        // display-link message is a question to the class, which needs no instance.
        display.mainScreenRespondsToDisplayLink =
            [UIScreen instancesRespondToSelector:@selector(displayLinkWithTarget:selector:)];
        display.mainScreenScale = GSMainScreenScaleFactor();
    }
    return display;
}

void IOKitHIDDispatch::userEventOccurred() {
    Class timer = NSClassFromString(@"BKUserEventTimer");
    if ([timer respondsToSelector:@selector(sharedInstance)]) {
        BKUserEventTimer* shared = [timer sharedInstance];
        if ([shared respondsToSelector:@selector(userEventOccurredOnDisplay:)]) [shared userEventOccurredOnDisplay:nil];
    }
}

std::uint64_t IOKitHIDDispatch::absoluteTime() const { return mach_absolute_time(); }

}  // namespace tactora::ios
