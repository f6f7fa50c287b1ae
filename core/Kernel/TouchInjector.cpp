#include "Kernel/TouchInjector.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "Kernel/EventSimulate.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/HIDDispatch.h"
#include "Platform/Installation.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

constexpr std::size_t touchRecordSize = 24;
constexpr std::size_t keyRecordSize = 12;

// IOHIDEventType: digitizer. The connection type is the one the HID system gives the
// connection that real touches arrive on.
constexpr std::uint32_t digitizerEventType = 11;
constexpr std::uint32_t realTouchConnectionType = 3;

// IOHIDDigitizerEventMask bits.
constexpr std::uint32_t maskRange = 0x1;
constexpr std::uint32_t maskTouch = 0x2;
constexpr std::uint32_t maskPosition = 0x4;
constexpr std::uint32_t maskIdentity = 0x20;

std::string fingerKey(std::int32_t finger) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", finger);
    return text;
}

// The integer a key spells; keys are only ever made by fingerKey, so they always parse.
std::int32_t fingerNumber(const std::string& key) {
    std::int32_t number = 0;
    std::from_chars(key.data(), key.data() + key.size(), number);
    return number;
}

// Points over pixels; a display that reports no size leaves every finger at 0.
double fraction(double points, float extent) { return extent != 0 ? points / extent : 0.0; }

}  // namespace

bool FingerKeyOrder::operator()(const std::string& a, const std::string& b) const {
    return fingerNumber(a) < fingerNumber(b);
}

std::vector<std::uint8_t> TouchInjector::messageCallBack(std::int32_t messageId,
                                                         std::span<const std::uint8_t> data) {
    if (realTouchArrived_.exchange(false, std::memory_order_relaxed)) pendingTouches_.clear();
    switch (messageId) {
        case SimulateMessageSync:
            sync();
            break;
        case SimulateMessageTouch:
            if (data.size() == touchRecordSize) storeTouch(data);
            break;
        case SimulateMessageKey:
            if (data.size() == keyRecordSize) dispatchKey(data);
            break;
        case SimulateMessageStatus: {
            std::string status = statusRecord();
            return {status.begin(), status.end()};
        }
        default:
            break;
    }
    return {};
}

void TouchInjector::realDigitizerEventArrived() { realTouchArrived_.store(true, std::memory_order_relaxed); }

bool TouchInjector::isRealDigitizerDispatch(std::uint32_t connectionType, std::uint32_t eventType) {
    return connectionType == realTouchConnectionType && eventType == digitizerEventType;
}

std::string TouchInjector::statusRecord() {
    const Installation& installation = *platform().installation;
    return std::string("hook=") + (installation.dispatchHookInstalled() ? "1" : "0") +
           "\nslice=" + installation.loadedSlice() + "\n";
}

void TouchInjector::storeTouch(std::span<const std::uint8_t> record) {
    // phase (int32), finger (int32), x, y (IEEE doubles), in the sender's byte order.
    STTouch touch;
    std::int32_t finger;
    std::memcpy(&touch.type, record.data() + 0, 4);
    std::memcpy(&finger, record.data() + 4, 4);
    std::memcpy(&touch.x, record.data() + 8, 8);
    std::memcpy(&touch.y, record.data() + 16, 8);
    // Only the last phase and position of a finger before a sync survive.
    pendingTouches_[fingerKey(finger)] = touch;
}

void TouchInjector::dispatchKey(std::span<const std::uint8_t> record) {
    // usage, usage page (int32 each, of which the low 16 bits count), down (byte), padding.
    std::int32_t usage, usagePage;
    std::memcpy(&usage, record.data() + 0, 4);
    std::memcpy(&usagePage, record.data() + 4, 4);
    HIDDispatch& hid = *platform().hidDispatch;
    KeyboardEventDescription key;
    key.timestamp = hid.absoluteTime();
    key.usagePage = static_cast<std::uint16_t>(usagePage);
    key.usage = static_cast<std::uint16_t>(usage);
    key.down = record[8] != 0;
    hid.dispatchKeyboard(key);
}

void TouchInjector::sync() {
    if (pendingTouches_.empty()) return;
    HIDDispatch& hid = *platform().hidDispatch;

    if (displayWidth_ == 0 || displayHeight_ == 0 || screen_factor_ == 0) {
        // Portrait values whatever the rotation: the narrow side is the width.
        DigitizerDisplay display = hid.display();
        displayWidth_ = std::min(display.width, display.height);
        displayHeight_ = std::max(display.width, display.height);
        // Exactly 2x screens convert points to pixels; every other scale (3x included) keeps
        // the factor 1, as the device always has.
        screen_factor_ = display.mainScreenRespondsToDisplayLink && display.mainScreenScale == 2.0f ? 2.0f : 1.0f;
    }

    HandEventDescription hand;
    hand.timestamp = hid.absoluteTime();
    double sumX = 0, sumY = 0;
    bool handInContact = false;
    std::uint32_t handMask = 0;
    for (auto entry = pendingTouches_.begin(); entry != pendingTouches_.end();) {
        const STTouch& touch = entry->second;
        bool moving = touch.type == touchPhaseMove;
        bool lifted = touch.type == touchPhaseUp;
        FingerEventDescription finger;
        // The digitizer takes the index unsigned: finger -7 arrives as 0xFFFFFFF9.
        finger.index = static_cast<std::uint32_t>(fingerNumber(entry->first));
        finger.identity = 2;
        finger.eventMask = moving ? maskPosition : maskRange | maskTouch;
        finger.x = fraction(touch.x, displayWidth_) * screen_factor_;
        finger.y = screen_factor_ * fraction(touch.y, displayHeight_);
        finger.range = finger.touch = !lifted;
        hand.fingers.push_back(finger);

        handMask |= moving ? maskPosition : maskRange | maskTouch | maskIdentity;
        sumX += finger.x;
        sumY += finger.y;
        handInContact = handInContact || !lifted;
        if (lifted) {
            handMask |= maskPosition;
            entry = pendingTouches_.erase(entry);
        } else {
            ++entry;  // a held finger is sent again at every sync until it is lifted
        }
    }
    auto count = static_cast<double>(hand.fingers.size());
    hand.x = sumX / count;
    hand.y = sumY / count;
    hand.eventMask = handMask;
    hand.range = hand.touch = handInContact;

    hid.userEventOccurred();
    hid.dispatchDigitizer(hand);
}

std::unique_ptr<LocalMessagePort> startInjectionReceiver(TouchInjector& injector) {
    auto port = platform().messagePorts->createLocal(
        injectionPortName, [&injector](std::int32_t messageId, std::span<const std::uint8_t> data) {
            return injector.messageCallBack(messageId, data);
        });
    if (!port) TACTORA_DIAGNOSTIC("_MSInitialize", "### ST: RocketBootstrap failed");
    return port;
}

}  // namespace tactora
