#include "Kernel/EventSimulate.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

// The sender's connection, kept for the life of the process and re-created when it goes invalid.
// Only the script thread sends; the mutex keeps tests that send from several threads honest.
std::mutex portMutex;
std::unique_ptr<RemoteMessagePort> remotePort;

constexpr double sendTimeout = 1.0;
constexpr double receiveTimeout = 1.0;

bool freshLocked() {
    if (remotePort && !remotePort->isValid()) remotePort.reset();
    if (remotePort) return true;
    remotePort = platform().messagePorts->createRemote(injectionPortName);
    if (remotePort && !remotePort->isValid()) remotePort.reset();
    return remotePort != nullptr;
}

std::int32_t send(std::int32_t messageId, std::span<const std::uint8_t> payload) {
    std::lock_guard lock(portMutex);
    if (!freshLocked()) return -1;
    std::vector<std::uint8_t> reply;
    remotePort->sendRequest(messageId, payload, sendTimeout, receiveTimeout, &reply);
    // The receiver never replies, so this is 0 whenever the port was reached.
    std::int32_t result = 0;
    if (!reply.empty()) std::memcpy(&result, reply.data(), std::min(reply.size(), sizeof result));
    return result;
}

}  // namespace

bool keep_message_port_fresh() {
    std::lock_guard lock(portMutex);
    return freshLocked();
}

std::int32_t call_simulate_touch_event(std::int32_t phase, std::int32_t finger, double x, double y) {
    // Touch record: phase, finger (32-bit), x, y (IEEE doubles), in this processor's byte order.
    std::uint8_t record[24];
    std::memcpy(record + 0, &phase, 4);
    std::memcpy(record + 4, &finger, 4);
    std::memcpy(record + 8, &x, 8);
    std::memcpy(record + 16, &y, 8);
    return send(SimulateMessageTouch, record);
}

std::int32_t call_simulate_keyboard_event(std::uint16_t usagePage, std::uint16_t usage, bool down) {
    // Key record: usage, usage page (32-bit, the receiver reads the low 16 bits), down, padding.
    std::uint8_t record[12] = {};
    std::int32_t usage32 = usage;
    std::int32_t page32 = usagePage;
    std::memcpy(record + 0, &usage32, 4);
    std::memcpy(record + 4, &page32, 4);
    record[8] = down ? 1 : 0;
    return send(SimulateMessageKey, record);
}

std::int32_t EventSimulate::touchDown(std::int32_t finger, std::int32_t x, std::int32_t y) {
    return call_simulate_touch_event(touchPhaseDown, finger, x, y);
}

std::int32_t EventSimulate::touchMove(std::int32_t finger, std::int32_t x, std::int32_t y) {
    return call_simulate_touch_event(touchPhaseMove, finger, x, y);
}

std::int32_t EventSimulate::touchUp(std::int32_t finger, std::int32_t x, std::int32_t y) {
    return call_simulate_touch_event(touchPhaseUp, finger, x, y);
}

std::int32_t EventSimulate::syncEvent() { return send(SimulateMessageSync, {}); }

// HID consumer page (0x0C), usage Menu (0x40): the home button.
constexpr std::uint16_t consumerPage = 12;
constexpr std::uint16_t menuUsage = 64;

std::int32_t EventSimulate::keyDown(std::int32_t key) {
    if (key != 1) return -1;
    return call_simulate_keyboard_event(consumerPage, menuUsage, true);
}

std::int32_t EventSimulate::keyUp(std::int32_t key) {
    if (key != 1) return -1;
    return call_simulate_keyboard_event(consumerPage, menuUsage, false);
}

void EventSimulate::resetConnection() {
    std::lock_guard lock(portMutex);
    remotePort.reset();
}

}  // namespace tactora
