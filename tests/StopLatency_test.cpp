// A stop ends a run at once wherever its script is: one Ctrl-C or SIGTERM to the desktop tool ends
// a long pause, a pause of 71 minutes and a busy loop, and the run still finishes as usual. The
// latency itself is measured in bench_lua; here the bound is only far below the pauses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>

#include <chrono>
#include <thread>

#include "FoundationFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
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
