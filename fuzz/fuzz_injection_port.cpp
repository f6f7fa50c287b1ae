// Arbitrary message sequences into the injection receiver (backboardd) and the settings callback
// (SpringBoard): no crash, and what a sender relies on holds (docs/reliability.md lists it).
// Input: byte 0 picks the display, then records of (selector, length, payload).
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Control/Helper.h"
#include "Kernel/EventSimulate.h"
#include "Kernel/TouchInjector.h"
#include "Platform/HIDDispatch.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"

using namespace tactora;

namespace {

[[noreturn]] void fail(const char* /* why, for the reader of a crash */) { __builtin_trap(); }

struct RecordingDispatch : HIDDispatch {
    explicit RecordingDispatch(DigitizerDisplay display) : shown(display) {}
    void dispatchDigitizer(const HandEventDescription& hand) override { hands.push_back(hand); }
    void dispatchKeyboard(const KeyboardEventDescription& key) override { keys.push_back(key); }
    DigitizerDisplay display() const override { return shown; }
    std::uint64_t absoluteTime() const override { return 1; }

    DigitizerDisplay shown;
    std::vector<HandEventDescription> hands;
    std::vector<KeyboardEventDescription> keys;
};

struct MapDefaults : UserDefaults {
    std::optional<DefaultsValue> objectForKey(const std::string& key) const override {
        auto found = values.find(key);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    }
    void setObject(const std::string& key, const DefaultsValue& value) override { values[key] = value; }
    void removeObject(const std::string& key) override { values.erase(key); }
    std::map<std::string, DefaultsValue> values;
};

const DigitizerDisplay displays[] = {
    {320, 568, true, 2.0f},   // 2x, portrait
    {568, 320, true, 2.0f},   // 2x, reported landscape
    {414, 736, true, 3.0f},   // 3x keeps factor 1
    {0, 0, false, 0.0f},      // a display that reports nothing
    {0, 1024, true, 2.0f},    // one side zero
};

struct ModelTouch {
    std::int32_t phase;
    bool finite;
};

void checkSync(RecordingDispatch& hid, std::size_t handsBefore, std::map<std::int32_t, ModelTouch>& model) {
    if (model.empty()) {
        if (hid.hands.size() != handsBefore) fail("an empty sync dispatched");
        return;
    }
    if (hid.hands.size() != handsBefore + 1) fail("a sync with fingers did not dispatch one hand");
    const HandEventDescription& hand = hid.hands.back();
    if (hand.fingers.size() != model.size()) fail("wrong finger count");
    bool allFinite = true, anyHeld = false;
    auto expected = model.begin();
    for (const FingerEventDescription& finger : hand.fingers) {
        if (static_cast<std::int32_t>(finger.index) != expected->first) fail("fingers out of order");
        bool held = expected->second.phase != touchPhaseUp;
        if (finger.range != held || finger.touch != held) fail("wrong contact state");
        if (expected->second.finite && (!std::isfinite(finger.x) || !std::isfinite(finger.y)))
            fail("finite position became non-finite");
        allFinite = allFinite && expected->second.finite;
        anyHeld = anyHeld || held;
        ++expected;
    }
    if (allFinite && (!std::isfinite(hand.x) || !std::isfinite(hand.y))) fail("hand position non-finite");
    if (hand.touch != anyHeld) fail("hand contact wrong");
    std::erase_if(model, [](const auto& entry) { return entry.second.phase == touchPhaseUp; });
}

void fuzzSettings(MapDefaults& defaults, std::int32_t id, std::span<const std::uint8_t> payload) {
    const auto before = defaults.values;
    myCallBack(id, payload);
    const char* key = id == 4   ? "TACTORA.SETTINGS.SHOW_PLAY_FINISHED_ALERT"
                      : id == 5 ? "TACTORA.SETTINGS.SHOW_ERRORS_BY_ALERT"
                      : id == 6 ? "TACTORA.SETTINGS.LOG_ERRORS"
                                : nullptr;
    if (!key || payload.size() != 4) {
        if (defaults.values != before) fail("ignored settings message changed the store");
        return;
    }
    bool on = payload[0] | payload[1] | payload[2] | payload[3];
    auto stored = defaults.objectForKey(key);
    if (!stored || !std::holds_alternative<bool>(*stored) || std::get<bool>(*stored) != on)
        fail("settings message stored the wrong value");
    bool read = id == 4 ? Helper::ifShowPlayFinishedAlert() : id == 5 ? Helper::ifShowErrorsByAlert() : Helper::ifLogErrors();
    if (read != on) fail("option reads back differently");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    ScopedPlatform scope;
    RecordingDispatch hid(displays[data[0] % (sizeof displays / sizeof displays[0])]);
    MapDefaults defaults;
    platform().hidDispatch = &hid;
    platform().userDefaults = &defaults;

    TouchInjector injector;
    std::map<std::int32_t, ModelTouch> model;
    std::size_t at = 1;
    while (at + 2 <= size) {
        std::uint8_t selector = data[at];
        std::size_t length = data[at + 1];
        at += 2;
        length = std::min(length, size - at);
        std::span<const std::uint8_t> payload(data + at, length);
        at += length;

        if (selector >= 0xF0) {  // the settings port, with ids around the valid ones
            fuzzSettings(defaults, static_cast<std::int32_t>(selector & 0x0F) - 2, payload);
            continue;
        }
        if (selector == 0xEF) {  // a real finger touched the screen
            injector.realDigitizerEventArrived();
            model.clear();
            continue;
        }
        // Ids 0..4 mostly, with a few far outside.
        std::int32_t id = selector < 0xE0 ? selector % 5 : static_cast<std::int32_t>(std::uint32_t(selector) << 24);
        std::size_t handsBefore = hid.hands.size(), keysBefore = hid.keys.size();
        injector.messageCallBack(id, payload);
        if (id == SimulateMessageTouch && payload.size() == 24) {
            std::int32_t phase, finger;
            double x, y;
            std::memcpy(&phase, payload.data(), 4);
            std::memcpy(&finger, payload.data() + 4, 4);
            std::memcpy(&x, payload.data() + 8, 8);
            std::memcpy(&y, payload.data() + 16, 8);
            model[finger] = {phase, std::isfinite(x) && std::isfinite(y) && std::fabs(x) < 1e300 && std::fabs(y) < 1e300};
        } else if (id == SimulateMessageSync) {
            checkSync(hid, handsBefore, model);
        } else if (id == SimulateMessageKey && payload.size() == 12) {
            if (hid.keys.size() != keysBefore + 1) fail("key message did not dispatch one key");
            std::uint16_t usage;
            std::memcpy(&usage, payload.data(), 2);
            if (hid.keys.back().usage != usage || hid.keys.back().down != (payload[8] != 0)) fail("key fields wrong");
        }
        if (id != SimulateMessageSync && hid.hands.size() != handsBefore) fail("only a sync dispatches fingers");
        if (id != SimulateMessageKey && hid.keys.size() != keysBefore) fail("only a key message dispatches keys");
        if (injector.pendingTouches().size() != model.size()) fail("pending fingers differ from what was sent");
    }
    return 0;
}
