// The desktop tool as a user meets it: every documented example works as written; a command line that
// goes wrong says why, exits 1 (failed) or 2 (misused) and changes nothing; nothing happens silently.
#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "CryptTestSupport.h"
#include "Managers/DataManager.h"
#include "ToolProcess.h"
#include "host/FileUserDefaults.h"

using namespace tactora;
using namespace tactora::testing;
namespace fs = std::filesystem;

namespace {

// Each of `parts` occurs in `text`.
void expectIn(const std::string& text, std::initializer_list<std::string> parts) {
    for (const auto& part : parts) EXPECT_NE(text.find(part), std::string::npos) << part << " in\n" << text;
}

// A working directory beside a device root whose store this process reads as the tool writes it.
class CommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(scripts() / "alerting.lua", "touchDown(1, 160, 284) usleep(50000) touchUp(1, 160, 284) "
                                              "log('alerting ran ' .. getScreenSize()) alert('hi') vibrate()");
        writeFile(scripts() / ".lua", "log('dot lua ran') vibrate()");
        writeFile(here() / "odd.png", solidPng(100, 50, 0x102030));
        writeFile(here() / "secret.lua", "log('the secret ran')");
    }
    fs::path here() const { return directory.path(); }
    fs::path scripts() const { return device.map(devicepaths::scriptsDirectory); }
    std::string log() const { return readFile(device.map("/var/mobile/Library/Tactora/Library/log.log")); }
    ToolRun tool(const std::string& arguments, const std::string& environment = "") const {
        return runTool("--root '" + device.root.path().string() + "' " + arguments, environment, here().string());
    }

    FakeDevice device;
    ScratchDirectory directory;
};
using Tool = CommandLine;
using ScriptApi = CommandLine;

TEST_F(CommandLine, EveryMistakeIsNamedAndEndsWithItsStatusAndChangesNothing) {
    for (const auto& [name, text] : {std::pair{"syntax.lua", "log("}, {"runtime.lua", "error('boom')"}, {"notes.txt", "log('x')"}})
        writeFile(scripts() / name, text);
    ASSERT_EQ(tool("encrypt secret.lua --password pw").exitCode, 0);
    fs::copy_file(here() / "secret.lua.e", scripts() / "secret.lua.e");
    writeFile(here() / "secret.lua", "the only copy");
    struct Case { std::string arguments; int exitCode; std::vector<std::string> errors; };  // each error is in stderr
    std::vector<Case> cases = {
        // A failed pass fails the command, so that a build can depend on a script.
        {"play syntax.lua", 1, {"1 pass of syntax.lua ended in an error"}},
        {"play runtime.lua --repeat 2 --interval 0", 1, {"2 passes of runtime.lua"}},
        {"sim --headless --run runtime.lua", 1, {"ended in an error"}},
        {"sim --headless --run nothing.lua", 1, {"no such script: nothing.lua"}},
        // A title is looked for in the scripts directory.
        {"play nothing.lua", 2, {"no such script: nothing.lua", "tactora scripts lists them"}},
        {"play notes.txt", 2, {"must end in .lua or .e"}}, {"play secret.lua.e", 2, {"needs its password"}},
        {"play secret.lua.e --password wrong", 2, {"cannot decrypt secret.lua.e"}},
        {"bogus", 2, {"unknown command \"bogus\"", "the commands are: ", "play", "decrypt"}},
        {"", 2, {"no command given", "play"}}, {"play", 2, {"script is required"}},
        {"play alerting.lua --repeat many", 2, {"--repeat"}},
        {"settings --script \"it's.lua\" --repeat 1", 1, {"titles with an apostrophe cannot be"}},
        {"settings --script ../a.lua", 2, {"not a path"}}, {"settings --repeat 4", 2, {}},
        {"settings --script a.lua --play-directly maybe", 2, {"--play-directly"}},
        {"settings --set log-errors=no", 2, {"log-errors"}}, {"settings --set verbose=on", 2, {"verbose"}},
        // Pictures that do not fit the device are refused with both sizes.
        {"--screen odd.png play alerting.lua", 2, {"odd.png is 100x50 pixels", "640x1136"}},
        {"sim --scene odd.png --headless --run alerting.lua", 2, {"100x50", "640x1136", "--device"}},
        // Nothing is overwritten unasked.
        {"decrypt secret.lua.e --password pw", 1, {"secret.lua already exists", "--force"}},
    };
    // Play and settings take only what the phone's play settings panel can give.
    const struct { std::string option, range; std::vector<std::string> values; } outOfRange[] = {
        {"--speed", "a number from 0.1 to 1.9", {"0.09", "1.91", "nan", "1x"}},
        {"--interval", "whole seconds from 0 to 1000000", {"-1", "1000001", "1.5"}},
        {"--repeat", "a whole number, 0 or more", {"-1", "inf", "99999999999999999999"}}};
    for (const auto& limit : outOfRange)
        for (const auto& value : limit.values)
            for (const char* command : {"settings --script alerting.lua ", "play alerting.lua "})
                cases.push_back({command + limit.option + " " + value, 2, {limit.option + " must be " + limit.range}});
    for (const auto& test : cases) {
        SCOPED_TRACE(test.arguments);
        ToolRun run = tool(test.arguments);
        EXPECT_EQ(run.exitCode, test.exitCode) << run.err;
        for (const std::string& error : test.errors) EXPECT_NE(run.err.find(error), std::string::npos) << run.err;
    }
    ToolRun noRoot = runTool("--root '' scripts");
    EXPECT_EQ(noRoot.exitCode, 2);
    expectIn(noRoot.err, {"the root must name a directory"});
    EXPECT_EQ(log().find(" ran"), std::string::npos) << "a refused run played";
    EXPECT_EQ(DataManager::countPlaySettings(), 0) << "a refused setting was stored";
    EXPECT_EQ(readFile(here() / "secret.lua"), "the only copy");
    EXPECT_EQ(tool("decrypt secret.lua.e --password pw --force").exitCode, 0);
    EXPECT_EQ(readFile(here() / "secret.lua"), "log('the secret ran')");
}

TEST_F(CommandLine, ScriptsPlayByTitleThroughTheReceiverWithOneAlertFormatAndFeedbackOnlyWhenAsked) {
    // From a directory that holds no scripts, by title, with a name the lists and the player agree
    // on: the control panel lists them on the console of `run`.
    writeFile(here() / "panel.txt", "event libactivator.volume.down.hold-short\nquit\n");
    expectIn(tool("run --port 0 <panel.txt").out, {": .lua\n", ": alerting.lua\n"});

    ToolRun quiet = tool("play alerting.lua --repeat 2 --interval 0 --speed 1.9 --trace trace.jsonl");
    EXPECT_EQ(quiet.exitCode, 0) << quiet.err;
    // Each pass: the finger down at the pause, lifted at the end-of-run flush.
    EXPECT_EQ(countOf(readFile(here() / "trace.jsonl"), "\"kind\":\"digitizer\""), 4u);
    EXPECT_EQ(countOf(log(), " alerting ran 320\n"), 2u) << log();
    expectIn(quiet.out, {"alert #2: hi [0: OK]\n", "alert #3: Tactora - Playing Finished! [0: OK]\n"});
    EXPECT_EQ(quiet.err.find("vibrate"), std::string::npos) << quiet.err;
    ASSERT_EQ(tool("encrypt secret.lua --password right -o '" + (scripts() / "secret.lua.e").string() + "'").exitCode, 0);
    EXPECT_EQ(tool("play secret.lua.e --repeat 2 --interval 0", "TACTORA_PASSWORD=right").exitCode, 0);
    EXPECT_EQ(countOf(log(), "the secret ran"), 2u) << log();
    ToolRun verbose = tool("--verbose play .lua");
    EXPECT_EQ(verbose.exitCode, 0) << verbose.err;
    expectIn(verbose.err, {"[vibrate]"});
    expectIn(log(), {"dot lua ran"});

    // A picture of another device chooses that device; feedback is explained where it is printed.
    writeFile(here() / "eight.png", solidPng(750, 1334, 0x102030));
    ToolRun sim = tool("sim --scene eight.png --headless --run alerting.lua");
    EXPECT_EQ(sim.exitCode, 0) << sim.err;
    expectIn(sim.err, {"750x1334 pixels, the screen of iphone-8"});
    expectIn(sim.out, {"alert #1: hi [0: OK]\n", "feedback: vibrate (the phone would vibrate here)"});
}

TEST_F(CommandLine, AFreshRootIsMadeWithThePackageFilesAndSaidSo) {
    writeFile(here() / "fresh.lua", "log('first')");
    ToolRun run = runTool("--root new/root play fresh.lua", "", here());
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(countOf(run.err, "created"), 1u) << run.err;
    expectIn(run.err, {"new/root"});
    const fs::path extensions = here() / "new/root/Applications/Tactora.app/Extensions.lua";
    expectIn(readFile(extensions), {"Extensions.lua"});
    // The interpreter found it: the log holds the script's line only.
    const std::string firstLog = readFile(here() / "new/root/var/mobile/Library/Tactora/Library/log.log");
    EXPECT_EQ(lines(firstLog).size(), 1u) << firstLog;
    expectIn(firstLog, {" first"});
    // A second run neither announces nor replaces anything; a file the owner emptied stays empty.
    writeFile(extensions, "");
    EXPECT_EQ(runTool("--root new/root scripts", "", here()).err.find("created"), std::string::npos);
    EXPECT_EQ(readFile(extensions), "");
}

TEST_F(CommandLine, DesktopPathsInScriptsAreExplainedOncePerPathOnAScreenThatFits) {
    writeFile(here() / "icon.png", solidPng(4, 4, 0xFF0000));
    fs::create_directories(here() / "shots");
    const std::string icon = (here() / "icon.png").string(), shot = (here() / "shots/r.png").string();
    writeFile(scripts() / "desktop.lua", "log(('colour %06X'):format(getColor(5, 5))) for i = 1, 3 do "
                                         "findImage{imagePath = '" + icon + "'} end screenshotRegion('" + shot +
                                         "', 0, 0, 10, 10) findImage{imagePath = rootDir() .. 'none.png'}");
    ToolRun run = tool("--device 100x50@1 --screen odd.png play desktop.lua");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    expectIn(log(), {"colour 102030"});
    EXPECT_EQ(countOf(run.err, "findImage(\"" + icon + "\")"), 1u) << run.err;
    EXPECT_EQ(countOf(run.err, "screenshotRegion(\"" + shot + "\")"), 1u) << run.err;
    // Where it was looked for and what to do; a file missing on the desktop too is simply missing.
    expectIn(run.err,
             {(device.root.path() / here().relative_path() / "icon.png").string(), "rootDir() .. \"icon.png\""});
    EXPECT_EQ(run.err.find("none.png"), std::string::npos) << run.err;
}

TEST_F(Tool, EncryptsAndDecryptsWithEveryWayOfGivingThePasswordAndLeavesNothingOnFailure) {
    using namespace tactora::crypttest;
    std::mt19937 random(5);
    const Bytes plain = randomBytes(70000, random);
    crypttest::writeFile(directory.file("data.bin"), plain);
    crypttest::writeFile(directory.file("pw.txt"), bytesOf("pässwörd\n"));
    ASSERT_EQ(tool("encrypt data.bin --password-file pw.txt").exitCode, 0);
    EXPECT_EQ(referenceDecrypt(*crypttest::readFile(directory.file("data.bin.e")), "pässwörd"), plain);
    ASSERT_EQ(tool("decrypt data.bin.e -o data.a --password 'pässwörd'").exitCode, 0);
    EXPECT_EQ(crypttest::readFile(directory.file("data.a")), plain);
    fs::remove(here() / "data.bin");
    ASSERT_EQ(tool("decrypt data.bin.e", "TACTORA_PASSWORD='pässwörd'").exitCode, 0);
    EXPECT_EQ(crypttest::readFile(directory.file("data.bin")), plain);

    auto names = [&] { return std::set<fs::path>(fs::directory_iterator(here()), fs::directory_iterator()); };
    crypttest::writeFile(directory.file("junk.e"), Bytes(200, 9));
    crypttest::writeFile(directory.file("short.e"), Bytes(40, 3));
    const auto before = names();
    // No password anywhere and no terminal to ask on; a wrong one; files that are no such thing.
    const std::tuple<const char*, int, const char*> refusals[] = {
        {"data.bin.e -o b", 2, "no password"}, {"data.bin.e -o b --password wrong", 1, "wrong password or damaged file"},
        {"junk.e --password x", 1, "junk.e is not an encrypted script"}, {"short.e --password x", 1, "too short"}};
    for (const auto& [arguments, exitCode, message] : refusals) {
        ToolRun run = tool(std::string("decrypt ") + arguments);
        EXPECT_EQ(run.exitCode, exitCode) << arguments;
        expectIn(run.err, {message});
    }
    EXPECT_EQ(names(), before) << "neither outputs nor temporary files remain";
}

TEST_F(Tool, SettingsAreStoredChangedThroughTheSettingsMessageAndListedWithTheScripts) {
    ASSERT_EQ(tool("settings --script a.lua --repeat 3 --interval 2 --speed 1.55 --play-directly on").exitCode, 0);
    ASSERT_EQ(tool("settings --script a.lua --speed 1.9").exitCode, 0);
    // The panel's limits are taken; first settings start from once, a second apart, at normal speed.
    expectIn(tool("settings --script ran.lua --speed 0.1 --interval 1000000 --repeat 0").out, {"1000000s    0.1"});
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
    expectIn(tool("settings").out, {"log-errors                 on"});
    EXPECT_EQ(defaults.objectForKey(showErrorsByAlertKey), DefaultsValue(true)) << "a first read stores";
    for (std::string name : {"log-errors", "show-errors-by-alert", "show-play-finished-alert"}) {
        ToolRun set = tool("settings --set " + name + "=off");
        EXPECT_EQ(set.exitCode, 0) << set.err;
        expectIn(set.out, {name + std::string(27 - name.size(), ' ') + "off"});
    }
    EXPECT_EQ(defaults.objectForKey(showErrorsByAlertKey), DefaultsValue(false));
    EXPECT_EQ(defaults.objectForKey(logErrorsKey), DefaultsValue(false));

    for (const char* name : {"both.lua", "direct.lua", "plain.lua", "triggered.e", "notes.txt"})
        writeFile(scripts() / name, "\n");
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("shake", 3, "both.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("swipe", 3, "triggered.e")));
    for (const char* title : {"both.lua", "direct.lua"})
        ASSERT_EQ(tool(std::string("settings --play-directly on --script ") + title).exitCode, 0);
    ToolRun listed = tool("scripts");
    expectIn(listed.out, {"◎ ▷  both.lua\n", "  ▷  direct.lua\n", "     plain.lua\n", "◎    triggered.e\n", "     .lua\n"});
    EXPECT_EQ(listed.out.find("notes.txt"), std::string::npos);
}

// The example column of the README's script API table, or every ```LANGUAGE block of a file.
std::vector<std::string> examplesIn(const std::string& relative, const std::string& language = "") {
    std::string text = readFile(fs::path(TACTORA_SOURCE_DIR) / relative);
    if (language.empty()) {
        const auto table = text.find("| function | arguments → results | example |");
        text = text.substr(table, text.find("\n\n", table) + 1 - table);
    }
    const std::regex example(language.empty() ? R"(\| `((?:(?!\| `)[^\n])*)` \|\n)"
                                              : "```" + language + R"(\n([\s\S]*?)```)");
    std::vector<std::string> examples;
    for (std::sregex_iterator it(text.begin(), text.end(), example), end; it != end; ++it) examples.push_back((*it)[1]);
    return examples;
}

TEST_F(ScriptApi, EveryExampleOfTheDocsRunsAsWrittenAndIgnoreColorsMeansWhatItSays) {
    std::vector<std::string> examples = examplesIn("README.md");
    const std::size_t fromReadme = examples.size();
    for (std::string& example : examplesIn("docs/script-api.md", "lua")) examples.push_back(std::move(example));
    ASSERT_GE(fromReadme, 20u);
    ASSERT_GE(examples.size() - fromReadme, 8u);
    // The files the examples name as the author's own, beside the scripts.
    for (const auto& [name, text] : {std::pair{"common.lua", std::string("common = true")}, {"helpers.lua", "return {}"},
                                     {"icon.png", solidPng(8, 8, 0x4BD863)}, {"ok-button.png", solidPng(8, 8, 0xFFFFFF)},
                                     {"white.png", solidPng(2, 2, 0xFFFFFF)}})
        writeFile(scripts() / name, text);
    // A white template matches the corner of a white screen's one red pixel only when a table ignores red.
    std::vector<std::uint8_t> screen(std::size_t(640) * 1136 * 4, 0xFF);
    screen[1] = screen[2] = 0;
    auto picture = host::PngCodec().encodePng(screen.data(), 640, 1136, 640 * 4);
    ASSERT_TRUE(picture);
    writeFile(here() / "screen.png", std::string(picture->begin(), picture->end()));
    const std::string ignoring =
        "local function corner(ignore) local ok, hits = pcall(findImage, {imagePath = rootDir() .. 'white.png', "
        "ignoreColors = ignore}) if not ok then return tostring(hits) end for _, p in ipairs(hits) do "
        "if p[1] == 0 and p[2] == 0 then return true end end return false end "
        "assert(not corner(nil) and not corner(0xFF0000) and not corner(true) and corner({0xFF0000})) "
        "assert(corner('0xFF0000'):find('ignoreColors must be a table, got string', 1, true))";
    // Each example is a chunk of its own; a failure names it and the run goes on.
    std::string script = "local examples = {\n";
    for (const std::string& example : examples) script += "[==========[" + example + "]==========],\n";
    script += "[==========[" + ignoring + "]==========],\n}\nfor i, text in ipairs(examples) do\n"
              "  local chunk, problem = load(text, 'example ' .. i)\n"
              "  local ran = chunk and {pcall(chunk)} or {false, problem}\n"
              "  if not ran[1] then log('EXAMPLE FAILED: ' .. text .. ' -> ' .. tostring(ran[2])) end\n"
              "end\nlog('EXAMPLES RAN ' .. #examples)\n";
    writeFile(scripts() / "examples.lua", script);

    ToolRun run = tool("--screen screen.png play examples.lua --speed 1.9");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(log().find("EXAMPLE FAILED"), std::string::npos) << log();
    expectIn(log(), {"EXAMPLES RAN " + std::to_string(examples.size() + 1)});
    EXPECT_EQ(run.err.find("tactora:"), std::string::npos) << run.err;
    // An example that writes a picture leaves it where it says.
    const std::regex written(R"re(screenshot\w*\(rootDir\(\) \.\. "([^"]+)")re");
    std::size_t pictures = 0;
    for (const std::string& example : examples) {
        if (example.find("screenshot") == std::string::npos) continue;
        std::smatch match;
        ASSERT_TRUE(std::regex_search(example, match, written)) << "writes outside the scripts directory: " << example;
        EXPECT_TRUE(fs::is_regular_file(scripts() / match[1].str())) << example;
        ++pictures;
    }
    EXPECT_GE(pictures, 3u);

    // The recording and trace documents' examples too.
    writeFile(here() / "events.jsonl", examplesIn("docs/recording.md", "json").at(0));
    writeFile(here() / "trace.lua", examplesIn("docs/trace-format.md", "lua").at(0));
    EXPECT_EQ(tool("record --input events.jsonl --output r.lua").exitCode, 0);
    expectIn(readFile(here() / "r.lua"), {"homeButtonUp()"});
    EXPECT_EQ(tool("play trace.lua --trace t.jsonl").exitCode, 0);
    EXPECT_EQ(countOf(readFile(here() / "t.jsonl"), "\"kind\":\"keyboard\""), 2u);
}

TEST(PngCodec, SixteenBitPicturesKeepTheHighByteOfEachSample) {
    // One row of 16-bit samples (colour type 2 RGB, 4 gray + alpha, 6 RGBA), as image editors write them.
    auto png = [](int colorType, const std::vector<std::uint16_t>& samples, std::uint32_t width) {
        auto be32 = [](std::uint32_t v) { return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)}; };
        auto chunk = [&](const std::string& type, const std::string& data) {
            const std::string body = type + data;
            return be32(data.size()) + body + be32(crc32(0, reinterpret_cast<const Bytef*>(body.data()), body.size()));
        };
        std::string row(1, '\0');  // filter: none
        for (std::uint16_t sample : samples) row += {char(sample >> 8), char(sample)};
        uLongf size = compressBound(row.size());
        std::string compressed(size, '\0');
        compress(reinterpret_cast<Bytef*>(compressed.data()), &size, reinterpret_cast<const Bytef*>(row.data()), row.size());
        compressed.resize(size);
        return std::string("\x89PNG\r\n\x1a\n", 8) +
               chunk("IHDR", be32(width) + be32(1) + std::string{16, char(colorType), 0, 0, 0}) +
               chunk("IDAT", compressed) + chunk("IEND", "");
    };
    // Each file and its pixels, premultiplied as the codec gives them.
    const struct { std::string file; std::vector<std::uint8_t> rgba; } cases[] = {
        {png(2, {0x8080, 0x4040, 0xC0C0, 0xFFFF, 0x0000, 0x10FF}, 2), {0x80, 0x40, 0xC0, 0xFF, 0xFF, 0x00, 0x10, 0xFF}},
        {png(4, {0x8080, 0xFFFF, 0x40C0, 0x8000}, 2), {0x80, 0x80, 0x80, 0xFF, 0x20, 0x20, 0x20, 0x80}},
        {png(6, {0x8080, 0x4040, 0xC0C0, 0xFFFF}, 1), {0x80, 0x40, 0xC0, 0xFF}},
    };
    for (const auto& test : cases) {
        PixelBufferPtr decoded =
            host::PngCodec().decodePng(reinterpret_cast<const std::uint8_t*>(test.file.data()), test.file.size());
        ASSERT_TRUE(decoded);
        ASSERT_EQ(decoded->width * decoded->height * 4, test.rgba.size());
        EXPECT_EQ(std::vector<std::uint8_t>(decoded->data, decoded->data + test.rgba.size()), test.rgba);
    }
}

}  // namespace
