// tactora receiver: the simulated device's backboardd. Serves the injection port of the root and
// writes every event it dispatches to the HID trace, until SIGTERM or SIGINT.
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <thread>

#include "Command.h"
#include "Kernel/TouchInjector.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "host/DeviceProfiles.h"
#include "host/HostPlatform.h"
#include "host/MainLoop.h"
#include "host/TraceHIDDispatch.h"

namespace tactora::cli {

namespace {

struct ReceiverArguments {
    std::string trace;
    int watchFd = -1;
};

// Waits on its own thread for a stop signal, for the end of the starter's lifeline, or for
// `finish()`, and then ends the main loop.
class StopWatcher {
public:
    StopWatcher(host::MainLoop& loop, int signals, int lifeline)
        : wake_(::eventfd(0, EFD_CLOEXEC)), thread_([this, &loop, signals, lifeline] {
              pollfd entries[3] = {{wake_, POLLIN, 0}, {signals, POLLIN, 0}, {lifeline, POLLIN, 0}};
              while (::poll(entries, lifeline >= 0 ? 3 : 2, -1) < 0) {
              }
              loop.quit();
          }) {}
    ~StopWatcher() {
        std::uint64_t one = 1;
        (void)!::write(wake_, &one, sizeof one);
        thread_.join();
        ::close(wake_);
    }

private:
    int wake_;
    std::thread thread_;
};

int runReceiver(const GlobalOptions& options, const ReceiverArguments& arguments) {
    // The stop signals are taken through a descriptor, so they must be blocked before any thread
    // exists, and not ignored (a starter in the background may have ignored them, and an ignored
    // signal never reaches the descriptor). A vanished sender must not kill the receiver either.
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGINT, SIG_DFL);
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    int signals = ::signalfd(-1, &stopSignals, SFD_CLOEXEC);
    ::signal(SIGPIPE, SIG_IGN);

    host::HostPlatform host(options.host);
    auto profile = host::findDeviceProfile(options.host.device).value_or(host::deviceProfiles().front());
    std::error_code ignored;
    std::filesystem::create_directories(host.root(), ignored);
    std::string tracePath = arguments.trace.empty() ? host.root() + "/hid-trace.jsonl" : arguments.trace;
    host::TraceHIDDispatch hid(profile, tracePath);
    if (!hid.isOpen()) {
        std::fprintf(stderr, "tactora receiver: %s\n", hid.error().c_str());
        return 1;
    }
    platform().hidDispatch = &hid;

    TouchInjector injector;
    auto port = startInjectionReceiver(injector);
    if (!port) {
        std::fprintf(stderr, "tactora receiver: cannot serve the injection port under %s (is a receiver already running there?)\n",
                     host.root().c_str());
        return 1;
    }
    if (::isatty(STDIN_FILENO))
        std::fprintf(stderr, "tactora receiver: serving %s as %s, trace %s; stop with Ctrl-C\n", host.root().c_str(),
                     profile.name.c_str(), tracePath.c_str());
    {
        StopWatcher watcher(host.mainLoop(), signals, arguments.watchFd);
        host.mainLoop().run();
    }
    port.reset();  // removes the socket before the process ends
    ::close(signals);
    return 0;
}

const RegisterCommand registerReceiver(90, [](CLI::App& app, GlobalOptions& options) {
    auto arguments = std::make_shared<ReceiverArguments>();
    CLI::App* command = app.add_subcommand(
        "receiver",
        "Run the simulated device's event receiver for the root: serve the injection port and write "
        "every touch and key event to the HID trace, until SIGTERM or SIGINT");
    command->add_option("--trace", arguments->trace,
                        "JSON-lines file the dispatched events are appended to; default ROOT/hid-trace.jsonl");
    command->add_option("--watch-fd", arguments->watchFd,
                        "End when this inherited descriptor reaches end of file (used by tactora itself)")
        ->group("");
    command->callback([&options, arguments] { options.exitCode = runReceiver(options, *arguments); });
});

}  // namespace

}  // namespace tactora::cli
