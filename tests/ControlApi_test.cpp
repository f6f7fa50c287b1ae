#include <gtest/gtest.h>

#include <httplib.h>

#include <atomic>
#include <future>
#include <thread>

#include "RuntimeFakes.h"
#include "Control/ActionListener.h"
#include "Kernel/Recorder.h"
#include "host/ControlApi.h"
#include "host/InputEvents.h"
#include "host/SimServer.h"
#include "host/SpringBoardHost.h"

using namespace tactora;
using namespace tactora::testing;
using nlohmann::json;

TEST(ControlApi, LocalProgramsDriveTheControlPanelAndThePlaySettingsPanelOverHttp) {
    ControlDevice device;
    device.writeScript("tap.lua");
    host::SpringBoardHost springBoard{device.loop, (device.root.path() / "registry.json").string(), nullptr};
    ASSERT_TRUE(springBoard.start());
    host::ControlApi api{springBoard};
    ASSERT_TRUE(api.start("127.0.0.1", 0));
    std::jthread loop([&] { device.loop.run(); });
    struct Quit {
        host::MainLoop& loop;
        ~Quit() { loop.quit(); }
    } quit{device.loop};
    httplib::Client http("127.0.0.1", api.port());
    auto post = [&](const std::string& path, const json& body) {
        auto reply = http.Post(path, body.dump(), "application/json");
        return reply ? std::pair{reply->status, json::parse(reply->body)} : std::pair{0, json()};
    };
    auto state = [&] { return json::parse(http.Get("/api/state")->body); };

    auto foreign = http.Post("/api/event", {{"Origin", "http://evil.example"}}, R"({"name":"x"})", "application/json");
    ASSERT_TRUE(foreign);
    EXPECT_EQ(foreign->status, 403);
    auto [status, reply] = post("/api/event", {{"name", LAEventNameVolumeDownHoldShort}});
    ASSERT_EQ(status, 200);
    EXPECT_TRUE(reply["handled"]);
    json panel = state()["panels"][0];
    EXPECT_EQ(panel["panel"], "ControlPanelView");
    EXPECT_EQ(panel["recordButton"], "Record");
    ASSERT_EQ(panel["rows"].size(), 1u);
    EXPECT_EQ(panel["rows"][0]["text"], "tap.lua");
    EXPECT_TRUE(state()["flags"]["isControlPanelShowing"]);

    EXPECT_EQ(post("/api/panel/control/select", {{"title", "missing.lua"}}).first, 404);
    EXPECT_EQ(post("/api/panel/settings/button", {{"tag", 101}}).first, 409);  // not open yet
    ASSERT_EQ(post("/api/panel/control/select", {{"title", "tap.lua"}}).first, 200);
    ASSERT_EQ(state()["panels"][0]["panel"], "PlaySettingsView");
    EXPECT_EQ(post("/api/panel/settings/stepper", {{"tag", 504}, {"direction", "plus"}}).first, 400);
    ASSERT_EQ(post("/api/panel/settings/stepper", {{"tag", 503}, {"direction", "minus"}}).first, 200);
    ASSERT_EQ(post("/api/panel/settings/count", {{"text", "3"}}).first, 200);
    panel = state()["panels"][0];
    EXPECT_EQ(panel["playSpeedValueText"], "0.9x");
    EXPECT_EQ(panel["repeatCountText"], "3");

    ASSERT_EQ(post("/api/panel/settings/button", {{"tag", 102}}).first, 200);
    json now = state();
    EXPECT_TRUE(now["flags"]["isReadyToPlay"]);
    EXPECT_FALSE(now["flags"]["isPlaying"]);
    EXPECT_EQ(now["currentPlaySettings"]["repeatTime"], 3);
    ASSERT_EQ(now["alerts"].size(), 1u);
    EXPECT_EQ(now["alerts"][0]["tag"], playLaterTipAlertTag);
    EXPECT_FALSE(post("/api/event", {{"name", LAEventNameVolumeDownPress}}).second["handled"]);
    ASSERT_EQ(post("/api/alert/button", {{"index", 1}}).first, 200);
    EXPECT_TRUE(state()["alerts"].empty());
    EXPECT_EQ(post("/api/alert/button", {{"index", 0}}).first, 409);
}

TEST(SimServer, ServesItsPageAndApiToItsOwnOriginAndStreamsEventsToEveryPageUntilStopped) {
    host::SimServer server{host::SimServer::Options{}};
    server.get("state", [] { return json{{"status", "idle"}}; });
    server.post("echo", [](const json& body) -> json {
        if (body.contains("refuse")) throw host::ApiError{409, "refused on purpose"};
        return {{"got", body}};
    });
    std::string error;
    ASSERT_TRUE(server.start(error)) << error;
    const httplib::Headers own = {{"Origin", "http://127.0.0.1:" + std::to_string(server.port())}};
    httplib::Client client("127.0.0.1", server.port());
    auto page = client.Get("/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->body.find("<script src=\"/sim.js\">"), std::string::npos);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(client.Get("/sim.js")->status, 200);

    EXPECT_EQ(client.Get("/api/state")->status, 403);  // no origin at all
    EXPECT_EQ(json::parse(client.Get("/api/state", own)->body)["status"], "idle");
    auto echoed = client.Post("/api/echo", own, R"({"a":1})", "application/json");
    EXPECT_EQ(echoed->status, 200);
    EXPECT_EQ(json::parse(echoed->body)["got"]["a"], 1);
    EXPECT_EQ(client.Post("/api/echo", own, "[1]", "application/json")->status, 400);
    EXPECT_EQ(client.Post("/api/echo", own, "{oops", "application/json")->status, 400);
    auto refused = client.Post("/api/echo", own, R"({"refuse":true})", "application/json");
    EXPECT_EQ(refused->status, 409);
    EXPECT_EQ(json::parse(refused->body)["error"], "refused on purpose");
    EXPECT_EQ(client.Get("/api/none", own)->status, 404);

    std::atomic<int> streamsSeeingTouch{0};
    auto reader = [&] {
        httplib::Client stream("127.0.0.1", server.port());
        stream.set_read_timeout(5, 0);
        std::string received;
        stream.Get("/api/events", own, [&](const char* data, std::size_t size) {
            received.append(data, size);
            if (received.find("event: touch\ndata: {\"x\":3}\n\n") != std::string::npos) {
                ++streamsSeeingTouch;
                received.clear();
            }
            return true;
        });
    };
    std::thread first(reader), second(reader);
    for (int i = 0; i < 200 && server.streamCount() < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(server.streamCount(), 2u);
    server.publish("touch", json{{"x", 3}});
    for (int i = 0; i < 200 && streamsSeeingTouch < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(streamsSeeingTouch.load(), 2);

    // Stopping ends both streams, so the readers return rather than hang.
    auto stopped = std::async(std::launch::async, [&] { server.stop(); });
    EXPECT_EQ(stopped.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    first.join();
    second.join();
    EXPECT_FALSE(client.Get("/"));  // the process no longer answers
}

TEST(InputEvents, TurnsLinesIntoHidEventsAndNamesTheFirstBadLine) {
    const Display::Size screen{320, 568};
    std::string error;
    auto events = host::parseInputEvents(
        "{\"t\": 0, \"touch\": [{\"finger\": 1, \"phase\": \"down\", \"x\": 160, \"y\": 142},"
        " {\"finger\": 2, \"phase\": \"still\", \"x\": 0, \"y\": 568}]}\n"
        "\n"
        "{\"t\": 10, \"home\": \"up\"}\n"
        "{\"t\": 10, \"hid\": {\"type\": 11, \"children\": [{\"index\": 4, \"touch\": 0, \"eventMask\": 2}]}}\n",
        screen, error);
    ASSERT_TRUE(events) << error;
    ASSERT_EQ(events->size(), 3u);
    const HIDEvent& touch = (*events)[0].event;
    EXPECT_EQ(touch.type, kIOHIDEventTypeDigitizer);
    ASSERT_EQ(touch.children.size(), 2u);
    EXPECT_DOUBLE_EQ(touch.children[0].x, 0.5);
    EXPECT_DOUBLE_EQ(touch.children[0].y, 0.25);
    EXPECT_EQ(recordedLines(touch, 320, 568), "\ntouchDown(1, 160.0, 142.0);\n");
    EXPECT_EQ(recordedLines((*events)[1].event, 320, 568), "homeButtonUp();\n");
    EXPECT_EQ((*events)[2].event.children[0].index, 4u);

    const std::pair<const char*, const char*> bad[] = {
        {"{\"t\": 5, \"home\": \"up\"}\n{\"t\": 4, \"home\": \"down\"}", "line 2: \"t\" goes back in time"},
        {"[1]", "line 1: each line must be a JSON object"},
        {"{\"t\": 0, \"touch\": [{\"finger\": 1, \"phase\": \"hover\", \"x\": 1, \"y\": 1}]}", "line 1: \"phase\""},
        {"{\"t\": 0, \"touch\": [{\"finger\": 1.5, \"phase\": \"up\", \"x\": 1, \"y\": 1}]}", "line 1: \"finger\""},
        {"{\"t\": -1, \"home\": \"up\"}", "line 1: \"t\" must not be negative"},
        {"{\"t\": 0, \"home\": \"up\", \"touch\": []}", "line 1: each line needs exactly one"},
        {"{\"t\": 0", "line 1: not valid JSON"},
    };
    for (const auto& [text, message] : bad) {
        EXPECT_FALSE(host::parseInputEvents(text, screen, error)) << text;
        EXPECT_EQ(error.rfind(message, 0), 0u) << error;
    }
    EXPECT_EQ(host::ticksAfter(100, 2000.5), 100u + 48012u);
}
