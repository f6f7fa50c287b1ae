#include "host/HostPlatform.h"

#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "host/HostClock.h"
#include "host/HostPaths.h"
#include "host/MainLoop.h"
#include "host/StderrDiagnosticLog.h"
#include "host/UnixMessagePorts.h"

namespace tactora::host {

struct HostPlatform::Ports {
    explicit Ports(const HostOptions& options)
        : paths(chooseRoot(options.root)),
          log({}, !options.verbose),
          queues(loop),
          messagePorts(paths.root(), &loop) {}

    MainLoop loop;
    HostPaths paths;
    StderrDiagnosticLog log;
    HostClock clock;
    HostQueues queues;
    UnixMessagePorts messagePorts;
};

HostPlatform::HostPlatform(const HostOptions& options) : ports_(std::make_unique<Ports>(options)) {
    Platform& p = platform();
    p.paths = &ports_->paths;
    p.diagnosticLog = &ports_->log;
    p.clock = &ports_->clock;
    p.queues = &ports_->queues;
    p.messagePorts = &ports_->messagePorts;
}

HostPlatform::~HostPlatform() { resetPlatform(); }

MainLoop& HostPlatform::mainLoop() { return ports_->loop; }

const std::string& HostPlatform::root() const { return ports_->paths.root(); }

}  // namespace tactora::host
