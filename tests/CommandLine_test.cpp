// The desktop tool as a first-time user meets it: every command line that goes wrong says what
// went wrong and ends with a status a build script can test (0 done, 1 failed, 2 misused), and
// nothing it does in the user's name happens silently.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "CommandLineRun.h"

using namespace tactora;
using namespace tactora::testing;
namespace fs = std::filesystem;

namespace {

// A working directory holding a device root with a few scripts, pictures and an encrypted file.
class CommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(scripts() / "good.lua", "log('good ran')");
        writeFile(scripts() / "syntax.lua", "log(");
        writeFile(scripts() / "runtime.lua", "error('boom')");
        writeFile(scripts() / ".lua", "log('dot lua ran')");
        writeFile(scripts() / "alerting.lua", "alert('hi') vibrate()");
        writeFile(here() / "odd.png", solidPng(100, 50, 0x102030));
        writeFile(here() / "eight.png", solidPng(750, 1334, 0x102030));
        writeFile(here() / "plain.txt", "the only copy");
        ASSERT_EQ(runCommand(here(), {"--root", "root", "encrypt", "plain.txt", "--password", "pw"}).exitCode, 0);
    }
    fs::path here() const { return directory.path(); }
    fs::path root() const { return here() / "root"; }
    fs::path scripts() const { return root() / "var/mobile/Library/Tactora/Scripts"; }
    std::string log() const { return readFile(root() / "var/mobile/Library/Tactora/Library/log.log"); }

    ScratchDirectory directory;
};

TEST_F(CommandLine, EveryMistakeIsNamedAndEndsWithItsStatus) {
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::vector<std::string> errors;  // each is in standard error
    };
    const std::vector<std::string> root = {"--root", "root"};
    auto with = [&](std::vector<std::string> tail) {
        std::vector<std::string> all = root;
        all.insert(all.end(), tail.begin(), tail.end());
        return all;
    };
    const Case cases[] = {
        // A failed pass fails the command, so that a build can depend on a script.
        {with({"play", "syntax.lua"}), 1, {"1 pass of syntax.lua ended in an error"}},
        {with({"play", "runtime.lua", "--repeat", "2", "--interval", "0"}), 1, {"2 passes of runtime.lua"}},
        {with({"sim", "--headless", "--run", "runtime.lua"}), 1, {"ended in an error"}},
        {with({"sim", "--headless", "--run", "nothing.lua"}), 1, {"no such script: nothing.lua"}},
        // A title is looked for in the scripts directory.
        {with({"play", "nothing.lua"}), 2, {"no such script: nothing.lua", "tactora scripts lists them"}},
        // Usage errors, whichever command they concern.
        {with({"bogus"}), 2, {"unknown command \"bogus\"", "the commands are: ", "play", "decrypt"}},
        {with({}), 2, {"no command given", "play"}},
        {with({"play"}), 2, {"script is required"}},
        {with({"play", "good.lua", "--repeat", "many"}), 2, {"--repeat"}},
        {{"--root", "", "scripts"}, 2, {"the root must name a directory"}},
        // Pictures that do not fit the device are refused with both sizes.
        {with({"--screen", "odd.png", "play", "good.lua"}), 2, {"odd.png is 100x50 pixels", "640x1136"}},
        {with({"sim", "--scene", "odd.png", "--headless", "--run", "good.lua"}), 2, {"100x50", "640x1136", "--device"}},
        // Nothing is overwritten unasked.
        {with({"decrypt", "plain.txt.e", "--password", "pw"}), 1, {"plain.txt already exists", "--force"}},
    };
    for (const Case& test : cases) {
        std::string line;
        for (const auto& argument : test.arguments) line += " '" + argument + "'";
        SCOPED_TRACE(line);
        CommandOutcome run = runCommand(here(), test.arguments);
        EXPECT_EQ(run.exitCode, test.exitCode) << run.err;
        for (const std::string& error : test.errors) EXPECT_NE(run.err.find(error), std::string::npos) << run.err;
    }
    EXPECT_EQ(readFile(here() / "plain.txt"), "the only copy");
    EXPECT_EQ(runCommand(here(), with({"decrypt", "plain.txt.e", "--password", "pw", "--force"})).exitCode, 0);
}

TEST_F(CommandLine, ScriptsAreFoundByTitleAndEveryListedScriptPlays) {
    // From a directory that holds no scripts, by title, with a name the lists and the player agree on.
    CommandOutcome list = runCommand(here(), {"--root", "root", "scripts"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_NE(list.out.find(".lua\n"), std::string::npos) << list.out;
    // The control panel lists the same names (its lines are read from the console of `run`).
    const std::string panel = "cd '" + here().string() + "' && printf 'event libactivator.volume.down.hold-short\\nquit\\n' | '" +
                              TACTORA_CLI + "' --root root run --port 0 2>/dev/null";
    FILE* console = ::popen(panel.c_str(), "r");
    ASSERT_TRUE(console);
    std::string shown;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, console)) > 0;) shown.append(buffer, n);
    ::pclose(console);
    EXPECT_NE(shown.find(": .lua\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find(": good.lua\n"), std::string::npos) << shown;
    EXPECT_EQ(runCommand(here(), {"--root", "root", "play", "good.lua"}).exitCode, 0);
    CommandOutcome dot = runCommand(here(), {"--root", "root", "play", ".lua"});
    EXPECT_EQ(dot.exitCode, 0) << dot.err;
    EXPECT_NE(log().find("good ran"), std::string::npos) << log();
    EXPECT_NE(log().find("dot lua ran"), std::string::npos) << log();
}

TEST_F(CommandLine, AFreshRootIsMadeWithThePackageFilesAndSaidSo) {
    writeFile(here() / "fresh.lua", "log('first')");
    CommandOutcome run = runCommand(here(), {"--root", "new/root", "play", "fresh.lua"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(countOf(run.err, "created"), 1u) << run.err;
    EXPECT_NE(run.err.find("new/root"), std::string::npos) << run.err;
    const fs::path extensions = here() / "new/root/Applications/Tactora.app/Extensions.lua";
    EXPECT_NE(readFile(extensions).find("Extensions.lua"), std::string::npos);
    // The interpreter found it: the log holds the script's line only.
    const std::string firstLog = readFile(here() / "new/root/var/mobile/Library/Tactora/Library/log.log");
    EXPECT_EQ(lines(firstLog).size(), 1u) << firstLog;
    EXPECT_NE(firstLog.find(" first"), std::string::npos) << firstLog;
    // A second run neither announces nor replaces anything; a file the owner emptied stays empty.
    writeFile(extensions, "");
    run = runCommand(here(), {"--root", "new/root", "scripts"});
    EXPECT_EQ(run.err.find("created"), std::string::npos) << run.err;
    EXPECT_EQ(readFile(extensions), "");
}

TEST_F(CommandLine, AlertsHaveOneFormatAndFeedbackShowsOnlyWhenAsked) {
    CommandOutcome quiet = runCommand(here(), {"--root", "root", "play", "alerting.lua"});
    EXPECT_EQ(quiet.exitCode, 0) << quiet.err;
    EXPECT_NE(quiet.out.find("alert #1: hi [0: OK]\n"), std::string::npos) << quiet.out;
    EXPECT_NE(quiet.out.find("alert #2: Tactora - Playing Finished! [0: OK]\n"), std::string::npos) << quiet.out;
    EXPECT_EQ(quiet.err.find("vibrate"), std::string::npos) << quiet.err;
    CommandOutcome verbose = runCommand(here(), {"--root", "root", "--verbose", "play", "alerting.lua"});
    EXPECT_NE(verbose.err.find("[vibrate]"), std::string::npos) << verbose.err;
    // The simulator's console explains the same line where it prints it.
    CommandOutcome sim = runCommand(here(), {"--root", "root", "sim", "--headless", "--run", "alerting.lua"});
    EXPECT_EQ(sim.exitCode, 0) << sim.err;
    EXPECT_NE(sim.out.find("alert #1: hi [0: OK]\n"), std::string::npos) << sim.out;
    EXPECT_NE(sim.out.find("feedback: vibrate (the phone would vibrate here)"), std::string::npos) << sim.out;
}

TEST_F(CommandLine, PicturesOfAnotherDeviceChooseItAndFitScreensAreShown) {
    CommandOutcome sim = runCommand(here(), {"--root", "root", "sim", "--scene", "eight.png", "--headless", "--run",
                                             "good.lua"});
    EXPECT_EQ(sim.exitCode, 0) << sim.err;
    EXPECT_NE(sim.err.find("750x1334 pixels, the screen of iphone-8"), std::string::npos) << sim.err;
    writeFile(scripts() / "colour.lua", "log(('colour %06X'):format(getColor(5, 5)))");
    CommandOutcome play =
        runCommand(here(), {"--root", "root", "--device", "100x50@1", "--screen", "odd.png", "play", "colour.lua"});
    EXPECT_EQ(play.exitCode, 0) << play.err;
    EXPECT_NE(log().find("colour 102030"), std::string::npos) << log();
}

TEST_F(CommandLine, DesktopPathsInScriptsAreExplainedOncePerPath) {
    writeFile(here() / "icon.png", solidPng(4, 4, 0xFF0000));
    fs::create_directories(here() / "shots");
    const std::string icon = (here() / "icon.png").string(), shot = (here() / "shots/r.png").string();
    writeFile(scripts() / "desktop.lua", "for i = 1, 3 do findImage{imagePath = '" + icon +
                                             "'} end screenshotRegion('" + shot +
                                             "', 0, 0, 10, 10) findImage{imagePath = rootDir() .. 'none.png'}");
    CommandOutcome run = runCommand(here(), {"--root", "root", "play", "desktop.lua"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(countOf(run.err, "findImage(\"" + icon + "\")"), 1u) << run.err;
    EXPECT_EQ(countOf(run.err, "screenshotRegion(\"" + shot + "\")"), 1u) << run.err;
    // Where it was looked for, and what to do about it.
    EXPECT_NE(run.err.find((root() / here().relative_path() / "icon.png").string()), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("rootDir() .. \"icon.png\""), std::string::npos) << run.err;
    // A file that is missing under the root and on the desktop alike is simply missing.
    EXPECT_EQ(run.err.find("none.png"), std::string::npos) << run.err;
}

}  // namespace
