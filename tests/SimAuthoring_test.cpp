// The simulator's authoring routes on a 2x and a 3x phone: positions in the script's units,
// templates cut as screenshotRegion cuts them, searches and the safe fuzziness as findImage
// finds, and refusals of what the page must not ask.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "FoundationFakes.h"
#include "Kernel/CaptureScreen.h"
#include "Kernel/ScreenFunctions.h"
#include "Platform/Platform.h"
#include "host/HostPlatform.h"
#include "host/PngCodec.h"
#include "host/SceneFile.h"
#include "host/SimServer.h"
#include "host/SimulatedDisplay.h"
#include "host/Simulator.h"

using namespace tactora::host;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

std::string base64(const std::vector<std::uint8_t>& bytes) {
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), bytes.size()));
    return text;
}

// A black screen of `width` x `height` pixels with a 10 x 10 pattern of noise at (200, 400) and a
// copy of it at (260, 500) in which 15 pixels are green.
std::vector<std::uint8_t> patternScreen(int width, int height) {
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * height * 4, 0);
    for (std::size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;
    std::mt19937 random(7);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x) {
            const std::uint8_t r = 40 + random() % 200, g = 40 + random() % 200, b = 40 + random() % 200;
            for (auto [left, top] : {std::pair{200, 400}, std::pair{260, 500}}) {
                std::uint8_t* at = &rgba[(static_cast<std::size_t>(top + y) * width + left + x) * 4];
                const bool changed = left == 260 && y * 10 + x < 15;
                at[0] = changed ? 0 : r;
                at[1] = changed ? 255 : g;
                at[2] = changed ? 0 : b;
            }
        }
    return rgba;
}

struct Phone {
    tactora::testing::ScratchDirectory scratch;
    tactora::ScopedPlatform scope;
    std::unique_ptr<HostPlatform> host;
    std::optional<SceneState> scene;
    SimServer server{SimServer::Options{}};  // never started: the routes are called directly
    std::unique_ptr<Simulator> simulator;

    explicit Phone(const std::string& device) {
        HostOptions options;
        options.root = scratch.path().string();
        options.device = device;
        host = std::make_unique<HostPlatform>(options);
        tactora::reset_screen_scale_factor();
        const auto& profile = host->display().profile();
        const fs::path black = scratch.path() / "black.png";
        const std::uint8_t pixel[4] = {0, 0, 0, 255};
        auto png = PngCodec().encodePng(pixel, 1, 1, 4);
        std::ofstream(black, std::ios::binary).write(reinterpret_cast<const char*>(png->data()), png->size());
        scene.emplace(stillScene(black.string()));
        Simulator::Options settings;
        settings.safeFuzzyBudget = std::chrono::minutes(5);  // a loaded machine must not cut the search short
        simulator = std::make_unique<Simulator>(host->mainLoop(), *scene, profile, server, SimController{}, settings);
        host->display().setFrameSource(simulator->frames());
    }
    ~Phone() {
        simulator.reset();
        tactora::reset_screen_scale_factor();
    }
    std::pair<int, json> ask(const std::string& route, const json& body) { return server.answerPost(route, body.dump()); }
    void open(const std::vector<std::uint8_t>& rgba, int width, int height) {
        auto png = PngCodec().encodePng(rgba.data(), width, height, width * 4);
        auto [status, answer] = ask("screen/open", {{"png", base64(*png)}, {"name", "shot.png"}});
        ASSERT_EQ(status, 200) << answer;
    }
};

}  // namespace

TEST(SimAuthoring, PositionsCutsAndSearchesFollowTheDevicesUnits) {
    // Small screens keep the searches quick; unit is pixels per script unit (2 only on 2x screens).
    for (auto [device, unit] : {std::pair{"160x284@2", 2.0}, std::pair{"100x180@3", 1.0}}) {
        SCOPED_TRACE(device);
        Phone phone(device);
        const auto& profile = phone.host->display().profile();
        phone.open(patternScreen(profile.pixelWidth(), profile.pixelHeight()), profile.pixelWidth(), profile.pixelHeight());
        const double scale = profile.scale;

        // The pattern's first pixel, pointed at in screen points.
        json picked = phone.ask("pick", {{"x", 200.4 / scale}, {"y", 400.4 / scale}}).second;
        const int ux = static_cast<int>(200 / unit), uy = static_cast<int>(400 / unit);
        EXPECT_EQ(picked["color"], tactora::getColor(ux, uy));
        EXPECT_NE(picked["color"], 0);
        EXPECT_EQ(picked["tap"], "touchDown(1, " + std::to_string(ux) + ", " + std::to_string(uy) +
                                     "); usleep(50000); touchUp(1, " + std::to_string(ux) + ", " + std::to_string(uy) + ")");

        const int side = static_cast<int>(10 / unit);
        json cut = phone.ask("template/cut", {{"name", "noise.png"}, {"x", ux}, {"y", uy}, {"width", side}, {"height", side}}).second;
        EXPECT_EQ(cut["pixelWidth"], 10) << cut;
        EXPECT_EQ(cut["pixelHeight"], 10);
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
        // The screen kept as it is now is the same picture, pixel for pixel.
        EXPECT_EQ(phone.ask("screen/open", {{"current", true}}).first, 200);
        EXPECT_EQ(phone.ask("search", {{"template", "noise.png"}, {"fuzzy", 1.0}}).second["count"], 1);
        EXPECT_EQ(ignoring.second["line"],
                  "findImage{imagePath = rootDir() .. \"noise.png\", fuzzy = 1.00, ignoreColors = {0x00FF00}}");
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
    const std::string dir = "/home/me/device/var/mobile/Library/Tactora/Scripts";
    const std::vector<std::pair<std::string, std::optional<json>>> cases = {
        {"11-23 05:40:49 " + dir + "/b.lua:3: attempt to call global 'noSuch' (a nil value)",
         json{{"title", "b.lua"}, {"line", 3}, {"message", "attempt to call global 'noSuch' (a nil value)"}}},
        // Lua keeps only the end of a long chunk name.
        {"11-23 05:40:49 ...Library/Tactora/Scripts/long-name.lua:120: unexpected symbol near 'x'",
         json{{"title", "long-name.lua"}, {"line", 120}, {"message", "unexpected symbol near 'x'"}}},
        {"11-23 05:40:49 /elsewhere/b.lua:3: not one of the scripts", std::nullopt},
        {"11-23 05:40:49 ...elsewhere/b.lua:3: not one of the scripts either", std::nullopt},
        {"11-23 05:40:49 " + dir + "/b.lua: no line", std::nullopt},
        {"11-23 05:40:49 " + dir + "/b.lua:99999999999999: too long a number", std::nullopt},
        {"11-23 05:40:49 a script's own log line", std::nullopt},
    };
    for (const auto& [line, error] : cases) EXPECT_EQ(scriptErrorFromLogLine(line, dir), error) << line;
}
