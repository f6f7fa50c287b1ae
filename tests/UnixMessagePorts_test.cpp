#include "host/UnixMessagePorts.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <thread>

#include "InjectFakes.h"
#include "Kernel/EventSimulate.h"
#include "Platform/Platform.h"

using namespace tactora;
using namespace tactora::host;
using tactora::testing::LoopThread;
using tactora::testing::TempRoot;
using std::chrono::steady_clock;

namespace {

using Bytes = std::vector<std::uint8_t>;

double secondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// A socket at the port's address that a test drives by hand.
int rawSocketAt(const std::string& path, bool listening) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    int result = listening ? ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address)
                           : ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    EXPECT_EQ(result, 0) << std::strerror(errno);
    if (listening) {
        EXPECT_EQ(::listen(fd, 8), 0);
    }
    return fd;
}

// A request that must be answered, through a fresh connection.
Bytes ask(UnixMessagePorts& ports, const std::string& name, std::int32_t id, const Bytes& payload) {
    auto remote = ports.createRemote(name);
    if (!remote) {
        ADD_FAILURE() << "no server for " << name;
        return {};
    }
    Bytes reply;
    EXPECT_EQ(remote->sendRequest(id, payload, 1.0, 2.0, &reply), SendStatus::success);
    return reply;
}

// Fails the next send once `failNextSend` is set; the other calls go to the system.
std::atomic<bool> failNextSend{false};
ssize_t faultySend(int fd, const void* buffer, std::size_t length, int flags) {
    if (!failNextSend.exchange(false)) return ::send(fd, buffer, length, flags);
    errno = ECONNRESET;
    return -1;
}

}  // namespace

TEST(UnixMessagePorts, RequestsAndRepliesCrossIntactAtEverySize) {
    TempRoot root;
    LoopThread main;
    UnixMessagePorts ports(root.path(), &main.loop());
    std::atomic<bool> offLoop{false};
    auto local = ports.createLocal("echo", [&](std::int32_t id, std::span<const std::uint8_t> data) {
        if (std::this_thread::get_id() != main.id()) offLoop = true;
        if (id == 7) return Bytes{};  // "no reply data"
        Bytes reply(data.rbegin(), data.rend());
        reply.push_back(static_cast<std::uint8_t>(id));
        return reply;
    });
    ASSERT_TRUE(local);

    // The large payload cannot cross in one write, so partial reads and writes are exercised.
    for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{24}, std::size_t{3} << 20}) {
        Bytes payload(size);
        std::iota(payload.begin(), payload.end(), std::uint8_t{3});
        Bytes expected(payload.rbegin(), payload.rend());
        expected.push_back(42);
        EXPECT_EQ(ask(ports, "echo", 42, payload), expected) << "size " << size;
    }
    EXPECT_TRUE(ask(ports, "echo", 7, {1, 2, 3}).empty());

    // A negative id travels as it is.
    EXPECT_EQ(ask(ports, "echo", -2, {}), Bytes{0xFE});
    EXPECT_FALSE(offLoop) << "a handler ran off the main loop";
}

TEST(UnixMessagePorts, ANameHasOneServerItsRemotesSeeGoAndAStaleSocketIsReclaimed) {
    TempRoot root;
    LoopThread main;
    UnixMessagePorts ports(root.path(), &main.loop());
    auto handler = [](std::int32_t, std::span<const std::uint8_t>) { return Bytes{9}; };
    EXPECT_EQ(ports.createRemote("name"), nullptr) << "nobody serves it yet";

    // A server that died without cleaning up leaves its socket file behind.
    auto path = socketPathFor(root.path(), "name");
    ASSERT_TRUE(path);
    std::filesystem::create_directories(std::filesystem::path(*path).parent_path());
    ::chmod(std::filesystem::path(*path).parent_path().c_str(), 0755);
    ::close(rawSocketAt(*path, true));
    ASSERT_TRUE(std::filesystem::exists(*path));

    auto first = ports.createLocal("name", handler);
    ASSERT_TRUE(first);
    EXPECT_EQ(ports.createLocal("name", handler), nullptr);
    UnixMessagePorts otherProcessView(root.path() + "/", &main.loop());
    EXPECT_EQ(otherProcessView.createLocal("name", handler), nullptr);
    EXPECT_EQ(ask(ports, "name", 1, {}), Bytes{9});

    struct stat info {};
    ASSERT_EQ(::stat(std::filesystem::path(*path).parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u) << "the runtime directory is private";
    ASSERT_EQ(::stat(path->c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    auto remote = ports.createRemote("name");
    ASSERT_TRUE(remote);
    EXPECT_TRUE(remote->isValid());
    first.reset();
    EXPECT_FALSE(remote->isValid());
    auto start = steady_clock::now();
    EXPECT_EQ(remote->sendRequest(1, {}, 1.0, 1.0, nullptr), SendStatus::isInvalid);
    EXPECT_LT(secondsSince(start), 0.5);
    EXPECT_FALSE(std::filesystem::exists(*path));
    EXPECT_EQ(ports.createRemote("name"), nullptr);

    first = ports.createLocal("name", handler);
    ASSERT_TRUE(first);
    EXPECT_EQ(ask(ports, "name", 1, {}), Bytes{9});
    EXPECT_EQ(ports.createLocal("../escape", handler), nullptr);
    EXPECT_EQ(ports.createLocal("", handler), nullptr);
}

TEST(UnixMessagePorts, ARootTooDeepForASocketAddressUsesAShortDirectory) {
    TempRoot root;
    std::string deep = root.path() + "/" + std::string(60, 'd') + "/" + std::string(60, 'e');
    auto path = socketPathFor(deep, "tactora.tactoratweak.backboardd");
    ASSERT_TRUE(path);
    EXPECT_LT(path->size(), 108u);
    EXPECT_FALSE(path->starts_with(deep));
    EXPECT_NE(*path, *socketPathFor(deep + "x", "tactora.tactoratweak.backboardd"))
        << "two roots must not share a socket";
    EXPECT_EQ(*socketPathFor(root.path(), "p"), root.path() + "/run/p.sock");
    // A path of exactly the address's size leaves no room for its NUL: it moves too.
    const std::string exact(108 - (root.path() + "/run/.sock").size(), 'n');
    EXPECT_NE(socketPathFor(root.path(), exact), root.path() + "/run/" + exact + ".sock");

    LoopThread main;
    UnixMessagePorts ports(deep, &main.loop());
    auto local = ports.createLocal("tactora.tactoratweak.backboardd",
                                   [](std::int32_t, std::span<const std::uint8_t>) { return Bytes{5}; });
    ASSERT_TRUE(local);
    EXPECT_EQ(ask(ports, "tactora.tactoratweak.backboardd", 2, {}), Bytes{5});
    local.reset();
    std::filesystem::remove_all(std::filesystem::path(*path).parent_path());
}

TEST(UnixMessagePorts, TimeOutsAreHonouredAgainstAPeerThatNeverAnswers) {
    TempRoot root;
    auto path = socketPathFor(root.path(), "mute");
    ASSERT_TRUE(path);
    std::filesystem::create_directories(std::filesystem::path(*path).parent_path());
    ::chmod(std::filesystem::path(*path).parent_path().c_str(), 0700);
    // A listener that never accepts: connecting succeeds through the backlog, nothing reads.
    int listener = rawSocketAt(*path, true);
    UnixMessagePorts ports(root.path(), nullptr);

    auto remote = ports.createRemote("mute");
    ASSERT_TRUE(remote);
    auto start = steady_clock::now();
    EXPECT_EQ(remote->sendRequest(1, {}, 1.0, 0.1, nullptr), SendStatus::receiveTimeout);
    EXPECT_LT(secondsSince(start), 0.6);
    EXPECT_FALSE(remote->isValid()) << "a late reply would otherwise answer the next request";

    // A payload far larger than the socket buffer cannot be written to a peer that never reads.
    remote = ports.createRemote("mute");
    ASSERT_TRUE(remote);
    Bytes big(8u << 20);
    start = steady_clock::now();
    EXPECT_EQ(remote->sendRequest(1, big, 0.1, 1.0, nullptr), SendStatus::sendTimeout);
    EXPECT_LT(secondsSince(start), 0.6);
    ::close(listener);
}

TEST(UnixMessagePorts, BrokenClientsCannotStopTheServer) {
    TempRoot root;
    LoopThread main;
    UnixMessagePorts ports(root.path(), &main.loop());
    std::atomic<int> served{0};
    auto local = ports.createLocal("sturdy", [&](std::int32_t, std::span<const std::uint8_t>) {
        ++served;
        return Bytes(64, 1);
    });
    ASSERT_TRUE(local);
    auto path = *socketPathFor(root.path(), "sturdy");

    // A header announcing an absurd length: the server hangs up on that client.
    int liar = rawSocketAt(path, false);
    std::uint8_t header[8] = {2, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    ASSERT_EQ(::send(liar, header, sizeof header, MSG_NOSIGNAL), 8);
    std::uint8_t byte;
    EXPECT_EQ(::recv(liar, &byte, 1, 0), 0);
    ::close(liar);

    // A client that asks and leaves before the reply: the reply meets a closed socket.
    int leaver = rawSocketAt(path, false);
    std::uint8_t request[8] = {2, 0, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(::send(leaver, request, sizeof request, MSG_NOSIGNAL), 8);
    ::close(leaver);

    // Half a header, then nothing.
    int stutter = rawSocketAt(path, false);
    ASSERT_EQ(::send(stutter, request, 3, MSG_NOSIGNAL), 3);

    EXPECT_EQ(ask(ports, "sturdy", 3, {}), Bytes(64, 1));
    ::close(stutter);
    EXPECT_EQ(ask(ports, "sturdy", 3, {}), Bytes(64, 1));
    EXPECT_GE(served.load(), 2);
}

TEST(UnixMessagePorts, TheInjectionSenderReconnectsAfterASendFailed) {
    TempRoot root;
    LoopThread main;
    SocketCalls calls = systemSocketCalls();
    calls.send = faultySend;
    UnixMessagePorts server(root.path(), &main.loop());
    UnixMessagePorts client(root.path(), nullptr, &calls);
    std::atomic<int> syncs{0};
    auto local = server.createLocal(injectionPortName, [&](std::int32_t id, std::span<const std::uint8_t>) {
        if (id == SimulateMessageSync) ++syncs;
        return Bytes{};
    });
    ASSERT_TRUE(local);
    ScopedPlatform scope;
    platform().messagePorts = &client;
    EventSimulate::resetConnection();

    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    failNextSend = true;
    EXPECT_EQ(EventSimulate::syncEvent(), 0) << "the outcome of a send that reached a port is not checked";
    EXPECT_EQ(syncs.load(), 1);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_EQ(syncs.load(), 2) << "the next send did not reconnect";
    EventSimulate::resetConnection();
}
