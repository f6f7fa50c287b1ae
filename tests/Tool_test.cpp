// The desktop tool's encrypt, decrypt and settings commands run as a user runs them. Every
// refusal exits non-zero with a message and changes nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "CryptTestSupport.h"
#include "Managers/DataManager.h"
#include "ToolProcess.h"
#include "host/FileUserDefaults.h"

using namespace tactora;
using namespace tactora::testing;
namespace fs = std::filesystem;

TEST(Tool, EncryptsAndDecryptsWithEveryWayOfGivingThePasswordAndLeavesNothingOnFailure) {
    using namespace tactora::crypttest;
    ScratchDirectory directory;
    std::mt19937 random(5);
    const Bytes plain = randomBytes(70000, random);
    const std::string data = directory.file("data.bin");
    crypttest::writeFile(data, plain);
    crypttest::writeFile(directory.file("pw.txt"), bytesOf("pässwörd\n"));

    ASSERT_EQ(runTool("encrypt '" + data + "' --password-file '" + directory.file("pw.txt") + "'").exitCode, 0);
    EXPECT_EQ(referenceDecrypt(*crypttest::readFile(data + ".e"), "pässwörd"), plain);
    ASSERT_EQ(runTool("decrypt '" + data + ".e' -o '" + data + ".a' --password 'pässwörd'").exitCode, 0);
    EXPECT_EQ(crypttest::readFile(data + ".a"), plain);
    fs::remove(data);
    ASSERT_EQ(runTool("decrypt '" + data + ".e'", "TACTORA_PASSWORD='pässwörd'").exitCode, 0);
    EXPECT_EQ(crypttest::readFile(data), plain);

    auto names = [&] {
        std::vector<fs::path> out(fs::directory_iterator(directory.path()), fs::directory_iterator());
        std::sort(out.begin(), out.end());
        return out;
    };
    crypttest::writeFile(data + ".junk.e", Bytes(200, 9));
    crypttest::writeFile(data + ".short.e", Bytes(40, 3));
    const auto before = names();
    // No password anywhere and no terminal to ask on; a wrong one; files that are no such thing.
    const std::pair<std::string, int> refusals[] = {
        {".e' -o '" + data + ".b'", 2}, {".e' -o '" + data + ".b' --password wrong", 1},
        {".junk.e' --password x", 1}, {".short.e' --password x", 1}};
    for (const auto& [tail, exitCode] : refusals) EXPECT_EQ(runTool("decrypt '" + data + tail).exitCode, exitCode) << tail;
    EXPECT_EQ(names(), before) << "neither outputs nor temporary files remain";
}

TEST(Tool, SettingsAreCheckedStoredChangedThroughTheSettingsMessageAndListedWithTheScripts) {
    FakeDevice device;  // the test reads the store the tool writes
    const fs::path scripts = device.map(devicepaths::scriptsDirectory);
    writeFile(scripts / "ran.lua", "log('it ran')");
    auto tool = [&](const std::string& arguments) { return runTool("--root '" + device.root.path().string() + "' " + arguments); };
    ASSERT_EQ(tool("settings --script a.lua --repeat 3 --interval 2 --speed 1.55 --play-directly on").exitCode, 0);
    ASSERT_EQ(tool("settings --script a.lua --speed 1.9").exitCode, 0);
    // Only what the phone's play settings panel can give is taken, by play and by settings alike.
    const std::pair<std::string, const char*> refused[] = {
        {"--speed 0.09", "0.1 to 1.9"}, {"--speed 1.91", "0.1 to 1.9"}, {"--speed nan", "0.1 to 1.9"},
        {"--speed 1x", "0.1 to 1.9"}, {"--interval -1", "0 to 1000000"}, {"--interval 1000001", "0 to 1000000"},
        {"--interval 1.5", "0 to 1000000"}, {"--repeat -1", "0 or more"}, {"--repeat inf", "0 or more"},
        {"--repeat 99999999999999999999", "0 or more"}};
    for (const auto& [option, range] : refused) {
        for (const std::string& command : {std::string("settings --script ran.lua "), "play '" + (scripts / "ran.lua").string() + "' "}) {
            SCOPED_TRACE(command + option);
            ToolRun run = tool(command + option);
            EXPECT_EQ(run.exitCode, 2) << run.output;
            EXPECT_NE(run.err.find(option.substr(0, option.find(' ')) + " must be "), std::string::npos) << run.err;
            EXPECT_NE(run.err.find(range), std::string::npos) << run.err;
        }
    }
    for (const char* bad : {"--script \"it's.lua\" --repeat 1", "--repeat 4", "--script a.lua --play-directly maybe",
                            "--script ../a.lua", "--set log-errors=no", "--set verbose=on"})
        EXPECT_NE(tool(std::string("settings ") + bad).exitCode, 0) << bad;
    EXPECT_FALSE(fs::exists(device.map("/var/mobile/Library/Tactora/Library/log.log"))) << "a refused run played";
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    // The panel's own limits are taken; a script's first settings start from once, a second
    // apart, at normal speed.
    EXPECT_NE(tool("settings --script ran.lua --speed 0.1 --interval 1000000 --repeat 0").output.find("1000000s    0.1"),
              std::string::npos);
    ASSERT_EQ(tool("settings --script b.lua --repeat 1000001").exitCode, 0);
    auto values = [](const char* title) {
        auto s = DataManager::findPlaySettingsByScriptTitle(title);
        return s ? std::make_tuple(s->playDirectly(), s->repeatTime(), s->repeatInterval(), s->playSpeed())
                 : std::make_tuple(false, -1L, -1L, -1.0f);
    };
    EXPECT_EQ(values("a.lua"), std::make_tuple(true, 3L, 2L, 1.9f));
    EXPECT_EQ(values("ran.lua"), std::make_tuple(false, 0L, 1000000L, 0.1f));
    EXPECT_EQ(values("b.lua"), std::make_tuple(false, 1000001L, 1L, 1.0f));

    host::FileUserDefaults defaults(host::HostPaths(device.root.path().string()).map(host::userDefaultsDevicePath));
    ToolRun shown = tool("settings");
    EXPECT_NE(shown.output.find("log-errors                 on"), std::string::npos) << shown.output;
    EXPECT_EQ(defaults.objectForKey(showErrorsByAlertKey), DefaultsValue(true)) << "a first read stores";
    for (const char* name : {"log-errors", "show-errors-by-alert", "show-play-finished-alert"}) {
        ToolRun set = tool(std::string("settings --set ") + name + "=off");
        ASSERT_EQ(set.exitCode, 0) << set.output;
        EXPECT_NE(set.output.find(std::string(name) + std::string(27 - std::strlen(name), ' ') + "off"),
                  std::string::npos) << set.output;
    }
    EXPECT_EQ(defaults.objectForKey(showErrorsByAlertKey), DefaultsValue(false));
    EXPECT_EQ(defaults.objectForKey(logErrorsKey), DefaultsValue(false));

    for (const char* name : {"both.lua", "direct.lua", "plain.lua", "triggered.e", "notes.txt"})
        writeFile(scripts / name, "\n");
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("shake", 3, "both.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("swipe", 3, "triggered.e")));
    PlaySettings direct;
    direct.setPlayDirectly(true);
    for (const char* title : {"both.lua", "direct.lua"}) {
        direct.setScriptTitle(title);
        ASSERT_TRUE(DataManager::insertPlaySettings(direct));
    }
    ToolRun listed = tool("scripts");
    for (const char* line : {"◎ ▷  both.lua\n", "  ▷  direct.lua\n", "     plain.lua\n", "◎    triggered.e\n"})
        EXPECT_NE(listed.output.find(line), std::string::npos) << line << " in\n" << listed.output;
    EXPECT_EQ(listed.output.find("notes.txt"), std::string::npos);
}
