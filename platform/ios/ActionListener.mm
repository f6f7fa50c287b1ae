#include "ios/ActionListener.h"

#include <objc/runtime.h>

#include <memory>

#include "Control/ActionListener.h"
#include "Platform/EventRegistry.h"
#include "Views/Localization.h"
#include "ios/IOSPlatform.h"

@implementation ActionListener {
    tactora::LAListener* _listener;  // lives as long as the process
}

// Runs when the dylib is loaded, before its constructors: the ports are installed here first. The
// core registers the listener "tactora.TactoraTweak" and prepares its storage only where Activator
// says it runs inside SpringBoard. backboardd never asks Activator at all: it starts before
// SpringBoard, and nothing there may wait for SpringBoard.
+ (void)load {
    if (self != [ActionListener class] || !objc_getClass("SpringBoard")) return;
    @autoreleasepool {
        tactora::ios::installPorts();
        static std::shared_ptr<tactora::ActionListener> listener = tactora::ActionListener::load();
        (void)listener;
    }
}

- (instancetype)initWithListener:(tactora::LAListener*)listener {
    if ((self = [super init])) _listener = listener;
    return self;
}

- (void)activator:(LAActivator*)activator receiveEvent:(LAEvent*)event {
    (void)activator;
    tactora::LAEvent plain(event.name.UTF8String ?: "", event.mode.UTF8String ?: "");
    _listener->activatorReceiveEvent(plain);
    // Only an event the core acted on is marked; any other keeps the system's own action (volume
    // down still changes the volume).
    if (plain.isHandled()) [event setHandled:YES];
}

- (NSString*)activator:(LAActivator*)activator requiresLocalizedTitleForListenerName:(NSString*)listenerName {
    (void)activator, (void)listenerName;
    return [NSString stringWithUTF8String:tactora::localizedText("Tactora").c_str()] ?: @"Tactora";
}

- (NSString*)activator:(LAActivator*)activator requiresLocalizedDescriptionForListenerName:(NSString*)listenerName {
    (void)activator, (void)listenerName;
    return @"Control panel, record and play touch scripts";
}

- (NSString*)activator:(LAActivator*)activator requiresLocalizedGroupForListenerName:(NSString*)listenerName {
    (void)activator, (void)listenerName;
    return [NSString stringWithUTF8String:tactora::localizedText("Tactora").c_str()] ?: @"Tactora";
}

@end
