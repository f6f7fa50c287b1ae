// From input events to a recording, and from the recording back to touches: `tactora record`
// writes the script, `tactora run` plays it when asked through its control API, and the
// receiver's HID trace shows where and when the fingers went.
#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "FoundationFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
using nlohmann::json;

namespace {

// One moment of the input: the fingers (finger, phase, x, y) at time t (microseconds).
struct Step {
    double t;
    std::vector<std::tuple<int, std::string, double, double>> fingers;
};

}  // namespace

TEST(RecordPlayback, PlayingARecordingRepeatsThePositionsAndPausesOfTheInput) {
    ScratchDirectory root;
    const std::string rootPath = root.path().string();
    const auto scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
    const auto trace = root.path() / "trace.jsonl";

    // Two fingers land together, move, rest and lift; then the home button.
    const std::vector<Step> steps = {
        {0, {{1, "down", 100, 200}, {2, "down", 220, 400}}},
        {200000, {{1, "move", 120, 230}, {2, "still", 220, 400}}},
        {900000, {{1, "move", 140, 260}, {2, "move", 200, 380}}},
        {1300000, {{1, "up", 140, 260}, {2, "up", 200, 380}}},
    };
    std::ofstream input(root.path() / "input.jsonl");
    for (const Step& step : steps) {
        json fingers = json::array();
        for (const auto& [finger, phase, x, y] : step.fingers)
            fingers.push_back({{"finger", finger}, {"phase", phase}, {"x", x}, {"y", y}});
        input << json{{"t", step.t}, {"touch", fingers}}.dump() << "\n";
    }
    input.close();

    std::filesystem::create_directories(scripts);
    ASSERT_EQ(runTool("--root '" + rootPath + "' record --input '" + (root.path() / "input.jsonl").string() +
                      "' --output '" + (scripts / "recorded.lua").string() + "'")
                  .exitCode,
              0);
    const std::string script = readFile(scripts / "recorded.lua");
    EXPECT_NE(script.find("\ntouchDown(1, 100.0, 200.0);\n\ntouchDown(2, 220.0, 400.0);\nusleep(200000.00);\n"),
              std::string::npos)
        << script;

    Child system({TACTORA_CLI, "--root", rootPath, "run", "--port", "0", "--no-console", "--trace", trace.string()});
    ASSERT_TRUE(system.running());
    const auto runFile = root.path() / "var/mobile/Library/Tactora/Library/control-api.json";
    int port = 0;
    for (int i = 0; i < 500 && port == 0; ++i) {
        json run = json::parse(readFile(runFile), nullptr, false);
        if (run.is_object()) port = run.value("port", 0);
        else std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_GT(port, 0);
    httplib::Client api("127.0.0.1", port);
    api.set_read_timeout(20);
    auto post = [&](const std::string& path, const json& body) {
        auto reply = api.Post(path, body.dump(), "application/json");
        return reply ? reply->status : -1;
    };
    // Wait until the controller has loaded (the defaults are bound by then).
    for (int i = 0; i < 250; ++i) {
        auto reply = api.Post("/api/event", R"({"name": "libactivator.volume.down.hold-short"})", "application/json");
        if (reply && reply->status == 200 && json::parse(reply->body)["handled"]) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_EQ(post("/api/panel/control/select", {{"title", "recorded.lua"}}), 200);
    ASSERT_EQ(post("/api/panel/settings/button", {{"tag", 101}}), 200);
    bool finished = false;
    for (int i = 0; i < 1000 && !finished; ++i) {
        auto reply = api.Get("/api/state");
        finished = reply && reply->body.find("\"Playing Finished!\"") != std::string::npos;
        if (!finished) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(finished);
    EXPECT_EQ(system.terminate(), 0);

    // Each sync with fingers wrote one hand event; keep those of the four steps.
    std::vector<json> hands;
    std::istringstream lines(readFile(trace));
    for (std::string line; std::getline(lines, line);) {
        json event = json::parse(line, nullptr, false);
        if (event.is_object() && event.value("kind", "") == "digitizer") hands.push_back(event);
    }
    ASSERT_GE(hands.size(), steps.size());
    hands.resize(steps.size());
    const double width = 320, height = 568;
    for (size_t i = 0; i < steps.size(); ++i) {
        const Step& step = steps[i];
        for (const auto& [finger, phase, x, y] : step.fingers) {
            const json* seen = nullptr;
            for (const json& f : hands[i]["fingers"])
                if (f["index"] == finger) seen = &f;
            ASSERT_TRUE(seen) << "step " << i << " finger " << finger;
            // Scripts take whole points.
            EXPECT_NEAR((*seen)["x"].get<double>() * width, x, 1.0) << "step " << i;
            EXPECT_NEAR((*seen)["y"].get<double>() * height, y, 1.0) << "step " << i;
            EXPECT_EQ((*seen)["touch"].get<bool>(), phase != "up") << "step " << i;
        }
        if (i == 0) continue;
        // The receiver stamps a hand when the sync arrives, and the player sleeps only after the
        // sync was answered: the gap in the trace can never be shorter than the recorded pause.
        // A busy machine only lengthens it, so the upper bound is loose; the pauses differ enough
        // that one played twice or taken from another step still fails.
        const double pause = step.t - steps[i - 1].t;
        const double played = hands[i]["t_us"].get<double>() - hands[i - 1]["t_us"].get<double>();
        EXPECT_GE(played, pause - 1) << "pause before step " << i;
        EXPECT_LT(played, pause * 1.5) << "pause before step " << i;
    }
}
