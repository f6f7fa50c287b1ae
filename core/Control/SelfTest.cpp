#include "Control/SelfTest.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>

#include "Control/ActivatorManager.h"
#include "Kernel/CaptureScreen.h"
#include "Kernel/EventSimulate.h"
#include "Kernel/ImageSearch.h"
#include "Managers/DataManager.h"
#include "Platform/Clock.h"
#include "Platform/EventRegistry.h"
#include "Platform/HIDSource.h"
#include "Platform/Installation.h"
#include "Platform/MessagePorts.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Platform/Queues.h"

namespace tactora {

namespace {

using SteadyClock = std::chrono::steady_clock;

double millisecondsSince(SteadyClock::time_point start) {
    return std::chrono::duration<double, std::milli>(SteadyClock::now() - start).count();
}

std::string format(const char* templateText, double a, double b = 0, double c = 0, double d = 0) {
    char text[160];
    std::snprintf(text, sizeof text, templateText, a, b, c, d);
    return text;
}

const char* describe(SendStatus status) {
    switch (status) {
        case SendStatus::success: return "answered";
        case SendStatus::sendTimeout: return "the request could not be sent in time";
        case SendStatus::receiveTimeout: return "no answer in time";
        case SendStatus::isInvalid: return "the port is gone";
        case SendStatus::transportError: return "the message was lost";
        case SendStatus::becameInvalid: return "the port closed while waiting";
    }
    return "unknown status";
}

// --- text forms ---------------------------------------------------------------------------------

std::string jsonString(std::string_view text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out + "\"";
}

std::string escapeField(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\\\";
        else if (c == '\t') out += "\\t";
        else if (c == '\n') out += "\\n";
        else out += c;
    }
    return out;
}

std::string unescapeField(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            char next = text[++i];
            out += next == 't' ? '\t' : next == 'n' ? '\n' : next;
        } else {
            out += text[i];
        }
    }
    return out;
}

// --- capture and template -----------------------------------------------------------------------

// The number of different pixel values in a square of the capture, sampled every other pixel.
std::size_t variety(const ScreenImage& image, std::int32_t left, std::int32_t top, std::int32_t side) {
    std::set<std::uint32_t> seen;
    for (std::int32_t y = top; y < top + side; y += 2) {
        const std::uint8_t* row = image.pixels.get() + static_cast<std::size_t>(y) * image.bytesPerRow();
        for (std::int32_t x = left; x < left + side; x += 2) {
            std::uint32_t value;
            std::memcpy(&value, row + static_cast<std::size_t>(x) * 4, 4);
            seen.insert(value & 0xFFFFFFu);
        }
    }
    return seen.size();
}

// A copy of a square of an RGBA buffer, as a buffer of its own.
PixelBufferPtr cut(const PixelBuffer& screen, std::uint64_t left, std::uint64_t top, std::uint64_t side) {
    auto* piece = static_cast<PixelBuffer*>(std::calloc(1, sizeof(PixelBuffer)));
    if (!piece) return nullptr;
    PixelBufferPtr owned(piece);
    piece->width = piece->height = side;
    piece->bytesPerPixel = 4;
    piece->bytesPerRow = side * 4;
    piece->data = static_cast<std::uint8_t*>(std::malloc(side * side * 4));
    if (!piece->data) return nullptr;
    for (std::uint64_t y = 0; y < side; ++y) {
        std::memcpy(piece->data + y * piece->bytesPerRow, screen.data + (top + y) * screen.bytesPerRow + left * 4,
                    side * 4);
    }
    return owned;
}

// --- the tap ------------------------------------------------------------------------------------

// The 0..1 position the receiver gives a point: exactly-2x screens convert points to pixels, every
// other scale keeps the factor 1 (the receiver's own rule); the digitizer spans the portrait
// screen in pixels.
double digitizerFraction(double points, double extentPoints, double scale) {
    const double factor = scale == 2.0 ? 2.0 : 1.0;
    const double pixels = extentPoints * scale;
    return pixels > 0 ? points * factor / pixels : 0;
}

}  // namespace

// --- the report ---------------------------------------------------------------------------------

void SelfTestReport::append(const SelfTestReport& other) {
    checks_.insert(checks_.end(), other.checks_.begin(), other.checks_.end());
}

const SelfTestCheck* SelfTestReport::find(std::string_view name) const {
    for (const auto& check : checks_) {
        if (check.name == name) return &check;
    }
    return nullptr;
}

bool SelfTestReport::passed() const {
    return !checks_.empty() &&
           std::all_of(checks_.begin(), checks_.end(), [](const SelfTestCheck& check) { return check.passed; });
}

std::string SelfTestReport::text() const {
    std::size_t width = 0;
    for (const auto& check : checks_) width = std::max(width, check.name.size());
    std::string out;
    std::size_t failed = 0;
    for (const auto& check : checks_) {
        out += check.passed ? "PASS " : "FAIL ";
        out += check.name;
        out.append(width - check.name.size() + 2, ' ');
        out += check.value;
        if (!check.passed) {
            ++failed;
            if (!check.cause.empty()) out += (check.value.empty() ? "" : ": ") + check.cause;
        }
        out += '\n';
    }
    if (failed == 0 && !checks_.empty()) {
        out += "all " + std::to_string(checks_.size()) + " checks passed\n";
    } else {
        out += std::to_string(failed) + " of " + std::to_string(checks_.size()) + " checks failed\n";
    }
    return out;
}

std::string SelfTestReport::json() const {
    std::string out = std::string("{\"passed\": ") + (passed() ? "true" : "false") + ", \"checks\": [";
    for (std::size_t i = 0; i < checks_.size(); ++i) {
        const auto& check = checks_[i];
        if (i) out += ", ";
        out += "{\"name\": " + jsonString(check.name) + ", \"passed\": " + (check.passed ? "true" : "false") +
               ", \"value\": " + jsonString(check.value) + ", \"cause\": " + jsonString(check.cause) + "}";
    }
    return out + "]}\n";
}

std::string SelfTestReport::encode() const {
    std::string out;
    for (const auto& check : checks_) {
        out += escapeField(check.name) + '\t' + (check.passed ? "1" : "0") + '\t' + escapeField(check.value) + '\t' +
               escapeField(check.cause) + '\n';
    }
    return out;
}

SelfTestReport SelfTestReport::decode(std::string_view text) {
    SelfTestReport report;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        std::vector<std::string_view> fields;
        for (std::size_t start = 0;;) {
            std::size_t tab = line.find('\t', start);
            fields.push_back(line.substr(start, tab == std::string_view::npos ? std::string_view::npos : tab - start));
            if (tab == std::string_view::npos) break;
            start = tab + 1;
        }
        if (fields.size() != 4 || fields[0].empty()) continue;
        report.add({unescapeField(fields[0]), fields[1] == "1", unescapeField(fields[2]), unescapeField(fields[3])});
    }
    return report;
}

// --- the checks ---------------------------------------------------------------------------------

namespace {

constexpr const char* receiverMissing =
    "backboardd's half does not serve the injection port: the tweak is not loaded into backboardd, or "
    "backboardd has not restarted since the install (respring, or `killall backboardd`)";

}  // namespace

SelfTestCheck checkReceiver(double timeoutSeconds) {
    const auto start = SteadyClock::now();
    auto port = platform().messagePorts->createRemote(injectionPortName);
    if (!port || !port->isValid()) return SelfTestCheck::fail("receiver", "no injection port", receiverMissing);
    std::vector<std::uint8_t> reply;
    SendStatus status = port->sendRequest(SimulateMessageSync, {}, timeoutSeconds, timeoutSeconds, &reply);
    const double elapsed = millisecondsSince(start);
    if (status != SendStatus::success) {
        return SelfTestCheck::fail("receiver", std::string("sync: ") + describe(status),
                                   "backboardd's half is stuck or busy: its main loop did not handle the "
                                   "request (restart backboardd)");
    }
    return SelfTestCheck::pass("receiver", format("answered a sync in %.2f ms", elapsed));
}

SelfTestCheck checkDispatchHook(double timeoutSeconds) {
    auto port = platform().messagePorts->createRemote(injectionPortName);
    if (!port || !port->isValid()) return SelfTestCheck::fail("dispatch-hook", "not asked", receiverMissing);
    std::vector<std::uint8_t> reply;
    SendStatus status = port->sendRequest(SimulateMessageStatus, {}, timeoutSeconds, timeoutSeconds, &reply);
    std::string record(reply.begin(), reply.end());
    if (status != SendStatus::success || record.empty()) {
        return SelfTestCheck::fail("dispatch-hook", std::string("status: ") + describe(status),
                                   "backboardd's half did not report its status: it is older than this "
                                   "command (reinstall the package, then restart backboardd)");
    }
    std::string slice;
    if (auto at = record.find("slice="); at != std::string::npos) slice = record.substr(at + 6, record.find('\n', at) - at - 6);
    const std::string where = slice.empty() ? "" : " (backboardd runs the " + slice + " slice)";
    if (record.find("hook=1") == std::string::npos) {
        return SelfTestCheck::fail("dispatch-hook", "not installed" + where,
                                   "the HID dispatch function was not found in IOKit: a real touch will not "
                                   "cancel the fingers a script holds; this iOS version is not supported yet");
    }
    return SelfTestCheck::pass("dispatch-hook", "installed" + where);
}

SelfTestCheck checkCapture(ScreenImage& image) {
    const Display& display = *platform().display;
    const auto bounds = display.bounds();
    const auto start = SteadyClock::now();
    image = CaptureScreen::captureScreen();
    const double elapsed = millisecondsSince(start);
    if (image.empty()) {
        return SelfTestCheck::fail("capture", format("nothing captured from a %.0f x %.0f point screen at %gx",
                                                     bounds.width, bounds.height, display.scale()),
                                   "the screen could not be rendered into memory: the render server refused "
                                   "(is SpringBoard's half loaded?) or the display reports no size");
    }
    std::size_t different = 0;
    std::uint32_t first;
    std::memcpy(&first, image.pixels.get(), 4);
    for (std::size_t at = 0; at < image.byteCount() && different == 0; at += 4) {
        std::uint32_t value;
        std::memcpy(&value, image.pixels.get() + at, 4);
        if ((value & 0xFFFFFFu) != (first & 0xFFFFFFu)) ++different;
    }
    const std::string size = format("%.0f x %.0f pixels in %.1f ms", image.width, image.height, elapsed);
    if (different == 0) {
        return SelfTestCheck::fail("capture", size + ", every pixel the same colour",
                                   "the capture is blank: the render server gave no picture (the screen may "
                                   "be off or locked: unlock the phone and run again)");
    }
    return SelfTestCheck::pass("capture", size);
}

SelfTestCheck checkTemplate(const ScreenImage& image) {
    if (image.empty()) return SelfTestCheck::fail("template", "no capture to cut from", "the capture check failed");
    const std::int32_t side = std::min({32, image.width / 4, image.height / 4});
    if (side < 4) return SelfTestCheck::fail("template", "the capture is too small", "the capture check failed");
    // The most varied square (leaving the last row and column of positions, which the search never
    // tries) is the likeliest to occur only once.
    std::int32_t bestX = 0, bestY = 0;
    std::size_t bestVariety = 0;
    for (std::int32_t y = 0; y + side < image.height; y += side / 2) {
        for (std::int32_t x = 0; x + side < image.width; x += side / 2) {
            const std::size_t v = variety(image, x, y, side);
            if (v > bestVariety) {
                bestVariety = v;
                bestX = x;
                bestY = y;
            }
        }
    }
    PixelBufferPtr screen(getImageData(image));
    PixelBufferPtr piece = screen ? cut(*screen, bestX, bestY, side) : nullptr;
    if (!piece) return SelfTestCheck::fail("template", "out of memory", "the phone is short of memory");
    const auto start = SteadyClock::now();
    MatchListPtr hits(findImage(screen.get(), piece.get(), 0, nullptr, 0));
    const double elapsed = millisecondsSince(start);
    // Hits are pixel corners x 0.5.
    const double wantX = bestX * 0.5, wantY = bestY * 0.5;
    bool there = false;
    for (std::int64_t i = 0; hits && i < hits->count; ++i) {
        there = there || (hits->points[i].x == wantX && hits->points[i].y == wantY);
    }
    const std::string what = format("a %.0f px square cut at pixel (%.0f, %.0f): ", side, bestX, bestY);
    const long count = hits ? static_cast<long>(hits->count) : 0;
    if (!there) {
        return SelfTestCheck::fail("template", what + std::to_string(count) + " places found, not its own",
                                   "the image search does not find what is on the screen: the capture's pixel "
                                   "format is not the one the search expects");
    }
    return SelfTestCheck::pass("template", what + "found at its place in " + format("%.1f ms", elapsed) +
                                               (count > 1 ? " (and at " + std::to_string(count - 1) + " other places)" : ""));
}

SelfTestCheck checkScriptsDirectory() {
    const std::string path = platform().paths->map(devicepaths::scriptsDirectory);
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (std::filesystem::is_directory(status)) {
        std::size_t count = 0;
        for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
            ++count;
        }
        if (error) {
            return SelfTestCheck::fail("scripts", path + " cannot be read",
                                       "the scripts directory's permissions keep the system out (" + error.message() + ")");
        }
        return SelfTestCheck::pass("scripts", path + " (" + std::to_string(count) + " entries)");
    }
    if (std::filesystem::exists(status)) {
        return SelfTestCheck::fail("scripts", path + " is not a directory",
                                   "a file stands where the scripts directory belongs: move it away, and the "
                                   "directory is made again at the next start");
    }
    return SelfTestCheck::fail("scripts", path + " is missing",
                               "the scripts directory could not be made at start-up: check that its parent "
                               "directory exists and is writable");
}

SelfTestCheck checkStore() {
    const std::string path = DataManager::dataFilePath();
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        return SelfTestCheck::fail("store", path + " is missing",
                                   "the store was not made at start-up: is the library directory writable?");
    }
    sqlite3* db = nullptr;
    int opened = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    std::set<std::string> tables;
    std::string problem;
    if (opened != SQLITE_OK) {
        problem = db ? sqlite3_errmsg(db) : "cannot open";
    } else {
        sqlite3_busy_timeout(db, 1000);
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT name FROM sqlite_master WHERE type = 'table'", -1, &statement, nullptr) !=
            SQLITE_OK) {
            problem = sqlite3_errmsg(db);
        } else {
            int step;
            while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
                if (auto name = sqlite3_column_text(statement, 0)) tables.insert(reinterpret_cast<const char*>(name));
            }
            if (step != SQLITE_DONE) problem = sqlite3_errmsg(db);
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    if (!problem.empty()) {
        return SelfTestCheck::fail("store", path + ": " + problem,
                                   "the store file is damaged: move it away, and a new one is made at the next "
                                   "start (the play settings and triggers begin again from their defaults)");
    }
    std::string missing;
    for (const char* table : {"PLAY_SETTINGS", "ACTIVATOR_TRIGGER"}) {
        if (!tables.count(table)) missing += (missing.empty() ? "" : ", ") + std::string(table);
    }
    if (!missing.empty()) {
        return SelfTestCheck::fail("store", path + " lacks " + missing,
                                   "the store was made by something else or was cut short: move it away, and a "
                                   "new one is made at the next start");
    }
    return SelfTestCheck::pass("store", path + " holds PLAY_SETTINGS and ACTIVATOR_TRIGGER");
}

SelfTestCheck checkActivator() {
    if (!platform().installation->hasActivator()) {
        return SelfTestCheck::fail("activator", "not loaded",
                                   "Activator is not installed or did not load: install it from your package "
                                   "manager, then respring");
    }
    const EventRegistry& registry = *platform().eventRegistry;
    struct Binding {
        const char* what;
        std::shared_ptr<ActivatorTrigger> trigger;
    };
    const Binding bindings[] = {{"control panel", DataManager::getActivatorTriggerForControlPanel()},
                                {"start/stop", DataManager::getActivatorTriggerForStartStopPlaying()}};
    std::string value;
    for (const auto& binding : bindings) {
        if (!binding.trigger || !binding.trigger->eventName()) {
            return SelfTestCheck::fail("activator", std::string("no stored trigger for the ") + binding.what,
                                       "the default triggers were not stored at start-up (see the store check)");
        }
        const std::string& event = *binding.trigger->eventName();
        bool assigned = false;
        for (const auto& mode : registry.compatibleEventModesForListenerWithName(listenerName)) {
            auto owner = registry.assignedListenerNameForEvent(LAEvent(event, mode));
            assigned = assigned || (owner && *owner == listenerName);
        }
        if (!assigned) {
            return SelfTestCheck::fail("activator", std::string(binding.what) + " on " + event + " is not assigned",
                                       std::string("Activator does not give ") + event + " to " + listenerName +
                                           ": bind it again in Activator's settings, or remove the other binding");
        }
        value += (value.empty() ? "" : ", ") + std::string(binding.what) + " on " + event;
    }
    return SelfTestCheck::pass("activator", std::string(listenerName) + ": " + value);
}

SelfTestCheck checkRocketBootstrap() {
    if (!platform().installation->hasRocketBootstrap()) {
        return SelfTestCheck::fail("rocketbootstrap", "not loaded",
                                   "RocketBootstrap is not installed: install it from your package manager, "
                                   "then respring");
    }
    return SelfTestCheck::pass("rocketbootstrap", "loaded");
}

SelfTestCheck checkSystem() {
    const Installation& installation = *platform().installation;
    const std::string facts[] = {installation.systemVersion(), installation.deviceModel(), installation.layout(),
                                 installation.loadedSlice()};
    const char* labels[] = {"system", "device", "layout", "slice"};
    std::string value, unknown;
    for (std::size_t i = 0; i < 4; ++i) {
        if (facts[i].empty()) unknown += (unknown.empty() ? "" : ", ") + std::string(labels[i]);
        value += (i ? ", " : "") + (facts[i].empty() ? std::string("?") : facts[i]);
    }
    if (!unknown.empty()) {
        return SelfTestCheck::fail("system", value, "this build cannot tell the " + unknown);
    }
    return SelfTestCheck::pass("system", value);
}

SelfTestReport runSpringBoardChecks(bool withRocketBootstrap) {
    SelfTestReport report;
    ScreenImage image;
    report.add(checkCapture(image));
    report.add(checkTemplate(image));
    report.add(checkScriptsDirectory());
    report.add(checkStore());
    report.add(checkActivator());
    if (withRocketBootstrap) report.add(checkRocketBootstrap());
    report.add(checkSystem());
    return report;
}

// --- the tap ------------------------------------------------------------------------------------

struct TapRoundTrip::State {
    double x = 0, y = 0;            // points
    double wantX = 0, wantY = 0;    // 0..1 as the receiver makes them
    double width = 0, height = 0;   // portrait points, for the recorder's reading
    SteadyClock::time_point deadline;
    std::atomic<int> sent{0};       // 0 under way, 1 sent, -1 the port could not be reached
    std::atomic<std::int64_t> sentAt{0};
    bool seen = false;              // main loop only, as are the fields below
    double seenX = 0, seenY = 0;
    double roundTrip = 0;
};

TapRoundTrip::~TapRoundTrip() {
    if (client_) platform().hidSource->stopDelivering(client_);
}

void TapRoundTrip::start(double x, double y, double timeoutSeconds) {
    if (client_) platform().hidSource->stopDelivering(client_);
    client_ = nullptr;
    auto state = std::make_shared<State>();
    state_ = state;
    const Display& display = *platform().display;
    const auto bounds = display.bounds();
    state->x = x;
    state->y = y;
    state->width = std::min(bounds.width, bounds.height);
    state->height = std::max(bounds.width, bounds.height);
    state->wantX = digitizerFraction(x, state->width, display.scale());
    state->wantY = digitizerFraction(y, state->height, display.scale());
    state->deadline = SteadyClock::now() + std::chrono::microseconds(static_cast<std::int64_t>(timeoutSeconds * 1e6));
    client_ = platform().hidSource->startDelivering([state](const HIDEvent& event) {
        if (state->seen || event.type != kIOHIDEventTypeDigitizer || state->sentAt.load() == 0) return;
        for (const auto& child : event.children) {
            // Within a point of the spot, in the portrait screen's terms.
            if (!child.touch || std::fabs(child.x - state->wantX) * state->width > 1 ||
                std::fabs(child.y - state->wantY) * state->height > 1) {
                continue;
            }
            state->seen = true;
            state->seenX = child.x * state->width;
            state->seenY = child.y * state->height;
            state->roundTrip = std::chrono::duration<double, std::milli>(
                                   SteadyClock::now().time_since_epoch() - std::chrono::nanoseconds(state->sentAt.load()))
                                   .count();
            return;
        }
    });
    platform().queues->runInBackground([state] {
        state->sentAt.store(
            std::chrono::duration_cast<std::chrono::nanoseconds>(SteadyClock::now().time_since_epoch()).count());
        const auto px = static_cast<std::int32_t>(std::lround(state->x));
        const auto py = static_cast<std::int32_t>(std::lround(state->y));
        bool reached = EventSimulate::touchDown(0, px, py) == 0 && EventSimulate::syncEvent() == 0;
        reached = EventSimulate::touchUp(0, px, py) == 0 && EventSimulate::syncEvent() == 0 && reached;
        state->sent.store(reached ? 1 : -1);
    });
}

std::optional<SelfTestCheck> TapRoundTrip::result() {
    if (!state_) return SelfTestCheck::fail("tap", "not started", "no tap was asked for");
    State& state = *state_;
    const std::string where = format("tap at (%g, %g)", state.x, state.y);
    if (state.seen) {
        return SelfTestCheck::pass("tap", where + format(" seen at (%.1f, %.1f) after %.1f ms", state.seenX,
                                                         state.seenY, state.roundTrip));
    }
    if (state.sent.load() == -1) {
        return SelfTestCheck::fail("tap", where + " not sent", receiverMissing);
    }
    if (!client_) {
        return SelfTestCheck::fail("tap", where + " not watched",
                                   "no HID event client could be made in SpringBoard: recording will not work "
                                   "either");
    }
    if (SteadyClock::now() < state.deadline) return std::nullopt;
    return SelfTestCheck::fail("tap", where + " sent but never seen",
                               "backboardd took the touches but the HID system did not deliver them: the "
                               "events it made are rejected on this iOS version (or the spot is outside the "
                               "screen)");
}

// --- the self-test port -------------------------------------------------------------------------

std::unique_ptr<LocalMessagePort> startSelfTestResponder() {
    auto tap = std::make_shared<TapRoundTrip>();
    return platform().messagePorts->createLocal(
        selfTestPortName, [tap](std::int32_t messageId, std::span<const std::uint8_t> data) {
            std::string reply;
            switch (messageId) {
                case SelfTestMessageRun:
                    reply = runSpringBoardChecks().encode();
                    break;
                case SelfTestMessageStartTap:
                    if (data.size() == 16) {
                        double x, y;
                        std::memcpy(&x, data.data(), 8);
                        std::memcpy(&y, data.data() + 8, 8);
                        tap->start(x, y);
                    }
                    break;
                case SelfTestMessageTapResult:
                    if (auto check = tap->result()) {
                        SelfTestReport one;
                        one.add(*check);
                        reply = one.encode();
                    }
                    break;
                default:
                    break;
            }
            return std::vector<std::uint8_t>(reply.begin(), reply.end());
        });
}

SelfTestReport askSpringBoard(double timeoutSeconds) {
    SelfTestReport report;
    const auto start = SteadyClock::now();
    auto port = platform().messagePorts->createRemote(selfTestPortName);
    std::vector<std::uint8_t> reply;
    SendStatus status = port ? port->sendRequest(SelfTestMessageRun, {}, timeoutSeconds, timeoutSeconds, &reply)
                             : SendStatus::isInvalid;
    if (status != SendStatus::success) {
        report.add(SelfTestCheck::fail(
            "springboard", port ? std::string("self-test port: ") + describe(status) : "no self-test port",
            "SpringBoard's half is not running: the tweak is not installed or not loaded (respring), or "
            "RocketBootstrap is missing"));
        return report;
    }
    report.add(SelfTestCheck::pass("springboard", format("ran its checks in %.1f ms", millisecondsSince(start))));
    report.append(SelfTestReport::decode(std::string_view(reinterpret_cast<const char*>(reply.data()), reply.size())));
    return report;
}

SelfTestCheck askTap(double x, double y, double timeoutSeconds) {
    auto port = platform().messagePorts->createRemote(selfTestPortName);
    if (!port) return SelfTestCheck::fail("tap", "not sent", "SpringBoard's half is not running (see above)");
    std::uint8_t point[16];
    std::memcpy(point, &x, 8);
    std::memcpy(point + 8, &y, 8);
    if (port->sendRequest(SelfTestMessageStartTap, point, 1.0, 1.0, nullptr) != SendStatus::success) {
        return SelfTestCheck::fail("tap", "not started", "SpringBoard's half did not answer");
    }
    const auto deadline = SteadyClock::now() + std::chrono::microseconds(static_cast<std::int64_t>(timeoutSeconds * 1e6));
    while (SteadyClock::now() < deadline) {
        std::vector<std::uint8_t> reply;
        if (port->sendRequest(SelfTestMessageTapResult, {}, 1.0, 1.0, &reply) == SendStatus::success && !reply.empty()) {
            auto report = SelfTestReport::decode(std::string_view(reinterpret_cast<const char*>(reply.data()), reply.size()));
            if (!report.checks().empty()) return report.checks().front();
        }
        platform().clock->sleepMicroseconds(50000);
    }
    return SelfTestCheck::fail("tap", "no result", "SpringBoard's half did not finish the tap in time");
}

}  // namespace tactora
