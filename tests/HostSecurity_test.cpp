// What other users, other sites and scripts cannot reach: a shell, files outside the scripts
// directory through a title, and the control API from a browser page of another site.
#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <fstream>

#include "Control/ActionListener.h"
#include "Control/ActivatorManager.h"
#include "RuntimeFakes.h"
#include "Kernel/LuaBridge.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"
#include "host/ControlApi.h"
#include "host/SpringBoardHost.h"

using namespace tactora;
using namespace tactora::testing;

TEST(HostSecurity, ScriptsGetNoShell) {
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
    std::ifstream in(log);
    std::string line;
    for (std::string next; std::getline(in, next);) line = next;
    EXPECT_TRUE(line.ends_with(" false nil no shell -1 false 'popen' not supported")) << line;
    EXPECT_FALSE(std::filesystem::exists(marker));
}

TEST(HostSecurity, OnlyAPlainFileNameIsAScriptTitleAndNoTriggerPlaysAnythingElse) {
    for (const char* title : {"a.lua", "two words.e", ".hidden.lua", "..lua", "a..b.lua"})
        EXPECT_TRUE(FileManager::isScriptTitle(title)) << title;
    for (const std::string& title : std::vector<std::string>{"", ".", "..", "../a.lua", "/etc/a.lua", "sub/a.lua", "a.lua/",
                                                             std::string("a\0.lua", 6)})
        EXPECT_FALSE(FileManager::isScriptTitle(title)) << title;

    ControlDevice device;
    auto listener = ActionListener::load();
    ASSERT_TRUE(listener);
    auto bind = [](const std::string& event, const std::string& title) {
        ActivatorManager::assignActivatorTrigger(ActivatorTrigger(event, forWhatPlayScript, title), {LAEventModeSpringBoard});
    };
    // Scripts that exist, but outside the scripts directory.
    std::ofstream(device.root.path() / "outside.lua") << "log('outside')\n";
    const std::string absolute = (device.root.path() / "outside.lua").string();
    for (const std::string& title : {std::string("../../../../outside.lua"), absolute}) {
        SCOPED_TRACE(title);
        const std::string event = "evil." + std::to_string(title.size());
        bind(event, title);
        ASSERT_TRUE(DataManager::getActivatorTriggerByEventName(event)) << "the binding is stored";
        EXPECT_FALSE(device.registry.sendEvent(event)) << "left to the system";
        EXPECT_FALSE(Global::sharedInstance().currentPlaySettings());
        EXPECT_FALSE(Global::sharedInstance().isPlaying());
    }
    // The same binding with a plain title is served.
    device.writeScript("inside.lua");
    bind("good", "inside.lua");
    EXPECT_TRUE(device.registry.sendEvent("good"));
    ASSERT_TRUE(Global::sharedInstance().currentPlaySettings());
    EXPECT_EQ(Global::sharedInstance().currentPlaySettings()->scriptPath(),
              (device.scriptsDirectory() / "inside.lua").string());
}

TEST(HostSecurity, TheControlApiAnswersOnlyLocalProgramsAndItsOwnOrigin) {
    struct Case {
        const char *host, *origin, *fetchSite;
        bool accepted;
    };
    for (const Case& test : {
             Case{"127.0.0.1:7913", "", "", true},                        // curl, the CLI
             Case{"localhost:7913", "http://localhost:7913", "same-origin", true},
             Case{"[::1]:7913", "", "none", true},                         // typed into the address bar
             Case{"127.0.0.1:7913", "http://evil.example", "cross-site", false},
             Case{"127.0.0.1:7913", "null", "", false},                    // a sandboxed frame
             Case{"127.0.0.1:7913", "", "cross-site", false},
             Case{"evil.example:7913", "http://evil.example:7913", "same-origin", false},  // DNS rebinding
             Case{"127.0.0.1:7914", "", "", false},
             Case{"127.0.0.1", "", "", false},
             Case{"", "", "", false},
         })
        EXPECT_EQ(host::ControlApi::fromLocalClient(test.host, test.origin, test.fetchSite, 7913), test.accepted)
            << test.host << " / " << test.origin << " / " << test.fetchSite;

    ControlDevice device;
    host::SpringBoardHost springBoard{device.loop, (device.root.path() / "registry.json").string(), nullptr};
    host::ControlApi api{springBoard};
    ASSERT_TRUE(api.start("127.0.0.1", 0));
    std::thread loop([&] { device.loop.run(); });
    httplib::Client http("127.0.0.1", api.port());
    auto foreign = http.Post("/api/event", {{"Origin", "http://evil.example"}}, R"({"name":"x"})", "application/json");
    ASSERT_TRUE(foreign);
    EXPECT_EQ(foreign->status, 403);
    auto local = http.Get("/api/state");
    ASSERT_TRUE(local);
    EXPECT_EQ(local->status, 200);
    api.stop();
    device.loop.quit();
    loop.join();
}
