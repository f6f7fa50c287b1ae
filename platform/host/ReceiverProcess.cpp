#include "host/ReceiverProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "Kernel/EventSimulate.h"
#include "host/UnixMessagePorts.h"

extern char** environ;

namespace tactora::host {

namespace {

using SteadyClock = std::chrono::steady_clock;

std::string ownExecutable() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : path.string();
}

std::string describeStatus(int status) {
    if (WIFEXITED(status)) return "exited with status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
    return "ended";
}

// The lifeline's read end becomes descriptor 3 of the child; keep it clear of 0..3 here so that
// the child's dup2 never meets itself (which would leave close-on-exec set).
constexpr int lifelineInChild = 3;

}  // namespace

ReceiverProcess::ReceiverProcess(pid_t pid, int lifeline) : pid_(pid), lifeline_(lifeline) {}

ReceiverProcess::~ReceiverProcess() { stop(); }

int ReceiverProcess::stop(std::chrono::milliseconds grace) {
    if (lifeline_ >= 0) {
        ::close(lifeline_);
        lifeline_ = -1;
    }
    if (pid_ <= 0) return -1;
    ::kill(pid_, SIGTERM);
    int status = 0;
    auto deadline = SteadyClock::now() + grace;
    for (;;) {
        pid_t done = ::waitpid(pid_, &status, WNOHANG);
        if (done == pid_ || (done < 0 && errno != EINTR)) break;
        if (SteadyClock::now() >= deadline) {
            ::kill(pid_, SIGKILL);
            while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    pid_ = 0;
    return status;
}

bool receiverAnswers(const std::string& root, double timeoutSeconds) {
    UnixMessagePorts ports(root, nullptr);
    auto remote = ports.createRemote(injectionPortName);
    return remote && remote->sendRequest(receiverProbeMessage, {}, timeoutSeconds, timeoutSeconds, nullptr) ==
                         SendStatus::success;
}

std::unique_ptr<ReceiverProcess> ensureReceiver(const std::string& root, const std::string& device,
                                                const std::string& traceFile, std::string& error,
                                                const ReceiverOptions& options) {
    if (receiverAnswers(root)) return std::make_unique<ReceiverProcess>(0, -1);

    std::string executable = options.executable.empty() ? ownExecutable() : options.executable;
    if (executable.empty()) {
        error = "cannot find the tactora program to start a receiver";
        return nullptr;
    }

    // Everything the child needs is built before it exists.
    std::vector<std::string> arguments = {executable, "--root", root, "--device", device, "receiver",
                                          "--watch-fd", std::to_string(lifelineInChild)};
    if (!traceFile.empty()) {
        arguments.push_back("--trace");
        arguments.push_back(traceFile);
    }
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    int lifeline[2];
    if (::pipe2(lifeline, O_CLOEXEC) != 0) {
        error = std::string("cannot make a pipe: ") + std::strerror(errno);
        return nullptr;
    }
    if (lifeline[0] <= lifelineInChild) {
        int moved = ::fcntl(lifeline[0], F_DUPFD_CLOEXEC, lifelineInChild + 1);
        ::close(lifeline[0]);
        lifeline[0] = moved;
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, lifeline[0], lifelineInChild);
    pid_t pid = 0;
    int spawned = lifeline[0] < 0 ? EMFILE
                                  : ::posix_spawn(&pid, executable.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (lifeline[0] >= 0) ::close(lifeline[0]);
    if (spawned != 0) {
        ::close(lifeline[1]);
        error = "cannot start " + executable + ": " + std::strerror(spawned);
        return nullptr;
    }
    auto deadline = SteadyClock::now() + options.startTimeout;
    while (SteadyClock::now() < deadline) {
        if (receiverAnswers(root, 0.2)) return std::make_unique<ReceiverProcess>(pid, lifeline[1]);
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            // Reaped: its id must not be signalled again. Another process may have started a
            // receiver for the root at the same moment; the one that lost the port ends at once,
            // and the winner serves both.
            ::close(lifeline[1]);
            if (receiverAnswers(root)) return std::make_unique<ReceiverProcess>(0, -1);
            error = "the receiver " + describeStatus(status);
            return nullptr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ReceiverProcess(pid, lifeline[1]).stop();
    error = "the receiver did not answer within " + std::to_string(options.startTimeout.count()) + " ms";
    return nullptr;
}

}  // namespace tactora::host
