// tactora play: plays a script on the simulated device the way the device's runner does, with the
// receiver process taking the touches, alerts on the console and Ctrl-C as the stop trigger.
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "Command.h"
#include "Password.h"
#include "PlayValues.h"
#include "Control/ScriptManager.h"
#include "Managers/DataManager.h"
#include "Managers/Encrypt.h"
#include "Managers/FileManager.h"
#include "Models/Global.h"
#include "Models/PlaySettings.h"
#include "Platform/Alerts.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/ConsoleAlerts.h"
#include "host/HostAlerts.h"
#include "host/HostFeedback.h"
#include "host/HostPlatform.h"
#include "host/MainLoop.h"
#include "host/ReceiverProcess.h"
#include "host/SimulatedApps.h"

namespace tactora::cli {

namespace {

// Unset numbers come from the play settings stored for the script (when it lies in the scripts
// directory), else from the defaults: once, one second apart, normal speed.
struct PlayOptions {
    std::string script;
    std::optional<long> repeat;
    std::optional<long> interval;
    std::optional<float> speed;
    PasswordSource password;
    std::string trace;
};

// The settings the device's controller would fill in for this script; an error text when the
// script cannot be played.
std::string fillSettings(const PlayOptions& options, PlaySettings& settings) {
    namespace fs = std::filesystem;
    std::error_code error;
    // A path as given, else a title in the scripts directory, as the control panel lists them.
    const fs::path scripts = platform().paths->map(devicepaths::scriptsDirectory);
    fs::path path = fs::absolute(options.script, error);
    if (!fs::exists(path, error) && FileManager::isScriptTitle(options.script)) path = scripts / options.script;
    if (!fs::is_regular_file(path, error)) {
        return "no such script: " + options.script +
               (FileManager::isScriptTitle(options.script)
                    ? " (neither a file here nor a title in " + scripts.string() + "; tactora scripts lists them)"
                    : std::string());
    }
    const std::string title = path.filename().string();
    std::shared_ptr<PlaySettings> stored;
    if (std::filesystem::equivalent(path.parent_path(), scripts, error) &&
        std::filesystem::exists(DataManager::dataFilePath())) {
        stored = DataManager::findPlaySettingsByScriptTitle(title);
    }
    PlaySettings defaults;
    const PlaySettings& base = stored ? *stored : defaults;
    settings.setScriptTitle(title);
    settings.setScriptPath(path.string());
    settings.setRepeatTime(options.repeat.value_or(base.repeatTime()));
    settings.setRepeatInterval(options.interval.value_or(base.repeatInterval()));
    settings.setPlaySpeed(options.speed.value_or(base.playSpeed()));
    settings.setPlayNowOrLater(0);
    const std::string extension = FileManager::lowerCasedExtension(path.string());
    if (extension == "lua") {
        settings.setPlayType(0);
        return {};
    }
    if (extension == "e") {
        std::optional<std::string> password = options.password.choose(false);
        if (!password) return "an encrypted script needs its password";
        auto text = Encrypt::decryptScript(path.string(), *password);
        if (!text) return "cannot decrypt " + path.filename().string() + ": wrong password or damaged file";
        settings.setPlayType(1);
        settings.setScriptContent(std::move(*text));
        return {};
    }
    return "not a script (the name must end in .lua or .e): " + options.script;
}

// Ctrl-C (or SIGTERM) asks the run to stop, which ends it at once wherever its script is. A second
// one ends the process without the finishing step, should anything still hold the run. The
// signals are taken by a thread of their own, so the stop request runs as ordinary code, not in a
// handler.
class StopOnSignal {
public:
    StopOnSignal() {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        thread_ = std::thread([this] {
            int signal = 0;
            for (int seen = 0;; ++seen) {
                if (sigwait(&signals_, &signal) != 0) continue;
                if (done_.load()) return;
                if (seen > 0) _exit(130);
                std::fprintf(stderr, "\nstopping\n");
                ScriptManager::stopPlaying();
            }
        });
    }
    ~StopOnSignal() {
        done_.store(true);
        pthread_kill(thread_.native_handle(), SIGTERM);
        thread_.join();
        pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
    }

private:
    sigset_t signals_;
    std::atomic<bool> done_{false};
    std::thread thread_;
};

std::string title(const PlaySettings& settings) { return settings.scriptTitle().value_or(std::string()); }

int play(GlobalOptions& global, const PlayOptions& options) {
    host::HostPlatform host(global.host);
    // As at the device's start-up: the log and the scripts have their directories.
    FileManager::prepareDirectories();
    auto settings = std::make_shared<PlaySettings>();
    if (std::string problem = fillSettings(options, *settings); !problem.empty()) {
        std::fprintf(stderr, "tactora play: %s\n", problem.c_str());
        return 2;
    }

    // Alerts print on the console; nobody answers them, and none of the run's alerts waits for
    // an answer.
    host::HostAlerts alerts;
    alerts.onShow = [](const host::HostAlerts::OpenAlert& open) {
        std::printf("%s\n", host::alertLine(open.request, open.id).c_str());
        std::fflush(stdout);
    };
    platform().alerts = &alerts;
    // What the simulated apps do is the device's business; shown only when asked for.
    if (global.host.verbose) {
        host.apps().setTraceSink([](const std::string& line) { std::fprintf(stderr, "[%s]\n", line.c_str()); });
    }

    std::string receiverProblem;
    auto receiver = host::ensureReceiver(host.root(), global.host.device, options.trace, receiverProblem);
    if (!receiver) {
        std::fprintf(stderr, "tactora play: no receiver for the touches: %s\n", receiverProblem.c_str());
        return 1;
    }
    if (!receiver->startedHere() && !options.trace.empty()) {
        std::fprintf(stderr, "tactora play: a receiver already serves this root; it writes its own trace, not %s\n",
                     options.trace.c_str());
    }

    // After the receiver is running (it must not inherit blocked signals), before the run's thread
    // starts (which must).
    StopOnSignal stopOnSignal;
    const bool terminal = isatty(STDERR_FILENO) == 1;
    const long repeat = settings->repeatTime();
    ScriptManager::setPassObserver([terminal, repeat](std::uint64_t pass) {
        if (!terminal) return;
        if (repeat > 0) {
            std::fprintf(stderr, "pass %llu of %ld\n", static_cast<unsigned long long>(pass), repeat);
        } else {
            std::fprintf(stderr, "pass %llu (until Ctrl-C)\n", static_cast<unsigned long long>(pass));
        }
    });
    // A pass that ends in an error fails the command, so that a script can guard a build.
    std::atomic<std::uint64_t> failedPasses{0};
    ScriptManager::setFailureObserver([&failedPasses](const std::string&) { failedPasses.fetch_add(1); });
    host::MainLoop& loop = host.mainLoop();
    ScriptManager::setFinishedObserver([&loop] { loop.quit(); });

    Global::sharedInstance().setCurrentPlaySettings(settings);
    loop.post([] { ScriptManager::runScript(); });
    loop.run();

    ScriptManager::setPassObserver(nullptr);
    ScriptManager::setFinishedObserver(nullptr);
    ScriptManager::setFailureObserver(nullptr);
    if (const std::uint64_t failed = failedPasses.load()) {
        std::fprintf(stderr, "tactora play: %llu pass%s of %s ended in an error (see above and the log)\n",
                     static_cast<unsigned long long>(failed), failed == 1 ? "" : "es", title(*settings).c_str());
        return 1;
    }
    return 0;
}

void setup(CLI::App& app, GlobalOptions& global) {
    auto options = std::make_shared<PlayOptions>();
    CLI::App* command = app.add_subcommand(
        "play", "Play a script on the simulated device; exits with 1 when a pass ends in an error");
    command->add_option("script", options->script,
                        "The script: a .lua file or an encrypted .e file, by its path or by its title in the "
                        "scripts directory (as tactora scripts lists it)")
        ->required();
    command->add_option("--repeat", options->repeat,
                        "Times to play, 0 or more; 0 plays until Ctrl-C (default: the stored settings, else 1)")
        ->check(repeatTimeCheck("--repeat"));
    command->add_option("--interval", options->interval,
                        "Whole seconds between two passes, 0 to 1000000 (default: the stored settings, else 1)")
        ->check(repeatIntervalCheck("--interval"));
    command->add_option("--speed", options->speed,
                        "Play speed from 0.1 to 1.9: pauses last (2 - speed) times as long "
                        "(default: the stored settings, else 1)")
        ->check(playSpeedCheck("--speed"));
    options->password.addOptions(*command);
    command->add_option("--trace", options->trace,
                        "File the simulated device writes the events it received to (JSON lines)");
    command->callback([&global, options] { global.exitCode = play(global, *options); });
}

RegisterCommand registration(20, setup);

}  // namespace

}  // namespace tactora::cli
