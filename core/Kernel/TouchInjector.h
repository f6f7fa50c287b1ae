// The receiving half of injection, which lives in backboardd: it keeps the fingers that scripts
// hold down and turns them into hand and finger events at every sync, and turns key messages into
// keyboard events. It decides every field of those events; the platform's HID dispatch only
// creates and delivers them.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tactora {

class LocalMessagePort;

// A finger as the last message about it left it: its phase (0 move, 1 down, 2 up) and its
// position in points.
struct STTouch {
    std::int32_t type = 0;
    double x = 0;
    double y = 0;
};

// Finger keys are the finger number as "%d" text ("-7", "1", "10"). They are ordered by the
// number they spell, so a hand event lists its fingers in ascending finger number.
struct FingerKeyOrder {
    bool operator()(const std::string& a, const std::string& b) const;
};

using PendingTouches = std::map<std::string, STTouch, FingerKeyOrder>;

class TouchInjector {
public:
    // Handles one message of the injection port (1 sync, 2 touch of exactly 24 bytes, 3 key of
    // exactly 12 bytes, 5 status; anything else is ignored). Events go to platform().hidDispatch.
    // Replies only to the status request. Runs on the main loop only.
    std::vector<std::uint8_t> messageCallBack(std::int32_t messageId, std::span<const std::uint8_t> data);

    // A real digitizer event reached the HID system: every synthetic finger still held is
    // dropped. May be called from any thread; the fingers are dropped before the next message is
    // handled, which nothing can tell apart from dropping them at once.
    void realDigitizerEventArrived();

    // Whether the dispatch hook has seen a real touch: a digitizer event (type 11) on a
    // connection of type 3.
    static bool isRealDigitizerDispatch(std::uint32_t connectionType, std::uint32_t eventType);

    // The reply to a status request: "hook=0|1" (the dispatch hook is in place) and "slice=NAME"
    // (the code that runs), one per line, as this process's installation port reports them.
    static std::string statusRecord();

    // The fingers waiting for the next sync (main loop only).
    const PendingTouches& pendingTouches() const { return pendingTouches_; }

private:
    void storeTouch(std::span<const std::uint8_t> record);
    void dispatchKey(std::span<const std::uint8_t> record);
    void sync();

    PendingTouches pendingTouches_;
    // Points to the digitizer's 0..1 range; 0 until first asked of the display.
    float displayWidth_ = 0;
    float displayHeight_ = 0;
    float screen_factor_ = 0;
    std::atomic<bool> realTouchArrived_{false};
};

// Opens the injection port "tactora.tactoratweak.backboardd" with `injector` as its handler.
// Null (after one diagnostic line) when the port cannot be opened or exposed; the receiver is
// then inactive for the life of the process. `injector` must outlive the port.
std::unique_ptr<LocalMessagePort> startInjectionReceiver(TouchInjector& injector);

}  // namespace tactora
