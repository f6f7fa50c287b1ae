// What other users, other sites and scripts cannot reach: a shell, files outside the scripts
// directory through a title, and the control API or the simulator from a page of another site.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "Control/ActionListener.h"
#include "Control/ActivatorManager.h"
#include "RuntimeFakes.h"
#include "Kernel/LuaBridge.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"
#include "host/ControlApi.h"
#include "host/SimServer.h"

using namespace tactora;
using namespace tactora::testing;

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
    std::ifstream in(log);
    std::string line;
    for (std::string next; std::getline(in, next);) line = next;
    EXPECT_TRUE(line.ends_with(" false nil no shell -1 false 'popen' not supported")) << line;
    EXPECT_FALSE(std::filesystem::exists(marker));

    for (const char* title : {"a.lua", "two words.e", ".hidden.lua", "..lua", "a..b.lua"})
        EXPECT_TRUE(FileManager::isScriptTitle(title)) << title;
    for (const std::string title : {"", ".", "..", "../a.lua", "/etc/a.lua", "sub/a.lua", "a.lua/"})
        EXPECT_FALSE(FileManager::isScriptTitle(title)) << title;
    EXPECT_FALSE(FileManager::isScriptTitle(std::string("a\0.lua", 6)));

    // Bindings to scripts that exist, but outside the scripts directory, are left to the system.
    auto listener = ActionListener::load();
    ASSERT_TRUE(listener);
    auto bind = [](const std::string& event, const std::string& title) {
        ActivatorManager::assignActivatorTrigger(ActivatorTrigger(event, forWhatPlayScript, title), {LAEventModeSpringBoard});
    };
    std::ofstream(device.root.path() / "outside.lua") << "log('outside')\n";
    for (const std::string& title : {std::string("../../../../outside.lua"), (device.root.path() / "outside.lua").string()}) {
        const std::string event = "evil." + std::to_string(title.size());
        bind(event, title);
        ASSERT_TRUE(DataManager::getActivatorTriggerByEventName(event)) << "the binding is stored";
        EXPECT_FALSE(device.registry.sendEvent(event)) << title;
        EXPECT_FALSE(Global::sharedInstance().currentPlaySettings());
    }
    device.writeScript("inside.lua");
    bind("good", "inside.lua");
    EXPECT_TRUE(device.registry.sendEvent("good"));
    ASSERT_TRUE(Global::sharedInstance().currentPlaySettings());
    EXPECT_EQ(Global::sharedInstance().currentPlaySettings()->scriptPath(),
              (device.scriptsDirectory() / "inside.lua").string());
}

// The control API serves local programs (no browser headers) and its own pages; the simulator only
// its own page. Both refuse other sites and other names for this machine (DNS rebinding).
TEST(HostSecurity, OnlyLocalProgramsAndTheirOwnPagesReachTheControlApiAndTheSimulator) {
    struct Case {
        const char *host, *origin, *fetchSite;
        bool api, simulator;
    };
    for (const Case& test : {
             Case{"127.0.0.1:7913", "", "", true, false},  // curl, the CLI
             Case{"localhost:7913", "http://localhost:7913", "same-origin", true, true},
             Case{"127.0.0.1:7913", "http://127.0.0.1:7913", "", true, true},
             Case{"127.0.0.1:7913", "", "same-origin", true, true},
             Case{"[::1]:7913", "", "none", true, false},  // typed into the address bar
             Case{"127.0.0.1:7913", "http://evil.example", "cross-site", false, false},
             Case{"127.0.0.1:7913", "null", "", false, false},  // a sandboxed frame
             Case{"127.0.0.1:7913", "", "cross-site", false, false},
             Case{"evil.example:7913", "http://evil.example:7913", "same-origin", false, false},
             Case{"127.0.0.1:7914", "", "", false, false},
             Case{"127.0.0.1", "", "", false, false},
             Case{"", "", "", false, false},
         }) {
        EXPECT_EQ(host::ControlApi::fromLocalClient(test.host, test.origin, test.fetchSite, 7913), test.api)
            << test.host << " / " << test.origin << " / " << test.fetchSite;
        EXPECT_EQ(host::SimServer::fromOwnPage(test.host, test.origin, test.fetchSite, "127.0.0.1", 7913), test.simulator)
            << test.host << " / " << test.origin << " / " << test.fetchSite;
    }
}
