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
    int exitCode = -1;
    std::string output;  // standard output and errors
};

// Runs the desktop tool with `arguments`, a shell command-line tail (quote paths), as a user runs
// it but with no terminal to prompt on and no password in the environment unless `environment`
// ("NAME=value ...") gives one.
inline ToolRun runTool(const std::string& arguments, const std::string& environment = "") {
    const std::string command = "env -u TACTORA_PASSWORD " + environment + " setsid -w '" + TACTORA_CLI + "' " +
                                arguments + " </dev/null 2>&1";
    ToolRun run;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return run;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.output.append(buffer, n);
    const int status = ::pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace tactora::testing
