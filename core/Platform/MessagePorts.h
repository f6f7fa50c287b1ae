#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tactora {

// Handles one message of a local port: message id and payload in, reply data out (empty: none).
using PortMessageHandler =
    std::function<std::vector<std::uint8_t>(std::int32_t messageId, std::span<const std::uint8_t> data)>;

// The outcome of a request, with CFMessagePort's values.
enum class SendStatus : std::int32_t {
    success = 0,
    sendTimeout = -1,
    receiveTimeout = -2,
    isInvalid = -3,
    transportError = -4,
    becameInvalid = -5,
};

// A named port that serves requests while it exists. Messages are handled one at a time, in
// arrival order, on the process's main loop.
class LocalMessagePort {
public:
    virtual ~LocalMessagePort() = default;
};

// The sending end of a named port in another process.
class RemoteMessagePort {
public:
    virtual ~RemoteMessagePort() = default;

    // False once the peer is known to be gone (it died, or closed its port).
    virtual bool isValid() const = 0;

    // Sends one request and waits for the peer to handle it. `sendTimeout` and `receiveTimeout`
    // are in seconds; `reply` (may be null) receives the reply data.
    virtual SendStatus sendRequest(std::int32_t messageId, std::span<const std::uint8_t> data,
                                   double sendTimeout, double receiveTimeout,
                                   std::vector<std::uint8_t>* reply) = 0;
};

// CFMessagePort with RocketBootstrap on the device; Unix-domain sockets on the host.
class MessagePorts {
public:
    virtual ~MessagePorts() = default;

    // Opens the local port `name`, exposed to other processes, served on the main loop. Null when
    // it cannot be created or exposed. Default: null.
    virtual std::unique_ptr<LocalMessagePort> createLocal(const std::string& name,
                                                          PortMessageHandler handler) {
        (void)name;
        (void)handler;
        return nullptr;
    }

    // Connects to the port `name` of another process. Null when nobody serves it. Default: null.
    virtual std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) {
        (void)name;
        return nullptr;
    }
};

}  // namespace tactora
