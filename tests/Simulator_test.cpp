// Scene files, the live and the demo scene, the page's routes over a running server, authoring on 2x and 3x.
#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/evp.h>

#include <future>
#include <random>
#include <thread>

#include "FoundationFakes.h"
#include "Kernel/CaptureScreen.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/ScreenFunctions.h"
#include "Platform/EventRegistry.h"
#include "host/DemoScene.h"
#include "host/DeviceProfiles.h"
#include "host/HostPlatform.h"
#include "host/MainLoop.h"
#include "host/PngCodec.h"
#include "host/SceneFile.h"
#include "host/SimServer.h"
#include "host/SimulatedDisplay.h"
#include "host/Simulator.h"

using namespace tactora::host;
using nlohmann::json;
namespace fs = std::filesystem;
using tactora::testing::ScratchDirectory;

namespace {

void writePng(const fs::path& path, const std::vector<std::uint8_t>& rgba, int width, int height) {
    auto png = PngCodec().encodePng(rgba.data(), width, height, width * 4);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(png->data()), png->size());
}

// A scratch directory with three images; the scene only needs them to exist.
struct SceneDirectory : ScratchDirectory {
    SceneDirectory() {
        for (const char* name : {"a.png", "b.png", "c.png"}) std::ofstream(path() / name) << "\x89PNG\r\n\x1a\n";
    }
    std::optional<SceneFile> parse(const std::string& text, std::string& error) const { return parseScene(text, path().string(), error); }
};

}  // namespace

TEST(SceneFile, ReadsScreensTapsAndAppsAndTapsActOnlyDownAndUpInsideTheRegion) {
    SceneDirectory files;
    std::string error;
    auto scene = files.parse(R"({"screens": [
        {"name": "home", "image": "a.png", "taps": [{"x": 10, "y": 10, "width": 50, "height": 50, "show": "shop"}]},
        {"name": "shop", "image": "b.png", "app": "com.example.shop",
         "taps": [{"x": 0, "y": 100, "width": 320, "height": 40, "show": "cart"}]},
        {"name": "cart", "image": "c.png", "app": "com.example.shop"}],
      "apps": [{"bundleId": "com.example.shop", "screen": "shop"}, {"bundleId": "com.example.mail", "screen": "home"}]})",
                             error);
    ASSERT_TRUE(scene) << error;
    EXPECT_EQ(scene->start, "home");  // the first screen when the file names none
    ASSERT_EQ(scene->screens.size(), 3u);
    EXPECT_TRUE(scene->screens[0].taps.at(0).contains(10, 59.5));
    EXPECT_FALSE(scene->screens[0].taps[0].contains(60, 10));  // right edge is outside

    SceneState state(*scene);
    std::vector<std::string> shown;
    state.setOnChange([&](const std::string& name) { shown.push_back(name); });
    state.fingerDown(1, 20, 20), state.fingerUp(1, 200, 200);  // slid off the icon: no tap
    state.fingerDown(1, 200, 200), state.fingerUp(1, 20, 20);  // slid onto it: no tap either
    state.fingerUp(2, 20, 20);                                  // an up without a down
    EXPECT_EQ(state.currentScreen(), "home");
    EXPECT_TRUE(shown.empty());

    const auto before = state.version();
    state.fingerDown(1, 20, 20), state.fingerDown(2, 30, 30), state.fingerUp(1, 25, 25);
    EXPECT_EQ(state.currentImage(), (files.path() / "b.png").string());
    EXPECT_EQ(state.version(), before + 1);
    state.fingerUp(2, 5, 110);  // finger 2 went down on the home screen: nothing on the shop's region
    EXPECT_EQ(shown, std::vector<std::string>{"shop"});

    // Apps follow the screen they own.
    state.home();
    tactora::Apps& apps = state;
    EXPECT_FALSE(apps.isForeground("com.example.shop"));
    EXPECT_FALSE(apps.isForeground(""));
    apps.launch("com.unknown");
    EXPECT_EQ(state.currentScreen(), "home");
    apps.launch("com.example.shop"), state.fingerDown(1, 100, 120), state.fingerUp(1, 100, 120);
    EXPECT_EQ(state.currentScreen(), "cart");
    EXPECT_TRUE(apps.isForeground("com.example.shop"));  // the cart belongs to the shop too
    apps.launch("com.example.shop");                       // already in front: stays where it is
    apps.terminate("com.example.mail");                    // not in front: nothing changes
    EXPECT_EQ(state.currentScreen(), "cart");
    apps.terminate("com.example.shop");
    EXPECT_EQ(state.currentScreen(), "home");
    EXPECT_FALSE(state.show("nowhere"));
}

TEST(SceneFile, RefusesBrokenScenesAndSaysWhere) {
    SceneDirectory files;
    const auto oneScreen = [](const std::string& taps) {
        return R"({"screens": [{"name": "a", "image": "a.png", "taps": [{"show": "a", )" + taps + "}]}]}";
    };
    const std::pair<std::string, const char*> cases[] = {
        {"{", "not valid JSON"},
        {"[]", "JSON object"},
        {R"({"screens": []})", "scene.screens is empty"},
        {R"({"screens": [{"name": "a", "image": "missing.png"}]})", "scene.screens[0].image"},
        {R"({"screens": [{"name": "a", "image": "a.png"}, {"name": "a", "image": "b.png"}]})", "used twice"},
        {oneScreen(R"("x": 0, "y": 0, "width": 0, "height": 5)"), "taps[0] has no area"},
        {oneScreen(R"("x": "1", "y": 0, "width": 1, "height": 1)"), "taps[0].x must be a number"},
        {R"({"screens": [{"name": "a", "image": "a.png", "taps": [{"x": 0, "y": 0, "width": 1, "height": 1, "show": "b"}]}]})",
         "shows no screen: b"},
        {R"({"start": "b", "screens": [{"name": "a", "image": "a.png"}]})", "start names no screen"},
        {R"({"screens": [{"name": "a", "image": "a.png", "app": "x"}]})", "not in scene.apps"},
        {R"({"screens": [{"name": "a", "image": "a.png"}], "apps": [{"bundleId": "x", "screen": "z"}]})", "opens no screen"},
    };
    for (const auto& [text, expected] : cases) {
        std::string error;
        EXPECT_FALSE(files.parse(text, error)) << text;
        EXPECT_NE(error.find(expected), std::string::npos) << text << " gave: " << error;
    }
}

TEST(DemoScene, TheTemplateTheButtonAndTheTapsAgreeWithThePictures) {
    ScratchDirectory files;
    using namespace demoscene;
    std::string error;
    ASSERT_TRUE(writeDemoScene(files.file("demo"), error)) << error;
    auto scene = loadScene(files.file("demo/scene.json"), error);
    ASSERT_TRUE(scene) << error;
    auto picture = [&](const char* name) {
        const std::string bytes = tactora::testing::readFile(files.path() / "demo" / name);
        return PngCodec().decodePng(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    };
    const auto home = picture("home.png"), icon = picture("icon.png"), app = picture("app.png");
    ASSERT_TRUE(home && icon && app);
    EXPECT_EQ(std::pair(home->width, home->height), std::pair(std::uint64_t{640}, std::uint64_t{1136}));

    // The template occurs once, inside the icon's tap region; searches answer in two-pixel points.
    const std::int32_t noIgnore[] = {0};
    tactora::MatchListPtr found(tactora::findImage(home.get(), icon.get(), 0, noIgnore, 0.0f));
    ASSERT_TRUE(found && found->count == 1);
    const SceneTap& iconTap = scene->findScreen("home")->taps.at(0);
    EXPECT_TRUE(iconTap.contains(found->points[0].x, found->points[0].y));
    EXPECT_EQ(iconTap.show, scene->findApp(appBundleId)->screen);

    // The button's colour is found only inside the button, whose tap region shows "done".
    bool seen = false;
    for (std::uint64_t y = 0; y < app->height; ++y)
        for (std::uint64_t x = 0; x < app->width; ++x) {
            const std::uint8_t* p = app->data + y * app->bytesPerRow + x * app->bytesPerPixel;
            if ((std::uint32_t(p[0]) << 16 | p[1] << 8 | p[2]) != buttonColor) continue;
            seen = true;
            EXPECT_TRUE(scene->findScreen("app")->taps.at(0).contains(x / 2.0, y / 2.0)) << x << "," << y;
        }
    ASSERT_TRUE(seen);
    EXPECT_EQ(scene->findScreen("app")->taps.at(0).show, "done");
    EXPECT_EQ(scene->findScreen("done")->app, appBundleId);
}

TEST(Simulator, TurnsTraceLinesIntoTouchesInPoints) {
    const DeviceProfile se = *findDeviceProfile("iphone-se");        // 2x: fractions of 320 x 568
    const DeviceProfile plus = *findDeviceProfile("iphone-8-plus");  // 3x: fractions of 1242 x 2208
    EXPECT_EQ(pageEventFromTraceLine(R"({"t_us":1500000,"kind":"digitizer","fingers":[{"index":1,"x":0.5,"y":0.25,"touch":true},)"
                                     R"({"index":4294967289,"x":0.125,"y":1,"touch":false}]})", se).value_or(json()),
              (json{{"kind", "touch"}, {"time", 1.5}, {"fingers", {{{"index", 1}, {"x", 160.0}, {"y", 142.0}, {"touch", true}},
                                                                  {{"index", -7}, {"x", 40.0}, {"y", 568.0}, {"touch", false}}}}}));
    // Fractions of 1242 pixels, as the receiver scaled them, kept to two decimals.
    auto big = pageEventFromTraceLine(R"({"kind":"digitizer","fingers":[{"index":2,"x":0.1234,"y":0.1,"touch":true}]})", plus);
    EXPECT_DOUBLE_EQ(big.value_or(json())["fingers"][0]["x"].get<double>(), 153.26);
    EXPECT_EQ(pageEventFromTraceLine(R"({"t_us":10,"kind":"keyboard","usage_page":12,"usage":64,"down":true})", se).value_or(json()),
              (json{{"kind", "key"}, {"time", 1e-5}, {"key", "home"}, {"down", true}}));

    for (const char* line : {"", "not json", "[]", R"({"kind":"keyboard","usage_page":7,"usage":4,"down":true})",
                             R"({"kind":"digitizer","fingers":[]})", R"({"kind":"digitizer","fingers":[{"index":1}]})",
                             R"({"kind":"digitizer","fingers":[{"index":1,"x":null,"y":0.2}]})", R"({"kind":"mouse"})"})
        EXPECT_FALSE(pageEventFromTraceLine(line, se)) << line;
}

namespace {

std::string base64(const std::vector<std::uint8_t>& bytes) {
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), bytes.size()));
    return text;
}

// A simulator on two one-pixel screens with a recording controller; routes are asked directly or over HTTP.
struct Phone {
    ScratchDirectory scratch;
    fs::path dir = scratch.path();
    tactora::ScopedPlatform scope;
    HostPlatform host;
    std::vector<std::pair<std::string, json>> requests;  // main loop only
    std::optional<SceneState> scene;
    SimServer server{SimServer::Options{}};
    std::unique_ptr<Simulator> simulator;
    std::thread loopThread;

    explicit Phone(const std::string& device = "iphone-se")
        : host([&] { HostOptions options; options.root = dir.string(), options.device = device; return options; }()) {
        tactora::reset_screen_scale_factor();
        writePng(dir / "home.png", {10, 0, 0, 255}, 1, 1);
        writePng(dir / "app.png", {200, 0, 0, 255}, 1, 1);
        std::string error;
        scene.emplace(*parseScene(R"({"screens": [
            {"name": "home", "image": "home.png", "taps": [{"x": 0, "y": 0, "width": 100, "height": 100, "show": "app"}]},
            {"name": "app", "image": "app.png", "app": "com.example.app"}],
            "apps": [{"bundleId": "com.example.app", "screen": "app"}]})",
                                  dir.string(), error));
        auto answer = [this](const std::string& method, const std::string& path, const json& body) {
            requests.emplace_back(method + " " + path, body);
            if (path == "/api/event") return std::pair{200, json{{"handled", true}}};
            if (path == "/api/panel/control/record") return std::pair{409, json{{"error", "the control panel is not open"}}};
            return std::pair{200, json{{"delivered", 1}}};
        };
        Simulator::Options options{(dir / "trace.jsonl").string(), ""};
        options.safeFuzzyBudget = std::chrono::minutes(5);  // a loaded machine must not cut the search short
        simulator = std::make_unique<Simulator>(host.mainLoop(), *scene, host.display().profile(), server,
                                                SimController{answer, [] { return json{{"flags", {{"isPlaying", false}}}}; }}, options);
        host.display().setFrameSource(simulator->frames());
    }
    void start() {
        std::string error;
        ASSERT_TRUE(server.start(error)) << error;
        loopThread = std::thread([this] { host.mainLoop().run(); });
    }
    ~Phone() {
        if (loopThread.joinable()) server.stop();
        simulator.reset();
        if (loopThread.joinable()) host.mainLoop().quit(), loopThread.join();
        tactora::reset_screen_scale_factor();
    }
    std::pair<int, json> ask(const std::string& route, const json& body) { return server.answerPost(route, body.dump()); }
    httplib::Headers origin() const { return {{"Origin", "http://127.0.0.1:" + std::to_string(server.port())}}; }
    httplib::Result post(const std::string& path, const json& body) {
        return httplib::Client("127.0.0.1", server.port()).Post("/api/" + path, origin(), body.dump(), "application/json");
    }
    httplib::Result get(const std::string& path) { return httplib::Client("127.0.0.1", server.port()).Get("/api/" + path, origin()); }
    // The controller's requests so far, read on the main loop.
    std::vector<std::pair<std::string, json>> seen() {
        std::promise<std::vector<std::pair<std::string, json>>> copy;
        host.mainLoop().post([&] { copy.set_value(requests); });
        return copy.get_future().get();
    }
};

}  // namespace

TEST(Simulator, HandAndScriptTouchesReachTheSceneButATouchWithoutItsFieldsIsRefused) {
    Phone sim;
    sim.start();
    // Regression (found by fuzz_sim_api): a touch lacking its fields read past the request body.
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

    for (const json& button : {json{{"button", "volume-down"}, {"action", "hold"}}, json{{"button", "volume-down"}}, json{{"button", "home"}}})
        EXPECT_EQ(sim.post("button", button)->status, 200) << button;
    EXPECT_EQ(sim.scene->currentScreen(), "home");
    // A controller's refusal reaches the page with its status and reason.
    auto refused = sim.post("panel/control/record", json::object());
    EXPECT_EQ(refused->status, 409);
    EXPECT_NE(refused->body.find("not open"), std::string::npos);
    EXPECT_EQ(sim.post("button", {{"button", "power"}})->status, 400);

    auto requests = sim.seen();
    ASSERT_EQ(requests.size(), 6u) << "nothing refused went on to the controller";
    EXPECT_EQ(requests[0].first, "POST /api/input");
    EXPECT_EQ(requests[0].second["touch"][0], (json{{"finger", 1}, {"phase", "down"}, {"x", 50}, {"y", 60}}));
    EXPECT_EQ(requests[1].second["touch"][0]["phase"], "up");
    EXPECT_EQ(requests[2], (std::pair<std::string, json>{"POST /api/event", {{"name", tactora::LAEventNameVolumeDownHoldShort}}}));
    EXPECT_EQ(requests[3].second["name"], tactora::LAEventNameVolumeDownPress);
    EXPECT_EQ(requests[4].second["events"], (json{{{"t", 0}, {"home", "down"}}, {{"t", 100000}, {"home", "up"}}}));

    // A script's touches in the trace switch screens, and its home press goes back.
    std::ofstream trace(sim.dir / "trace.jsonl", std::ios::app);
    auto waitFor = [&](const char* screen) {
        for (int i = 0; i < 300 && sim.scene->currentScreen() != screen; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_EQ(sim.scene->currentScreen(), screen);
    };
    trace << R"({"t_us":1,"kind":"digitizer","fingers":[{"index":1,"x":0.1,"y":0.1,"touch":true}]})" "\n"
          << R"({"t_us":2,"kind":"digitizer","fingers":[{"index":1,"x":0.1,"y":0.1,"touch":true}]})" "\n"
          << R"({"t_us":3,"kind":"digitizer","fingers":[{"index":1,"x":0.12,"y":0.1,"touch":false}]})" "\n" << std::flush;
    waitFor("app");
    trace << R"({"t_us":4,"kind":"keyboard","usage_page":12,"usage":64,"down":true})" "\n"
          << R"({"t_us":5,"kind":"keyboard","usage_page":12,"usage":64,"down":false})" "\n" << std::flush;
    waitFor("home");
}

TEST(SimAuthoring, PositionsCutsAndSearchesFollowTheDevicesUnits) {
    // Small screens keep the searches quick; unit is pixels per script unit (2 only on 2x screens).
    for (auto [device, unit] : {std::pair{"160x284@2", 2.0}, std::pair{"100x180@3", 1.0}}) {
        SCOPED_TRACE(device);
        Phone phone(device);
        const auto& profile = phone.host.display().profile();
        const int width = profile.pixelWidth(), height = profile.pixelHeight();
        // Black, with 10 x 10 pixels of noise at (200, 400) and a copy with 15 green at (260, 500).
        std::vector<std::uint8_t> rgba(std::size_t(width) * height * 4, 0);
        for (std::size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
        std::mt19937 random(7);
        for (int y = 0; y < 10; ++y)
            for (int x = 0; x < 10; ++x) {
                const std::uint8_t r = 40 + random() % 200, g = 40 + random() % 200, b = 40 + random() % 200;
                const bool green = y * 10 + x < 15;
                for (auto [left, top, colour] : {std::tuple{200, 400, std::array{r, g, b}},
                                                  std::tuple{260, 500, green ? std::array<std::uint8_t, 3>{0, 255, 0} : std::array{r, g, b}}})
                    std::copy_n(colour.begin(), 3, &rgba[(std::size_t(top + y) * width + left + x) * 4]);
            }
        auto png = PngCodec().encodePng(rgba.data(), width, height, width * 4);
        ASSERT_EQ(phone.ask("screen/open", {{"png", base64(*png)}, {"name", "shot.png"}}).first, 200);
        const double scale = profile.scale;

        // The pattern's first pixel, pointed at in screen points.
        json picked = phone.ask("pick", {{"x", 200.4 / scale}, {"y", 400.4 / scale}}).second;
        const int ux = int(200 / unit), uy = int(400 / unit), side = int(10 / unit);
        EXPECT_EQ(picked["color"], tactora::getColor(ux, uy));
        EXPECT_NE(picked["color"], 0);
        const std::string at = std::to_string(ux) + ", " + std::to_string(uy);
        EXPECT_EQ(picked["tap"], "touchDown(1, " + at + "); usleep(50000); touchUp(1, " + at + ")");

        json cut = phone.ask("template/cut", {{"name", "noise.png"}, {"x", ux}, {"y", uy}, {"width", side}, {"height", side}}).second;
        EXPECT_EQ(std::pair(cut["pixelWidth"], cut["pixelHeight"]), std::pair(json(10), json(10))) << cut;
        EXPECT_EQ(phone.ask("template/cut", {{"name", "noise.png"}, {"x", 0}, {"y", 0}, {"width", 1}, {"height", 1}}).first, 409)
            << "an existing template is replaced only when asked";

        // The copy with 15 of its 100 pixels changed matches from fuzzy 0.84 down (tolerance 16),
        // not at 0.85 (tolerance 14): 0.85 is the loosest step that finds the template once.
        json found = phone.ask("search", {{"template", "noise.png"}, {"fuzzy", 0.9}, {"safe", true}}).second;
        EXPECT_EQ(found["count"], 1) << found;
        EXPECT_EQ(found["matches"][0], (json{{"x", 100.0}, {"y", 200.0}}));  // findImage's points: pixels halved
        EXPECT_DOUBLE_EQ(found["boxes"][0]["x"].get<double>(), 200 / scale);
        EXPECT_DOUBLE_EQ(found["boxes"][0]["width"].get<double>(), 10 / scale);
        EXPECT_DOUBLE_EQ(found["safeFuzzy"].get<double>(), 0.85);
        EXPECT_EQ(found["safeFuzzyComplete"], true);
        EXPECT_EQ(phone.ask("search", {{"template", "noise.png"}, {"fuzzy", 0.84}}).second["count"], 2);
        // Ignoring the copy's green makes it match even exactly: never found only once.
        auto ignoring = phone.ask("search", {{"template", "noise.png"}, {"fuzzy", 1.0}, {"ignoreColors", {0x00FF00}}, {"safe", true}});
        EXPECT_EQ(ignoring.second["count"], 2);
        EXPECT_TRUE(ignoring.second["safeFuzzy"].is_null());
        EXPECT_EQ(ignoring.second["line"], "findImage{imagePath = rootDir() .. \"noise.png\", fuzzy = 1.00, ignoreColors = {0x00FF00}}");
        // The screen kept as it is now is the same picture, pixel for pixel.
        EXPECT_EQ(phone.ask("screen/open", {{"current", true}}).first, 200);
        EXPECT_EQ(phone.ask("search", {{"template", "noise.png"}, {"fuzzy", 1.0}}).second["count"], 1);
    }
}

TEST(SimAuthoring, RefusesWhatThePageMustNotAskAndKeepsFilesWhole) {
    Phone phone("iphone-se");
    const fs::path scripts = phone.scratch.path() / "var/mobile/Library/Tactora/Scripts";
    fs::create_directories(scripts);
    std::ofstream(scripts / "keep.lua") << "log('kept')\n";

    auto cut = [](const char* name, json x, int width) { return json{{"name", name}, {"x", x}, {"y", 0}, {"width", width}, {"height", 4}}; };
    const std::vector<std::pair<std::string, json>> refused = {
        {"template/cut", cut("../escape.png", 0, 4)}, {"template/cut", cut("note.txt", 0, 4)},
        {"template/cut", cut(".png", 0, 4)},          {"template/cut", cut("wide.png", 300, 21)},
        {"template/cut", cut("half.png", 0.5, 4)},
        {"pick", {{"x", 320}, {"y", 10}}},          {"pick", {{"x", "1"}, {"y", 10}}},
        {"search", {{"template", "keep.lua"}}},     {"search", {{"template", "none.png"}, {"fuzzy", 2}}},
        {"search", {{"template", "none.png"}, {"ignoreColors", {-1}}}},
        {"screen/open", {{"png", "not base64!"}}}, {"screen/open", {{"png", base64({1, 2, 3})}}},
        {"script/save", {{"title", "../keep.lua"}, {"text", "x"}}},
        {"script/save", {{"title", "keep.lua"}, {"text", 5}}}, {"script/read", {{"title", "keep.e"}}},
    };
    for (const auto& [route, body] : refused) {
        auto [status, answer] = phone.ask(route, body);
        EXPECT_EQ(status, 400) << route << " " << body << " " << answer;
        EXPECT_TRUE(answer["error"].is_string());
    }
    EXPECT_EQ(phone.ask("search", {{"template", "none.png"}}).first, 404);
    EXPECT_EQ(phone.ask("script/read", {{"title", "none.lua"}}).first, 404);
    EXPECT_EQ(phone.ask("screen/close", json::object()).first, 409);

    // A picture of another phone is named, not shown.
    std::vector<std::uint8_t> eight(750 * 1334 * 4, 255);
    auto png = PngCodec().encodePng(eight.data(), 750, 1334, 750 * 4);
    auto [status, answer] = phone.ask("screen/open", {{"png", base64(*png)}});
    EXPECT_EQ(status, 409);
    EXPECT_NE(answer["error"].get<std::string>().find("--device iphone-8"), std::string::npos) << answer;

    EXPECT_EQ(phone.ask("script/save", {{"title", "keep.lua"}, {"text", "log('changed')\n"}}).first, 200);
    EXPECT_EQ(phone.ask("script/read", {{"title", "keep.lua"}}).second["text"], "log('changed')\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(scripts), fs::directory_iterator()), 1) << "no partial files left";
}

TEST(SimAuthoring, FindsAScriptsErrorAndItsLineInTheLog) {
    const std::string dir = "/home/me/device/var/mobile/Library/Tactora/Scripts", at = "11-23 05:40:49 ";
    const std::vector<std::pair<std::string, std::optional<json>>> cases = {
        {at + dir + "/b.lua:3: attempt to call global 'noSuch' (a nil value)",
         json{{"title", "b.lua"}, {"line", 3}, {"message", "attempt to call global 'noSuch' (a nil value)"}}},
        // Lua keeps only the end of a long chunk name.
        {at + "...Library/Tactora/Scripts/long-name.lua:120: unexpected symbol near 'x'",
         json{{"title", "long-name.lua"}, {"line", 120}, {"message", "unexpected symbol near 'x'"}}},
        {at + "/elsewhere/b.lua:3: not one of the scripts", std::nullopt},
        {at + "...elsewhere/b.lua:3: not one of the scripts either", std::nullopt},
        {at + dir + "/b.lua: no line", std::nullopt},
        {at + dir + "/b.lua:99999999999999: too long a number", std::nullopt},
        {at + "a script's own log line", std::nullopt},
    };
    for (const auto& [line, error] : cases) EXPECT_EQ(scriptErrorFromLogLine(line, dir), error) << line;
}
