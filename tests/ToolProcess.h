// Child processes for the tests that cross processes: the desktop tool run as a user runs it, or
// this test binary started again. A Child is killed and reaped on every path out of a test.
#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "FoundationFakes.h"
#include "host/PngCodec.h"

extern char** environ;

namespace tactora::testing {

class Child {
public:
    explicit Child(pid_t pid) : pid_(pid) {}
    // Starts `arguments` (the program first), with `actions` applied when given.
    explicit Child(std::vector<std::string> arguments, const posix_spawn_file_actions_t* actions = nullptr) {
        std::vector<char*> argv;
        for (auto& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, argv[0], actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    }
    ~Child() { kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    void kill() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
    }
    // The exit code once the child ends by itself within `limit`; -1 when it ends by a signal or
    // has to be killed.
    int wait(std::chrono::milliseconds limit = std::chrono::seconds(60)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        kill();
        return -1;
    }
    // SIGTERM, then the exit code as wait() gives it.
    int terminate(std::chrono::milliseconds grace = std::chrono::seconds(10)) {
        if (pid_ > 0) ::kill(pid_, SIGTERM);
        return wait(grace);
    }

private:
    pid_t pid_ = -1;
};

// How often `what` occurs in `text`.
inline std::size_t countOf(const std::string& text, const std::string& what) {
    std::size_t n = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

struct ToolRun {
    int exitCode = -1;  // -1: ended by a signal or killed after a minute
    std::string out, err;  // standard output and standard error
};

// Runs the desktop tool with `arguments`, a shell command-line tail (quote paths), in `directory`,
// as a user runs it but with no terminal to prompt on and no password or root in the environment
// unless `environment` ("NAME=value ...") gives one.
inline ToolRun runTool(const std::string& arguments, const std::string& environment = "",
                       const std::string& directory = ".") {
    ScratchDirectory streams;
    ToolRun run;
    // Redirections first, so that `arguments` may redirect standard input after them.
    run.exitCode = Child({"/bin/sh", "-c", "cd '" + directory + "' && </dev/null >'" + streams.file("out") + "' 2>'" +
                                               streams.file("err") + "' exec env -u TACTORA_PASSWORD -u TACTORA_ROOT " +
                                               environment + " setsid -w '" + TACTORA_CLI + "' " + arguments})
                       .wait();
    run.out = readFile(streams.path() / "out");
    run.err = readFile(streams.path() / "err");
    return run;
}

// A PNG file of one opaque colour 0xRRGGBB.
inline std::string solidPng(std::uint32_t width, std::uint32_t height, std::uint32_t rgb) {
    std::vector<std::uint8_t> rgba(std::size_t(width) * height * 4, 0xFF);
    for (std::size_t i = 0; i < rgba.size(); i += 4)
        for (int c = 0; c < 3; ++c) rgba[i + c] = std::uint8_t(rgb >> (16 - 8 * c));
    auto png = host::PngCodec().encodePng(rgba.data(), width, height, std::size_t(width) * 4);
    return png ? std::string(png->begin(), png->end()) : std::string();
}

}  // namespace tactora::testing
