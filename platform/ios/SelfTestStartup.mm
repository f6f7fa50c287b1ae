#include "ios/SelfTestStartup.h"

#include <objc/runtime.h>

#include <memory>

#include "Control/SelfTest.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "ios/IOSInstallation.h"

namespace tactora::ios {

namespace {

// Both live as long as the process.
IOSInstallation* installation;
std::unique_ptr<LocalMessagePort> selfTestPort;

}  // namespace

void startSelfTest() {
    if (!installation) installation = new IOSInstallation;
    platform().installation = installation;
    if (!objc_getClass("SpringBoard") || selfTestPort) return;
    // Exposed through RocketBootstrap: the command runs over SSH, outside SpringBoard's sandbox
    // rules. Served on the main run loop, where the capture, the store and Activator are used.
    selfTestPort = startSelfTestResponder();
    TACTORA_DIAGNOSTIC("startSelfTest", selfTestPort ? "self-test port open" : "self-test port could not be created");
}

}  // namespace tactora::ios
