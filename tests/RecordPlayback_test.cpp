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

TEST(RecordPlayback, PlayingARecordingRepeatsThePositionsAndPausesOfTheInput) {
    ScratchDirectory root;
    const std::string rootPath = root.path().string(), trace = root.file("trace.jsonl");
    const auto scripts = root.path() / "var/mobile/Library/Tactora/Scripts";
    // Two fingers land together, move, rest and lift: at t microseconds, (finger, phase, x, y).
    const std::vector<std::pair<double, std::vector<std::tuple<int, std::string, double, double>>>> steps = {
        {0, {{1, "down", 100, 200}, {2, "down", 220, 400}}},
        {200000, {{1, "move", 120, 230}, {2, "still", 220, 400}}},
        {900000, {{1, "move", 140, 260}, {2, "move", 200, 380}}},
        {1300000, {{1, "up", 140, 260}, {2, "up", 200, 380}}},
    };
    std::ofstream input(root.file("input.jsonl"));
    for (const auto& [t, fingers] : steps) {
        json touch = json::array();
        for (const auto& [finger, phase, x, y] : fingers) touch.push_back({{"finger", finger}, {"phase", phase}, {"x", x}, {"y", y}});
        input << json{{"t", t}, {"touch", touch}}.dump() << "\n";
    }
    input.close();
    std::filesystem::create_directories(scripts);
    const std::string recorded = (scripts / "recorded.lua").string();
    ASSERT_EQ(runTool("--root '" + rootPath + "' record --input '" + root.file("input.jsonl") + "' --output '" + recorded + "'").exitCode, 0);
    const std::string script = readFile(recorded);
    EXPECT_NE(script.find("\ntouchDown(1, 100.0, 200.0);\n\ntouchDown(2, 220.0, 400.0);\nusleep(200000.00);\n"), std::string::npos)
        << script;

    Child system({TACTORA_CLI, "--root", rootPath, "run", "--port", "0", "--no-console", "--trace", trace});
    ASSERT_TRUE(system.running());
    // Each wait polls every 20 ms, for 20 s at most.
    auto poll = [](const std::function<bool()>& done) {
        for (int i = 0; i < 1000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(20)))
            if (done()) return true;
        return false;
    };
    int port = 0;
    ASSERT_TRUE(poll([&] {
        json run = json::parse(readFile(root.path() / "var/mobile/Library/Tactora/Library/control-api.json"), nullptr, false);
        return run.is_object() && (port = run.value("port", 0)) > 0;
    }));
    httplib::Client api("127.0.0.1", port);
    api.set_read_timeout(20);
    auto post = [&](const std::string& path, const json& body) {
        auto reply = api.Post(path, body.dump(), "application/json");
        return reply && reply->status == 200 && json::parse(reply->body).value("handled", true);
    };
    // The controller has loaded (the defaults are bound) once the event is handled.
    ASSERT_TRUE(poll([&] { return post("/api/event", {{"name", "libactivator.volume.down.hold-short"}}); }));
    ASSERT_TRUE(post("/api/panel/control/select", {{"title", "recorded.lua"}}));
    ASSERT_TRUE(post("/api/panel/settings/button", {{"tag", 101}}));
    ASSERT_TRUE(poll([&] {
        auto reply = api.Get("/api/state");
        return reply && reply->body.find("\"Playing Finished!\"") != std::string::npos;
    }));
    EXPECT_EQ(system.terminate(), 0);

    // Each sync with fingers wrote one hand event; keep those of the four steps.
    std::vector<json> hands;
    std::istringstream lines(readFile(trace));
    for (std::string line; std::getline(lines, line) && hands.size() < steps.size();) {
        json event = json::parse(line, nullptr, false);
        if (event.is_object() && event.value("kind", "") == "digitizer") hands.push_back(event);
    }
    ASSERT_EQ(hands.size(), steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        for (const auto& [finger, phase, x, y] : steps[i].second) {
            const json* seen = nullptr;
            for (const json& f : hands[i]["fingers"])
                if (f["index"] == finger) seen = &f;
            ASSERT_TRUE(seen) << "step " << i << " finger " << finger;
            // Scripts take whole points; fractions of the 320 x 568 points of the screen.
            EXPECT_NEAR((*seen)["x"].get<double>() * 320, x, 1.0) << "step " << i;
            EXPECT_NEAR((*seen)["y"].get<double>() * 568, y, 1.0) << "step " << i;
            EXPECT_EQ((*seen)["touch"].get<bool>(), phase != "up") << "step " << i;
        }
        if (i == 0) continue;
        // The receiver stamps a hand when the sync arrives, and the player sleeps only after the
        // sync was answered: the gap in the trace can never be shorter than the recorded pause.
        // A busy machine only lengthens it, so the upper bound is loose; the pauses differ enough
        // that one played twice or taken from another step still fails.
        const double pause = steps[i].first - steps[i - 1].first;
        const double played = hands[i]["t_us"].get<double>() - hands[i - 1]["t_us"].get<double>();
        EXPECT_GE(played, pause - 1) << "pause before step " << i;
        EXPECT_LT(played, pause * 1.5) << "pause before step " << i;
    }
}
