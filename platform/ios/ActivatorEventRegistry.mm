#include "ios/ActivatorEventRegistry.h"

#include <libactivator/libactivator.h>

#include "ios/ActionListener.h"

namespace tactora::ios {

namespace {

NSString* string(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()] ?: @""; }
std::string text(NSString* string) { return string.UTF8String ?: ""; }

::LAActivator* activator() { return [::LAActivator sharedInstance]; }

::LAEvent* nativeEvent(const LAEvent& event) {
    return [::LAEvent eventWithName:string(event.name()) mode:string(event.mode())];
}

}  // namespace

bool ActivatorEventRegistry::isRunningInsideSpringBoard() const { return activator().isRunningInsideSpringBoard; }

void ActivatorEventRegistry::registerListener(LAListener* listener, const std::string& name) {
    // Activator keeps the listener object; the set keeps it too in case it only holds it weakly.
    static NSMutableSet<ActionListener*>* registered = [NSMutableSet set];
    ActionListener* native = [[ActionListener alloc] initWithListener:listener];
    [registered addObject:native];
    [activator() registerListener:native forName:string(name)];
}

std::vector<LAEvent> ActivatorEventRegistry::eventsAssignedToListenerWithName(const std::string& listenerName) const {
    std::vector<LAEvent> events;
    @autoreleasepool {
        for (id event in [activator() eventsAssignedToListenerWithName:string(listenerName)]) {
            if ([event isKindOfClass:[::LAEvent class]]) {
                events.emplace_back(text(((::LAEvent*)event).name), text(((::LAEvent*)event).mode));
            }
        }
    }
    return events;
}

void ActivatorEventRegistry::assignEvent(const LAEvent& event, const std::string& listenerName) {
    @autoreleasepool {
        [activator() assignEvent:nativeEvent(event) toListenerWithName:string(listenerName)];
    }
}

void ActivatorEventRegistry::removeListenerAssignment(const std::string& listenerName, const LAEvent& event) {
    @autoreleasepool {
        [activator() removeListenerAssignment:string(listenerName) fromEvent:nativeEvent(event)];
    }
}

std::vector<std::string> ActivatorEventRegistry::compatibleEventModesForListenerWithName(
    const std::string& listenerName) const {
    std::vector<std::string> modes;
    @autoreleasepool {
        for (id mode in [activator() compatibleEventModesForListenerWithName:string(listenerName)]) {
            if ([mode isKindOfClass:[NSString class]]) modes.push_back(text(mode));
        }
    }
    return modes;
}

bool ActivatorEventRegistry::eventWithName(const std::string& name, const std::string& mode) const {
    @autoreleasepool {
        return [activator() eventWithName:string(name) isCompatibleWithMode:string(mode)];
    }
}

std::optional<std::string> ActivatorEventRegistry::assignedListenerNameForEvent(const LAEvent& event) const {
    @autoreleasepool {
        NSString* name = [activator() assignedListenerNameForEvent:nativeEvent(event)];
        if (!name) return std::nullopt;
        return text(name);
    }
}

bool ActivatorEventRegistry::listenerWithNameRequiresAssignment(const std::string& listenerName) const {
    @autoreleasepool {
        return [activator() listenerWithNameRequiresAssignment:string(listenerName)];
    }
}

}  // namespace tactora::ios
