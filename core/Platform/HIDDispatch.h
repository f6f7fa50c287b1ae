#pragma once

#include <cstdint>
#include <vector>

namespace tactora {

// One finger of a synthetic digitizer event, every field as IOHIDEventCreateDigitizerFingerEvent
// takes it.
struct FingerEventDescription {
    std::uint32_t index = 0;     // the script's finger number
    std::uint32_t identity = 2;
    std::uint32_t eventMask = 0;  // 4 position; 3 range and touch
    double x = 0;                 // 0..1 of the display
    double y = 0;
    bool range = false;
    bool touch = false;
};

// The hand event that carries the fingers: IOHIDEventCreateDigitizerEvent's arguments plus the
// integer fields and sender id set on it afterwards.
struct HandEventDescription {
    std::uint64_t timestamp = 0;
    std::uint32_t transducerType = 3;  // hand
    std::uint32_t index = 0;
    std::uint32_t identity = 1;
    std::uint32_t eventMask = 0;
    double x = 0;  // mean of the fingers, 0..1 of the display
    double y = 0;
    bool range = false;
    bool touch = false;
    bool displayIntegrated = true;  // kIOHIDEventFieldDigitizerIsDisplayIntegrated
    bool builtIn = true;            // kIOHIDEventFieldIsBuiltIn
    std::uint64_t senderID = 0x100000236;
    std::vector<FingerEventDescription> fingers;
};

struct KeyboardEventDescription {
    std::uint64_t timestamp = 0;
    std::uint16_t usagePage = 0;
    std::uint16_t usage = 0;
    bool down = false;
    std::uint64_t senderID = 0xDEFACEDBEEFFECE5;
};

// The display as the digitizer sees it (backboardd side).
struct DigitizerDisplay {
    float width = 0;   // CAWindowServer's "LCD" bounds
    float height = 0;
    bool mainScreenRespondsToDisplayLink = false;
    float mainScreenScale = 0;
};

// The receiving half's access to the HID system (backboardd on the device, the simulated device
// on the host).
class HIDDispatch {
public:
    virtual ~HIDDispatch() = default;

    // Creates the described events and dispatches them into the system. Default: dropped.
    virtual void dispatchDigitizer(const HandEventDescription& hand) { (void)hand; }
    virtual void dispatchKeyboard(const KeyboardEventDescription& key) { (void)key; }

    // The display's bounds and main-screen facts. Default: all zero.
    virtual DigitizerDisplay display() const { return {}; }

    // Tells the idle timer that the user acted (BKUserEventTimer). Default: nothing.
    virtual void userEventOccurred() {}

    // The timestamp for new events (mach_absolute_time). Default: 0.
    virtual std::uint64_t absoluteTime() const { return 0; }
};

}  // namespace tactora
