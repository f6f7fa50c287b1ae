#include "host/UnixMessagePorts.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "host/MainLoop.h"

namespace tactora::host {

namespace {

using SteadyClock = std::chrono::steady_clock;

int systemAccept(int fd, sockaddr* address, socklen_t* length, int flags) {
    return ::accept4(fd, address, length, flags);
}

// --- deadlines ---------------------------------------------------------------------------------

SteadyClock::time_point deadlineAfter(double seconds) {
    // NaN and negative time-outs mean "do not wait"; absurdly long ones are capped so the
    // conversion cannot overflow.
    if (!(seconds > 0)) seconds = 0;
    if (seconds > 1e6) seconds = 1e6;
    return SteadyClock::now() +
           std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(seconds));
}

// Milliseconds left until `deadline`, rounded up so a poll never returns just short of it.
int millisecondsUntil(SteadyClock::time_point deadline) {
    auto left = deadline - SteadyClock::now();
    if (left <= SteadyClock::duration::zero()) return 0;
    auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return ms > 1'000'000'000 ? 1'000'000'000 : static_cast<int>(ms);
}

enum class Io { done, timedOut, peerGone, failed };

bool isPeerGone(int error) { return error == EPIPE || error == ECONNRESET || error == ENOTCONN; }

// Waits until `fd` is ready for `events` or the deadline passes.
Io waitUntilReady(const SocketCalls& calls, int fd, short events, SteadyClock::time_point deadline) {
    for (;;) {
        pollfd entry{fd, events, 0};
        int result = calls.poll(&entry, 1, millisecondsUntil(deadline));
        if (result > 0) return (entry.revents & POLLNVAL) ? Io::failed : Io::done;
        if (result < 0 && errno != EINTR) return Io::failed;
        if (SteadyClock::now() >= deadline) return Io::timedOut;
    }
}

Io writeAll(const SocketCalls& calls, int fd, const std::uint8_t* data, std::size_t size,
            SteadyClock::time_point deadline) {
    while (size > 0) {
        ssize_t written = calls.send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (written > 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
            continue;
        }
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            if (Io waited = waitUntilReady(calls, fd, POLLOUT, deadline); waited != Io::done) return waited;
            continue;
        }
        return written < 0 && isPeerGone(errno) ? Io::peerGone : Io::failed;
    }
    return Io::done;
}

Io readAll(const SocketCalls& calls, int fd, std::uint8_t* data, std::size_t size,
           SteadyClock::time_point deadline) {
    while (size > 0) {
        ssize_t got = calls.recv(fd, data, size, MSG_DONTWAIT);
        if (got > 0) {
            data += got;
            size -= static_cast<std::size_t>(got);
            continue;
        }
        if (got == 0) return Io::peerGone;
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (Io waited = waitUntilReady(calls, fd, POLLIN, deadline); waited != Io::done) return waited;
            continue;
        }
        return isPeerGone(errno) ? Io::peerGone : Io::failed;
    }
    return Io::done;
}

// --- where sockets live ------------------------------------------------------------------------

constexpr std::size_t socketPathCapacity = sizeof(sockaddr_un{}.sun_path);  // 108 with the NUL

std::string normalisedRoot(const std::string& root) {
    std::error_code error;
    auto absolute = std::filesystem::absolute(root.empty() ? "." : root, error);
    std::string normal = error ? root : absolute.lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
}

std::string hashText(const std::string& text) {
    std::uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a, 64 bits
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 0x100000001b3ull;
    }
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
    return hex;
}

bool fitsSocketAddress(const std::string& path) { return path.size() < socketPathCapacity; }

// True when `directory` is a real directory (not a link) owned by this user. With `repair` it is
// created when missing and its mode narrowed to 0700.
bool privateDirectory(const std::string& directory, bool repair) {
    if (repair && ::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) return false;
    struct stat info {};
    if (::lstat(directory.c_str(), &info) != 0) return false;
    if (!S_ISDIR(info.st_mode) || info.st_uid != ::geteuid()) return false;
    if ((info.st_mode & 077) == 0) return true;
    return repair && ::chmod(directory.c_str(), 0700) == 0;
}

bool fillAddress(const std::string& path, sockaddr_un& address) {
    if (!fitsSocketAddress(path)) return false;
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// --- the local port ----------------------------------------------------------------------------

// What the serving thread and the work it posts to the main loop share. It outlives the port when
// posted work is still queued after the port is gone.
struct ServeState {
    explicit ServeState(PortMessageHandler h) : handler(std::move(h)) {}
    PortMessageHandler handler;
    // Held while a handler runs, so closing the port waits for it (recursive: a handler may close
    // its own port).
    std::recursive_mutex running;
    bool closed = false;  // guarded by `running`
    std::mutex mutex;
    std::condition_variable answered;
    bool stopping = false;  // guarded by `mutex`
};

struct PendingCall {
    bool done = false;  // guarded by ServeState::mutex
    std::vector<std::uint8_t> reply;
};

constexpr std::size_t maximumConnections = 64;
constexpr std::size_t requestHeaderSize = 8;
constexpr std::size_t replyHeaderSize = 4;
constexpr double replyWriteTimeout = 1.0;

class UnixLocalMessagePort final : public LocalMessagePort {
public:
    UnixLocalMessagePort(const SocketCalls& calls, MainLoop& loop, PortMessageHandler handler,
                         std::string socketPath, int lockFd, int listenFd, int wakeFd)
        : calls_(calls),
          loop_(loop),
          state_(std::make_shared<ServeState>(std::move(handler))),
          socketPath_(std::move(socketPath)),
          lockFd_(lockFd),
          listenFd_(listenFd),
          wakeFd_(wakeFd) {
        thread_ = std::thread([this] { serve(); });
    }

    ~UnixLocalMessagePort() override {
        {
            std::lock_guard run(state_->running);
            state_->closed = true;
        }
        {
            std::lock_guard lock(state_->mutex);
            state_->stopping = true;
        }
        state_->answered.notify_all();
        std::uint64_t one = 1;
        while (::write(wakeFd_, &one, sizeof one) < 0 && errno == EINTR) {
        }
        thread_.join();
        calls_.close(listenFd_);
        ::close(wakeFd_);
        ::unlink(socketPath_.c_str());
        ::close(lockFd_);  // releases the name for the next server
    }

private:
    struct Connection {
        int fd;
        std::vector<std::uint8_t> input;
    };

    void serve() {
        std::vector<Connection> connections;
        std::vector<pollfd> entries;
        for (;;) {
            entries.clear();
            entries.push_back({wakeFd_, POLLIN, 0});
            entries.push_back({listenFd_, static_cast<short>(connections.size() < maximumConnections ? POLLIN : 0), 0});
            for (const auto& connection : connections) entries.push_back({connection.fd, POLLIN, 0});
            int ready = calls_.poll(entries.data(), entries.size(), -1);
            if (ready < 0) {
                if (errno != EINTR) std::this_thread::sleep_for(std::chrono::milliseconds(10));
                continue;
            }
            if (entries[0].revents) break;
            // Only the connections that were polled have an entry; one accepted now waits a turn.
            std::vector<bool> keep(connections.size(), true);
            for (std::size_t i = 0; i < keep.size(); ++i)
                if (entries[i + 2].revents) keep[i] = readAndServe(connections[i]);
            if (entries[1].revents & POLLIN) acceptOne(connections);
            for (std::size_t i = keep.size(); i-- > 0;) {
                if (keep[i]) continue;
                calls_.close(connections[i].fd);
                connections.erase(connections.begin() + static_cast<std::ptrdiff_t>(i));
            }
            if (stopping()) break;
        }
        for (const auto& connection : connections) calls_.close(connection.fd);
    }

    bool stopping() {
        std::lock_guard lock(state_->mutex);
        return state_->stopping;
    }

    void acceptOne(std::vector<Connection>& connections) {
        int fd = calls_.accept(listenFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            connections.push_back({fd, {}});
            return;
        }
        // Out of descriptors or memory: the pending connection stays queued and poll would report
        // it again at once, so pause instead of spinning.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }

    // Reads what arrived and serves every complete request in it. False when the connection is
    // to be closed.
    bool readAndServe(Connection& connection) {
        bool open = true;
        std::uint8_t buffer[16384];
        for (;;) {
            ssize_t got = calls_.recv(connection.fd, buffer, sizeof buffer, MSG_DONTWAIT);
            if (got > 0) {
                connection.input.insert(connection.input.end(), buffer, buffer + got);
                if (static_cast<std::size_t>(got) < sizeof buffer) break;
                continue;
            }
            if (got < 0 && errno == EINTR) continue;
            if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
            open = false;  // end of file or an error: serve what is complete, then close
            break;
        }

        std::size_t used = 0;
        auto& input = connection.input;
        while (input.size() - used >= requestHeaderSize) {
            std::int32_t messageId;
            std::uint32_t length;
            std::memcpy(&messageId, input.data() + used, 4);
            std::memcpy(&length, input.data() + used + 4, 4);
            if (length > maximumFramePayload) return false;
            if (input.size() - used - requestHeaderSize < length) break;
            std::vector<std::uint8_t> payload(input.begin() + static_cast<std::ptrdiff_t>(used + requestHeaderSize),
                                              input.begin() + static_cast<std::ptrdiff_t>(used + requestHeaderSize + length));
            used += requestHeaderSize + length;
            auto reply = handleOnMainLoop(messageId, std::move(payload));
            if (!reply) return false;
            if (!writeReply(connection.fd, *reply)) return false;
        }
        input.erase(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(used));
        return open;
    }

    // Runs the handler on the main loop and waits for it; none when the port is closing.
    std::optional<std::vector<std::uint8_t>> handleOnMainLoop(std::int32_t messageId,
                                                              std::vector<std::uint8_t> payload) {
        auto call = std::make_shared<PendingCall>();
        loop_.post([state = state_, call, messageId, payload = std::move(payload)] {
            std::vector<std::uint8_t> reply;
            {
                std::lock_guard run(state->running);
                if (!state->closed) {
                    try {
                        reply = state->handler(messageId, payload);
                    } catch (...) {
                        reply.clear();  // a handler's failure is an empty reply, never a dead server
                    }
                }
            }
            {
                std::lock_guard lock(state->mutex);
                call->reply = std::move(reply);
                call->done = true;
            }
            state->answered.notify_all();
        });
        std::unique_lock lock(state_->mutex);
        state_->answered.wait(lock, [&] { return call->done || state_->stopping; });
        if (!call->done) return std::nullopt;
        return std::move(call->reply);
    }

    bool writeReply(int fd, const std::vector<std::uint8_t>& reply) {
        if (reply.size() > maximumFramePayload) return false;
        std::vector<std::uint8_t> frame(replyHeaderSize + reply.size());
        auto length = static_cast<std::uint32_t>(reply.size());
        std::memcpy(frame.data(), &length, 4);
        if (!reply.empty()) std::memcpy(frame.data() + replyHeaderSize, reply.data(), reply.size());
        return writeAll(calls_, fd, frame.data(), frame.size(), deadlineAfter(replyWriteTimeout)) == Io::done;
    }

    const SocketCalls& calls_;
    MainLoop& loop_;
    std::shared_ptr<ServeState> state_;
    std::string socketPath_;
    int lockFd_;
    int listenFd_;
    int wakeFd_;
    std::thread thread_;
};

// --- the remote port ---------------------------------------------------------------------------

class UnixRemoteMessagePort final : public RemoteMessagePort {
public:
    UnixRemoteMessagePort(const SocketCalls& calls, int fd) : calls_(calls), fd_(fd) {}
    ~UnixRemoteMessagePort() override { calls_.close(fd_); }

    bool isValid() const override {
        // While another thread has a request in flight its reply is on the way, so peeking now
        // would mistake it for stray data.
        std::unique_lock lock(mutex_, std::try_to_lock);
        if (!lock.owns_lock()) return valid_.load(std::memory_order_relaxed);
        if (!valid_.load(std::memory_order_relaxed)) return false;
        pollfd entry{fd_, POLLIN, 0};
        int ready = calls_.poll(&entry, 1, 0);
        if (ready <= 0) return true;  // nothing to report (or cannot tell: the next send will)
        bool alive = false;
        if (!(entry.revents & (POLLHUP | POLLERR | POLLNVAL))) {
            // Readable with no request outstanding: either end of file or bytes nobody asked for.
            // Both leave the connection useless.
            std::uint8_t byte;
            ssize_t got = calls_.recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
            alive = got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
        }
        if (!alive) valid_.store(false, std::memory_order_relaxed);
        return alive;
    }

    SendStatus sendRequest(std::int32_t messageId, std::span<const std::uint8_t> data, double sendTimeout,
                           double receiveTimeout, std::vector<std::uint8_t>* reply) override {
        std::lock_guard lock(mutex_);
        if (!valid_.load(std::memory_order_relaxed)) return SendStatus::isInvalid;
        if (data.size() > maximumFramePayload) return SendStatus::transportError;

        std::vector<std::uint8_t> frame(requestHeaderSize + data.size());
        auto length = static_cast<std::uint32_t>(data.size());
        std::memcpy(frame.data(), &messageId, 4);
        std::memcpy(frame.data() + 4, &length, 4);
        if (!data.empty()) std::memcpy(frame.data() + requestHeaderSize, data.data(), data.size());

        // Any failure part-way leaves half a frame or an unread reply on the stream, so the
        // connection is given up and the next send makes a new one.
        Io sent = writeAll(calls_, fd_, frame.data(), frame.size(), deadlineAfter(sendTimeout));
        if (sent != Io::done) return giveUp(sent, SendStatus::sendTimeout);

        auto receiveDeadline = deadlineAfter(receiveTimeout);
        std::uint8_t header[replyHeaderSize];
        Io got = readAll(calls_, fd_, header, sizeof header, receiveDeadline);
        if (got != Io::done) return giveUp(got, SendStatus::receiveTimeout);
        std::uint32_t replyLength;
        std::memcpy(&replyLength, header, 4);
        if (replyLength > maximumFramePayload) return giveUp(Io::failed, SendStatus::receiveTimeout);
        std::vector<std::uint8_t> body(replyLength);
        got = readAll(calls_, fd_, body.data(), body.size(), receiveDeadline);
        if (got != Io::done) return giveUp(got, SendStatus::receiveTimeout);
        if (reply) *reply = std::move(body);
        return SendStatus::success;
    }

private:
    SendStatus giveUp(Io outcome, SendStatus onTimeout) {
        valid_.store(false, std::memory_order_relaxed);
        switch (outcome) {
            case Io::timedOut: return onTimeout;
            case Io::peerGone: return SendStatus::becameInvalid;
            default: return SendStatus::transportError;
        }
    }

    const SocketCalls& calls_;
    int fd_;
    mutable std::mutex mutex_;
    mutable std::atomic<bool> valid_{true};
};

}  // namespace

const SocketCalls& systemSocketCalls() {
    static const SocketCalls calls{
        ::socket, ::bind, ::listen, systemAccept, ::connect, ::send, ::recv, ::poll, ::close,
    };
    return calls;
}

std::optional<std::string> socketPathFor(const std::string& root, const std::string& name) {
    if (name.empty() || name.front() == '.' || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos)
        return std::nullopt;
    std::string file = name + ".sock";
    std::string normal = normalisedRoot(root);
    std::string primary = (normal == "/" ? std::string() : normal) + "/run/" + file;
    if (fitsSocketAddress(primary)) return primary;

    std::string hash = hashText(normal);
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && runtime[0] == '/') {
        std::string candidate = std::string(runtime) + "/tactora-" + hash + "/" + file;
        if (fitsSocketAddress(candidate)) return candidate;
    }
    std::string candidate = "/tmp/tactora-" + std::to_string(::geteuid()) + "-" + hash + "/" + file;
    if (fitsSocketAddress(candidate)) return candidate;
    return std::nullopt;
}

UnixMessagePorts::UnixMessagePorts(std::string root, MainLoop* loop, const SocketCalls* calls)
    : root_(normalisedRoot(root)), loop_(loop), calls_(calls ? calls : &systemSocketCalls()) {}

std::unique_ptr<LocalMessagePort> UnixMessagePorts::createLocal(const std::string& name,
                                                                PortMessageHandler handler) {
    if (!loop_ || !handler) return nullptr;
    auto path = socketPathFor(root_, name);
    if (!path) return nullptr;
    std::filesystem::path directory = std::filesystem::path(*path).parent_path();
    if (directory.string().starts_with(root_ + "/")) {
        std::error_code error;
        std::filesystem::create_directories(directory.parent_path(), error);
    }
    if (!privateDirectory(directory.string(), true)) return nullptr;

    // The lock file names the server: whoever holds it owns the socket path, so a second server
    // for the name fails instead of stealing the address, and a socket left by a dead server is
    // known to be stale.
    std::string lockPath = *path + ".lock";
    int lockFd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lockFd < 0) return nullptr;
    if (::flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
        ::close(lockFd);
        return nullptr;
    }
    ::unlink(path->c_str());

    sockaddr_un address;
    fillAddress(*path, address);
    int listenFd = calls_->socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    int wakeFd = -1;
    bool ready = listenFd >= 0 &&
                 calls_->bind(listenFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                 ::chmod(path->c_str(), 0600) == 0 && calls_->listen(listenFd, 64) == 0 &&
                 (wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) >= 0;
    if (!ready) {
        if (listenFd >= 0) calls_->close(listenFd);
        ::unlink(path->c_str());
        ::close(lockFd);
        return nullptr;
    }
    return std::make_unique<UnixLocalMessagePort>(*calls_, *loop_, std::move(handler), *path, lockFd, listenFd,
                                                  wakeFd);
}

std::unique_ptr<RemoteMessagePort> UnixMessagePorts::createRemote(const std::string& name) {
    auto path = socketPathFor(root_, name);
    if (!path) return nullptr;
    // Only talk to a server in a directory of this user's own: another user could otherwise
    // plant a socket under a predictable /tmp name.
    if (!privateDirectory(std::filesystem::path(*path).parent_path().string(), false)) return nullptr;
    sockaddr_un address;
    fillAddress(*path, address);
    int fd = calls_->socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return nullptr;
    // A Unix-domain connect completes at once or fails at once (EAGAIN when the server's backlog
    // is full), so there is nothing to wait for.
    int connected;
    do {
        connected = calls_->connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (connected != 0 && errno == EINTR);
    if (connected != 0) {
        calls_->close(fd);
        return nullptr;
    }
    return std::make_unique<UnixRemoteMessagePort>(*calls_, fd);
}

}  // namespace tactora::host
