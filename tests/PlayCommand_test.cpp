// tactora play, run as a user runs it: a real receiver process takes the touches and writes the
// trace, the log and the console show the rest.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "RuntimeFakes.h"

using namespace tactora::runtimetest;
namespace fs = std::filesystem;

namespace {

struct ToolRun {
    int exitCode = -1;
    std::string output;  // stdout
    std::string errors;  // stderr
};

// Starts the tool with stdout and stderr in files under `root`; returns its pid.
pid_t startTool(const fs::path& root, const std::vector<std::string>& arguments) {
    std::vector<std::string> argv = {TACTORA_CLI, "--root", root.string()};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    std::string out = (root / "stdout.txt").string(), err = (root / "stderr.txt").string();
    pid_t pid = ::fork();
    if (pid == 0) {
        // No controlling terminal and no password in the environment: a missing password must
        // fail, not wait at a prompt.
        ::setsid();
        ::unsetenv("TACTORA_PASSWORD");
        if (!std::freopen(out.c_str(), "w", stdout) || !std::freopen(err.c_str(), "w", stderr)) _exit(127);
        std::vector<char*> raw;
        for (std::string& argument : argv) raw.push_back(argument.data());
        raw.push_back(nullptr);
        ::execv(raw[0], raw.data());
        _exit(127);
    }
    return pid;
}

// Waits for the tool, killing it after `limit` so that a hang fails the test instead of the suite.
ToolRun finishTool(const fs::path& root, pid_t pid, std::chrono::seconds limit = std::chrono::seconds(60)) {
    ToolRun run;
    int status = 0;
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.output = readFile(root / "stdout.txt");
    run.errors = readFile(root / "stderr.txt");
    return run;
}

ToolRun runTool(const fs::path& root, const std::vector<std::string>& arguments) {
    return finishTool(root, startTool(root, arguments));
}

size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

struct PlayRoot {
    PlayRoot() {
        scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
        fs::create_directories(scripts);
    }
    std::string log() const { return readFile(root.path() / "var/mobile/Library/Tactora/Library/log.log"); }
    ScratchDirectory root;
    fs::path scripts;
};

}  // namespace

TEST(PlayCommand, PlaysAScriptThroughTheReceiverAndReportsTheEnd) {
    PlayRoot device;
    writeFile(device.scripts / "tap.lua",
              "touchDown(1, 160, 284) usleep(50000) touchUp(1, 160, 284) "
              "log('tapped ' .. getScreenSize()) alert('halfway')");
    fs::path trace = device.root.path() / "trace.jsonl";
    ToolRun run = runTool(device.root.path(), {"play", (device.scripts / "tap.lua").string(), "--repeat", "2",
                                               "--interval", "0", "--speed", "1.9", "--trace", trace.string()});
    ASSERT_EQ(run.exitCode, 0) << run.errors;
    // Each pass: the finger down at the pause, lifted at the end-of-run flush.
    std::string hid = readFile(trace);
    EXPECT_EQ(count(hid, "\"kind\":\"digitizer\""), 4u) << hid;
    EXPECT_EQ(count(device.log(), " tapped 320\n"), 2u) << device.log();
    EXPECT_EQ(count(run.output, ": halfway [0: OK]\n"), 2u) << run.output;
    EXPECT_NE(run.output.find(": Tactora - Playing Finished! [0: OK]"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.rfind(": Tactora - Playing Finished! [0: OK]"), run.output.size() - 38) << run.output;
}

TEST(PlayCommand, ScriptErrorsAreReportedAndTheRunStillFinishes) {
    PlayRoot device;
    writeFile(device.scripts / "broken.lua", "touchDown('x', 1, 2)");
    ToolRun run = runTool(device.root.path(), {"play", (device.scripts / "broken.lua").string()});
    ASSERT_EQ(run.exitCode, 1) << run.errors;
    EXPECT_NE(device.log().find("bad argument #1 to 'touchDown' (number expected, got string)"), std::string::npos);
    EXPECT_NE(run.output.find("bad argument #1 to 'touchDown'"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("Playing Finished!"), std::string::npos);
}

TEST(PlayCommand, RefusesWhatItCannotPlayWithAClearMessage) {
    PlayRoot device;
    writeFile(device.scripts / "notes.txt", "log('x')");
    writeFile(device.scripts / "secret.lua.e", "not really encrypted");
    struct Case {
        std::vector<std::string> arguments;
        std::string message;
    };
    const Case cases[] = {
        {{"play", (device.scripts / "missing.lua").string()}, "no such script"},
        {{"play", (device.scripts / "notes.txt").string()}, "must end in .lua or .e"},
        {{"play", (device.scripts / "secret.lua.e").string()}, "needs its password"},
        {{"play", (device.scripts / "secret.lua.e").string(), "--password", "pw"}, "cannot decrypt"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.message);
        ToolRun run = runTool(device.root.path(), test.arguments);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_NE(run.errors.find(test.message), std::string::npos) << run.errors;
        EXPECT_EQ(device.log(), "");
    }
}

TEST(PlayCommand, InterruptStopsAnEndlessRunAndStillFinishesIt) {
    PlayRoot device;
    writeFile(device.scripts / "forever.lua", "log('pass') while true do end");
    pid_t pid = startTool(device.root.path(), {"play", (device.scripts / "forever.lua").string(), "--repeat", "0"});
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (device.log().empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_FALSE(device.log().empty()) << "the script never started";
    ::kill(pid, SIGINT);
    ToolRun run = finishTool(device.root.path(), pid);
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_NE(run.output.find("Playing Finished!"), std::string::npos) << run.output;
    EXPECT_EQ(count(device.log(), "pass"), 1u) << "a stopped script is not an error, and no pass follows";
}

TEST(PlayCommand, EncryptedScriptsPlayWithTheirPasswordOnly) {
    PlayRoot device;
    writeFile(device.scripts / "secret.lua", "log('the secret ran')");
    ASSERT_EQ(runTool(device.root.path(), {"encrypt", (device.scripts / "secret.lua").string(), "--password", "right"})
                  .exitCode,
              0);
    fs::remove(device.scripts / "secret.lua");
    std::string encrypted = (device.scripts / "secret.lua.e").string();

    ToolRun wrong = runTool(device.root.path(), {"play", encrypted, "--password", "wrong"});
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_NE(wrong.errors.find("cannot decrypt secret.lua.e"), std::string::npos) << wrong.errors;
    EXPECT_EQ(count(device.log(), "the secret ran"), 0u);

    ToolRun right = runTool(device.root.path(), {"play", encrypted, "--password", "right", "--repeat", "2",
                                                 "--interval", "0"});
    ASSERT_EQ(right.exitCode, 0) << right.errors;
    EXPECT_EQ(count(device.log(), "the secret ran"), 2u) << device.log();
}
