#pragma once

#include <optional>
#include <string>

namespace tactora {

// What an event does, as stored in FOR_WHAT.
enum ForWhat : long {
    forWhatControlPanel = 1,    // show the control panel
    forWhatStartStopPlaying = 2,  // start or stop the script waiting in "ready to play"
    forWhatPlayScript = 3,      // play (or stop) the script named by scriptTitle
};

// One binding of an event name to a role.
class ActivatorTrigger {
public:
    ActivatorTrigger() = default;
    ActivatorTrigger(std::optional<std::string> eventName, long forWhat,
                     std::optional<std::string> scriptTitle) {
        setEventName(std::move(eventName));
        setForWhat(forWhat);
        setScriptTitle(std::move(scriptTitle));
    }

    const std::optional<std::string>& eventName() const { return eventName_; }
    void setEventName(std::optional<std::string> name) { eventName_ = std::move(name); }

    long forWhat() const { return forWhat_; }
    void setForWhat(long value) { forWhat_ = value; }

    const std::optional<std::string>& scriptTitle() const { return scriptTitle_; }
    void setScriptTitle(std::optional<std::string> title) { scriptTitle_ = std::move(title); }

private:
    std::optional<std::string> eventName_;
    long forWhat_ = 0;
    std::optional<std::string> scriptTitle_;
};

}  // namespace tactora
