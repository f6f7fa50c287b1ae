#pragma once

#include "Platform/MessagePorts.h"

namespace tactora::ios {

// How a local port is opened.
struct LocalPortOptions {
    // Exposed to sandboxed and unprivileged processes through RocketBootstrap; otherwise reachable
    // under the platform's default bootstrap rules only.
    bool exposeThroughRocketBootstrap = true;
    // Served in the run loop's common modes (also while a scroll view tracks); otherwise in the
    // default mode only.
    bool commonModes = false;
};

enum class LocalPortStatus { open, createFailed, exposeFailed };

// CFMessagePort, made reachable across processes by RocketBootstrap, served on the main run loop.
class CFMessagePorts final : public MessagePorts {
public:
    // Exposed through RocketBootstrap, served in the default mode.
    std::unique_ptr<LocalMessagePort> createLocal(const std::string& name, PortMessageHandler handler) override;
    std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) override;

    // Opens a local port on the current thread's run loop (the main one at load time). Null, with
    // the reason in `status`, when the port cannot be created or exposed.
    std::unique_ptr<LocalMessagePort> openLocal(const std::string& name, PortMessageHandler handler,
                                                LocalPortOptions options, LocalPortStatus* status = nullptr);
};

}  // namespace tactora::ios
