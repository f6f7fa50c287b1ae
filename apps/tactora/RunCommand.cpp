// tactora run: the system as it lives in SpringBoard, on the simulated device. It loads the
// controller, shows panels and alerts on the console and serves the control API until it is
// interrupted.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <thread>

#include "Command.h"
#include "Control/ScriptManager.h"
#include "Models/Global.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/ControlApi.h"
#include "host/MainLoop.h"
#include "host/ReceiverProcess.h"
#include "host/RunFile.h"
#include "host/SpringBoardHost.h"

namespace tactora::cli {

namespace {

struct RunOptions {
    int port = 7913;
    bool console = true;
    std::string trace;
};

const char* consoleHelp =
    "commands: event NAME [MODE] | state | press INDEX [TEXT] (the newest alert) | quit";

// One console line, on the main loop.
void consoleCommand(host::ControlApi& api, host::MainLoop& loop, const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    if (verb.empty()) return;
    host::ApiReply reply;
    if (verb == "event") {
        std::string name, mode = "springboard";
        words >> name >> mode;
        reply = api.handle("POST", "/api/event", {{"name", name}, {"mode", mode}});
        if (reply.status == 200) {
            std::cout << (reply.body["handled"].get<bool>() ? "handled\n" : "not handled: left to the system\n");
            return;
        }
    } else if (verb == "state") {
        reply = api.handle("GET", "/api/state", nlohmann::json::object());
    } else if (verb == "press") {
        int index = 0;
        words >> index;
        std::string text;
        std::getline(words >> std::ws, text);
        reply = api.handle("POST", "/api/alert/button", {{"index", index}, {"text", text}});
        if (reply.status == 200) return;
    } else if (verb == "quit") {
        loop.quit();
        return;
    } else {
        std::cout << consoleHelp << "\n";
        return;
    }
    std::cout << reply.body.dump(2) << "\n";
}

void run(GlobalOptions& options, const RunOptions& run) {
    // Interrupts are taken by one thread of our own, so every thread started below inherits the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    host::HostPlatform host(options.host);
    host::MainLoop& loop = host.mainLoop();
    if (auto running = host::readRunFile()) {
        std::fprintf(stderr, "tactora: a system already runs on this root (process %ld, port %d)\n", running->pid,
                     running->port);
        options.exitCode = 1;
        return;
    }
    // backboardd's half: a receiver already serving this root, or one of our own that ends with us.
    std::string problem;
    std::string trace = run.trace.empty() ? host.root() + "/hid-trace.jsonl" : run.trace;
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(trace).parent_path(), ignored);
    auto receiver = host::ensureReceiver(host.root(), options.host.device, trace, problem);
    if (!receiver) {
        std::fprintf(stderr, "tactora: no receiver for the touches: %s\n", problem.c_str());
        options.exitCode = 1;
        return;
    }
    host::SpringBoardHost springBoard(loop, platform().paths->map(host::eventRegistryDevicePath), &std::cout);
    host::ControlApi api(springBoard);
    if (!api.start("127.0.0.1", run.port)) {
        std::fprintf(stderr, "tactora: cannot serve the control API on 127.0.0.1:%d\n", run.port);
        options.exitCode = 1;
        return;
    }
    if (!host::writeRunFile({api.port(), static_cast<long>(::getpid())}))
        std::fprintf(stderr, "tactora: cannot write %s; `tactora event` needs --port\n", host::runFilePath().c_str());

    loop.post([&] {
        if (!springBoard.start()) {
            std::fprintf(stderr, "tactora: the controller did not start\n");
            loop.quit();
            return;
        }
        std::cout << "Tactora runs on " << host.root() << "; control API on http://127.0.0.1:" << api.port()
                  << "/api/state" << std::endl;
        if (run.console) std::cout << consoleHelp << std::endl;
    });

    std::thread([&loop, &stopSignals] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        loop.quit();
    }).detach();
    if (run.console) {
        // Reads until end of input; the thread is left behind when the system quits first.
        std::thread([&loop, &api] {
            std::string line;
            while (std::getline(std::cin, line)) loop.post([&api, &loop, line] { consoleCommand(api, loop, line); });
        }).detach();
    }

    loop.run();
    // A run in progress is stopped, which ends it at once, and its finishing step is waited for:
    // until then the run's thread still uses the device torn down below.
    if (Global::sharedInstance().luaBridge()) {
        ScriptManager::stopPlaying();
        loop.runUntil([] { return !Global::sharedInstance().luaBridge(); }, std::chrono::seconds(5));
    }
    api.stop();
    receiver.reset();
    host::removeRunFile();
    std::cout << "Tactora stopped" << std::endl;
}

const RegisterCommand registration(60, [](CLI::App& app, GlobalOptions& options) {
    static RunOptions runOptions;
    CLI::App* command = app.add_subcommand(
        "run", "Run the system as SpringBoard would, with a console and a control API (see docs/control-api.md)");
    command->add_option("--port", runOptions.port, "Port of the control API on 127.0.0.1 (0: any free port)")
        ->capture_default_str();
    command->add_option("--trace", runOptions.trace,
                        "HID trace of the receiver this command starts (default: ROOT/hid-trace.jsonl)");
    command->add_flag("!--no-console", runOptions.console, "Do not read commands from standard input");
    command->callback([&options] { run(options, runOptions); });
});

}  // namespace

}  // namespace tactora::cli
