#include "ios/EventSystemHIDSource.h"

#include <map>
#include <memory>

#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

// Each client's callback, by client; touched on the main thread only.
std::map<void*, std::unique_ptr<HIDEventCallback>>& callbacks() {
    static auto* map = new std::map<void*, std::unique_ptr<HIDEventCallback>>;
    return *map;
}

// Copies the fields the recorder reads into plain values: the type, the timestamp, the keyboard
// usage page, usage and down (0x30000-0x30002), and per digitizer child its index, touch, event
// mask, x and y (0xB0005, 0xB0009, 0xB0007, 0xB0000, 0xB0001).
HIDEvent plainEvent(IOHIDEventRef event) {
    HIDEvent plain;
    plain.type = IOHIDEventGetType(event);
    plain.timestamp = IOHIDEventGetTimeStamp(event);
    if (plain.type == kIOHIDEventTypeKeyboard) {
        plain.usagePage = static_cast<std::uint32_t>(IOHIDEventGetIntegerValue(event, kIOHIDEventFieldKeyboardUsagePage));
        plain.usage = static_cast<std::uint32_t>(IOHIDEventGetIntegerValue(event, kIOHIDEventFieldKeyboardUsage));
        plain.down = IOHIDEventGetIntegerValue(event, kIOHIDEventFieldKeyboardDown);
    } else if (plain.type == kIOHIDEventTypeDigitizer) {
        CFArrayRef children = IOHIDEventGetChildren(event);
        CFIndex count = children ? CFArrayGetCount(children) : 0;
        for (CFIndex i = 0; i < count; ++i) {
            auto child = static_cast<IOHIDEventRef>(const_cast<void*>(CFArrayGetValueAtIndex(children, i)));
            HIDDigitizerChild finger;
            finger.index = static_cast<std::uint32_t>(IOHIDEventGetIntegerValue(child, kIOHIDEventFieldDigitizerIndex));
            finger.touch = static_cast<std::uint32_t>(IOHIDEventGetIntegerValue(child, kIOHIDEventFieldDigitizerTouch));
            finger.eventMask =
                static_cast<std::uint32_t>(IOHIDEventGetIntegerValue(child, kIOHIDEventFieldDigitizerEventMask));
            finger.x = IOHIDEventGetFloatValue(child, kIOHIDEventFieldDigitizerX);
            finger.y = IOHIDEventGetFloatValue(child, kIOHIDEventFieldDigitizerY);
            plain.children.push_back(finger);
        }
    }
    return plain;
}

// The client's event callback: every HID event of the system comes here on the main run loop and
// goes on, as plain values, to the callback the recorder registered (its handle_events). Only the
// target (the client, which names that callback) and the event are used.
void nativeEventCallback(void* target, void* refcon, void* service, IOHIDEventRef event) {
    (void)refcon, (void)service;
    if (!event) return;
    auto found = callbacks().find(target);
    if (found == callbacks().end()) return;
    (*found->second)(plainEvent(event));
}

}  // namespace

void* EventSystemHIDSource::startDelivering(HIDEventCallback callback) {
    IOHIDEventSystemClientRef client = IOHIDEventSystemClientCreate(kCFAllocatorDefault);
    if (!client) return nullptr;
    callbacks()[client] = std::make_unique<HIDEventCallback>(std::move(callback));
    IOHIDEventSystemClientScheduleWithRunLoop(client, CFRunLoopGetMain(), kCFRunLoopDefaultMode);
    IOHIDEventSystemClientRegisterEventCallback(client, &nativeEventCallback, client, nullptr);
    return client;
}

void EventSystemHIDSource::stopDelivering(void* client) {
    if (!client) return;
    auto eventClient = static_cast<IOHIDEventSystemClientRef>(client);
    IOHIDEventSystemClientUnregisterEventCallback(eventClient);
    IOHIDEventSystemClientUnscheduleWithRunLoop(eventClient, CFRunLoopGetMain(), kCFRunLoopDefaultMode);
    callbacks().erase(client);
    CFRelease(eventClient);
}

}  // namespace tactora::ios
