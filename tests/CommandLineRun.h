// The desktop tool run as a user runs it from a shell: in a working directory of the test's
// choosing, with standard output and standard error kept apart, and no terminal.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "FoundationFakes.h"
#include "ToolProcess.h"
#include "host/PngCodec.h"

namespace tactora::testing {

struct CommandOutcome {
    int exitCode = -1;  // -1: killed after the time limit, or ended by a signal
    std::string out;
    std::string err;
};

// Runs `tactora ARGUMENTS...` in `directory`; its output goes through files beside it.
inline CommandOutcome runCommand(const std::filesystem::path& directory, const std::vector<std::string>& arguments,
                                 std::chrono::seconds limit = std::chrono::seconds(60)) {
    const std::string out = (directory / ".stdout").string(), err = (directory / ".stderr").string();
    std::vector<std::string> argv = {TACTORA_CLI};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::setsid();
        ::unsetenv("TACTORA_PASSWORD");
        ::unsetenv("TACTORA_ROOT");
        if (::chdir(directory.c_str()) != 0 || !std::freopen(out.c_str(), "w", stdout) ||
            !std::freopen(err.c_str(), "w", stderr))
            ::_exit(127);
        std::vector<char*> raw;
        for (std::string& argument : argv) raw.push_back(argument.data());
        raw.push_back(nullptr);
        ::execv(raw[0], raw.data());
        ::_exit(127);
    }
    CommandOutcome outcome;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            status = -1;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    outcome.exitCode = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.out = readFile(out);
    outcome.err = readFile(err);
    return outcome;
}

// A PNG file of one opaque colour 0xRRGGBB.
inline std::string solidPng(std::uint32_t width, std::uint32_t height, std::uint32_t rgb) {
    std::vector<std::uint8_t> rgba(std::size_t(width) * height * 4, 0xFF);
    for (std::size_t i = 0; i < rgba.size(); i += 4) {
        rgba[i] = std::uint8_t(rgb >> 16);
        rgba[i + 1] = std::uint8_t(rgb >> 8);
        rgba[i + 2] = std::uint8_t(rgb);
    }
    auto png = host::PngCodec().encodePng(rgba.data(), width, height, std::size_t(width) * 4);
    return png ? std::string(png->begin(), png->end()) : std::string();
}

}  // namespace tactora::testing
