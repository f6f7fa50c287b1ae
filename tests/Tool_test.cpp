// The desktop tool run as a user runs it: play (through a real receiver process), encrypt and
// decrypt, settings and scripts. Every refusal exits non-zero with a message and changes nothing.
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

namespace {

// A device tree the tool is pointed at with --root; the test process uses the same store.
struct ToolDevice : FakeDevice {
    fs::path scripts = map(devicepaths::scriptsDirectory);
    ToolDevice() { fs::create_directories(scripts); }
    ToolRun tool(const std::string& arguments, const std::string& environment = "") const {
        return runTool("--root '" + root.path().string() + "' " + arguments, environment);
    }
    std::string script(const std::string& name) const { return "'" + (scripts / name).string() + "'"; }
    std::string log() const { return readFile(map("/var/mobile/Library/Tactora/Library/log.log")); }
};

}  // namespace

TEST(Tool, PlaysThroughTheReceiverWithItsSettingsAndRefusesWhatItCannotPlay) {
    ToolDevice device;
    writeFile(device.scripts / "tap.lua",
              "touchDown(1, 160, 284) usleep(50000) touchUp(1, 160, 284) "
              "log('tapped ' .. getScreenSize()) alert('halfway')");
    fs::path trace = device.root.path() / "trace.jsonl";
    ToolRun run = device.tool("play " + device.script("tap.lua") +
                              " --repeat 2 --interval 0 --speed 1.9 --trace '" + trace.string() + "'");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    // Each pass: the finger down at the pause, lifted at the end-of-run flush.
    EXPECT_EQ(countOf(readFile(trace), "\"kind\":\"digitizer\""), 4u);
    EXPECT_EQ(countOf(device.log(), " tapped 320\n"), 2u) << device.log();
    EXPECT_EQ(countOf(run.output, ": halfway [0: OK]\n"), 2u) << run.output;
    EXPECT_NE(run.output.find(": Tactora - Playing Finished! [0: OK]"), std::string::npos) << run.output;

    writeFile(device.scripts / "secret.lua", "log('the secret ran')");
    ASSERT_EQ(device.tool("encrypt " + device.script("secret.lua") + " --password right").exitCode, 0);
    fs::remove(device.scripts / "secret.lua");
    writeFile(device.scripts / "notes.txt", "log('x')");
    writeFile(device.scripts / "fake.lua.e", "not really encrypted");
    const std::pair<std::string, std::string> refusals[] = {
        {"play " + device.script("missing.lua"), "no such script"},
        {"play " + device.script("notes.txt"), "must end in .lua or .e"},
        {"play " + device.script("fake.lua.e"), "needs its password"},
        {"play " + device.script("fake.lua.e") + " --password pw", "cannot decrypt"},
        {"play " + device.script("secret.lua.e") + " --password wrong", "cannot decrypt secret.lua.e"},
    };
    for (const auto& [arguments, message] : refusals) {
        ToolRun refused = device.tool(arguments);
        EXPECT_EQ(refused.exitCode, 2) << arguments;
        EXPECT_NE(refused.output.find(message), std::string::npos) << refused.output;
    }
    EXPECT_EQ(countOf(device.log(), "the secret ran"), 0u);
    ASSERT_EQ(device.tool("play " + device.script("secret.lua.e") + " --repeat 2 --interval 0",
                          "TACTORA_PASSWORD=right").exitCode, 0);
    EXPECT_EQ(countOf(device.log(), "the secret ran"), 2u) << device.log();
}

TEST(Tool, EncryptsAndDecryptsWithEveryWayOfGivingThePasswordAndLeavesNothingOnFailure) {
    using namespace tactora::crypttest;
    ToolDevice device;
    std::mt19937 random(5);
    const Bytes plain = randomBytes(70000, random);
    const std::string data = (device.scripts / "data.bin").string();
    crypttest::writeFile(data, plain);
    crypttest::writeFile(device.root.file("pw.txt"), bytesOf("pässwörd\n"));

    ASSERT_EQ(runTool("encrypt '" + data + "' --password-file '" + device.root.file("pw.txt") + "'").exitCode, 0);
    EXPECT_EQ(referenceDecrypt(*crypttest::readFile(data + ".e"), "pässwörd"), plain);
    ASSERT_EQ(runTool("decrypt '" + data + ".e' -o '" + data + ".a' --password 'pässwörd'").exitCode, 0);
    EXPECT_EQ(crypttest::readFile(data + ".a"), plain);
    fs::remove(data);
    ASSERT_EQ(runTool("decrypt '" + data + ".e'", "TACTORA_PASSWORD='pässwörd'").exitCode, 0);
    EXPECT_EQ(crypttest::readFile(data), plain);

    auto names = [&] {
        std::vector<std::string> out;
        for (const auto& entry : fs::directory_iterator(device.scripts)) out.push_back(entry.path().filename());
        std::sort(out.begin(), out.end());
        return out;
    };
    crypttest::writeFile(data + ".junk.e", Bytes(200, 9));
    crypttest::writeFile(data + ".short.e", Bytes(40, 3));
    const std::vector<std::string> before = names();
    // No password anywhere and no terminal to ask on; a wrong one; files that are no such thing.
    EXPECT_EQ(runTool("decrypt '" + data + ".e' -o '" + data + ".b'").exitCode, 2);
    EXPECT_EQ(runTool("decrypt '" + data + ".e' -o '" + data + ".b' --password wrong").exitCode, 1);
    EXPECT_EQ(runTool("decrypt '" + data + ".junk.e' --password x").exitCode, 1);
    EXPECT_EQ(runTool("decrypt '" + data + ".short.e' --password x").exitCode, 1);
    EXPECT_EQ(names(), before) << "neither outputs nor temporary files remain";
}

TEST(Tool, SettingsAreStoredChangedThroughTheSettingsMessageAndListedWithTheScripts) {
    ToolDevice device;
    ToolRun first = device.tool("settings --script a.lua --repeat 3 --interval 2 --speed 1.55 --play-directly on");
    ASSERT_EQ(first.exitCode, 0) << first.output;
    ASSERT_EQ(device.tool("settings --script a.lua --speed 1.9").exitCode, 0);
    for (const char* bad : {"settings --script \"it's.lua\" --repeat 1", "settings --repeat 4",
                            "settings --script a.lua --play-directly maybe", "settings --script ../a.lua",
                            "settings --set log-errors=no", "settings --set verbose=on"})
        EXPECT_NE(device.tool(bad).exitCode, 0) << bad;
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    // A script's first settings start from once, a second apart, at normal speed.
    ASSERT_EQ(device.tool("settings --script b.lua --repeat 2").exitCode, 0);
    auto fresh = DataManager::findPlaySettingsByScriptTitle("b.lua");
    ASSERT_TRUE(fresh);
    EXPECT_EQ(std::make_tuple(fresh->playDirectly(), fresh->repeatTime(), fresh->repeatInterval(), fresh->playSpeed()),
              std::make_tuple(false, 2L, 1L, 1.0f));
    auto stored = DataManager::findPlaySettingsByScriptTitle("a.lua");
    ASSERT_TRUE(stored);
    EXPECT_EQ(std::make_tuple(stored->playDirectly(), stored->repeatTime(), stored->repeatInterval(), stored->playSpeed()),
              std::make_tuple(true, 3L, 2L, 1.9f));

    host::FileUserDefaults defaults(host::HostPaths(device.root.path().string()).map(host::userDefaultsDevicePath));
    ToolRun shown = device.tool("settings");
    EXPECT_NE(shown.output.find("log-errors                 on"), std::string::npos) << shown.output;
    EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.SHOW_ERRORS_BY_ALERT"), DefaultsValue(true)) << "a first read stores";
    for (const char* name : {"log-errors", "show-errors-by-alert", "show-play-finished-alert"}) {
        ToolRun set = device.tool(std::string("settings --set ") + name + "=off");
        ASSERT_EQ(set.exitCode, 0) << set.output;
        EXPECT_NE(set.output.find(std::string(name) + std::string(27 - std::strlen(name), ' ') + "off"),
                  std::string::npos) << set.output;
    }
    EXPECT_EQ(defaults.objectForKey(showErrorsByAlertKey), DefaultsValue(false));
    EXPECT_EQ(defaults.objectForKey(logErrorsKey), DefaultsValue(false));

    for (const char* name : {"both.lua", "direct.lua", "plain.lua", "triggered.e", "notes.txt"})
        writeFile(device.scripts / name, "\n");
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("shake", 3, "both.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("swipe", 3, "triggered.e")));
    PlaySettings direct;
    direct.setPlayDirectly(true);
    for (const char* title : {"both.lua", "direct.lua"}) {
        direct.setScriptTitle(title);
        ASSERT_TRUE(DataManager::insertPlaySettings(direct));
    }
    ToolRun listed = device.tool("scripts");
    for (const char* line : {"◎ ▷  both.lua\n", "  ▷  direct.lua\n", "     plain.lua\n", "◎    triggered.e\n"})
        EXPECT_NE(listed.output.find(line), std::string::npos) << line << " in\n" << listed.output;
    EXPECT_EQ(listed.output.find("notes.txt"), std::string::npos);
}
