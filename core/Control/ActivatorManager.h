#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Managers/DataManager.h"
#include "Models/ActivatorTrigger.h"

namespace tactora {

// The name under which the system's listener is registered and assigned events.
inline constexpr const char* listenerName = "tactora.TactoraTweak";

// Keeps the event library's assignments to our listener and the stored triggers in step. Every
// lookup first repairs any disagreement between the two.
class ActivatorManager {
public:
    static void assignActivatorTrigger(const ActivatorTrigger& trigger, const std::vector<std::string>& modes);
    // Takes an event name, not a trigger, on purpose.
    static void unassignActivatorTrigger(const std::string& eventName, const std::vector<std::string>& modes);

    static ActivatorTriggerList getActivatorTriggerAll();
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerByEventName(const std::string& eventName);
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerByScriptTitle(const std::string& scriptTitle);
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerForControlPanel();
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerForStartStopPlaying();

    static void keepConsistentBetweenActivatorAndDb();

    // The listener's modes in which the event can happen, in the library's order.
    static std::vector<std::string> compatibleModesOfEvent(const std::string& eventName);
    // The listener's modes in which the event is assigned to this listener.
    static std::vector<std::string> compatibleModesOfEventAssigned(const std::string& eventName);

    static bool isEventAssigned(const std::string& eventName, long forWhat,
                                const std::optional<std::string>& scriptTitle);
    // May the event be taken from `otherListener` without leaving it with no assignment at all?
    static bool allowedToUnassignEvent(const std::string& eventName, const std::string& otherListener);

    // Puts the control-panel and start/stop defaults in place when the store lacks them.
    static void initControlActions();
};

}  // namespace tactora
