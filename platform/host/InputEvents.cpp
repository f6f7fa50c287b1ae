#include "host/InputEvents.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tactora::host {

using nlohmann::json;

namespace {

bool fail(std::string& error, std::string message) {
    error = std::move(message);
    return false;
}

bool number(const json& object, const char* key, double& out, std::string& error) {
    auto found = object.find(key);
    if (found == object.end() || !found->is_number()) return fail(error, std::string("\"") + key + "\" must be a number");
    out = found->get<double>();
    if (!std::isfinite(out)) return fail(error, std::string("\"") + key + "\" must be finite");
    return true;
}

bool parseTouch(const json& fingers, Display::Size screen, HIDEvent& event, std::string& error) {
    if (!fingers.is_array() || fingers.empty()) return fail(error, "\"touch\" must be a list of fingers");
    if (screen.width <= 0 || screen.height <= 0) return fail(error, "the screen has no size");
    event.type = kIOHIDEventTypeDigitizer;
    for (const json& finger : fingers) {
        if (!finger.is_object()) return fail(error, "a finger must be an object");
        double index = 0, x = 0, y = 0;
        if (!number(finger, "finger", index, error) || !number(finger, "x", x, error) || !number(finger, "y", y, error))
            return false;
        if (index < 0 || index > 1000 || index != std::floor(index))
            return fail(error, "\"finger\" must be a whole number from 0 to 1000");
        auto phase = finger.find("phase");
        if (phase == finger.end() || !phase->is_string()) return fail(error, "\"phase\" must be down, move, up or still");
        HIDDigitizerChild child;
        child.index = static_cast<std::uint32_t>(index);
        child.x = x / screen.width;
        child.y = y / screen.height;
        const std::string name = phase->get<std::string>();
        if (name == "down") {
            child.touch = 1;
            child.eventMask = kIOHIDDigitizerEventRange | kIOHIDDigitizerEventTouch;
        } else if (name == "move") {
            child.touch = 1;
            child.eventMask = kIOHIDDigitizerEventPosition;
        } else if (name == "up") {
            child.touch = 0;
            child.eventMask = kIOHIDDigitizerEventRange | kIOHIDDigitizerEventTouch;
        } else if (name == "still") {
            child.touch = 1;
        } else {
            return fail(error, "\"phase\" must be down, move, up or still, not \"" + name + "\"");
        }
        event.children.push_back(child);
    }
    return true;
}

template <class T>
bool field(const json& object, const char* key, T& out, std::string& error) {
    auto found = object.find(key);
    if (found == object.end()) return true;  // optional, stays 0
    if (!found->is_number()) return fail(error, std::string("\"") + key + "\" must be a number");
    out = found->get<T>();
    return true;
}

bool parseHid(const json& hid, HIDEvent& event, std::string& error) {
    if (!hid.is_object()) return fail(error, "\"hid\" must be an object");
    if (!field(hid, "type", event.type, error) || !field(hid, "usagePage", event.usagePage, error) ||
        !field(hid, "usage", event.usage, error) || !field(hid, "down", event.down, error))
        return false;
    auto children = hid.find("children");
    if (children == hid.end()) return true;
    if (!children->is_array()) return fail(error, "\"children\" must be a list");
    for (const json& item : *children) {
        if (!item.is_object()) return fail(error, "a child must be an object");
        HIDDigitizerChild child;
        if (!field(item, "index", child.index, error) || !field(item, "touch", child.touch, error) ||
            !field(item, "eventMask", child.eventMask, error) || !field(item, "x", child.x, error) ||
            !field(item, "y", child.y, error))
            return false;
        event.children.push_back(child);
    }
    return true;
}

}  // namespace

std::optional<InputEvent> parseInputEvent(const json& line, Display::Size screen, std::string& error) {
    if (!line.is_object()) {
        error = "each line must be a JSON object";
        return std::nullopt;
    }
    InputEvent input;
    if (!number(line, "t", input.t, error)) return std::nullopt;
    if (input.t < 0) {
        error = "\"t\" must not be negative";
        return std::nullopt;
    }
    int kinds = line.contains("touch") + line.contains("home") + line.contains("hid");
    if (kinds != 1) {
        error = "each line needs exactly one of \"touch\", \"home\" or \"hid\"";
        return std::nullopt;
    }
    if (line.contains("touch")) {
        if (!parseTouch(line["touch"], screen, input.event, error)) return std::nullopt;
    } else if (line.contains("home")) {
        const json& home = line["home"];
        if (!home.is_string() || (home != "down" && home != "up")) {
            error = "\"home\" must be \"down\" or \"up\"";
            return std::nullopt;
        }
        input.event.type = kIOHIDEventTypeKeyboard;
        input.event.usagePage = 12;  // consumer page
        input.event.usage = 64;      // menu: the home button
        input.event.down = home == "down" ? 1 : 0;
    } else if (!parseHid(line["hid"], input.event, error)) {
        return std::nullopt;
    }
    return input;
}

std::optional<std::vector<InputEvent>> parseInputEvents(const std::string& text, Display::Size screen,
                                                        std::string& error) {
    std::vector<InputEvent> events;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        json parsed = json::parse(line, nullptr, false);
        std::string problem;
        std::optional<InputEvent> event;
        if (parsed.is_discarded()) problem = "not valid JSON";
        else event = parseInputEvent(parsed, screen, problem);
        if (event && !events.empty() && event->t < events.back().t) problem = "\"t\" goes back in time";
        if (!problem.empty()) {
            error = "line " + std::to_string(number) + ": " + problem;
            return std::nullopt;
        }
        events.push_back(std::move(*event));
    }
    return events;
}

std::uint64_t ticksAfter(std::uint64_t start, double t) {
    return start + static_cast<std::uint64_t>(std::llround(t * 24.0));
}

}  // namespace tactora::host
