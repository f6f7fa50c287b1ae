#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace tactora {

// IOHIDEventType values the recorder looks at.
enum HIDEventType : std::uint32_t {
    kIOHIDEventTypeKeyboard = 3,
    kIOHIDEventTypeDigitizer = 11,
};

// IOHIDDigitizerEventMask bits the recorder looks at.
enum HIDDigitizerEventMask : std::uint32_t {
    kIOHIDDigitizerEventRange = 1u << 0,
    kIOHIDDigitizerEventTouch = 1u << 1,     // the touch state changed
    kIOHIDDigitizerEventPosition = 1u << 2,  // the finger moved
};

// One child of a digitizer event (one finger).
struct HIDDigitizerChild {
    std::uint32_t index = 0;      // kIOHIDEventFieldDigitizerIndex (0xB0005)
    std::uint32_t touch = 0;      // kIOHIDEventFieldDigitizerTouch (0xB0009)
    std::uint32_t eventMask = 0;  // kIOHIDEventFieldDigitizerEventMask (0xB0007)
    double x = 0;                 // kIOHIDEventFieldDigitizerX (0xB0000): 0..1 of the screen
    double y = 0;                 // kIOHIDEventFieldDigitizerY (0xB0001)
};

// A native HID event, copied field by field into plain values by the platform.
struct HIDEvent {
    std::uint32_t type = 0;       // HIDEventType
    std::uint64_t timestamp = 0;  // absolute-time ticks
    // Keyboard events.
    std::uint32_t usagePage = 0;  // kIOHIDEventFieldKeyboardUsagePage (0x30000)
    std::uint32_t usage = 0;      // kIOHIDEventFieldKeyboardUsage (0x30001)
    std::int64_t down = 0;        // kIOHIDEventFieldKeyboardDown (0x30002)
    // Digitizer events: the children in the event's order.
    std::vector<HIDDigitizerChild> children;
};

using HIDEventCallback = std::function<void(const HIDEvent& event)>;

// The real HID events of the system, seen from SpringBoard (an IOHIDEventSystemClient on the
// device; a file, the browser or a test on the host).
class HIDSource {
public:
    virtual ~HIDSource() = default;

    // Creates an event client that calls `callback` on the main loop for every event from now on,
    // and returns it as an opaque handle. Default: no source; answers null and calls nothing.
    virtual void* startDelivering(HIDEventCallback callback) {
        (void)callback;
        return nullptr;
    }

    // Unregisters the callback of `client` and releases it; no call follows. Default: nothing.
    virtual void stopDelivering(void* client) { (void)client; }
};

}  // namespace tactora
