// The desktop tool as a first-time user meets it: scripts play by title through a real receiver;
// every command line that goes wrong says what went wrong and ends with a status a build script
// can test (0 done, 1 failed, 2 misused), and nothing it does in the user's name happens silently.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "FoundationFakes.h"
#include "ToolProcess.h"

using namespace tactora::testing;
namespace fs = std::filesystem;

namespace {

// A working directory holding a device root with a few scripts and pictures.
class CommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(scripts() / "syntax.lua", "log(");
        writeFile(scripts() / "runtime.lua", "error('boom')");
        writeFile(scripts() / ".lua", "log('dot lua ran') vibrate()");
        writeFile(scripts() / "alerting.lua", "touchDown(1, 160, 284) usleep(50000) touchUp(1, 160, 284) "
                                              "log('alerting ran ' .. getScreenSize()) alert('hi') vibrate()");
        writeFile(scripts() / "notes.txt", "log('x')");
        writeFile(here() / "odd.png", solidPng(100, 50, 0x102030));
        writeFile(here() / "secret.lua", "log('the secret ran')");
    }
    fs::path here() const { return directory.path(); }
    fs::path root() const { return here() / "root"; }
    fs::path scripts() const { return root() / "var/mobile/Library/Tactora/Scripts"; }
    std::string log() const { return readFile(root() / "var/mobile/Library/Tactora/Library/log.log"); }
    ToolRun tool(const std::string& arguments, const std::string& environment = "") const {
        return runTool(arguments, environment, here().string());
    }

    ScratchDirectory directory;
};

TEST_F(CommandLine, EveryMistakeIsNamedAndEndsWithItsStatus) {
    ASSERT_EQ(tool("--root root encrypt secret.lua --password pw").exitCode, 0);
    fs::copy_file(here() / "secret.lua.e", scripts() / "secret.lua.e");
    const struct {
        std::string arguments;
        int exitCode;
        std::vector<std::string> errors;  // each is in standard error
    } cases[] = {
        // A failed pass fails the command, so that a build can depend on a script.
        {"play syntax.lua", 1, {"1 pass of syntax.lua ended in an error"}},
        {"play runtime.lua --repeat 2 --interval 0", 1, {"2 passes of runtime.lua"}},
        {"sim --headless --run runtime.lua", 1, {"ended in an error"}},
        {"sim --headless --run nothing.lua", 1, {"no such script: nothing.lua"}},
        // A title is looked for in the scripts directory.
        {"play nothing.lua", 2, {"no such script: nothing.lua", "tactora scripts lists them"}},
        {"play notes.txt", 2, {"must end in .lua or .e"}},
        {"play secret.lua.e", 2, {"needs its password"}},
        {"play secret.lua.e --password wrong", 2, {"cannot decrypt secret.lua.e"}},
        {"bogus", 2, {"unknown command \"bogus\"", "the commands are: ", "play", "decrypt"}},
        {"", 2, {"no command given", "play"}},
        {"play", 2, {"script is required"}},
        {"play alerting.lua --repeat many", 2, {"--repeat"}},
        // Pictures that do not fit the device are refused with both sizes.
        {"--screen odd.png play alerting.lua", 2, {"odd.png is 100x50 pixels", "640x1136"}},
        {"sim --scene odd.png --headless --run alerting.lua", 2, {"100x50", "640x1136", "--device"}},
        // Nothing is overwritten unasked.
        {"decrypt secret.lua.e --password pw", 1, {"secret.lua already exists", "--force"}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.arguments);
        ToolRun run = tool("--root root " + test.arguments);
        EXPECT_EQ(run.exitCode, test.exitCode) << run.err;
        for (const std::string& error : test.errors) EXPECT_NE(run.err.find(error), std::string::npos) << run.err;
    }
    EXPECT_NE(tool("--root '' scripts").err.find("the root must name a directory"), std::string::npos);
    EXPECT_EQ(log().find("ran"), std::string::npos) << "a refused run played\n" << log();
    EXPECT_EQ(readFile(here() / "secret.lua"), "log('the secret ran')");
    writeFile(here() / "secret.lua", "");
    EXPECT_EQ(tool("--root root decrypt secret.lua.e --password pw --force").exitCode, 0);
    EXPECT_EQ(readFile(here() / "secret.lua"), "log('the secret ran')");
}

TEST_F(CommandLine, ScriptsPlayByTitleThroughTheReceiverWithOneAlertFormatAndFeedbackOnlyWhenAsked) {
    // From a directory that holds no scripts, by title, with a name the lists and the player agree on.
    ToolRun list = tool("--root root scripts");
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_NE(list.out.find(".lua\n"), std::string::npos) << list.out;
    // The control panel lists the same names on the console of `run`.
    writeFile(here() / "panel.txt", "event libactivator.volume.down.hold-short\nquit\n");
    ToolRun panel = tool("--root root run --port 0 <panel.txt");
    EXPECT_NE(panel.out.find(": .lua\n"), std::string::npos) << panel.out;
    EXPECT_NE(panel.out.find(": alerting.lua\n"), std::string::npos) << panel.out;

    ToolRun quiet = tool("--root root play alerting.lua --repeat 2 --interval 0 --speed 1.9 --trace trace.jsonl");
    EXPECT_EQ(quiet.exitCode, 0) << quiet.err;
    // Each pass: the finger down at the pause, lifted at the end-of-run flush.
    EXPECT_EQ(countOf(readFile(here() / "trace.jsonl"), "\"kind\":\"digitizer\""), 4u);
    EXPECT_EQ(countOf(log(), " alerting ran 320\n"), 2u) << log();
    EXPECT_NE(quiet.out.find("alert #2: hi [0: OK]\n"), std::string::npos) << quiet.out;
    EXPECT_NE(quiet.out.find("alert #3: Tactora - Playing Finished! [0: OK]\n"), std::string::npos) << quiet.out;
    EXPECT_EQ(quiet.err.find("vibrate"), std::string::npos) << quiet.err;
    ASSERT_EQ(tool("--root root encrypt secret.lua --password right").exitCode, 0);
    fs::rename(here() / "secret.lua.e", scripts() / "secret.lua.e");
    EXPECT_EQ(tool("--root root play secret.lua.e --repeat 2 --interval 0", "TACTORA_PASSWORD=right").exitCode, 0);
    EXPECT_EQ(countOf(log(), "the secret ran"), 2u) << log();
    ToolRun verbose = tool("--root root --verbose play .lua");
    EXPECT_EQ(verbose.exitCode, 0) << verbose.err;
    EXPECT_NE(verbose.err.find("[vibrate]"), std::string::npos) << verbose.err;
    EXPECT_NE(log().find("dot lua ran"), std::string::npos) << log();

    // The simulator takes a picture of another device as the choice of it, and explains the
    // feedback where it prints it.
    writeFile(here() / "eight.png", solidPng(750, 1334, 0x102030));
    ToolRun sim = tool("--root root sim --scene eight.png --headless --run alerting.lua");
    EXPECT_EQ(sim.exitCode, 0) << sim.err;
    EXPECT_NE(sim.err.find("750x1334 pixels, the screen of iphone-8"), std::string::npos) << sim.err;
    EXPECT_NE(sim.out.find("alert #1: hi [0: OK]\n"), std::string::npos) << sim.out;
    EXPECT_NE(sim.out.find("feedback: vibrate (the phone would vibrate here)"), std::string::npos) << sim.out;
}

TEST_F(CommandLine, AFreshRootIsMadeWithThePackageFilesAndSaidSo) {
    writeFile(here() / "fresh.lua", "log('first')");
    ToolRun run = tool("--root new/root play fresh.lua");
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
    EXPECT_EQ(tool("--root new/root scripts").err.find("created"), std::string::npos);
    EXPECT_EQ(readFile(extensions), "");
}

TEST_F(CommandLine, DesktopPathsInScriptsAreExplainedOncePerPathOnAScreenThatFits) {
    writeFile(here() / "icon.png", solidPng(4, 4, 0xFF0000));
    fs::create_directories(here() / "shots");
    const std::string icon = (here() / "icon.png").string(), shot = (here() / "shots/r.png").string();
    writeFile(scripts() / "desktop.lua", "log(('colour %06X'):format(getColor(5, 5))) for i = 1, 3 do "
                                         "findImage{imagePath = '" + icon + "'} end screenshotRegion('" + shot +
                                         "', 0, 0, 10, 10) findImage{imagePath = rootDir() .. 'none.png'}");
    ToolRun run = tool("--root root --device 100x50@1 --screen odd.png play desktop.lua");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(log().find("colour 102030"), std::string::npos) << log();
    EXPECT_EQ(countOf(run.err, "findImage(\"" + icon + "\")"), 1u) << run.err;
    EXPECT_EQ(countOf(run.err, "screenshotRegion(\"" + shot + "\")"), 1u) << run.err;
    // Where it was looked for, and what to do about it.
    EXPECT_NE(run.err.find((root() / here().relative_path() / "icon.png").string()), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("rootDir() .. \"icon.png\""), std::string::npos) << run.err;
    // A file that is missing under the root and on the desktop alike is simply missing.
    EXPECT_EQ(run.err.find("none.png"), std::string::npos) << run.err;
}

}  // namespace
