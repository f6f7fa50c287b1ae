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

#include "Control/Helper.h"
#include "Control/SettingsPort.h"
#include "InjectFakes.h"
#include "Platform/Platform.h"

using namespace tactora;
using namespace tactora::host;
using tactora::testing::LoopThread;
using tactora::testing::TempRoot;
namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

namespace {

// A socket at a port's address that the test drives by hand.
int rawSocketAt(const std::string& path, bool listening) {
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    auto* at = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(listening ? ::bind(fd, at, sizeof address) : ::connect(fd, at, sizeof address), 0) << std::strerror(errno);
    if (listening) {
        EXPECT_EQ(::listen(fd, 8), 0);
    }
    return fd;
}

// A request through a fresh connection, which must be answered.
Bytes ask(UnixMessagePorts& ports, const std::string& name, std::int32_t id, const Bytes& payload) {
    auto remote = ports.createRemote(name);
    Bytes reply{0xEE};
    EXPECT_TRUE(remote && remote->sendRequest(id, payload, 1.0, 2.0, &reply) == SendStatus::success) << name;
    return reply;
}

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

}  // namespace

TEST(UnixMessagePorts, RequestsCrossIntactOnTheMainLoopWhateverBrokenClientsAndTheSettingsSend) {
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
    EXPECT_EQ(ask(ports, "echo", -2, {}), Bytes{0xFE});

    // A client that announces an absurd length, one that leaves before its reply, one that stops
    // half-way through a header: the server hangs up on the first and goes on serving.
    const std::string path = *socketPathFor(root.path(), "echo");
    const std::uint8_t absurd[8] = {2, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, request[8] = {2};
    int liar = rawSocketAt(path, false), leaver = rawSocketAt(path, false), stutter = rawSocketAt(path, false);
    ASSERT_EQ(::send(liar, absurd, 8, MSG_NOSIGNAL), 8);
    ASSERT_EQ(::send(leaver, request, 8, MSG_NOSIGNAL), 8);
    ASSERT_EQ(::send(stutter, request, 3, MSG_NOSIGNAL), 3);
    ::close(leaver);
    std::uint8_t byte;
    EXPECT_EQ(::recv(liar, &byte, 1, 0), 0);
    EXPECT_EQ(ask(ports, "echo", 3, {}), Bytes{3});
    ::close(stutter);
    ::close(liar);
    EXPECT_EQ(ask(ports, "echo", 3, {}), Bytes{3});
    EXPECT_FALSE(offLoop) << "a handler ran off the main loop";

    // The settings port takes 4-byte options from another connection and answers nothing.
    ScopedPlatform scope;
    tactora::testing::MemoryUserDefaults defaults;
    platform().messagePorts = &ports;
    platform().userDefaults = &defaults;
    auto settings = openSettingsPort();
    ASSERT_TRUE(settings);
    EXPECT_EQ(openSettingsPort(), nullptr) << "SpringBoard opens it once";
    const std::tuple<std::int32_t, std::uint32_t, std::size_t> messages[] = {{4, 0, 4}, {5, 0, 4}, {6, 2, 4}, {6, 0, 8}};
    for (auto [id, value, length] : messages) {
        Bytes data(length);
        std::memcpy(data.data(), &value, 4);
        EXPECT_TRUE(ask(ports, settingsPortName, id, data).empty());
    }
    EXPECT_FALSE(Helper::ifShowPlayFinishedAlert());
    EXPECT_FALSE(Helper::ifShowErrorsByAlert());
    EXPECT_TRUE(Helper::ifLogErrors()) << "a message of the wrong length is ignored";
}

TEST(UnixMessagePorts, ANameHasOnePrivateServerWhoseGoingItsRemotesSeeAndTimeOutsHold) {
    TempRoot root;
    LoopThread main;
    UnixMessagePorts ports(root.path(), &main.loop());
    auto handler = [](std::int32_t, std::span<const std::uint8_t>) { return Bytes{9}; };
    EXPECT_EQ(ports.createRemote("name"), nullptr) << "nobody serves it yet";

    // A server that died without cleaning up left its socket in a directory others may enter.
    const std::string path = *socketPathFor(root.path(), "name"), run = fs::path(path).parent_path();
    EXPECT_EQ(path, root.path() + "/run/name.sock");
    fs::create_directories(run);
    ::chmod(run.c_str(), 0755);
    ::close(rawSocketAt(path, true));

    auto first = ports.createLocal("name", handler);
    ASSERT_TRUE(first);
    EXPECT_EQ(ports.createLocal("name", handler), nullptr);
    UnixMessagePorts otherProcessView(root.path() + "/", &main.loop());
    EXPECT_EQ(otherProcessView.createLocal("name", handler), nullptr);
    EXPECT_EQ(ask(ports, "name", 1, {}), Bytes{9});
    EXPECT_EQ(modeOf(run), 0700u) << "the runtime directory is private";
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(ports.createLocal("../escape", handler), nullptr);
    EXPECT_EQ(ports.createLocal("", handler), nullptr);

    auto remote = ports.createRemote("name");
    ASSERT_TRUE(remote);
    EXPECT_TRUE(remote->isValid());
    first.reset();
    EXPECT_FALSE(remote->isValid());
    EXPECT_EQ(remote->sendRequest(1, {}, 1.0, 1.0, nullptr), SendStatus::isInvalid);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(ports.createRemote("name"), nullptr);
    first = ports.createLocal("name", handler);
    EXPECT_EQ(ask(ports, "name", 1, {}), Bytes{9});

    // A listener that never accepts: connecting succeeds through the backlog, nothing answers, and
    // a payload far larger than the socket buffer cannot be written.
    int mute = rawSocketAt(run + "/mute.sock", true);
    const auto start = std::chrono::steady_clock::now();
    remote = ports.createRemote("mute");
    ASSERT_TRUE(remote);
    EXPECT_EQ(remote->sendRequest(1, {}, 1.0, 0.1, nullptr), SendStatus::receiveTimeout);
    EXPECT_FALSE(remote->isValid()) << "a late reply would otherwise answer the next request";
    ASSERT_TRUE(remote = ports.createRemote("mute"));
    EXPECT_EQ(remote->sendRequest(1, Bytes(8u << 20), 0.1, 1.0, nullptr), SendStatus::sendTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "a time-out was not honoured";
    ::close(mute);
}

TEST(UnixMessagePorts, ARootTooDeepForASocketAddressUsesAShortDirectoryOfItsOwn) {
    TempRoot root;
    const std::string deep = root.path() + "/" + std::string(60, 'd') + "/" + std::string(60, 'e');
    const std::string name = "tactora.tactoratweak.backboardd";
    auto path = socketPathFor(deep, name);
    ASSERT_TRUE(path);
    EXPECT_LT(path->size(), 108u);
    EXPECT_FALSE(path->starts_with(deep));
    EXPECT_NE(*path, *socketPathFor(deep + "x", name)) << "two roots must not share a socket";
    // A path of exactly the address's size leaves no room for its NUL: it moves too.
    const std::string exact(108 - (root.path() + "/run/.sock").size(), 'n');
    EXPECT_NE(socketPathFor(root.path(), exact), root.path() + "/run/" + exact + ".sock");

    LoopThread main;
    UnixMessagePorts ports(deep, &main.loop());
    auto local = ports.createLocal(name, [](std::int32_t, std::span<const std::uint8_t>) { return Bytes{5}; });
    ASSERT_TRUE(local);
    EXPECT_EQ(ask(ports, name, 2, {}), Bytes{5});
    local.reset();
    fs::remove_all(fs::path(*path).parent_path());
}
