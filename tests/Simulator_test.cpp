#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "FoundationFakes.h"
#include "Platform/EventRegistry.h"
#include "Platform/Platform.h"
#include "host/DeviceProfiles.h"
#include "host/HostPaths.h"
#include "host/MainLoop.h"
#include "host/PngCodec.h"
#include "host/SceneFile.h"
#include "host/Simulator.h"

using namespace tactora::host;
using nlohmann::json;
namespace fs = std::filesystem;

TEST(Simulator, TurnsTraceLinesIntoTouchesInPoints) {
    const DeviceProfile se = *findDeviceProfile("iphone-se");        // 2x: fractions of 320 x 568
    const DeviceProfile plus = *findDeviceProfile("iphone-8-plus");  // 3x: fractions of 1242 x 2208
    auto down = pageEventFromTraceLine(
        R"({"t_us":1500000,"kind":"digitizer","fingers":[{"index":1,"x":0.5,"y":0.25,"touch":true},)"
        R"({"index":4294967289,"x":0.125,"y":1,"touch":false}]})",
        se);
    ASSERT_TRUE(down);
    EXPECT_EQ((*down)["kind"], "touch");
    EXPECT_DOUBLE_EQ((*down)["time"].get<double>(), 1.5);
    EXPECT_EQ((*down)["fingers"][0], (json{{"index", 1}, {"x", 160.0}, {"y", 142.0}, {"touch", true}}));
    EXPECT_EQ((*down)["fingers"][1], (json{{"index", -7}, {"x", 40.0}, {"y", 568.0}, {"touch", false}}));

    auto big = pageEventFromTraceLine(R"({"kind":"digitizer","fingers":[{"index":2,"x":0.1234,"y":0.1,"touch":true}]})", plus);
    ASSERT_TRUE(big);
    // Fractions of 1242 pixels, as the receiver scaled them, kept to two decimals.
    EXPECT_DOUBLE_EQ((*big)["fingers"][0]["x"].get<double>(), 153.26);

    auto home = pageEventFromTraceLine(R"({"t_us":10,"kind":"keyboard","usage_page":12,"usage":64,"down":true})", se);
    ASSERT_TRUE(home);
    EXPECT_EQ((*home)["key"], "home");
    EXPECT_EQ((*home)["down"], true);

    for (const char* line : {"", "not json", "[]", R"({"kind":"keyboard","usage_page":7,"usage":4,"down":true})",
                             R"({"kind":"digitizer","fingers":[]})", R"({"kind":"digitizer","fingers":[{"index":1}]})",
                             R"({"kind":"digitizer","fingers":[{"index":1,"x":null,"y":0.2}]})", R"({"kind":"mouse"})"})
        EXPECT_FALSE(pageEventFromTraceLine(line, se)) << line;
}

namespace {

void writePixel(const fs::path& path, std::uint8_t red) {
    const std::uint8_t pixel[4] = {red, 0, 0, 255};
    auto png = PngCodec().encodePng(pixel, 1, 1, 4);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(png->data()), png->size());
}

// A simulator on a two-screen scene, with a recording fake controller and a main loop of its own.
struct RunningSimulator {
    tactora::testing::ScratchDirectory scratch;
    fs::path dir = scratch.path();
    tactora::ScopedPlatform scope;
    HostPaths paths{dir.string()};  // the script list reads the scripts directory and the store under here
    std::vector<std::pair<std::string, json>> requests;  // main loop only
    std::optional<SceneState> scene;
    MainLoop loop;
    SimServer server{SimServer::Options{}};
    std::unique_ptr<Simulator> simulator;
    std::thread loopThread;
    std::string origin;

    RunningSimulator() {
        tactora::platform().paths = &paths;
        writePixel(dir / "home.png", 10);
        writePixel(dir / "app.png", 200);
        std::string error;
        scene.emplace(*parseScene(R"({"screens": [
            {"name": "home", "image": "home.png", "taps": [{"x": 0, "y": 0, "width": 100, "height": 100, "show": "app"}]},
            {"name": "app", "image": "app.png", "app": "com.example.app"}],
            "apps": [{"bundleId": "com.example.app", "screen": "app"}]})",
                                  dir.string(), error));
        SimController controller{[this](const std::string& method, const std::string& path, const json& body) {
                                     requests.emplace_back(method + " " + path, body);
                                     if (path == "/api/event") return std::pair{200, json{{"handled", true}}};
                                     if (path == "/api/panel/control/record") return std::pair{409, json{{"error", "the control panel is not open"}}};
                                     return std::pair{200, json{{"delivered", 1}}};
                                 },
                                 [] { return json{{"flags", {{"isPlaying", false}}}}; }};
        simulator = std::make_unique<Simulator>(loop, *scene, *findDeviceProfile("iphone-se"), server, controller,
                                                Simulator::Options{(dir / "trace.jsonl").string(), ""});
        if (!server.start(error)) ADD_FAILURE() << error;
        origin = "http://127.0.0.1:" + std::to_string(server.port());
        loopThread = std::thread([this] { loop.run(); });
    }
    ~RunningSimulator() {
        server.stop();
        simulator.reset();
        loop.quit();
        loopThread.join();
    }
    httplib::Result post(const std::string& path, const json& body) {
        return httplib::Client("127.0.0.1", server.port()).Post("/api/" + path, {{"Origin", origin}}, body.dump(), "application/json");
    }
    httplib::Result get(const std::string& path) { return httplib::Client("127.0.0.1", server.port()).Get("/api/" + path, {{"Origin", origin}}); }
    // The controller's requests so far, read on the main loop.
    std::vector<std::pair<std::string, json>> seen() {
        std::promise<std::vector<std::pair<std::string, json>>> copy;
        loop.post([&] { copy.set_value(requests); });
        return copy.get_future().get();
    }
};

}  // namespace

TEST(Simulator, HandAndScriptTouchesReachTheSceneAndButtonsBecomeEvents) {
    RunningSimulator sim;
    auto down = sim.post("touch", {{"phase", "down"}, {"touches", {{{"finger", 1}, {"x", 50}, {"y", 60}}}}});
    ASSERT_TRUE(down && down->status == 200) << (down ? down->body : "no answer");
    EXPECT_EQ(sim.post("touch", {{"phase", "up"}, {"touches", {{{"finger", 1}, {"x", 52}, {"y", 61}}}}})->status, 200);
    EXPECT_EQ(sim.scene->currentScreen(), "app");  // the tap landed in the region that opens the app

    json body = json::parse(sim.get("state")->body);
    EXPECT_EQ(body["flags"]["isPlaying"], false);  // the controller's state, with the simulator's beside it
    EXPECT_EQ(body["sim"]["screen"]["name"], "app");
    EXPECT_EQ(body["sim"]["device"]["widthPoints"], 320);
    auto png = sim.get("screen.png");
    EXPECT_EQ(png->get_header_value("Content-Type"), "image/png");
    EXPECT_EQ(png->body, tactora::testing::readFile(sim.dir / "app.png"));

    EXPECT_EQ(sim.post("button", {{"button", "volume-down"}, {"action", "hold"}})->status, 200);
    EXPECT_EQ(sim.post("button", {{"button", "volume-down"}})->status, 200);
    EXPECT_EQ(sim.post("button", {{"button", "home"}})->status, 200);
    EXPECT_EQ(sim.scene->currentScreen(), "home");
    // A controller's refusal reaches the page with its status and reason.
    auto refused = sim.post("panel/control/record", json::object());
    EXPECT_EQ(refused->status, 409);
    EXPECT_NE(refused->body.find("not open"), std::string::npos);

    auto requests = sim.seen();
    ASSERT_EQ(requests.size(), 6u);
    EXPECT_EQ(requests[0].first, "POST /api/input");
    EXPECT_EQ(requests[0].second["touch"][0], (json{{"finger", 1}, {"phase", "down"}, {"x", 50}, {"y", 60}}));
    EXPECT_EQ(requests[1].second["touch"][0]["phase"], "up");
    EXPECT_EQ(requests[2], (std::pair<std::string, json>{"POST /api/event", {{"name", tactora::LAEventNameVolumeDownHoldShort}}}));
    EXPECT_EQ(requests[3].second["name"], tactora::LAEventNameVolumeDownPress);
    EXPECT_EQ(requests[4].second["events"][0]["home"], "down");
    EXPECT_EQ(requests[4].second["events"][1]["home"], "up");
    EXPECT_EQ(sim.post("button", {{"button", "power"}})->status, 400);
    EXPECT_EQ(sim.seen().size(), 6u);  // nothing refused went on to the controller

    // A script's touches in the trace switch screens, and its home press goes back.
    std::ofstream trace(sim.dir / "trace.jsonl", std::ios::app);
    trace << R"({"t_us":1,"kind":"digitizer","fingers":[{"index":1,"x":0.1,"y":0.1,"touch":true}]})" "\n"
          << R"({"t_us":2,"kind":"digitizer","fingers":[{"index":1,"x":0.1,"y":0.1,"touch":true}]})" "\n"
          << R"({"t_us":3,"kind":"digitizer","fingers":[{"index":1,"x":0.12,"y":0.1,"touch":false}]})" "\n"
          << std::flush;
    auto waitFor = [&](const char* screen) {
        for (int i = 0; i < 300 && sim.scene->currentScreen() != screen; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(sim.scene->currentScreen(), screen);
    };
    waitFor("app");
    trace << R"({"t_us":4,"kind":"keyboard","usage_page":12,"usage":64,"down":true})" "\n"
          << R"({"t_us":5,"kind":"keyboard","usage_page":12,"usage":64,"down":false})" "\n"
          << std::flush;
    waitFor("home");
}

// Regression (found by fuzz_sim_api): a touch lacking its fields read past the request body.
TEST(Simulator, ATouchWithoutItsFieldsIsRefusedNotReadPastTheBody) {
    RunningSimulator sim;
    for (const char* body : {R"({"phase":"down","touches":[{}]})", R"({"phase":"down","touches":[{"finger":1,"x":2}]})",
                             R"({"phase":"up","touches":[{"x":1,"y":2}]})", R"({"phase":"down","touches":[7]})",
                             R"({"phase":"down","touches":[{"finger":18446744073709551615,"x":1,"y":2}]})",
                             R"({"phase":"down","touches":[{"finger":-4294967295,"x":1,"y":2}]})",
                             R"({"phase":"lift","touches":[{"finger":1,"x":1,"y":1}]})", R"({"phase":"down","touches":[]})",
                             R"({"phase":"down","touches":[{"finger":0,"x":1,"y":1}]})",
                             R"({"phase":"down","touches":[{"finger":1,"x":"1","y":1}]})"}) {
        auto [status, answer] = sim.server.answerPost("touch", body);
        EXPECT_EQ(status, 400) << body;
        EXPECT_TRUE(answer["error"].is_string()) << body;
    }
    EXPECT_EQ(sim.scene->currentScreen(), "home");
    EXPECT_TRUE(sim.seen().empty());  // nothing refused went on to the controller
}
