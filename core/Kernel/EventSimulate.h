#pragma once

#include <cstdint>

namespace tactora {

// Port names and message ids of the injection port (SpringBoard -> backboardd).
inline constexpr const char* injectionPortName = "tactora.tactoratweak.backboardd";
enum SimulateMessage : std::int32_t {
    SimulateMessageSync = 1,   // no data: dispatch every pending finger now
    SimulateMessageTouch = 2,  // 24 bytes: phase, finger, x, y
    SimulateMessageKey = 3,    // 12 bytes: usage, usage page, down
    // No data: the only message with a reply, the receiver's status as "key=value" lines
    // ("hook=1", "slice=arm64e"); the self-test asks it. Senders of touches never send it.
    SimulateMessageStatus = 5,
};
enum TouchPhase : std::int32_t { touchPhaseMove = 0, touchPhaseDown = 1, touchPhaseUp = 2 };

// The sending half of injection, used by the script functions. Every call blocks until the
// receiver handled it (1 s send and receive time-outs) and returns -1 when the port cannot be
// reached; callers ignore the result.
class EventSimulate {
public:
    static std::int32_t touchDown(std::int32_t finger, std::int32_t x, std::int32_t y);
    static std::int32_t touchMove(std::int32_t finger, std::int32_t x, std::int32_t y);
    static std::int32_t touchUp(std::int32_t finger, std::int32_t x, std::int32_t y);
    static std::int32_t syncEvent();
    // Only key 1, the home button, is known; any other key sends nothing and returns -1.
    static std::int32_t keyDown(std::int32_t key);
    static std::int32_t keyUp(std::int32_t key);

    // Forgets the connection (tests; a new platform was installed).
    static void resetConnection();
};

// The sends behind EventSimulate, by their own names.
std::int32_t call_simulate_touch_event(std::int32_t phase, std::int32_t finger, double x, double y);
std::int32_t call_simulate_keyboard_event(std::uint16_t usagePage, std::uint16_t usage, bool down);
// Makes sure a valid remote port is held, creating one when needed; false when unreachable.
bool keep_message_port_fresh();

}  // namespace tactora
