#include "host/TraceHIDDispatch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "host/HostClock.h"

namespace tactora::host {

namespace {

constexpr std::uint64_t ticksPerMicrosecond = 24;  // absolute time runs at 24 MHz

// Shortest text that reads back as the same double; JSON has no infinity or NaN.
void appendNumber(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char text[32];
    auto end = std::to_chars(text, text + sizeof text, value).ptr;
    out.append(text, end);
}

void appendBool(std::string& out, bool value) { out += value ? "true" : "false"; }

std::string hexText(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "\"0x%llx\"", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

TraceHIDDispatch::TraceHIDDispatch(DeviceProfile profile, const std::string& tracePath)
    : profile_(std::move(profile)), startTicks_(monotonicTicks()) {
    if (tracePath.empty()) return;
    fd_ = ::open(tracePath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) error_ = "cannot open the trace " + tracePath + ": " + std::strerror(errno);
}

TraceHIDDispatch::~TraceHIDDispatch() {
    if (fd_ >= 0) ::close(fd_);
}

std::string TraceHIDDispatch::digitizerLine(const HandEventDescription& hand, std::uint64_t microseconds) {
    std::string out = "{\"t_us\":" + std::to_string(microseconds) + ",\"kind\":\"digitizer\"";
    out += ",\"transducer_type\":" + std::to_string(hand.transducerType);
    out += ",\"index\":" + std::to_string(hand.index);
    out += ",\"identity\":" + std::to_string(hand.identity);
    out += ",\"event_mask\":" + std::to_string(hand.eventMask);
    out += ",\"x\":";
    appendNumber(out, hand.x);
    out += ",\"y\":";
    appendNumber(out, hand.y);
    out += ",\"range\":";
    appendBool(out, hand.range);
    out += ",\"touch\":";
    appendBool(out, hand.touch);
    out += ",\"display_integrated\":";
    appendBool(out, hand.displayIntegrated);
    out += ",\"built_in\":";
    appendBool(out, hand.builtIn);
    out += ",\"sender_id\":" + hexText(hand.senderID);
    out += ",\"fingers\":[";
    for (std::size_t i = 0; i < hand.fingers.size(); ++i) {
        const FingerEventDescription& finger = hand.fingers[i];
        if (i) out += ',';
        out += "{\"index\":" + std::to_string(finger.index);
        out += ",\"identity\":" + std::to_string(finger.identity);
        out += ",\"event_mask\":" + std::to_string(finger.eventMask);
        out += ",\"x\":";
        appendNumber(out, finger.x);
        out += ",\"y\":";
        appendNumber(out, finger.y);
        out += ",\"range\":";
        appendBool(out, finger.range);
        out += ",\"touch\":";
        appendBool(out, finger.touch);
        out += '}';
    }
    out += "]}\n";
    return out;
}

std::string TraceHIDDispatch::keyboardLine(const KeyboardEventDescription& key, std::uint64_t microseconds) {
    std::string out = "{\"t_us\":" + std::to_string(microseconds) + ",\"kind\":\"keyboard\"";
    out += ",\"usage_page\":" + std::to_string(key.usagePage);
    out += ",\"usage\":" + std::to_string(key.usage);
    out += ",\"down\":";
    appendBool(out, key.down);
    out += ",\"sender_id\":" + hexText(key.senderID);
    out += "}\n";
    return out;
}

void TraceHIDDispatch::dispatchDigitizer(const HandEventDescription& hand) {
    append(digitizerLine(hand, microsecondsAt(hand.timestamp)));
}

void TraceHIDDispatch::dispatchKeyboard(const KeyboardEventDescription& key) {
    append(keyboardLine(key, microsecondsAt(key.timestamp)));
}

DigitizerDisplay TraceHIDDispatch::display() const {
    // The window server's "LCD" bounds are in pixels; the main screen has a display link.
    return DigitizerDisplay{static_cast<float>(profile_.pixelWidth()), static_cast<float>(profile_.pixelHeight()),
                            true, static_cast<float>(profile_.scale)};
}

void TraceHIDDispatch::userEventOccurred() {
    std::lock_guard lock(mutex_);
    ++userEvents_;
}

std::uint64_t TraceHIDDispatch::userEvents() const {
    std::lock_guard lock(mutex_);
    return userEvents_;
}

std::uint64_t TraceHIDDispatch::absoluteTime() const { return monotonicTicks(); }

std::uint64_t TraceHIDDispatch::microsecondsAt(std::uint64_t timestamp) const {
    return timestamp > startTicks_ ? (timestamp - startTicks_) / ticksPerMicrosecond : 0;
}

void TraceHIDDispatch::append(const std::string& line) {
    std::lock_guard lock(mutex_);
    if (fd_ < 0) return;
    // O_APPEND with one write per line: readers never see half a line from a live writer.
    const char* data = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t written = ::write(fd_, data, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;  // disk full or the like: the event is still dispatched
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace tactora::host
