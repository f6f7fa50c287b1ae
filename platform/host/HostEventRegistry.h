#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Platform/EventRegistry.h"

namespace tactora::host {

// Writes `text` to `path` so that a reader sees the old or the new file, never half of one.
using FileWriter = std::function<bool(const std::string& path, const std::string& text)>;
bool writeFileAtomically(const std::string& path, const std::string& text);

// The host's stand-in for the event library: named events, the three modes, which listener each
// event is assigned to in each mode, kept in a JSON file that is replaced by rename on every
// change. Any event name is known; by default an event happens in every mode, and a listener needs
// no assignment, unless the file says otherwise ("eventModes", "listenersRequiringAssignment").
class HostEventRegistry final : public EventRegistry {
public:
    // Reads `filePath` when it exists. A file that cannot be read is moved aside to
    // `filePath` + ".broken" and the registry starts empty.
    explicit HostEventRegistry(std::string filePath, bool insideSpringBoard = true,
                               FileWriter writer = writeFileAtomically);

    bool isRunningInsideSpringBoard() const override { return insideSpringBoard_; }
    void registerListener(LAListener* listener, const std::string& name) override;
    std::vector<LAEvent> eventsAssignedToListenerWithName(const std::string& listenerName) const override;
    void assignEvent(const LAEvent& event, const std::string& listenerName) override;
    void removeListenerAssignment(const std::string& listenerName, const LAEvent& event) override;
    std::vector<std::string> compatibleEventModesForListenerWithName(const std::string& listenerName) const override;
    bool eventWithName(const std::string& name, const std::string& mode) const override;
    std::optional<std::string> assignedListenerNameForEvent(const LAEvent& event) const override;
    bool listenerWithNameRequiresAssignment(const std::string& listenerName) const override;

    // Delivers the event `name` in `mode` to the listener it is assigned to, when that listener is
    // registered in this process, and answers whether it was handled. Unhandled events get the
    // system's own action (on the host: nothing).
    bool sendEvent(const std::string& name, const std::string& mode = LAEventModeSpringBoard);

    // Limits the modes an event happens in (empty: every mode again).
    void setEventModes(const std::string& name, std::vector<std::string> modes);
    void setListenerRequiresAssignment(const std::string& listenerName, bool required);

    static const std::vector<std::string>& allModes();
    const std::string& filePath() const { return filePath_; }
    // False when the last change could not be written.
    bool lastSaveSucceeded() const { return lastSaveSucceeded_; }

private:
    using Key = std::pair<std::string, std::string>;  // event name, mode
    void load();
    void save();

    std::string filePath_;
    bool insideSpringBoard_;
    FileWriter writer_;
    std::map<Key, std::string> assignments_;  // (event, mode) -> listener
    std::map<std::string, std::vector<std::string>> eventModes_;
    std::set<std::string> listenersRequiringAssignment_;
    std::map<std::string, LAListener*> listeners_;
    bool lastSaveSucceeded_ = true;
};

}  // namespace tactora::host
