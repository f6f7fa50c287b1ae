// The recorder's text from HID events, then the whole way: `tactora record` writes a script, `tactora
// run` plays it through its control API, and the receiver's trace shows where and when fingers went.
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

#include "Kernel/Recorder.h"
#include "RuntimeFakes.h"
#include "ToolProcess.h"

using namespace tactora;
using namespace tactora::testing;
using nlohmann::json;

namespace {

HIDEvent fingers(std::uint64_t timestamp, std::vector<HIDDigitizerChild> children) {
    return {kIOHIDEventTypeDigitizer, timestamp, 0, 0, 0, std::move(children)};
}
HIDEvent key(std::uint64_t timestamp, std::uint32_t page, std::uint32_t usage, std::int64_t down) {
    return {kIOHIDEventTypeKeyboard, timestamp, page, usage, down, {}};
}
constexpr std::uint32_t touchChanged = kIOHIDDigitizerEventRange | kIOHIDDigitizerEventTouch;
constexpr std::uint32_t moved = kIOHIDDigitizerEventPosition;

}  // namespace

// The source's events reach the recording only while recording; a second start opens a new file,
// keeps the client and begins again without a pause.
TEST(Recorder, WritesOneGroupPerEventWithThePauseInMicrosecondsOnlyWhileRecording) {
    ControlDevice device;
    EXPECT_FALSE(device.hidSource.deliver(key(1, 12, 64, 1)));
    startRecording();
    EXPECT_TRUE(Global::sharedInstance().isRecording());
    const auto path = device.scriptsDirectory() / "2014-05-01 13:45:10.lua";
    ASSERT_EQ(recordingFilePath(), path.string());
    void* client = Global::sharedInstance().ioHIDEventSystem();
    ASSERT_NE(client, nullptr);

    // The tick count passes 2^32 during the recording, so both halves of the timestamp count.
    const std::uint64_t t0 = (1ull << 32) - 50'000;
    // Two fingers land in one event: two lines, no pause before the first group.
    handle_events(fingers(t0, {{1, 1, touchChanged, 0.5, 0.25}, {2, 1, touchChanged, 0.25, 0.5}}));
    // Finger 1 moves while finger 2 stays still: only finger 1 writes.
    handle_events(fingers(t0 + 48'000, {{1, 1, moved, 0.503125, 0.25}, {2, 1, 0, 0.25, 0.5}}));
    // Both still: no text, and the pause before the next line includes this time.
    handle_events(fingers(t0 + 60'000, {{1, 1, 0, 0.503125, 0.25}, {2, 1, 0, 0.25, 0.5}}));
    // An empty digitizer event, a key other than home and home with another down value: nothing.
    handle_events(fingers(t0 + 61'000, {}));
    handle_events(key(t0 + 62'000, 7, 40, 1));
    handle_events(key(t0 + 62'500, 12, 233, 1));  // a consumer key other than home
    handle_events(key(t0 + 63'000, 12, 64, 2));
    handle_events(fingers(t0 + 96'000, {{1, 0, touchChanged, 0.503125, 0.25}, {2, 0, touchChanged, 0.25, 0.5}}));
    handle_events(key(t0 + 96'036, 12, 64, 1));
    handle_events(key(t0 + 96'060, 12, 64, 0));

    device.clock.now.tm_sec = 11;
    startRecording();
    EXPECT_EQ(Global::sharedInstance().ioHIDEventSystem(), client);
    // The pause crosses 1.5 x 2^32 ticks, where a high half read a bit off would jump.
    const std::uint64_t t1 = (3ull << 31) - 1200;
    EXPECT_TRUE(device.hidSource.deliver(key(t1, 12, 64, 1)));
    EXPECT_TRUE(device.hidSource.deliver(key(t1 + 2400, 12, 64, 0)));
    device.loop.drain();
    stopRecording();
    EXPECT_FALSE(Global::sharedInstance().isRecording());
    EXPECT_FALSE(recordingFilePath());
    EXPECT_EQ(Global::sharedInstance().ioHIDEventSystem(), nullptr);
    EXPECT_FALSE(device.hidSource.deliver(key(t1 + 4800, 12, 64, 1)));

    EXPECT_EQ(readFile(path),
              "CREATETIME=\"2014-05-01 13:45:10\";\n"
              "SCREEN_RESOLUTION=\"320x568\";\n"
              "\ntouchDown(1, 160.0, 142.0);\n"
              "\ntouchDown(2, 80.0, 284.0);\n"
              "usleep(2000.00);\n"
              "touchMove(1, 161.0, 142.0);\n"
              "usleep(2000.00);\n"
              "touchUp(1, 161.0, 142.0);\n"
              "touchUp(2, 80.0, 284.0);\n"
              "usleep(1.50);\n"
              "homeButtonDown();\n"
              "usleep(1.00);\n"
              "homeButtonUp();\n");
    EXPECT_EQ(readFile(device.scriptsDirectory() / "2014-05-01 13:45:11.lua"),
              "CREATETIME=\"2014-05-01 13:45:11\";\nSCREEN_RESOLUTION=\"320x568\";\n"
              "homeButtonDown();\nusleep(100.00);\nhomeButtonUp();\n");
}

TEST(Recorder, AFingerFarOffTheScreenStillWritesCompleteLines) {
    // 1e300 of a 320-point screen prints as over 300 digits; the line must not be cut short.
    const std::string lines =
        recordedLines(fingers(0, {{3, 1, touchChanged, 1e300, -1e300}, {4, 1, moved, 0.5, 0.5}}), 320, 568);
    // Every digit is there: the numbers read back as the products exactly, and the line ends whole.
    const std::string down = "\ntouchDown(3, ", move = "touchMove(4, 160.0, 284.0);\n";
    ASSERT_TRUE(lines.starts_with(down) && lines.ends_with(");\n" + move)) << lines;
    char* end = nullptr;
    EXPECT_EQ(std::strtod(lines.c_str() + down.size(), &end), 1e300 * 320.0);
    ASSERT_EQ(std::string(end, 2), ", ");
    EXPECT_EQ(std::strtod(end + 2, &end), -1e300 * 568.0);
    EXPECT_EQ(std::string(end), ");\n" + move);
}

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
        // The player sleeps only after the receiver stamped the sync, so no gap is shorter than its
        // pause; the loose upper bound still fails a pause played twice or taken from another step.
        const double pause = steps[i].first - steps[i - 1].first;
        const double played = hands[i]["t_us"].get<double>() - hands[i - 1]["t_us"].get<double>();
        EXPECT_GE(played, pause - 1) << "pause before step " << i;
        EXPECT_LT(played, pause * 1.5) << "pause before step " << i;
    }
}
