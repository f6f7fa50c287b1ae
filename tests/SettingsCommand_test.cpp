// The desktop tool's scripts and settings commands, run as a user runs them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>

#include "FoundationFakes.h"
#include "ToolProcess.h"
#include "Managers/DataManager.h"
#include "host/FileUserDefaults.h"

using namespace tactora;
using tactora::testing::ToolRun;
namespace fs = std::filesystem;

namespace {

ToolRun runTool(const fs::path& root, const std::string& arguments) {
    return tactora::testing::runTool("--root '" + root.string() + "' " + arguments);
}

}  // namespace

TEST(SettingsCommand, StoresAScriptsPlaySettingsAndUpdatesThemInPlace) {
    tactora::testing::FakeDevice device;
    const fs::path root = device.root.path();
    ToolRun first = runTool(root, "settings --script a.lua --repeat 3 --interval 2 --speed 1.55 --play-directly on");
    ASSERT_EQ(first.exitCode, 0) << first.output;
    EXPECT_NE(first.output.find("a.lua"), std::string::npos) << first.output;

    ASSERT_EQ(runTool(root, "settings --script a.lua --speed 1.9").exitCode, 0);
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    auto stored = DataManager::findPlaySettingsByScriptTitle("a.lua");
    ASSERT_TRUE(stored);
    EXPECT_TRUE(stored->playDirectly());
    EXPECT_EQ(stored->repeatTime(), 3);
    EXPECT_EQ(stored->repeatInterval(), 2);
    EXPECT_EQ(stored->playSpeed(), 1.9f);

    // Refused input changes nothing.
    for (const char* bad : {"settings --script \"it's.lua\" --repeat 1", "settings --script a.lua --speed 0",
                            "settings --script a.lua --repeat -1", "settings --repeat 4",
                            "settings --script a.lua --play-directly maybe", "settings --script ../a.lua"}) {
        EXPECT_NE(runTool(root, bad).exitCode, 0) << bad;
    }
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    EXPECT_EQ(DataManager::findPlaySettingsByScriptTitle("a.lua")->repeatTime(), 3);
}

TEST(SettingsCommand, OptionsChangeThroughTheSettingsMessage) {
    tactora::testing::FakeDevice device;
    const fs::path root = device.root.path();
    host::FileUserDefaults defaults(host::HostPaths(root.string()).map(host::userDefaultsDevicePath));

    ToolRun shown = runTool(root, "settings");
    ASSERT_EQ(shown.exitCode, 0);
    EXPECT_NE(shown.output.find("log-errors                 on"), std::string::npos) << shown.output;
    // Showing is a first read: the defaults are now stored.
    EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.SHOW_PLAY_FINISHED_ALERT"), DefaultsValue(true));

    ToolRun set = runTool(root, "settings --set log-errors=off --set show-play-finished-alert=off");
    ASSERT_EQ(set.exitCode, 0);
    EXPECT_NE(set.output.find("log-errors                 off"), std::string::npos) << set.output;
    EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"), DefaultsValue(false));
    EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.SHOW_PLAY_FINISHED_ALERT"), DefaultsValue(false));
    EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.SHOW_ERRORS_BY_ALERT"), DefaultsValue(true));

    EXPECT_EQ(runTool(root, "settings --set log-errors=no").exitCode, 2);
    EXPECT_EQ(runTool(root, "settings --set verbose=on").exitCode, 2);
    EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"), DefaultsValue(false));
}

TEST(ScriptsCommand, MarksAssignedAndDirectlyPlayedScripts) {
    tactora::testing::FakeDevice device;
    const fs::path root = device.root.path();
    ToolRun empty = runTool(root, "scripts");
    ASSERT_EQ(empty.exitCode, 0);
    EXPECT_NE(empty.output.find("No scripts"), std::string::npos) << empty.output;
    EXPECT_TRUE(fs::exists(DataManager::dataFilePath()));

    fs::path scripts = device.map(devicepaths::scriptsDirectory);
    for (const char* name : {"both.lua", "direct.lua", "plain.lua", "triggered.e", "notes.txt"})
        std::ofstream(scripts / name) << "\n";
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("shake", 3, "both.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("swipe", 3, "triggered.e")));
    PlaySettings direct;
    direct.setPlayDirectly(true);
    for (const char* title : {"both.lua", "direct.lua"}) {
        direct.setScriptTitle(title);
        ASSERT_TRUE(DataManager::insertPlaySettings(direct));
    }
    ToolRun listed = runTool(root, "scripts");
    ASSERT_EQ(listed.exitCode, 0);
    for (const char* line : {"◎ ▷  both.lua\n", "  ▷  direct.lua\n", "     plain.lua\n", "◎    triggered.e\n"})
        EXPECT_NE(listed.output.find(line), std::string::npos) << line << " in\n" << listed.output;
    EXPECT_EQ(listed.output.find("notes.txt"), std::string::npos);
}
