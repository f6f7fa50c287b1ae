#include "host/ReceiverProcess.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "InjectFakes.h"
#include "ToolProcess.h"
#include "Kernel/EventSimulate.h"
#include "Platform/Platform.h"
#include "host/UnixMessagePorts.h"

using namespace tactora;
using namespace tactora::host;
using tactora::testing::TempRoot;
using std::chrono::steady_clock;

namespace {

std::vector<nlohmann::json> readTrace(const std::string& path) {
    std::vector<nlohmann::json> lines;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) lines.push_back(nlohmann::json::parse(line));
    return lines;
}

double secondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// The sender's side of a test: EventSimulate talks to the receiver of `root`.
class InjectionAcrossProcesses : public ::testing::Test {
protected:
    void SetUp() override {
        platform().messagePorts = &ports;
        EventSimulate::resetConnection();
    }
    void TearDown() override { EventSimulate::resetConnection(); }

    std::unique_ptr<ReceiverProcess> start() {
        std::string error;
        auto receiver = ensureReceiver(root.path(), "iphone-se", trace, error, {TACTORA_CLI});
        EXPECT_TRUE(receiver) << error;
        return receiver;
    }

    TempRoot root;
    std::string trace = root.path() + "/trace.jsonl";
    UnixMessagePorts ports{root.path(), nullptr};
    ScopedPlatform scope;
};

}  // namespace

TEST_F(InjectionAcrossProcesses, TouchesAndKeysReachAReceiverInAnotherProcess) {
    auto receiver = start();
    ASSERT_TRUE(receiver);
    EXPECT_TRUE(receiver->startedHere());

    EXPECT_EQ(EventSimulate::touchDown(1, 160, 284), 0);
    EXPECT_EQ(EventSimulate::touchDown(-7, 0, 568), 0);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_EQ(EventSimulate::touchUp(1, 320, 284), 0);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_EQ(EventSimulate::keyDown(1), 0);
    EXPECT_EQ(EventSimulate::keyDown(2), -1);
    EXPECT_EQ(EventSimulate::keyUp(1), 0);

    // Each request was handled before its reply, so the trace is complete now.
    auto lines = readTrace(trace);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0]["kind"], "digitizer");
    EXPECT_EQ(lines[0]["event_mask"], 0x23);
    EXPECT_EQ(lines[0]["sender_id"], "0x100000236");
    ASSERT_EQ(lines[0]["fingers"].size(), 2u);
    EXPECT_EQ(lines[0]["fingers"][0]["index"], 0xFFFFFFF9u);
    EXPECT_DOUBLE_EQ(lines[0]["fingers"][1]["x"].get<double>(), 0.5);
    EXPECT_DOUBLE_EQ(lines[0]["y"].get<double>(), 0.75);
    EXPECT_EQ(lines[1]["fingers"][1]["event_mask"], 3);
    EXPECT_EQ(lines[1]["fingers"][1]["touch"], false);
    EXPECT_EQ(lines[1]["fingers"][0]["touch"], true) << "finger -7 is still held";
    EXPECT_EQ(lines[2]["kind"], "keyboard");
    EXPECT_EQ(lines[2]["usage_page"], 12);
    EXPECT_EQ(lines[2]["usage"], 64);
    EXPECT_EQ(lines[2]["down"], true);
    EXPECT_EQ(lines[3]["down"], false);
    EXPECT_EQ(lines[3]["sender_id"], "0xdefacedbeeffece5");
    for (std::size_t i = 1; i < lines.size(); ++i) EXPECT_GE(lines[i]["t_us"], lines[i - 1]["t_us"]);

    // A second caller finds the running receiver instead of starting another.
    std::string error;
    auto again = ensureReceiver(root.path(), "iphone-se", trace, error, {TACTORA_CLI});
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->startedHere());
    EXPECT_EQ(again->stop(), -1);
    EXPECT_TRUE(receiverAnswers(root.path()));

    int status = receiver->stop();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(receiverAnswers(root.path()));
    EXPECT_FALSE(std::filesystem::exists(*socketPathFor(root.path(), injectionPortName)));
}

TEST_F(InjectionAcrossProcesses, ADeadOrFrozenReceiverCostsASenderNoMoreThanTheTimeOuts) {
    auto receiver = start();
    ASSERT_TRUE(receiver);
    EXPECT_EQ(EventSimulate::touchDown(1, 10, 10), 0);
    ::kill(receiver->pid(), SIGKILL);
    receiver->stop();  // reaps it
    for (int i = 0; i < 3; ++i) {
        auto begin = steady_clock::now();
        EXPECT_EQ(EventSimulate::touchMove(1, 20, 20), -1);
        EXPECT_EQ(EventSimulate::syncEvent(), -1);
        EXPECT_EQ(EventSimulate::keyDown(1), -1);
        EXPECT_LT(secondsSince(begin), 1.0);
    }

    // The dead receiver left its socket behind; the new one takes the name over.
    receiver = start();
    ASSERT_TRUE(receiver);
    EXPECT_EQ(EventSimulate::touchDown(5, 32, 56.8), 0);
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    auto lines = readTrace(trace);
    ASSERT_EQ(lines.size(), 1u) << "the first receiver never synced";
    EXPECT_EQ(lines[0]["fingers"][0]["index"], 5);

    ::kill(receiver->pid(), SIGSTOP);
    auto begin = steady_clock::now();
    EventSimulate::syncEvent();  // its outcome is not checked: the result only says the port was there
    double waited = secondsSince(begin);
    EXPECT_GE(waited, 0.9);
    EXPECT_LT(waited, 2.5);
    ::kill(receiver->pid(), SIGCONT);
    // The timed-out connection is given up; the next send connects afresh and is answered.
    EXPECT_EQ(EventSimulate::syncEvent(), 0);
    EXPECT_TRUE(keep_message_port_fresh());
    int status = receiver->stop();
    EXPECT_TRUE(WIFEXITED(status)) << status;
}

TEST(ReceiverProcess, ASecondReceiverForARootRefusesAndOneThatCannotStartIsReported) {
    TempRoot root;
    std::string error;
    auto receiver = ensureReceiver(root.path(), "iphone-se", "", error, {TACTORA_CLI});
    ASSERT_TRUE(receiver) << error;
    EXPECT_TRUE(std::filesystem::exists(root.path() + "/hid-trace.jsonl"));
    EXPECT_EQ(tactora::testing::runTool("--root '" + root.path() + "' receiver").exitCode, 1);
    EXPECT_TRUE(receiverAnswers(root.path())) << "the refused one must not take the port down";
    receiver.reset();

    TempRoot other;
    auto start = steady_clock::now();
    EXPECT_FALSE(ensureReceiver(other.path(), "iphone-se", "", error, {"/bin/false"}));
    EXPECT_NE(error.find("exited with status 1"), std::string::npos) << error;
    EXPECT_LT(secondsSince(start), 2.0);
    EXPECT_FALSE(ensureReceiver(other.path(), "iphone-se", "", error, {other.path() + "/missing"}));
    EXPECT_NE(error.find("cannot start"), std::string::npos) << error;
    EXPECT_FALSE(ensureReceiver(other.path(), "iphone-se", other.path() + "/no/such/dir/trace", error,
                                {TACTORA_CLI}));
}

TEST(ReceiverProcess, AReceiverEndsWhenItsStartersLifelineCloses) {
    TempRoot root;
    int lifeline[2];
    ASSERT_EQ(pipe2(lifeline, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, lifeline[0], 9);
    tactora::testing::Child receiverChild({TACTORA_CLI, "--root", root.path(), "receiver", "--watch-fd", "9"}, &actions);
    posix_spawn_file_actions_destroy(&actions);
    close(lifeline[0]);
    ASSERT_TRUE(receiverChild.running());

    auto begin = steady_clock::now();
    while (!receiverAnswers(root.path(), 0.1) && secondsSince(begin) < 5)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(receiverAnswers(root.path()));

    close(lifeline[1]);  // as if the starter had died
    EXPECT_EQ(receiverChild.wait(std::chrono::seconds(5)), 0) << "the receiver must end, and end well";
}
