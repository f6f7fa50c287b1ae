// The SpringBoard host as programs reach it (control API, simulator server, event registry, input
// lines), and what other sites and scripts cannot reach: a shell, files outside the scripts directory.
#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Control/ActionListener.h"
#include "Control/ActivatorManager.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/Recorder.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"
#include "RuntimeFakes.h"
#include "host/ControlApi.h"
#include "host/HostEventRegistry.h"
#include "host/InputEvents.h"
#include "host/SimServer.h"
#include "host/SpringBoardHost.h"

using namespace tactora;
using namespace tactora::testing;
using nlohmann::json;

TEST(ControlApi, LocalProgramsDriveThePanelsOverHttpAndTheSimulatorServesOnlyItsOwnPage) {
    ControlDevice device;
    device.writeScript("tap.lua");
    host::SpringBoardHost springBoard{device.loop, (device.root.path() / "registry.json").string(), nullptr};
    ASSERT_TRUE(springBoard.start());
    host::ControlApi api{springBoard};
    ASSERT_TRUE(api.start("127.0.0.1", 0));
    std::jthread loop([&](std::stop_token stop) {
        std::stop_callback quit(stop, [&] { device.loop.quit(); });
        device.loop.run();
    });
    httplib::Client http("127.0.0.1", api.port());
    // The answer to a post, with its status beside it; every action answers the state after it.
    auto post = [&](const std::string& path, const json& body, const httplib::Headers& headers = {}) {
        auto answer = http.Post(path, headers, body.dump(), "application/json");
        json reply = answer ? json::parse(answer->body) : json::object();
        reply["status"] = answer ? answer->status : 0;
        return reply;
    };

    EXPECT_EQ(post("/api/event", {{"name", "x"}}, {{"Origin", "http://evil.example"}})["status"], 403);
    json reply = post("/api/event", {{"name", LAEventNameVolumeDownHoldShort}});
    json panel = reply["state"]["panels"][0];
    EXPECT_EQ((json{reply["handled"], reply["state"]["flags"]["isControlPanelShowing"], panel["panel"],
                    panel["rows"].size(), panel["rows"][0]["text"]}),
              (json{true, true, "ControlPanelView", 1, "tap.lua"})) << reply;

    EXPECT_EQ(post("/api/panel/control/select", {{"title", "missing.lua"}})["status"], 404);
    EXPECT_EQ(post("/api/panel/settings/button", {{"tag", 101}})["status"], 409);  // not open yet
    ASSERT_EQ(post("/api/panel/control/select", {{"title", "tap.lua"}})["state"]["panels"][0]["panel"], "PlaySettingsView");
    EXPECT_EQ(post("/api/panel/settings/stepper", {{"tag", 504}, {"direction", "plus"}})["status"], 400);
    panel = post("/api/panel/settings/stepper", {{"tag", 503}, {"direction", "minus"}})["state"]["panels"][0];
    EXPECT_EQ(panel["playSpeedValueText"], "0.9x");
    EXPECT_EQ(post("/api/panel/settings/count", {{"text", "3"}})["state"]["panels"][0]["repeatCountText"], "3");

    json now = post("/api/panel/settings/button", {{"tag", 102}})["state"];
    EXPECT_EQ((json{now["flags"]["isReadyToPlay"], now["flags"]["isPlaying"], now["currentPlaySettings"]["repeatTime"],
                    now["alerts"].size(), now["alerts"][0]["tag"]}),
              (json{true, false, 3, 1, playLaterTipAlertTag})) << now;
    EXPECT_FALSE(post("/api/event", {{"name", LAEventNameVolumeDownPress}})["handled"]);
    EXPECT_EQ(post("/api/alert/button", {{"index", 1}})["state"]["alerts"], json::array());
    EXPECT_EQ(post("/api/alert/button", {{"index", 0}})["status"], 409);

    // Local programs and its own pages reach the control API, only its own page the simulator.
    struct Case { const char *host, *origin, *fetchSite; bool api, simulator; };
    for (const Case& test : {
             Case{"127.0.0.1:7913", "", "", true, false},  // curl, the CLI
             Case{"localhost:7913", "http://localhost:7913", "same-origin", true, true},
             Case{"127.0.0.1:7913", "", "same-origin", true, true},
             Case{"[::1]:7913", "", "none", true, false},  // typed into the address bar
             Case{"127.0.0.1:7913", "http://evil.example", "cross-site", false, false},
             Case{"127.0.0.1:7913", "null", "", false, false},  // a sandboxed frame
             Case{"127.0.0.1:7913", "", "cross-site", false, false},
             Case{"evil.example:7913", "http://evil.example:7913", "same-origin", false, false},
             Case{"127.0.0.1:7914", "", "", false, false}, Case{"127.0.0.1", "", "", false, false}, Case{"", "", "", false, false},
         }) {
        SCOPED_TRACE(std::string(test.host) + " / " + test.origin + " / " + test.fetchSite);
        EXPECT_EQ(host::ControlApi::fromLocalClient(test.host, test.origin, test.fetchSite, 7913), test.api);
        EXPECT_EQ(host::SimServer::fromOwnPage(test.host, test.origin, test.fetchSite, "127.0.0.1", 7913), test.simulator);
    }

    // The simulator's server: its page, its own origin only, and events to every open page until it stops.
    host::SimServer server{host::SimServer::Options{}};
    server.get("state", [] { return json{{"status", "idle"}}; });
    server.post("echo", [](const json& body) -> json {
        if (body.contains("refuse")) throw host::ApiError{409, "refused on purpose"};
        return body;
    });
    std::string error;
    ASSERT_TRUE(server.start(error)) << error;
    const httplib::Headers own = {{"Origin", "http://127.0.0.1:" + std::to_string(server.port())}};
    httplib::Client client("127.0.0.1", server.port());
    auto page = client.Get("/");
    ASSERT_TRUE(page);
    EXPECT_NE(page->body.find("<script src=\"/sim.js\">"), std::string::npos);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(client.Get("/sim.js")->status, 200);

    EXPECT_EQ(client.Get("/api/state")->status, 403);  // no origin at all
    EXPECT_EQ(json::parse(client.Get("/api/state", own)->body)["status"], "idle");
    EXPECT_EQ(json::parse(client.Post("/api/echo", own, R"({"a":1})", "application/json")->body), (json{{"a", 1}}));
    for (const char* body : {"[1]", "{oops"}) EXPECT_EQ(client.Post("/api/echo", own, body, "application/json")->status, 400);
    auto refused = client.Post("/api/echo", own, R"({"refuse":true})", "application/json");
    EXPECT_EQ(std::pair(refused->status, json::parse(refused->body)["error"]), std::pair(409, json("refused on purpose")));
    EXPECT_EQ(client.Get("/api/none", own)->status, 404);

    std::atomic<int> streamsSeeingTouch{0};
    auto reader = [&] {
        std::string received;
        httplib::Client("127.0.0.1", server.port()).Get("/api/events", own, [&](const char* data, std::size_t size) {
            streamsSeeingTouch += received.append(data, size).ends_with("event: touch\ndata: {\"x\":3}\n\n");
            return true;
        });
    };
    std::jthread first(reader), second(reader);
    for (int i = 0; i < 200 && server.streamCount() < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(server.streamCount(), 2u);
    server.publish("touch", json{{"x", 3}});
    for (int i = 0; i < 200 && streamsSeeingTouch < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(streamsSeeingTouch.load(), 2);

    server.stop();  // ends both streams, so the readers return rather than hang
    EXPECT_FALSE(client.Get("/"));  // the process no longer answers
}

TEST(HostEventRegistry, KeepsAssignmentsAcrossRestartsDeliversThemAndLosesNoneToABrokenFileOrAFailedWrite) {
    ScratchDirectory root;
    const std::string file = (root.path() / "prefs" / "registry.json").string();
    {
        host::HostEventRegistry registry(file);
        registry.assignEvent(LAEvent("a", LAEventModeSpringBoard), "us");
        registry.assignEvent(LAEvent("a", LAEventModeLockScreen), "us");
        registry.assignEvent(LAEvent("b", LAEventModeSpringBoard), "them");
        registry.assignEvent(LAEvent("b", LAEventModeSpringBoard), "us");  // taken over
        registry.removeListenerAssignment("them", LAEvent("a", LAEventModeLockScreen));  // not theirs
        registry.setEventModes("c", {LAEventModeApplication});
        registry.setListenerRequiresAssignment("them", true);
    }
    host::HostEventRegistry registry(file);
    EXPECT_EQ(registry.eventsAssignedToListenerWithName("us").size(), 3u);
    EXPECT_TRUE(registry.eventsAssignedToListenerWithName("them").empty());
    EXPECT_TRUE(registry.listenerWithNameRequiresAssignment("them"));
    EXPECT_FALSE(registry.eventWithName("c", LAEventModeSpringBoard));
    EXPECT_TRUE(registry.eventWithName("c", LAEventModeApplication));
    EXPECT_TRUE(registry.eventWithName("anything", LAEventModeLockScreen));

    struct CountingListener final : LAListener {
        std::vector<std::string> received;
        bool handle = true;
        void activatorReceiveEvent(LAEvent& event) override {
            received.push_back(event.name() + "/" + event.mode());
            if (handle) event.setHandled(true);
        }
    } us;
    registry.registerListener(&us, "us");
    EXPECT_TRUE(registry.sendEvent("a", LAEventModeLockScreen));
    EXPECT_FALSE(registry.sendEvent("a", LAEventModeApplication));  // not assigned in that mode
    us.handle = false;
    EXPECT_FALSE(registry.sendEvent("b"));
    EXPECT_EQ(us.received, (std::vector<std::string>{"a/lockscreen", "b/springboard"}));

    bool failWrites = true;
    host::HostEventRegistry writer(file, true, [&](const std::string& path, const std::string& text) {
        return !failWrites && host::writeFileAtomically(path, text);
    });
    writer.assignEvent(LAEvent("d", LAEventModeSpringBoard), "us");
    EXPECT_FALSE(writer.lastSaveSucceeded());
    EXPECT_EQ(host::HostEventRegistry(file).eventsAssignedToListenerWithName("us").size(), 3u);
    failWrites = false;
    writer.assignEvent(LAEvent("e", LAEventModeSpringBoard), "us");
    EXPECT_EQ(host::HostEventRegistry(file).eventsAssignedToListenerWithName("us").size(), 5u);

    std::ofstream(file) << "{\"assignments\": [ {\"event\": 1";
    host::HostEventRegistry fresh(file);
    EXPECT_TRUE(fresh.eventsAssignedToListenerWithName("us").empty());
    EXPECT_TRUE(std::filesystem::exists(file + ".broken")) << "a broken file is set aside, not overwritten";
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
    ASSERT_EQ((*events)[0].event.children.size(), 2u);
    EXPECT_EQ(recordedLines((*events)[0].event, 320, 568), "\ntouchDown(1, 160.0, 142.0);\n");
    EXPECT_EQ(recordedLines((*events)[1].event, 320, 568), "homeButtonUp();\n");
    EXPECT_EQ((*events)[2].event.children[0].index, 4u);

    const std::pair<const char*, const char*> bad[] = {
        {"{\"t\": 5, \"home\": \"up\"}\n{\"t\": 4, \"home\": \"down\"}", "line 2: \"t\" goes back in time"},
        {"[1]", "line 1: each line must be a JSON object"}, {"{\"t\": 0", "line 1: not valid JSON"},
        {"{\"t\": 0, \"touch\": [{\"finger\": 1, \"phase\": \"hover\", \"x\": 1, \"y\": 1}]}", "line 1: \"phase\""},
        {"{\"t\": 0, \"touch\": [{\"finger\": 1.5, \"phase\": \"up\", \"x\": 1, \"y\": 1}]}", "line 1: \"finger\""},
        {"{\"t\": -1, \"home\": \"up\"}", "line 1: \"t\" must not be negative"},
        {"{\"t\": 0, \"home\": \"up\", \"touch\": []}", "line 1: each line needs exactly one"},
    };
    for (const auto& [text, message] : bad) {
        EXPECT_FALSE(host::parseInputEvents(text, screen, error)) << text;
        EXPECT_EQ(error.rfind(message, 0), 0u) << error;
    }
    EXPECT_EQ(host::ticksAfter(100, 2000.5), 100u + 48012u);
}

TEST(HostSecurity, ScriptsGetNoShellAndNoTitlePlaysAFileOutsideTheScriptsDirectory) {
    ControlDevice device;
    const auto marker = device.root.path() / "shell-ran";
    const auto log = device.map(devicepaths::logFile);
    std::filesystem::create_directories(log.parent_path());
    LuaBridge bridge;
    bridge.runLuaString("local any = os.execute() "
                        "local ok, why, code = os.execute('touch " + marker.string() + "') "
                        "local opened, failure = pcall(io.popen, 'touch " + marker.string() + "') "
                        "log(tostring(any) .. ' ' .. tostring(ok) .. ' ' .. why .. ' ' .. code .. ' ' .. "
                        "tostring(opened) .. ' ' .. failure)");
    EXPECT_NE(readFile(log).find(" false nil no shell -1 false 'popen' not supported"), std::string::npos) << readFile(log);
    EXPECT_FALSE(std::filesystem::exists(marker));

    for (const char* title : {"a.lua", "two words.e", ".hidden.lua", "..lua", "a..b.lua"})
        EXPECT_TRUE(FileManager::isScriptTitle(title)) << title;
    for (const std::string title : {"", ".", "..", "../a.lua", "/etc/a.lua", "sub/a.lua", "a.lua/"})
        EXPECT_FALSE(FileManager::isScriptTitle(title)) << title;
    EXPECT_FALSE(FileManager::isScriptTitle(std::string("a\0.lua", 6)));

    // Bindings to scripts that exist, but outside the scripts directory, are left to the system.
    auto listener = ActionListener::load();
    ASSERT_TRUE(listener);
    std::ofstream(device.root.path() / "outside.lua") << "log('outside')\n";
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger("evil", forWhatPlayScript, "../../../../outside.lua"),
                                             {LAEventModeSpringBoard});
    ASSERT_TRUE(DataManager::getActivatorTriggerByEventName("evil")) << "the binding is stored";
    EXPECT_FALSE(device.registry.sendEvent("evil"));
    EXPECT_FALSE(Global::sharedInstance().currentPlaySettings());
    device.writeScript("inside.lua");
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger("good", forWhatPlayScript, "inside.lua"), {LAEventModeSpringBoard});
    EXPECT_TRUE(device.registry.sendEvent("good"));
    ASSERT_TRUE(Global::sharedInstance().currentPlaySettings());
    EXPECT_EQ(Global::sharedInstance().currentPlaySettings()->scriptPath(),
              (device.scriptsDirectory() / "inside.lua").string());
}
