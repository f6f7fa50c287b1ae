// The receiving half of injection runs in a process of its own, as backboardd does on the device.
// This finds the one serving a root, or starts `tactora receiver` for it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace tactora::host {

// A message id the receiver ignores: sending it shows that the port is served without touching
// any finger the receiver holds.
inline constexpr std::int32_t receiverProbeMessage = 0;

struct ReceiverOptions {
    // The tactora program to run; empty: this process's own executable.
    std::string executable;
    // How long a new receiver may take until its port answers.
    std::chrono::milliseconds startTimeout{5000};
};

// A receiver serving a root: either one this process started, which ends when this object is
// destroyed (or when this process dies), or one that was already running, which is left alone.
class ReceiverProcess {
public:
    ReceiverProcess(pid_t pid, int lifeline);
    ~ReceiverProcess();
    ReceiverProcess(const ReceiverProcess&) = delete;
    ReceiverProcess& operator=(const ReceiverProcess&) = delete;

    // True when this process started the receiver.
    bool startedHere() const { return pid_ > 0; }
    // Its process id while it runs; 0 when it was not started here or has ended.
    pid_t pid() const { return pid_; }

    // Ends a receiver started here: SIGTERM, SIGKILL after `grace`, then reaps it. Nothing for a
    // receiver found running. Returns its wait status, or -1 when there was nothing to stop.
    int stop(std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

private:
    pid_t pid_;
    int lifeline_;  // the receiver ends when this pipe's write end closes
};

// True when a receiver answers on the injection port of `root` within `timeoutSeconds`.
bool receiverAnswers(const std::string& root, double timeoutSeconds = 0.5);

// Makes sure a receiver serves `root`: uses one that already answers (whatever its device and
// trace), or starts `tactora --root ROOT --device DEVICE receiver --trace TRACE` and waits until
// its port answers. Null, with `error` saying why, when none could be started.
std::unique_ptr<ReceiverProcess> ensureReceiver(const std::string& root, const std::string& device,
                                                const std::string& traceFile, std::string& error,
                                                const ReceiverOptions& options = {});

}  // namespace tactora::host
