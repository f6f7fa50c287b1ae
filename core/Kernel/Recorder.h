#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/HIDSource.h"

namespace tactora {

// A 64-bit tick count stored as two 32-bit halves, low half first.
struct UnsignedWide {
    std::uint32_t lo = 0;
    std::uint32_t hi = 0;
};

// Records real fingers and the home button into a new script file in the scripts directory.
// Start, stop and the event callback all run on the main loop.

// Creates the file "yyyy-MM-dd HH:mm:ss.lua" with its header and starts taking HID events.
void startRecording();
// Closes the file and stops taking events.
void stopRecording();
// Appends the script lines for one event, after the pause since the last event that wrote text.
void handle_events(const HIDEvent& event);

double convert_UnsignedWide_to_double(UnsignedWide value);

// The file being written, or none when no recording is under way.
std::optional<std::string> recordingFilePath();

// The script text for one event: the lines of the event without the pause. `screenWidth` and
// `screenHeight` are the main screen's bounds in points.
std::string recordedLines(const HIDEvent& event, double screenWidth, double screenHeight);

// 24 ticks of the absolute-time clock make one microsecond.
inline constexpr double recorderTicksPerMicrosecond = 24.0;

}  // namespace tactora
