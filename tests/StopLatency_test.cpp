// A stop ends a run at once wherever its script is: one Ctrl-C or SIGTERM to the desktop tool ends
// a long pause, a pause of 71 minutes and a busy loop, and the run still finishes as usual; a stop
// does not wait for a launch to answer. The latency itself is measured in bench_lua.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <thread>

#include "Kernel/LuaBridge.h"
#include "RuntimeFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
using Steady = std::chrono::steady_clock;

TEST(StopLatency, OneSignalEndsARunWhereverItsScriptIs) {
    struct Case {
        const char* command;  // play, or sim (headless: a simulation stopped before its end exits 1)
        const char* script;
        int signal, status;
    };
    const Case cases[] = {
        {"play", "usleep(30000000)", SIGINT, 0},
        {"play", "usleep(-1)", SIGTERM, 0},  // 2^32 - 1 µs
        {"play", "while true do end", SIGTERM, 0},
        {"play", "local ok = pcall(usleep, 30000000) usleep(30000000)", SIGINT, 0},
        {"sim", "usleep(30000000)", SIGINT, 1},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(::testing::Message() << test.command << ": " << test.script);
        ScratchDirectory root;
        const auto scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
        const auto log = root.path() / "var/mobile/Library/Tactora/Library/log.log";
        writeFile(scripts / "stop.lua", std::string("log('start') ") + test.script + " log('after the pause')");
        std::vector<std::string> arguments = {TACTORA_CLI, "--root", root.path().string(), "sim", "--headless",
                                              "--run", "stop.lua"};
        if (std::string(test.command) == "play")
            arguments = {TACTORA_CLI, "--root", root.path().string(), "play", (scripts / "stop.lua").string(), "--repeat", "0"};
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        const std::string output = root.file("output.txt");
        posix_spawn_file_actions_addopen(&files, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&files, 1, 2);
        Child tool(arguments, &files);
        posix_spawn_file_actions_destroy(&files);

        const auto deadline = Steady::now() + std::chrono::seconds(30);
        while (readFile(log).find("start") == std::string::npos && Steady::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ASSERT_NE(readFile(log).find("start"), std::string::npos) << "the script never started";
        std::this_thread::sleep_for(std::chrono::milliseconds(200));  // into the pause or the loop proper

        ::kill(tool.pid(), test.signal);
        // One signal ends the run long before any pause would (a second one is never needed).
        EXPECT_EQ(tool.wait(std::chrono::seconds(5)), test.status) << readFile(output);
        // A stop is no error: nothing after the pause ran, nothing was logged or shown.
        const std::string logged = readFile(log), text = readFile(output);
        EXPECT_EQ(logged.find("after the pause"), std::string::npos) << logged;
        EXPECT_EQ((logged + text).find("interrupted"), std::string::npos) << logged << text;
        EXPECT_NE(text.find("Playing Finished!"), std::string::npos) << text;
    }
}

// An app that takes its time to start: its launch blocks until the test lets it go.
struct SlowApps final : tactora::Apps {
    void launch(const std::string& bundleId) override {
        std::unique_lock lock(mutex);
        launching = bundleId;
        changed.notify_all();
        changed.wait(lock, [this] { return released; });
        launched = true;
        changed.notify_all();
    }
    bool waitFor(const std::function<bool()>& done) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), done);
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::string launching;
    bool released = false, launched = false;
};

TEST(StopLatency, AStopDoesNotWaitForALaunchToAnswerYetTheLaunchStillHappens) {
    tactora::runtimetest::RuntimeDevice device;
    SlowApps apps;
    tactora::platform().apps = &apps;
    tactora::LuaBridge bridge;
    auto ended = std::async(std::launch::async, [&] { bridge.runLuaString("appRun('a.b') log('after the launch')"); });
    EXPECT_TRUE(apps.waitFor([&] { return apps.launching == "a.b"; }));
    bridge.stopLuaRunning();
    // The run ends while the launch still hangs, with nothing after it and no error.
    EXPECT_EQ(ended.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(device.log().find("after the launch"), std::string::npos) << device.log();
    EXPECT_EQ(bridge.lastError(), "");
    {
        std::lock_guard lock(apps.mutex);
        apps.released = true;
        apps.changed.notify_all();
    }
    EXPECT_TRUE(apps.waitFor([&] { return apps.launched; }));
    ended.wait();
}
