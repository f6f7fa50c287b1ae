// tactora doctor: the self-test against the simulated device. Starts the root as SpringBoard's
// start-up would (directories, store, default triggers), makes sure a receiver serves it (as
// `tactora play` does), runs every check and prints one line per check, or JSON.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "Command.h"
#include "Control/ActivatorManager.h"
#include "Control/SelfTest.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"
#include "Platform/Installation.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/DemoScene.h"
#include "host/HostEventRegistry.h"
#include "host/HostInstallation.h"
#include "host/HostPlatform.h"
#include "host/ReceiverProcess.h"
#include "host/SimulatedDisplay.h"
#include "host/SpringBoardHost.h"

namespace tactora::cli {

namespace {

struct DoctorOptions {
    bool json = false;
    double timeout = 1.0;
};

// Without --screen the simulated screen is black, which the capture check rightly calls blank:
// show the demo's home screen instead, drawn into a scratch directory.
void showDemoHomeScreen(host::SimulatedDisplay& display) {
    char pattern[] = "/tmp/tactora-doctor-XXXXXX";
    if (!::mkdtemp(pattern)) return;
    std::string error;
    if (host::writeDemoScene(pattern, error)) {
        if (auto frame = host::loadFrame(std::string(pattern) + "/home.png", error)) {
            display.setFrameSource(host::sequenceOfFrames({frame}));
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(pattern, ignored);
}

// What SpringBoard's half does when it loads: each directory on its own (one that cannot be made
// does not keep the other from being made), the store, and the default triggers once the store
// is sound (a damaged store is left as it is, and the registry is not "repaired" against it).
void startLikeSpringBoard() {
    std::error_code ignored;
    std::filesystem::create_directories(FileManager::scriptsDirectoryPath(), ignored);
    std::filesystem::create_directories(FileManager::libraryDirectoryPath(), ignored);
    if (std::filesystem::is_directory(FileManager::libraryDirectoryPath(), ignored) &&
        !std::filesystem::exists(DataManager::dataFilePath(), ignored)) {
        DataManager::initDb();
    }
    if (checkStore().passed) ActivatorManager::initControlActions();
}

int doctor(GlobalOptions& global, const DoctorOptions& options) {
    host::HostPlatform host(global.host);
    if (global.host.screens.empty()) showDemoHomeScreen(host.display());
    host::HostInstallation installation(host.root(), global.host.device);
    platform().installation = &installation;
    host::HostEventRegistry registry(platform().paths->map(host::eventRegistryDevicePath));
    platform().eventRegistry = &registry;

    std::error_code ignored;
    std::filesystem::create_directories(host.root(), ignored);
    startLikeSpringBoard();

    SelfTestReport report;
    std::string problem;
    auto receiver = host::ensureReceiver(host.root(), global.host.device, "", problem);
    if (receiver) {
        report.add(checkReceiver(options.timeout));
    } else {
        report.add(SelfTestCheck::fail("receiver", "no receiver",
                                       "the simulated backboardd (`tactora receiver`) could not start for this "
                                       "root: " + problem));
    }
    // The simulated device has no RocketBootstrap: its ports need none.
    report.append(runSpringBoardChecks(false));

    const std::string out = options.json ? report.json() : report.text();
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fflush(stdout);
    return report.exitStatus();
}

const RegisterCommand registration(95, [](CLI::App& app, GlobalOptions& global) {
    auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = app.add_subcommand(
        "doctor",
        "Check every part of the system on the simulated device: one line per check, exit status 0 "
        "only when all pass");
    command->add_flag("--json", options->json, "Print the checks as one JSON object");
    command->add_option("--timeout", options->timeout, "Seconds to wait for the receiver's answer")
        ->check(CLI::Range(0.01, 600.0))
        ->capture_default_str();
    command->callback([&global, options] { global.exitCode = doctor(global, *options); });
});

}  // namespace

}  // namespace tactora::cli
