#include "ios/IOSPlatform.h"

#include "Platform/Platform.h"
#include "ios/ActivatorEventRegistry.h"
#include "ios/CFMessagePorts.h"
#include "ios/CommonCryptoCrypto.h"
#include "ios/CoreGraphicsImageCodec.h"
#include "ios/EventSystemHIDSource.h"
#include "ios/GCDQueues.h"
#include "ios/HIDDispatch.h"
#include "ios/IOSPaths.h"
#include "ios/LocaleLanguages.h"
#include "ios/MachClock.h"
#include "ios/OSLogDiagnosticLog.h"
#include "ios/RegistryDeviceInfo.h"
#include "ios/SpringBoardApps.h"
#include "ios/StandardUserDefaults.h"
#include "ios/SystemFeedback.h"
#include "ios/UIKitPresenter.h"
#include "ios/UIScreenDisplay.h"
#include "ios/UIKitAlerts.h"

namespace tactora::ios {

namespace {

struct Ports {
    IOSPaths paths;
    StandardUserDefaults userDefaults;
    LocaleLanguages languages;
    OSLogDiagnosticLog diagnosticLog;
    GCDQueues queues;
    MachClock clock;
    UIKitAlerts alerts;
    SystemFeedback feedback;
    SpringBoardApps apps;
    CFMessagePorts messagePorts;
    IOKitHIDDispatch hidDispatch;
    UIScreenDisplay display;
    CoreGraphicsImageCodec imageCodec;
    RegistryDeviceInfo deviceInfo;
    EventSystemHIDSource hidSource;
    ActivatorEventRegistry eventRegistry;
    CommonCryptoCrypto crypto;
    UIKitPresenter presenter;
};

// Made once and never destroyed: the host process may still call into the core while it exits.
Ports& ports() {
    static Ports* ports = new Ports;
    return *ports;
}

}  // namespace

void installPorts() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    Ports& p = ports();
    Platform& current = platform();
    current.paths = &p.paths;
    current.userDefaults = &p.userDefaults;
    current.languages = &p.languages;
    current.diagnosticLog = &p.diagnosticLog;
    current.queues = &p.queues;
    current.clock = &p.clock;
    current.alerts = &p.alerts;
    current.feedback = &p.feedback;
    current.apps = &p.apps;
    current.messagePorts = &p.messagePorts;
    current.hidDispatch = &p.hidDispatch;
    current.display = &p.display;
    current.imageCodec = &p.imageCodec;
    current.deviceInfo = &p.deviceInfo;
    current.hidSource = &p.hidSource;
    current.eventRegistry = &p.eventRegistry;
    current.crypto = &p.crypto;
    current.presenter = &p.presenter;
}

CFMessagePorts& messagePorts() { return ports().messagePorts; }

}  // namespace tactora::ios
