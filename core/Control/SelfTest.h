// The self-test: every part of the system checked for real, one result per check, the same on
// the phone (`tactora-doctor`) and on the desktop (`tactora doctor`).
//
// Sections:
//   - SelfTestCheck, SelfTestReport: the results, their text and JSON forms, their wire form.
//   - the checks: each asks the ports, measures, and says what most likely went wrong.
//   - the self-test port: SpringBoard's half runs its in-process checks for the command.
//   - TapRoundTrip: a synthetic tap sent through the injection port and watched for in the HID
//     events SpringBoard receives.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Display.h"

namespace tactora {

class LocalMessagePort;

// One check: what was checked, whether it passed, what was measured and, when it failed, the
// likely cause in words a user can act on.
struct SelfTestCheck {
    std::string name;   // short and stable ("receiver", "capture"): scripts key on it
    bool passed = false;
    std::string value;  // what was measured ("answered a sync in 0.4 ms")
    std::string cause;  // empty when it passed

    static SelfTestCheck pass(std::string name, std::string value) {
        return {std::move(name), true, std::move(value), {}};
    }
    static SelfTestCheck fail(std::string name, std::string value, std::string cause) {
        return {std::move(name), false, std::move(value), std::move(cause)};
    }
};

class SelfTestReport {
public:
    void add(SelfTestCheck check) { checks_.push_back(std::move(check)); }
    void append(const SelfTestReport& other);
    const std::vector<SelfTestCheck>& checks() const { return checks_; }
    // The check called `name`, if the report has it.
    const SelfTestCheck* find(std::string_view name) const;

    // True when there is at least one check and every check passed.
    bool passed() const;
    // The command's exit status: 0 when passed, else 1.
    int exitStatus() const { return passed() ? 0 : 1; }

    // One line per check: "PASS name  value" or "FAIL name  value: cause", and a closing line.
    std::string text() const;
    // {"passed": bool, "checks": [{"name", "passed", "value", "cause"}, ...]}
    std::string json() const;

    // The form the self-test port carries: one check per line, its four fields separated by tabs
    // (tabs, line ends and backslashes inside a field escaped). decode skips lines that do not
    // have four fields.
    std::string encode() const;
    static SelfTestReport decode(std::string_view text);

private:
    std::vector<SelfTestCheck> checks_;
};

// --- the checks ---------------------------------------------------------------------------------

// The receiving half (backboardd) answers a sync over the injection port; the value is the round
// trip. A sync with no finger held dispatches nothing.
SelfTestCheck checkReceiver(double timeoutSeconds);
// The receiving half reports its hook on the HID system's dispatch in place.
SelfTestCheck checkDispatchHook(double timeoutSeconds);
// The screen captures at the display's size in pixels and is not one flat colour. `image`
// receives the capture for checkTemplate.
SelfTestCheck checkCapture(ScreenImage& image);
// A piece cut from the capture is found again by the image search, at the place it was cut from.
SelfTestCheck checkTemplate(const ScreenImage& image);
// The scripts directory exists as a directory.
SelfTestCheck checkScriptsDirectory();
// The store opens and holds both of its tables. Opens it read-only: a damaged file stays as it is.
SelfTestCheck checkStore();
// The event library is there, and the control-panel and start/stop triggers are stored and
// assigned to our listener.
SelfTestCheck checkActivator();
// RocketBootstrap is loaded (the ports between processes depend on it).
SelfTestCheck checkRocketBootstrap();
// The system, the device, the layout and the slice that runs: passes when all are known.
SelfTestCheck checkSystem();

// The checks SpringBoard's half runs in its own process: capture, template, scripts directory,
// store, Activator, RocketBootstrap (unless told it has none, as the simulated device), system.
SelfTestReport runSpringBoardChecks(bool withRocketBootstrap = true);

// --- the self-test port -------------------------------------------------------------------------

// Served by SpringBoard's half, exposed to the command that runs outside it.
inline constexpr const char* selfTestPortName = "tactora.tactoratweak.selftest";
enum SelfTestMessage : std::int32_t {
    SelfTestMessageRun = 1,        // no data; replies the in-process checks (encoded report)
    SelfTestMessageStartTap = 2,   // 16 bytes: x, y in points (doubles); replies nothing
    SelfTestMessageTapResult = 3,  // no data; replies the tap check, or nothing while it waits
};

// Opens the self-test port in this process (SpringBoard's half). Null when it cannot be opened.
std::unique_ptr<LocalMessagePort> startSelfTestResponder();

// Asks SpringBoard's half for its checks. On no answer, one failed "springboard" check; else a
// passed "springboard" check (with the round trip) followed by its checks.
SelfTestReport askSpringBoard(double timeoutSeconds);
// Asks SpringBoard's half to tap at (x, y) and waits up to `timeoutSeconds` for the result.
SelfTestCheck askTap(double x, double y, double timeoutSeconds);

// The default spot of the tap: the top-left corner of the status bar, where a tap does nothing on
// the home screen (in an app it may scroll a list to its top).
inline constexpr double defaultTapX = 2;
inline constexpr double defaultTapY = 2;

// --- the tap round trip -------------------------------------------------------------------------

// One synthetic tap at (x, y) through the injection port, watched for by an event client of the
// HID source: the receiver, the HID system and the recorder's event path proven together.
// start() and result() run on the main loop; the touches go out from a background queue so that
// the main loop stays free to deliver the events.
class TapRoundTrip {
public:
    TapRoundTrip() = default;
    ~TapRoundTrip();
    TapRoundTrip(const TapRoundTrip&) = delete;
    TapRoundTrip& operator=(const TapRoundTrip&) = delete;

    void start(double x, double y, double timeoutSeconds = 2.0);
    // The check once the tap was seen, failed or timed out; nothing while it is still under way.
    std::optional<SelfTestCheck> result();

private:
    struct State;
    std::shared_ptr<State> state_;
    void* client_ = nullptr;
};

}  // namespace tactora
