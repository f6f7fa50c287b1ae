// Named message ports between processes of one root, over Unix-domain stream sockets.
//
// Sections:
//   - SocketCalls: the system calls the ports make, replaceable so tests can break them.
//   - socketPathFor: where a port's socket lives for a root.
//   - UnixMessagePorts: the MessagePorts port of the host.
//
// Wire format (both ends on one machine, so integers are in this processor's byte order):
//   request: int32 message id, uint32 payload length, payload
//   reply:   uint32 reply length, reply
// A connection carries one request at a time: the sender waits for the reply before it sends the
// next request, and the reply is written only after the handler returned on the main loop.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "Platform/MessagePorts.h"

namespace tactora::host {

class MainLoop;

// Every socket system call the ports make. Tests copy systemSocketCalls(), replace a member with
// one that fails on its Nth call, and hand the copy to UnixMessagePorts. The pointed-to table
// must outlive the ports made with it.
struct SocketCalls {
    int (*socket)(int domain, int type, int protocol);
    int (*bind)(int fd, const sockaddr* address, socklen_t length);
    int (*listen)(int fd, int backlog);
    int (*accept)(int fd, sockaddr* address, socklen_t* length, int flags);  // accept4
    int (*connect)(int fd, const sockaddr* address, socklen_t length);
    ssize_t (*send)(int fd, const void* buffer, std::size_t length, int flags);
    ssize_t (*recv)(int fd, void* buffer, std::size_t length, int flags);
    int (*poll)(pollfd* fds, nfds_t count, int timeoutMilliseconds);
    int (*close)(int fd);
};

// The calls as the C library makes them.
const SocketCalls& systemSocketCalls();

// Largest payload or reply a frame may carry; a bigger length header ends the connection.
inline constexpr std::uint32_t maximumFramePayload = 16u << 20;

// The socket of port `name` for the tree under `root`: ROOT/run/NAME.sock, or, when that is too
// long for a socket address (108 bytes), a directory keyed by a hash of the root under
// $XDG_RUNTIME_DIR ("tactora-HASH") or /tmp ("tactora-UID-HASH"). Null when the name is not a
// plain file name or no candidate fits.
std::optional<std::string> socketPathFor(const std::string& root, const std::string& name);

// Message ports whose local ports are served on `loop`. Local ports live in a directory only this
// user may enter (0700), their sockets are 0600, and a port name has one server at a time
// (a lock file beside the socket says who).
class UnixMessagePorts final : public MessagePorts {
public:
    // `loop` may be null for a process that only sends; createLocal then fails.
    UnixMessagePorts(std::string root, MainLoop* loop,
                     const SocketCalls* calls = &systemSocketCalls());

    std::unique_ptr<LocalMessagePort> createLocal(const std::string& name,
                                                  PortMessageHandler handler) override;
    std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) override;

    const std::string& root() const { return root_; }

private:
    std::string root_;
    MainLoop* loop_;
    const SocketCalls* calls_;
};

}  // namespace tactora::host
