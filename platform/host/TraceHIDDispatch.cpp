#include "host/TraceHIDDispatch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <type_traits>

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

std::string hexText(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "\"0x%llx\"", static_cast<unsigned long long>(value));
    return text;
}

// Appends `"name":value` to the object being written, after a comma unless it is the first field.
// Strings are taken as JSON text already.
template <class T>
void appendField(std::string& out, const char* name, const T& value) {
    if (out.back() != '{') out += ',';
    out += '"';
    out += name;
    out += "\":";
    if constexpr (std::is_same_v<T, bool>) {
        out += value ? "true" : "false";
    } else if constexpr (std::is_floating_point_v<T>) {
        appendNumber(out, value);
    } else if constexpr (std::is_integral_v<T>) {
        out += std::to_string(value);
    } else {
        out += value;
    }
}

// The fields a hand and each of its fingers share.
template <class Contact>
void appendContact(std::string& out, const Contact& contact) {
    appendField(out, "index", contact.index);
    appendField(out, "identity", contact.identity);
    appendField(out, "event_mask", contact.eventMask);
    appendField(out, "x", contact.x);
    appendField(out, "y", contact.y);
    appendField(out, "range", contact.range);
    appendField(out, "touch", contact.touch);
}

// The start of every trace line: when, and which kind of event.
std::string lineStart(std::uint64_t microseconds, const char* kind) {
    std::string out = "{";
    appendField(out, "t_us", microseconds);
    appendField(out, "kind", std::string("\"") + kind + '"');
    return out;
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
    std::string out = lineStart(microseconds, "digitizer");
    appendField(out, "transducer_type", hand.transducerType);
    appendContact(out, hand);
    appendField(out, "display_integrated", hand.displayIntegrated);
    appendField(out, "built_in", hand.builtIn);
    appendField(out, "sender_id", hexText(hand.senderID));
    out += ",\"fingers\":[";
    for (const FingerEventDescription& finger : hand.fingers) {
        if (out.back() == '}') out += ',';
        out += '{';
        appendContact(out, finger);
        out += '}';
    }
    out += "]}\n";
    return out;
}

std::string TraceHIDDispatch::keyboardLine(const KeyboardEventDescription& key, std::uint64_t microseconds) {
    std::string out = lineStart(microseconds, "keyboard");
    appendField(out, "usage_page", key.usagePage);
    appendField(out, "usage", key.usage);
    appendField(out, "down", key.down);
    appendField(out, "sender_id", hexText(key.senderID));
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
