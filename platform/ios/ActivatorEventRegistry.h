#pragma once

#include "Platform/EventRegistry.h"

namespace tactora::ios {

// Activator's LAActivator: events, modes and listener assignments.
class ActivatorEventRegistry final : public EventRegistry {
public:
    bool isRunningInsideSpringBoard() const override;
    void registerListener(LAListener* listener, const std::string& name) override;
    std::vector<LAEvent> eventsAssignedToListenerWithName(const std::string& listenerName) const override;
    void assignEvent(const LAEvent& event, const std::string& listenerName) override;
    void removeListenerAssignment(const std::string& listenerName, const LAEvent& event) override;
    std::vector<std::string> compatibleEventModesForListenerWithName(const std::string& listenerName) const override;
    bool eventWithName(const std::string& name, const std::string& mode) const override;
    std::optional<std::string> assignedListenerNameForEvent(const LAEvent& event) const override;
    bool listenerWithNameRequiresAssignment(const std::string& listenerName) const override;
};

}  // namespace tactora::ios
