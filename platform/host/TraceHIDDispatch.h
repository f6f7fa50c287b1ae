#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "Platform/HIDDispatch.h"
#include "host/DeviceProfiles.h"

namespace tactora::host {

// The simulated device's HID system: every event the receiver dispatches becomes one JSON line
// of a trace file (see docs/trace-format.md), written whole with one write so that a killed
// process leaves only complete lines. The display is the profile's, in pixels, as the window
// server reports it.
class TraceHIDDispatch final : public HIDDispatch {
public:
    // Appends to `tracePath` (created when missing); an empty path keeps no trace. Times in the
    // trace count from this moment.
    TraceHIDDispatch(DeviceProfile profile, const std::string& tracePath);
    ~TraceHIDDispatch() override;
    TraceHIDDispatch(const TraceHIDDispatch&) = delete;
    TraceHIDDispatch& operator=(const TraceHIDDispatch&) = delete;

    // False when the trace file could not be opened (its error is in `error()`).
    bool isOpen() const { return fd_ >= 0; }
    const std::string& error() const { return error_; }

    void dispatchDigitizer(const HandEventDescription& hand) override;
    void dispatchKeyboard(const KeyboardEventDescription& key) override;
    DigitizerDisplay display() const override;
    void userEventOccurred() override;
    std::uint64_t absoluteTime() const override;

    std::uint64_t userEvents() const;

    // One trace line (with its newline) for an event made `microseconds` after the start.
    static std::string digitizerLine(const HandEventDescription& hand, std::uint64_t microseconds);
    static std::string keyboardLine(const KeyboardEventDescription& key, std::uint64_t microseconds);

private:
    std::uint64_t microsecondsAt(std::uint64_t timestamp) const;
    void append(const std::string& line);

    DeviceProfile profile_;
    std::uint64_t startTicks_;
    int fd_ = -1;
    std::string error_;
    mutable std::mutex mutex_;
    std::uint64_t userEvents_ = 0;
};

}  // namespace tactora::host
