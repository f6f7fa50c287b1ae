// Requests to the simulator's JSON API ("<route>\n<body>", the route after /api/, NUL between
// requests), as anything past the origin check could send, with the real controller behind them.
// Every answer is a JSON object with status 200, 400, 404 or 409 and a reason with each refusal;
// the controller's state still reads, and no run, recording or panel outlives the input.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "Control/ScriptManager.h"
#include "Kernel/Recorder.h"
#include "Models/Global.h"
#include "Platform/Clock.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/ControlApi.h"
#include "host/HostClock.h"
#include "host/HostPlatform.h"
#include "host/MainLoop.h"
#include "host/SceneFile.h"
#include "host/SimServer.h"
#include "host/Simulator.h"
#include "host/SpringBoardHost.h"

using namespace tactora;
using namespace tactora::host;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

// Host time, but pauses return at once: a script that loops or sleeps must not slow the fuzzer.
class InstantClock final : public Clock {
public:
    std::uint64_t absoluteTime() const override { return host.absoluteTime(); }
    std::tm localNow() const override { return host.localNow(); }
    void sleepMicroseconds(std::uint32_t) override {}
    bool sleepMicrosecondsUnless(std::uint32_t, const std::function<bool()>& stopped) override { return !stopped(); }

private:
    HostClock host;
};

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        __builtin_trap();
    }
}

struct World {
    fs::path root = [] {
        // In memory when it can be: the store and the defaults flush to disk on every change.
        char pattern[] = "/dev/shm/tactora-fuzz-sim-XXXXXX";
        if (!std::filesystem::is_directory("/dev/shm")) std::strcpy(pattern, "/tmp/tactora-fuzz-sim-XXXXXX");
        if (!mkdtemp(pattern)) std::abort();
        return fs::path(pattern);
    }();
    HostPlatform host{HostOptions{root.string()}};
    InstantClock clock;
    std::optional<SceneState> scene;
    std::thread loopThread;

    World() {
        platform().clock = &clock;
        for (const char* name : {"home.png", "app.png"}) std::ofstream(root / name) << "\x89PNG\r\n\x1a\n";
        std::string error;
        auto file = parseScene(R"({"start":"home","screens":[)"
                               R"({"name":"home","image":"home.png","taps":[{"x":0,"y":0,"width":100,"height":100,"show":"app"}]},)"
                               R"({"name":"app","image":"app.png","app":"com.example.notes"}],)"
                               R"("apps":[{"bundleId":"com.example.notes","screen":"app"}]})",
                               root.string(), error);
        if (!file) std::abort();
        scene.emplace(std::move(*file));
        platform().apps = &*scene;
        loopThread = std::thread([this] { host.mainLoop().run(); });
    }
    ~World() {
        host.mainLoop().quit();
        loopThread.join();
    }
};

World& world() {
    static World* instance = new World;  // lives as long as the process: its loop thread runs on
    return *instance;
}

// Runs `work` on the main loop and waits for it.
template <class Work>
void onLoop(Work work) {
    auto done = std::make_shared<std::promise<void>>();
    auto finished = done->get_future();
    world().host.mainLoop().post([&, done] { work(); done->set_value(); });
    finished.wait();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    World& w = world();
    Global::sharedInstance().reset();
    auto springBoard = std::make_unique<SpringBoardHost>(w.host.mainLoop(), (w.root / "registry.json").string(), nullptr);
    bool started = false;
    onLoop([&] { started = springBoard->start() != nullptr; });
    check(started, "the controller starts");
    auto api = std::make_unique<ControlApi>(*springBoard);
    SimController controller{[&](const std::string& method, const std::string& path, const json& body) {
                                 auto reply = api->handle(method, path, body);
                                 return std::pair{reply.status, reply.body};
                             },
                             [&] { return api->state(); }};
    SimServer server({"127.0.0.1", 0});  // never started: requests go straight to the routes
    auto simulator = std::make_unique<Simulator>(w.host.mainLoop(), *w.scene, w.host.display().profile(), server,
                                                 controller, Simulator::Options{});

    const std::string input(reinterpret_cast<const char*>(data), size);
    std::size_t start = 0;
    for (int requests = 0; start <= input.size() && requests < 32; ++requests) {
        std::size_t end = input.find('\0', start);
        if (end == std::string::npos) end = input.size();
        const std::string request = input.substr(start, end - start);
        start = end + 1;
        const std::size_t newline = std::min(request.find('\n'), request.size());
        auto [status, answer] = server.answerPost(request.substr(0, newline), request.substr(std::min(newline + 1, request.size())));
        check(status == 200 || status == 400 || status == 404 || status == 409, "a client status");
        check(answer.is_object(), "an object answer");
        if (status != 200) check(answer.contains("error") && answer["error"].is_string(), "a reason with a refusal");
        json state;
        onLoop([&] { state = api->state(); });
        check(state.is_object() && state.contains("flags"), "the state reads");
    }

    // Undo what the requests started: a recording, a run. Then the controller goes away.
    onLoop([&] {
        if (Global::sharedInstance().isRecording()) stopRecording();
        if (Global::sharedInstance().isPlaying()) ScriptManager::stopPlaying();
    });
    for (int wait = 0; Global::sharedInstance().luaBridge(); ++wait) {
        check(wait < 5000, "a stopped run ends");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    onLoop([&] {
        simulator.reset();
        api.reset();
        springBoard.reset();
    });
    std::error_code ignored;
    fs::remove_all(platform().paths->map(devicepaths::scriptsDirectory), ignored);
    return 0;
}
