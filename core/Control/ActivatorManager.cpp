#include "Control/ActivatorManager.h"

#include <algorithm>

#include "Managers/FileManager.h"
#include "Platform/EventRegistry.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

EventRegistry& activator() { return *platform().eventRegistry; }

template <class List, class Value>
bool contains(const List& list, const Value& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

void ActivatorManager::assignActivatorTrigger(const ActivatorTrigger& trigger, const std::vector<std::string>& modes) {
    const std::string name = trigger.eventName().value_or("");
    for (const std::string& mode : modes) activator().assignEvent(LAEvent::eventWithName(name, mode), listenerName);
    DataManager::addActivatorTrigger(trigger);
}

void ActivatorManager::unassignActivatorTrigger(const std::string& eventName, const std::vector<std::string>& modes) {
    for (const std::string& mode : modes)
        activator().removeListenerAssignment(listenerName, LAEvent::eventWithName(eventName, mode));
    DataManager::removeActivatorTrigger(eventName);
}

ActivatorTriggerList ActivatorManager::getActivatorTriggerAll() {
    keepConsistentBetweenActivatorAndDb();
    return DataManager::getActivatorTriggersAll().value_or(ActivatorTriggerList{});
}

std::shared_ptr<ActivatorTrigger> ActivatorManager::getActivatorTriggerByEventName(const std::string& eventName) {
    keepConsistentBetweenActivatorAndDb();
    return DataManager::getActivatorTriggerByEventName(eventName);
}

std::shared_ptr<ActivatorTrigger> ActivatorManager::getActivatorTriggerByScriptTitle(const std::string& scriptTitle) {
    keepConsistentBetweenActivatorAndDb();
    return DataManager::getActivatorTriggerByScriptTitle(scriptTitle);
}

std::shared_ptr<ActivatorTrigger> ActivatorManager::getActivatorTriggerForControlPanel() {
    keepConsistentBetweenActivatorAndDb();
    return DataManager::getActivatorTriggerForControlPanel();
}

std::shared_ptr<ActivatorTrigger> ActivatorManager::getActivatorTriggerForStartStopPlaying() {
    keepConsistentBetweenActivatorAndDb();
    return DataManager::getActivatorTriggerForStartStopPlaying();
}

void ActivatorManager::keepConsistentBetweenActivatorAndDb() {
    const std::vector<std::string> titlesOnDisk = FileManager::getAllScriptFileTitles();

    // Both lists are taken before anything is removed: a trigger pruned below still counts as
    // stored when the assignments are compared, so its assignment goes only at the next pass.
    const std::vector<LAEvent> assignedEvents = activator().eventsAssignedToListenerWithName(listenerName);
    std::vector<std::string> assignedNames;
    for (const LAEvent& event : assignedEvents) assignedNames.push_back(event.name());

    const ActivatorTriggerList stored = DataManager::getActivatorTriggersAll().value_or(ActivatorTriggerList{});
    std::vector<std::optional<std::string>> storedNames;
    for (const auto& trigger : stored) storedNames.push_back(trigger->eventName());

    for (const auto& trigger : stored) {
        if (trigger->forWhat() == forWhatPlayScript &&
            !(trigger->scriptTitle() && contains(titlesOnDisk, *trigger->scriptTitle())))
            DataManager::removeActivatorTriggerByScriptTitle(trigger->scriptTitle());
    }
    for (const auto& name : storedNames) {
        if (!(name && contains(assignedNames, *name))) DataManager::removeActivatorTrigger(name);
    }
    for (const LAEvent& event : assignedEvents) {
        if (!contains(storedNames, std::optional<std::string>(event.name())))
            activator().removeListenerAssignment(listenerName, event);
    }
}

std::vector<std::string> ActivatorManager::compatibleModesOfEvent(const std::string& eventName) {
    std::vector<std::string> modes;
    for (const std::string& mode : activator().compatibleEventModesForListenerWithName(listenerName))
        if (activator().eventWithName(eventName, mode)) modes.push_back(mode);
    return modes;
}

std::vector<std::string> ActivatorManager::compatibleModesOfEventAssigned(const std::string& eventName) {
    std::vector<std::string> modes;
    for (const std::string& mode : activator().compatibleEventModesForListenerWithName(listenerName)) {
        auto assigned = activator().assignedListenerNameForEvent(LAEvent::eventWithName(eventName, mode));
        if (assigned && *assigned == listenerName) modes.push_back(mode);
    }
    return modes;
}

bool ActivatorManager::isEventAssigned(const std::string& eventName, long forWhat,
                                       const std::optional<std::string>& scriptTitle) {
    auto trigger = getActivatorTriggerByEventName(eventName);
    if (!trigger) return false;
    switch (forWhat) {
        case forWhatControlPanel:
        case forWhatStartStopPlaying:
            return trigger->forWhat() == forWhat;
        case forWhatPlayScript:
            return trigger->forWhat() == forWhatPlayScript && trigger->scriptTitle() == scriptTitle;
        default:
            return false;
    }
}

bool ActivatorManager::allowedToUnassignEvent(const std::string& eventName, const std::string& otherListener) {
    if (!activator().listenerWithNameRequiresAssignment(otherListener)) return true;
    long count = static_cast<long>(activator().eventsAssignedToListenerWithName(otherListener).size());
    for (const std::string& mode : activator().compatibleEventModesForListenerWithName(listenerName)) {
        auto assigned = activator().assignedListenerNameForEvent(LAEvent::eventWithName(eventName, mode));
        if (assigned && *assigned == otherListener) --count;
    }
    return count > 0;
}

void ActivatorManager::initControlActions() {
    keepConsistentBetweenActivatorAndDb();
    if (!DataManager::getActivatorTriggerForControlPanel()) {
        ActivatorTrigger trigger(LAEventNameVolumeDownHoldShort, forWhatControlPanel, std::nullopt);
        assignActivatorTrigger(trigger, compatibleModesOfEvent(LAEventNameVolumeDownHoldShort));
    }
    if (!DataManager::getActivatorTriggerForStartStopPlaying()) {
        ActivatorTrigger trigger(LAEventNameVolumeDownPress, forWhatStartStopPlaying, std::nullopt);
        assignActivatorTrigger(trigger, compatibleModesOfEvent(LAEventNameVolumeDownPress));
    }
}

}  // namespace tactora
