// Unix-socket message ports, the settings port, the receiver process and the device port tool's wire format.
#include "host/UnixMessagePorts.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <numeric>

#include "Control/Helper.h"
#include "Control/SettingsPort.h"
#include "InjectFakes.h"
#include "Kernel/EventSimulate.h"
#include "RuntimeFakes.h"
#include "ToolProcess.h"
#include "host/ReceiverProcess.h"

using namespace tactora;
using namespace tactora::host;
using namespace tactora::testing;
using nlohmann::json;
using std::chrono::steady_clock;
namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using E = EventSimulate;

TEST(UnixMessagePorts, CarryRequestsOptionsAndTouchesToOneServerPerNameOrReceiverProcessWhateverPeersDo) {
    // A socket at a port's address that the test drives by hand.
    auto rawSocketAt = [](const std::string& path, bool listening) {
        int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        auto* at = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(listening ? ::bind(fd, at, sizeof address) : ::connect(fd, at, sizeof address), 0) << std::strerror(errno);
        EXPECT_TRUE(!listening || ::listen(fd, 8) == 0);
        return fd;
    };
    // A request through a fresh connection, which must be answered.
    auto ask = [](UnixMessagePorts& ports, const std::string& name, std::int32_t id, const Bytes& payload) {
        auto remote = ports.createRemote(name);
        Bytes reply{0xEE};
        EXPECT_TRUE(remote && remote->sendRequest(id, payload, 1.0, 2.0, &reply) == SendStatus::success) << name;
        return reply;
    };
    auto readTrace = [](const std::string& path) {
        std::vector<json> trace;
        for (const std::string& line : lines(readFile(path))) trace.push_back(json::parse(line));
        return json(trace);
    };
    TempRoot root;
    LoopThread main;
    UnixMessagePorts ports(root.path(), &main.loop());
    std::atomic<bool> offLoop{false};
    auto local = ports.createLocal("echo", [&](std::int32_t id, std::span<const std::uint8_t> data) {
        if (std::this_thread::get_id() != main.id()) offLoop = true;
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
    EXPECT_EQ(ask(ports, "echo", -2, {}), Bytes{0xFE});

    // A client announcing an absurd length is hung up on; one leaving early or stalling blocks no one.
    const std::string echo = *socketPathFor(root.path(), "echo");
    const std::uint8_t absurd[8] = {2, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, request[8] = {2};
    int liar = rawSocketAt(echo, false), leaver = rawSocketAt(echo, false), stutter = rawSocketAt(echo, false);
    ASSERT_EQ(::send(liar, absurd, 8, MSG_NOSIGNAL), 8);
    ASSERT_EQ(::send(leaver, request, 8, MSG_NOSIGNAL), 8);
    ASSERT_EQ(::send(stutter, request, 3, MSG_NOSIGNAL), 3);
    ::close(leaver);
    EXPECT_EQ(::recv(liar, Bytes(1).data(), 1, 0), 0);
    EXPECT_EQ(ask(ports, "echo", 3, {}), Bytes{3});
    ::close(stutter);
    ::close(liar);
    EXPECT_EQ(ask(ports, "echo", 3, {}), Bytes{3});
    EXPECT_FALSE(offLoop) << "a handler ran off the main loop";

    // The settings port takes 4-byte options from another connection and answers nothing.
    ScopedPlatform scope;
    MemoryUserDefaults defaults;
    platform().messagePorts = &ports;
    platform().userDefaults = &defaults;
    auto settings = openSettingsPort();
    ASSERT_TRUE(settings);
    EXPECT_EQ(openSettingsPort(), nullptr) << "SpringBoard opens it once";
    const std::pair<std::int32_t, Bytes> messages[] = {
        {4, {0, 0, 0, 0}}, {5, {0, 0, 0, 0}}, {6, {0, 0, 0, 0}}, {6, Bytes(8, 1)}, {4, {0, 1, 0, 0}}};
    for (const auto& [id, data] : messages) EXPECT_TRUE(ask(ports, settingsPortName, id, data).empty());
    // 256 is not 0, and a message of the wrong length is ignored.
    EXPECT_EQ(std::tuple(Helper::ifShowPlayFinishedAlert(), Helper::ifShowErrorsByAlert(), Helper::ifLogErrors()),
              std::tuple(true, false, false));

    // One server per name, in a private directory; here a dead server left its socket in an open one.
    auto handler = [](std::int32_t, std::span<const std::uint8_t>) { return Bytes{9}; };
    EXPECT_EQ(ports.createRemote("name"), nullptr) << "nobody serves it yet";
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
    struct stat runInfo {}, socketInfo {};  // the runtime directory is private
    ASSERT_EQ(::stat(run.c_str(), &runInfo) | ::stat(path.c_str(), &socketInfo), 0);
    EXPECT_EQ(std::pair(runInfo.st_mode & 0777, socketInfo.st_mode & 0777), std::pair(0700u, 0600u));
    EXPECT_EQ(ports.createLocal("../escape", handler), nullptr);

    auto remote = ports.createRemote("name");
    ASSERT_TRUE(remote && remote->isValid());
    first.reset();
    EXPECT_FALSE(remote->isValid());
    EXPECT_EQ(remote->sendRequest(1, {}, 1.0, 1.0, nullptr), SendStatus::isInvalid);
    EXPECT_FALSE(fs::exists(path));
    first = ports.createLocal("name", handler);
    EXPECT_EQ(ask(ports, "name", 1, {}), Bytes{9});

    // Too deep a root, or a path of exactly the address's size (no room for its NUL), moves out.
    const std::string deep = root.path() + "/" + std::string(120, 'd'), exact(108 - (run + "/.sock").size(), 'n');
    const std::string far = socketPathFor(deep, "name").value_or(deep);
    EXPECT_LT(far.size(), 108u);
    EXPECT_NE(far, socketPathFor(deep + "x", "name")) << "two roots must not share a socket";
    EXPECT_NE(socketPathFor(root.path(), exact), run + "/" + exact + ".sock");
    UnixMessagePorts deepPorts(deep, &main.loop());
    auto deepLocal = deepPorts.createLocal("name", handler);
    EXPECT_EQ(ask(deepPorts, "name", 1, {}), Bytes{9});
    fs::remove_all(fs::path(far).parent_path());

    // A listener that never accepts: nothing answers, and a huge payload cannot be written.
    int mute = rawSocketAt(run + "/mute.sock", true);
    const auto start = steady_clock::now();
    ASSERT_TRUE(remote = ports.createRemote("mute"));
    EXPECT_EQ(remote->sendRequest(1, {}, 1.0, 0.1, nullptr), SendStatus::receiveTimeout);
    EXPECT_FALSE(remote->isValid()) << "a late reply would otherwise answer the next request";
    ASSERT_TRUE(remote = ports.createRemote("mute"));
    EXPECT_EQ(remote->sendRequest(1, Bytes(8u << 20), 0.1, 1.0, nullptr), SendStatus::sendTimeout);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5)) << "a time-out was not honoured";
    ::close(mute);

    // A receiver started by hand with the lifeline ensureReceiver gives it, tracing to its default file.
    E::resetConnection();
    int lifeline[2];
    ASSERT_EQ(pipe(lifeline), 0);
    ::fcntl(lifeline[1], F_SETFD, FD_CLOEXEC);
    Child child({TACTORA_CLI, "--root", root.path(), "--device", "iphone-se", "receiver", "--watch-fd",
                 std::to_string(lifeline[0])});
    close(lifeline[0]);
    for (int i = 0; i < 500 && !receiverAnswers(root.path(), 0.1); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));

    // A second caller finds the running receiver and leaves it alone; a second receiver refuses.
    std::string error;
    auto found = ensureReceiver(root.path(), "iphone-se", "", error, {TACTORA_CLI});
    ASSERT_TRUE(found) << error;
    EXPECT_FALSE(found->startedHere());
    EXPECT_EQ(found->stop(), -1);
    EXPECT_EQ(runTool("--root '" + root.path() + "' receiver").exitCode, 1);

    // The calls of a braced list run in order.
    for (int result : {E::touchDown(1, 160, 284), E::touchDown(-7, 0, 568), E::syncEvent(), E::touchUp(1, 320, 284),
                       E::syncEvent(), E::keyDown(1), E::keyUp(1)})
        EXPECT_EQ(result, 0);
    EXPECT_EQ(E::keyDown(2), -1) << "only the home button is a key";
    // Each request was handled before its reply, so the trace is complete now.
    const json trace = readTrace(root.path() + "/hid-trace.jsonl");
    const std::pair<const char*, json> expected[] = {
        {"/0/kind", "digitizer"}, {"/0/event_mask", 0x23}, {"/0/sender_id", "0x100000236"}, {"/0/y", 0.75},
        {"/0/fingers/0/index", 0xFFFFFFF9u}, {"/0/fingers/1/x", 0.5}, {"/0/fingers/2", nullptr},
        {"/1/fingers/1/event_mask", 3}, {"/1/fingers/1/touch", false}, {"/1/fingers/0/touch", true},  // -7 is held
        {"/2/kind", "keyboard"}, {"/2/usage_page", 12}, {"/2/usage", 64}, {"/2/down", true},
        {"/3/down", false}, {"/3/sender_id", "0xdefacedbeeffece5"}, {"/4", nullptr},
    };
    for (const auto& [pointer, value] : expected) {
        const json::json_pointer at(pointer);
        EXPECT_EQ(trace.contains(at) ? trace[at] : json(), value) << pointer;
    }
    for (std::size_t i = 1; i < trace.size(); ++i) EXPECT_GE(trace[i]["t_us"], trace[i - 1]["t_us"]);

    // A frozen receiver holds a sender only for its time-outs; the next send connects afresh.
    ::kill(child.pid(), SIGSTOP);
    auto frozen = steady_clock::now();
    E::syncEvent();
    EXPECT_LT(steady_clock::now() - frozen, std::chrono::seconds(5));
    ::kill(child.pid(), SIGCONT);
    EXPECT_EQ(E::touchUp(-7, 0, 568), 0);
    EXPECT_EQ(E::syncEvent(), 0);
    EXPECT_EQ(readTrace(root.path() + "/hid-trace.jsonl").back()["fingers"][0]["touch"], false);

    close(lifeline[1]);  // as if the starter had died
    EXPECT_EQ(child.wait(std::chrono::seconds(5)), 0) << "the receiver must end, and end well";
    EXPECT_FALSE(std::filesystem::exists(*socketPathFor(root.path(), injectionPortName)));

    // One started here traces where told; killed, it fails sends only until the next takes its name over.
    const std::string traceFile = root.path() + "/trace.jsonl";
    auto receiver = ensureReceiver(root.path(), "iphone-se", traceFile, error, {TACTORA_CLI});
    ASSERT_TRUE(receiver) << error;
    ASSERT_TRUE(receiver->startedHere()) << "or the kill below would hit this process group";
    EXPECT_EQ(E::keyDown(1), 0);
    ::kill(receiver->pid(), SIGKILL);
    receiver->stop();  // reaps it; its socket stays behind
    EXPECT_EQ(E::touchMove(1, 20, 20), -1);
    ASSERT_TRUE(receiver = ensureReceiver(root.path(), "iphone-se", traceFile, error, {TACTORA_CLI})) << error;
    EXPECT_EQ(E::keyUp(1), 0);
    EXPECT_EQ(readTrace(traceFile).size(), 2u) << "the first send to the new receiver reaches it";
    int status = receiver->stop();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    E::resetConnection();

    // The device port tool's dry run ("PORT ID HEX" a line) is what EventSimulate sends for the gesture.
    RecordingPorts recording;
    platform().messagePorts = &recording;
    const std::pair<const char*, std::function<void()>> gestures[] = {
        {"tap 40 60 3", [] { E::touchDown(3, 40, 60); E::syncEvent(); E::touchUp(3, 40, 60); E::syncEvent(); }},
        {"swipe -5 300 15 300", [] {
             E::touchDown(1, -5, 300); E::syncEvent();
             for (int step = 1; step <= 10; ++step) { E::touchMove(1, -5 + 2 * step, 300); E::syncEvent(); }
             E::touchUp(1, 15, 300); E::syncEvent();
         }},
        {"home", [] { E::keyDown(1); E::keyUp(1); }},
    };
    for (const auto& [arguments, send] : gestures) {
        recording.clear();
        send();
        std::string sent;
        for (const auto& message : recording.messages()) {
            sent += std::string(injectionPortName) + " " + std::to_string(message.id) + " ";
            for (std::uint8_t byte : message.data) sent += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
            sent += "\n";
        }
        const std::string command = std::string(TACTORA_SOURCE_DIR "/scripts/device/port-message.py --dry-run ") + arguments;
        EXPECT_EQ(Child({"/bin/sh", "-c", "python3 " + command + " >'" + root.file("dry-run") + "' 2>&1"}).wait(), 0);
        EXPECT_EQ(readFile(root.file("dry-run")), sent) << command;
    }
    E::resetConnection();

    EXPECT_FALSE(ensureReceiver(root.path(), "iphone-se", "", error, {root.path() + "/missing"}));
    EXPECT_NE(error.find("cannot start"), std::string::npos) << error;
    EXPECT_FALSE(ensureReceiver(root.path(), "iphone-se", root.path() + "/no/such/dir/trace", error, {TACTORA_CLI}));
    EXPECT_NE(error.find("exited with status 1"), std::string::npos) << error;
}
