#include "host/ReceiverProcess.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <thread>

#include "InjectFakes.h"
#include "Kernel/EventSimulate.h"
#include "Platform/Platform.h"
#include "RuntimeFakes.h"
#include "ToolProcess.h"
#include "host/UnixMessagePorts.h"

using namespace tactora;
using namespace tactora::host;
using nlohmann::json;
using std::chrono::steady_clock;

namespace {

json readTrace(const std::string& path) {
    json lines = json::array();
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
}

}  // namespace

TEST(ReceiverProcess, TouchesAndKeysReachAReceiverInAnotherProcessThatEndsWithItsStarter) {
    tactora::testing::TempRoot root;
    UnixMessagePorts ports{root.path(), nullptr};
    ScopedPlatform scope;
    platform().messagePorts = &ports;
    EventSimulate::resetConnection();

    // Started by hand, with the lifeline ensureReceiver gives it, and its own trace file.
    int lifeline[2];
    ASSERT_EQ(pipe2(lifeline, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, lifeline[0], 9);
    tactora::testing::Child child(
        {TACTORA_CLI, "--root", root.path(), "--device", "iphone-se", "receiver", "--watch-fd", "9"}, &actions);
    posix_spawn_file_actions_destroy(&actions);
    close(lifeline[0]);
    const auto begin = steady_clock::now();
    while (!receiverAnswers(root.path(), 0.1) && steady_clock::now() - begin < std::chrono::seconds(5))
        std::this_thread::sleep_for(std::chrono::milliseconds(10));

    // A second caller finds the running receiver and leaves it alone; a second receiver refuses.
    std::string error;
    auto found = ensureReceiver(root.path(), "iphone-se", "", error, {TACTORA_CLI});
    ASSERT_TRUE(found) << error;
    EXPECT_FALSE(found->startedHere());
    EXPECT_EQ(found->stop(), -1);
    EXPECT_EQ(tactora::testing::runTool("--root '" + root.path() + "' receiver").exitCode, 1);
    EXPECT_TRUE(receiverAnswers(root.path())) << "the refused one must not take the port down";

    EXPECT_EQ(EventSimulate::touchDown(1, 160, 284), 0);
    EXPECT_EQ(EventSimulate::touchDown(-7, 0, 568), 0);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_EQ(EventSimulate::touchUp(1, 320, 284), 0);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_EQ(EventSimulate::keyDown(1), 0);
    EXPECT_EQ(EventSimulate::keyDown(2), -1);
    EXPECT_EQ(EventSimulate::keyUp(1), 0);
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
    EventSimulate::syncEvent();
    EXPECT_LT(steady_clock::now() - frozen, std::chrono::seconds(5));
    ::kill(child.pid(), SIGCONT);
    EXPECT_EQ(EventSimulate::touchUp(-7, 0, 568), 0);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_EQ(readTrace(root.path() + "/hid-trace.jsonl").back()["fingers"][0]["touch"], false);

    close(lifeline[1]);  // as if the starter had died
    EXPECT_EQ(child.wait(std::chrono::seconds(5)), 0) << "the receiver must end, and end well";
    EXPECT_FALSE(receiverAnswers(root.path()));
    EXPECT_FALSE(std::filesystem::exists(*socketPathFor(root.path(), injectionPortName)));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(EventSimulate::touchMove(1, 20, 20), -1);
        EXPECT_EQ(EventSimulate::keyDown(1), -1);
    }

    // One started here writes the trace it is given and ends well when stopped.
    const std::string traceFile = root.path() + "/trace.jsonl";
    auto receiver = ensureReceiver(root.path(), "iphone-se", traceFile, error, {TACTORA_CLI});
    ASSERT_TRUE(receiver) << error;
    EXPECT_TRUE(receiver->startedHere());
    EXPECT_EQ(EventSimulate::keyDown(1), 0);
    EXPECT_EQ(readTrace(traceFile).size(), 1u);
    int status = receiver->stop();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EventSimulate::resetConnection();

    const struct {
        std::string executable, trace, error;
    } failures[] = {
        {"/bin/false", "", "exited with status 1"},
        {root.path() + "/missing", "", "cannot start"},
        {TACTORA_CLI, root.path() + "/no/such/dir/trace", "exited with status 1"},
    };
    for (const auto& failure : failures) {
        EXPECT_FALSE(ensureReceiver(root.path(), "iphone-se", failure.trace, error, {failure.executable}));
        EXPECT_NE(error.find(failure.error), std::string::npos) << error;
    }
}

// The device-side port tool (scripts/device/port-message.py) must speak the wire format of the
// core: its dry run ("PORT ID HEX" a line) is compared with what EventSimulate sends.
TEST(ReceiverProcess, TheDevicePortToolSendsWhatTheSenderSends) {
    ScopedPlatform scope;
    tactora::testing::RecordingPorts ports;
    platform().messagePorts = &ports;
    EventSimulate::resetConnection();
    using E = EventSimulate;
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
        ports.clear();
        send();
        std::string sent;
        for (const auto& message : ports.messages()) {
            sent += std::string(injectionPortName) + " " + std::to_string(message.id) + " ";
            for (std::uint8_t byte : message.data) sent += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
            sent += "\n";
        }
        const std::string command =
            std::string("python3 " TACTORA_SOURCE_DIR "/scripts/device/port-message.py --dry-run ") + arguments;
        std::string dryRun;
        FILE* pipe = popen((command + " 2>&1").c_str(), "r");
        ASSERT_TRUE(pipe);
        for (char line[512]; std::fgets(line, sizeof line, pipe);) dryRun += line;
        EXPECT_EQ(pclose(pipe), 0) << command;
        EXPECT_EQ(dryRun, sent) << command;
    }
    EventSimulate::resetConnection();
}
