#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tactora {

// Event names as the event library spells them.
inline constexpr const char* LAEventNameVolumeDownHoldShort = "libactivator.volume.down.hold-short";
inline constexpr const char* LAEventNameVolumeDownPress = "libactivator.volume.down.press";

// Event modes: where the user was when the event happened.
inline constexpr const char* LAEventModeSpringBoard = "springboard";
inline constexpr const char* LAEventModeApplication = "application";
inline constexpr const char* LAEventModeLockScreen = "lockscreen";

// One event in one mode, as the library delivers it to a listener.
class LAEvent {
public:
    LAEvent() = default;
    LAEvent(std::string name, std::string mode) : name_(std::move(name)), mode_(std::move(mode)) {}
    static LAEvent eventWithName(const std::string& name, const std::string& mode) { return {name, mode}; }

    const std::string& name() const { return name_; }
    const std::string& mode() const { return mode_; }

    // A listener that acted on the event marks it handled; an unhandled event gets the system's
    // own action.
    bool isHandled() const { return handled_; }
    void setHandled(bool handled) { handled_ = handled; }

    bool operator==(const LAEvent& other) const { return name_ == other.name_ && mode_ == other.mode_; }

private:
    std::string name_;
    std::string mode_;
    bool handled_ = false;
};

// What a listener registered with the library implements.
class LAListener {
public:
    virtual ~LAListener() = default;
    // Called on the main thread for an event assigned to this listener.
    virtual void activatorReceiveEvent(LAEvent& event) = 0;
};

// The library of named events, modes and listener assignments (Activator on the device, a
// persisted registry on the host). Every call comes on the main thread.
class EventRegistry {
public:
    virtual ~EventRegistry() = default;

    // True inside the home-screen process. Default: false.
    virtual bool isRunningInsideSpringBoard() const { return false; }

    // Delivers the events assigned to `name` to `listener` (not owned; lives for the process).
    // Default: nothing is ever delivered.
    virtual void registerListener(LAListener* listener, const std::string& name) {
        (void)listener;
        (void)name;
    }

    // Every event (name and mode) assigned to the listener. Default: none.
    virtual std::vector<LAEvent> eventsAssignedToListenerWithName(const std::string& listenerName) const {
        (void)listenerName;
        return {};
    }

    // Assigns `event` to the listener, taking it from whichever listener had it. Default: nothing.
    virtual void assignEvent(const LAEvent& event, const std::string& listenerName) {
        (void)event;
        (void)listenerName;
    }

    // Removes the listener's assignment of `event`, if it has it. Default: nothing.
    virtual void removeListenerAssignment(const std::string& listenerName, const LAEvent& event) {
        (void)listenerName;
        (void)event;
    }

    // The modes in which the listener can take events, in the library's order. Default: none.
    virtual std::vector<std::string> compatibleEventModesForListenerWithName(const std::string& listenerName) const {
        (void)listenerName;
        return {};
    }

    // Whether the event `name` can happen in `mode`. Default: false.
    virtual bool eventWithName(const std::string& name, const std::string& mode) const {
        (void)name;
        (void)mode;
        return false;
    }

    // The listener that `event` is assigned to, or none. Default: none.
    virtual std::optional<std::string> assignedListenerNameForEvent(const LAEvent& event) const {
        (void)event;
        return std::nullopt;
    }

    // Whether the listener must keep at least one assigned event. Default: false.
    virtual bool listenerWithNameRequiresAssignment(const std::string& listenerName) const {
        (void)listenerName;
        return false;
    }
};

}  // namespace tactora
