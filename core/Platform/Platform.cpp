#include "Platform/Platform.h"

#include "Platform/Alerts.h"
#include "Platform/Apps.h"
#include "Platform/Clock.h"
#include "Platform/Crypto.h"
#include "Platform/DeviceInfo.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Display.h"
#include "Platform/EventRegistry.h"
#include "Platform/Feedback.h"
#include "Platform/HIDDispatch.h"
#include "Platform/HIDSource.h"
#include "Platform/ImageCodec.h"
#include "Platform/Installation.h"
#include "Platform/Languages.h"
#include "Platform/MessagePorts.h"
#include "Platform/Paths.h"
#include "Platform/Presenter.h"
#include "Platform/Queues.h"
#include "Platform/UserDefaults.h"

namespace tactora {

namespace {

template <class Port>
Port* unsupported() {
    static Port port;
    return &port;
}

Platform defaults() {
    return Platform{
        unsupported<Paths>(),        unsupported<UserDefaults>(),  unsupported<Languages>(),
        unsupported<DiagnosticLog>(), unsupported<Queues>(),       unsupported<Clock>(),
        unsupported<Alerts>(),       unsupported<Feedback>(),      unsupported<Apps>(),
        unsupported<MessagePorts>(), unsupported<HIDDispatch>(),   unsupported<HIDSource>(),
        unsupported<Display>(),      unsupported<ImageCodec>(),    unsupported<Crypto>(),
        unsupported<EventRegistry>(), unsupported<Presenter>(),    unsupported<DeviceInfo>(),
        unsupported<Installation>(),
    };
}

}  // namespace

Platform& platform() {
    static Platform current = defaults();
    return current;
}

void resetPlatform() { platform() = defaults(); }

}  // namespace tactora
