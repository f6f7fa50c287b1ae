// tactora sim: the browser simulator. Runs the system as `tactora run` does, on a simulated
// device whose screen comes from a scene, and serves a page that shows the phone, its buttons,
// the panels and alerts, the touches of a playing script and the log. With --headless it serves
// nothing and only plays --run, which is how the demo runs unattended.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <thread>

#include "Command.h"
#include "Control/ScriptManager.h"
#include "Models/Global.h"
#include "Models/PlaySettings.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/ControlApi.h"
#include "host/DemoScene.h"
#include "host/HostPaths.h"
#include "host/HostPlatform.h"
#include "host/MainLoop.h"
#include "host/ReceiverProcess.h"
#include "host/RunFile.h"
#include "host/SceneFile.h"
#include "host/SimServer.h"
#include "host/SimulatedDisplay.h"
#include "host/Simulator.h"
#include "host/SpringBoardHost.h"

namespace tactora::cli {

namespace {

namespace fs = std::filesystem;

struct SimOptions {
    std::string scene;  // scene JSON or PNG; empty: the demo scene under the root
    std::string host = "127.0.0.1";
    int port = 7914;
    std::string run;    // a script to play once the page is open (or at once, headless)
    bool headless = false;
    std::string expectScreen;
    std::string trace;  // empty: ROOT/hid-trace.jsonl
};

void simulate(GlobalOptions& options, const SimOptions& sim) {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    // The scene chooses the device, so it is read before the platform is made.
    std::string sceneFile = sim.scene, error;
    if (sceneFile.empty()) {
        sceneFile = (fs::path(host::chooseRoot(options.host.root)) / "demo-scene" / "scene.json").string();
        if (!fs::exists(sceneFile) && !host::writeDemoScene(fs::path(sceneFile).parent_path().string(), error)) {
            std::fprintf(stderr, "tactora sim: %s\n", error.c_str());
            options.exitCode = 1;
            return;
        }
    }
    auto sceneDescription = host::loadSceneOrImage(sceneFile, error);
    if (!sceneDescription) {
        std::fprintf(stderr, "tactora sim: %s\n", error.c_str());
        options.exitCode = 1;
        return;
    }
    if (!sceneDescription->device.empty()) options.host.device = sceneDescription->device;
    host::SceneState scene(std::move(*sceneDescription));

    host::HostPlatform platformHost(options.host);
    host::MainLoop& loop = platformHost.mainLoop();
    const host::DeviceProfile profile = platformHost.display().profile();
    const std::string root = platformHost.root();
    const std::string trace = sim.trace.empty() ? (fs::path(root) / "hid-trace.jsonl").string() : sim.trace;

    auto receiver = host::ensureReceiver(root, profile.name, trace, error);
    if (!receiver) {
        std::fprintf(stderr, "tactora sim: no receiver for the touches: %s\n", error.c_str());
        options.exitCode = 1;
        return;
    }

    host::SpringBoardHost springBoard(loop, platform().paths->map(host::eventRegistryDevicePath),
                                      sim.headless ? &std::cout : nullptr);
    platform().apps = &scene;  // apps named in the scene answer appRun, appKill and appIsActive
    host::ControlApi api(springBoard);
    host::SimController controller{
        [&api](const std::string& method, const std::string& path, const nlohmann::json& body) {
            auto reply = api.handle(method, path, body);
            return std::pair{reply.status, reply.body};
        },
        [&api] { return api.state(); }};

    host::SimServer server({sim.host, sim.port});
    host::Simulator simulator(loop, scene, profile, server, controller,
                              {trace, platform().paths->map(devicepaths::logFile)});
    platformHost.display().setFrameSource(simulator.frames());
    if (!sim.headless) {
        if (!server.start(error)) {
            std::fprintf(stderr, "tactora sim: %s (choose another with --port)\n", error.c_str());
            options.exitCode = 1;
            return;
        }
        std::cout << "Tactora simulator: open " << server.url() << std::endl;
        // The simulator answers the control API's requests too, so `tactora event` can reach it.
        if (!host::writeRunFile({server.port(), static_cast<long>(::getpid())}))
            std::fprintf(stderr, "tactora sim: cannot write %s; `tactora event` needs --port\n",
                         host::runFilePath().c_str());
    }

    std::atomic<bool> runEnded{false};
    ScriptManager::setFinishedObserver([&] {
        runEnded = true;
        if (sim.headless) loop.quit();
    });
    loop.post([&] {
        if (!springBoard.start()) {
            std::fprintf(stderr, "tactora sim: the controller did not start\n");
            options.exitCode = 1;
            loop.quit();
            return;
        }
        simulator.startWatching();
        if (sim.headless) {
            if (sim.run.empty() || !host::playScriptOnce(sim.run)) {
                std::fprintf(stderr, "tactora sim: --headless needs a script to --run\n");
                options.exitCode = 1;
                loop.quit();
                return;
            }
        }
    });
    std::atomic<bool> ending{false};
    std::thread starter;
    if (!sim.headless && !sim.run.empty()) {
        // A person is to watch the run: wait until a page is open and has had time to draw the phone.
        starter = std::thread([&] {
            while (!ending && server.streamCount() == 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
            for (int i = 0; i < 15 && !ending; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (!ending) loop.post([&] { host::playScriptOnce(sim.run); });
        });
    }
    std::thread([&loop, &stopSignals] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        loop.quit();
    }).detach();

    loop.run();
    ending = true;
    if (starter.joinable()) starter.join();
    if (Global::sharedInstance().isPlaying()) {
        ScriptManager::stopPlaying();
        loop.runUntil([] { return !Global::sharedInstance().isPlaying(); }, std::chrono::seconds(5));
    }
    ScriptManager::setFinishedObserver(nullptr);
    simulator.stopWatching();
    server.stop();
    if (auto running = host::readRunFile(); running && running->pid == ::getpid()) host::removeRunFile();

    if (sim.headless) {
        std::cout << "screen: " << scene.currentScreen() << "\ntrace: " << trace << std::endl;
        if (!runEnded) options.exitCode = 1;
        if (!sim.expectScreen.empty() && scene.currentScreen() != sim.expectScreen) {
            std::fprintf(stderr, "tactora sim: the run ended on screen \"%s\", not \"%s\"\n",
                         scene.currentScreen().c_str(), sim.expectScreen.c_str());
            options.exitCode = 1;
        }
    }
}

const RegisterCommand registration(70, [](CLI::App& app, GlobalOptions& options) {
    static SimOptions sim;
    CLI::App* command = app.add_subcommand(
        "sim", "Serve the browser simulator: the phone, its buttons, panels, touches and log (see docs/simulator.md)");
    command->add_option("--scene", sim.scene, "Scene file (JSON) or PNG picture for the screen; default: the demo scene");
    command->add_option("--host", sim.host, "Address to serve on")->capture_default_str();
    command->add_option("--port", sim.port, "Port to serve on (0: any free port)")->capture_default_str();
    command->add_option("--run", sim.run, "Play this script once (a title in the scripts directory, or a path) "
                                          "when the page is open");
    command->add_flag("--headless", sim.headless, "Serve no page: play --run, then exit");
    command->add_option("--expect-screen", sim.expectScreen,
                        "With --headless: exit with status 1 unless the scene ends on this screen");
    command->add_option("--trace", sim.trace, "The receiver's HID trace to follow; default: ROOT/hid-trace.jsonl");
    command->callback([&options] { simulate(options, sim); });
});

}  // namespace

}  // namespace tactora::cli
