#include "host/HostEventRegistry.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Platform/DiagnosticLog.h"
#include "Platform/Platform.h"

namespace tactora::host {

namespace fs = std::filesystem;
using nlohmann::json;

bool writeFileAtomically(const std::string& path, const std::string& text) {
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    const std::string temporary = path + ".tmp" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        out << text;
        out.flush();
        if (!out) {
            out.close();
            fs::remove(temporary, error);
            return false;
        }
    }
    fs::rename(temporary, path, error);
    if (error) {
        fs::remove(temporary, error);
        return false;
    }
    return true;
}

HostEventRegistry::HostEventRegistry(std::string filePath, bool insideSpringBoard, FileWriter writer)
    : filePath_(std::move(filePath)), insideSpringBoard_(insideSpringBoard), writer_(std::move(writer)) {
    load();
}

const std::vector<std::string>& HostEventRegistry::allModes() {
    static const std::vector<std::string> modes = {LAEventModeSpringBoard, LAEventModeApplication,
                                                   LAEventModeLockScreen};
    return modes;
}

void HostEventRegistry::load() {
    std::ifstream in(filePath_, std::ios::binary);
    if (!in) return;
    std::stringstream text;
    text << in.rdbuf();
    try {
        json document = json::parse(text.str());
        std::map<Key, std::string> assignments;
        const json entries = document.value("assignments", json::array());
        for (const json& entry : entries)
            assignments[{entry.at("event").get<std::string>(), entry.at("mode").get<std::string>()}] =
                entry.at("listener").get<std::string>();
        std::map<std::string, std::vector<std::string>> eventModes;
        const json modesByEvent = document.value("eventModes", json::object());
        for (const auto& [name, modes] : modesByEvent.items())
            eventModes[name] = modes.get<std::vector<std::string>>();
        auto requiring = document.value("listenersRequiringAssignment", json::array()).get<std::set<std::string>>();
        assignments_ = std::move(assignments);
        eventModes_ = std::move(eventModes);
        listenersRequiringAssignment_ = std::move(requiring);
    } catch (const json::exception& error) {
        // Keep what was there for a person to look at; start with an empty registry.
        std::error_code ignored;
        fs::rename(filePath_, filePath_ + ".broken", ignored);
        TACTORA_DIAGNOSTIC("HostEventRegistry::load", "unreadable event registry " + filePath_ + ": " + error.what());
    }
}

void HostEventRegistry::save() {
    json assignments = json::array();
    for (const auto& [key, listener] : assignments_)
        assignments.push_back({{"event", key.first}, {"mode", key.second}, {"listener", listener}});
    json document = {{"assignments", assignments},
                     {"eventModes", eventModes_},
                     {"listenersRequiringAssignment", listenersRequiringAssignment_}};
    lastSaveSucceeded_ = writer_(filePath_, document.dump(2) + "\n");
    if (!lastSaveSucceeded_)
        TACTORA_DIAGNOSTIC("HostEventRegistry::save", "cannot write the event registry " + filePath_);
}

void HostEventRegistry::registerListener(LAListener* listener, const std::string& name) { listeners_[name] = listener; }

std::vector<LAEvent> HostEventRegistry::eventsAssignedToListenerWithName(const std::string& listenerName) const {
    std::vector<LAEvent> events;
    for (const auto& [key, listener] : assignments_)
        if (listener == listenerName) events.emplace_back(key.first, key.second);
    return events;
}

void HostEventRegistry::assignEvent(const LAEvent& event, const std::string& listenerName) {
    assignments_[{event.name(), event.mode()}] = listenerName;
    save();
}

void HostEventRegistry::removeListenerAssignment(const std::string& listenerName, const LAEvent& event) {
    auto found = assignments_.find({event.name(), event.mode()});
    if (found == assignments_.end() || found->second != listenerName) return;
    assignments_.erase(found);
    save();
}

std::vector<std::string> HostEventRegistry::compatibleEventModesForListenerWithName(const std::string&) const {
    return allModes();
}

bool HostEventRegistry::eventWithName(const std::string& name, const std::string& mode) const {
    auto found = eventModes_.find(name);
    const std::vector<std::string>& modes = found == eventModes_.end() ? allModes() : found->second;
    return std::find(modes.begin(), modes.end(), mode) != modes.end();
}

std::optional<std::string> HostEventRegistry::assignedListenerNameForEvent(const LAEvent& event) const {
    auto found = assignments_.find({event.name(), event.mode()});
    if (found == assignments_.end()) return std::nullopt;
    return found->second;
}

bool HostEventRegistry::listenerWithNameRequiresAssignment(const std::string& listenerName) const {
    return listenersRequiringAssignment_.count(listenerName) != 0;
}

bool HostEventRegistry::sendEvent(const std::string& name, const std::string& mode) {
    LAEvent event(name, mode);
    auto assigned = assignedListenerNameForEvent(event);
    if (!assigned) return false;
    auto listener = listeners_.find(*assigned);
    if (listener == listeners_.end() || !listener->second) return false;
    listener->second->activatorReceiveEvent(event);
    return event.isHandled();
}

void HostEventRegistry::setEventModes(const std::string& name, std::vector<std::string> modes) {
    if (modes.empty()) eventModes_.erase(name);
    else eventModes_[name] = std::move(modes);
    save();
}

void HostEventRegistry::setListenerRequiresAssignment(const std::string& listenerName, bool required) {
    if (required) listenersRequiringAssignment_.insert(listenerName);
    else listenersRequiringAssignment_.erase(listenerName);
    save();
}

}  // namespace tactora::host
