#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Display.h"
#include "Platform/HIDSource.h"

namespace tactora::host {

// Real input for the recorder, written by hand or by a tool: one JSON object per line.
//
//   {"t": 0,      "touch": [{"finger": 1, "phase": "down", "x": 160, "y": 284}]}
//   {"t": 120000, "touch": [{"finger": 1, "phase": "move", "x": 170, "y": 290}]}
//   {"t": 250000, "home": "down"}
//   {"t": 0, "hid": {"type": 11, "children": [{"index": 1, "touch": 1, "eventMask": 3,
//                                              "x": 0.5, "y": 0.5}]}}
//
// "t" is microseconds since the start of the input, never decreasing. Touch positions are in
// points of the simulated screen; phases are down, move, up and still. "hid" gives the plain
// HID event field by field (x and y as fractions of the screen).
struct InputEvent {
    double t = 0;  // microseconds since the start
    HIDEvent event;  // timestamp still 0: the caller adds its clock's start
};

// The event of one line, or none with `error` saying what is wrong.
std::optional<InputEvent> parseInputEvent(const nlohmann::json& line, Display::Size screen, std::string& error);
// Every line of a JSON-lines text (blank lines skipped). On the first bad line: none, and
// `error` names the line.
std::optional<std::vector<InputEvent>> parseInputEvents(const std::string& text, Display::Size screen,
                                                        std::string& error);

// Absolute-time ticks of `t` microseconds after `start` (24 ticks a microsecond).
std::uint64_t ticksAfter(std::uint64_t start, double t);

}  // namespace tactora::host
