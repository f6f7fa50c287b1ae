// A stop ends a run at once wherever its script is: one Ctrl-C or SIGTERM to the desktop tool ends
// a long pause, a pause of 71 minutes and a busy loop, and the run still finishes as usual. The
// latency itself is measured in bench_lua; here the bound is only far below the pauses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <thread>

#include "FoundationFakes.h"
#include "Kernel/LuaBridge.h"
#include "RuntimeFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
using tactora::runtimetest::RuntimeDevice;
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

TEST(StopLatency, OneSignalEndsARunWhereverItsScriptIs) {
    struct Case {
        const char* command;  // play, or sim (headless)
        const char* script;
        int signal;
        int status;  // a headless simulation that did not end by itself says so
    };
    const Case cases[] = {
        {"play", "log('start') usleep(30000000) log('after the pause')", SIGINT, 0},
        {"play", "log('start') usleep(-1) log('after the pause')", SIGTERM, 0},  // 2^32 - 1 µs
        {"play", "log('start') while true do end", SIGTERM, 0},
        {"play", "log('start') local ok = pcall(usleep, 30000000) usleep(30000000) log('after the pause')", SIGINT, 0},
        {"sim", "log('start') usleep(30000000) log('after the pause')", SIGINT, 1},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(::testing::Message() << test.command << ": " << test.script);
        ScratchDirectory root;
        const fs::path scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
        const fs::path log = root.path() / "var/mobile/Library/Tactora/Library/log.log";
        writeFile(scripts / "stop.lua", test.script);
        std::vector<std::string> arguments = {TACTORA_CLI, "--root", root.path().string(), "sim", "--headless", "--run",
                                              "stop.lua"};
        if (std::string(test.command) == "play")
            arguments = {TACTORA_CLI, "--root", root.path().string(), "play", (scripts / "stop.lua").string(), "--repeat", "0"};
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        const std::string output = root.file("output.txt");
        posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&files, 1, 2);
        Child tool(arguments, &files);
        posix_spawn_file_actions_destroy(&files);
        ASSERT_TRUE(tool.running());

        const auto deadline = Steady::now() + std::chrono::seconds(30);
        while (readFile(log).find("start") == std::string::npos && Steady::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        ASSERT_NE(readFile(log).find("start"), std::string::npos) << "the script never started";
        // Into the pause or the loop proper.
        std::this_thread::sleep_for(std::chrono::milliseconds(200));

        const auto signalled = Steady::now();
        ::kill(tool.pid(), test.signal);
        const int status = tool.wait(std::chrono::seconds(20));
        const double seconds = std::chrono::duration<double>(Steady::now() - signalled).count();
        const std::string text = readFile(output);
        EXPECT_EQ(status, test.status) << text;
        EXPECT_LT(seconds, 5.0) << "one signal must end the run, not wait out its pause";
        // A stop is no error: nothing after the pause ran, nothing was logged or shown.
        const std::string logged = readFile(log);
        EXPECT_EQ(logged.find("after the pause"), std::string::npos) << logged;
        EXPECT_EQ(logged.find("interrupted"), std::string::npos) << logged;
        EXPECT_EQ(text.find("interrupted"), std::string::npos) << text;
        if (test.status == 0) {
            EXPECT_NE(text.find("Playing Finished!"), std::string::npos) << text;
        }
    }
}

// An app that takes its time to start: the launch blocks until the test lets it go.
class SlowApps final : public tactora::Apps {
public:
    void launch(const std::string& bundleId) override {
        std::unique_lock lock(mutex_);
        launching_ = bundleId;
        changed_.notify_all();
        changed_.wait(lock, [this] { return released_; });
        launched_ = true;
        changed_.notify_all();
    }
    bool waitFor(const std::function<bool()>& done) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), done);
    }
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string launching_;
    bool released_ = false, launched_ = false;
};

TEST(StopLatency, AStopDoesNotWaitForALaunchToAnswerYetTheLaunchStillHappens) {
    RuntimeDevice device;
    SlowApps apps;
    tactora::platform().apps = &apps;
    tactora::LuaBridge bridge;
    std::thread script([&] { bridge.runLuaString("appRun('com.example.slow') log('after the launch')"); });
    EXPECT_TRUE(apps.waitFor([&] { return apps.launching_ == "com.example.slow"; }));

    auto ended = std::async(std::launch::async, [&] { script.join(); });
    bridge.stopLuaRunning();
    // The run ends while the launch still hangs, with nothing logged after it and no error.
    EXPECT_EQ(ended.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(device.log().find("after the launch"), std::string::npos) << device.log();
    EXPECT_EQ(bridge.lastError(), "");
    apps.release();
    EXPECT_TRUE(apps.waitFor([&] { return apps.launched_; }));
    ended.wait();
}
