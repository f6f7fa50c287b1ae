// The bridge (Extensions.lua, failures) and its script functions: log, paced pauses, colours, searches.
#include "Kernel/LuaBridge.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <tuple>

#include <lua.hpp>

#include "Kernel/CaptureScreen.h"
#include "Kernel/ScriptFunctions.h"
#include "RuntimeFakes.h"
#include "host/PngCodec.h"
#include "host/SimulatedDisplay.h"

using namespace tactora;
using namespace tactora::runtimetest;

namespace {

// A global of the bridge's state as text ("nil" when unset).
std::string global(LuaBridge& bridge, const char* name) {
    lua_getglobal(bridge.state(), name);
    std::string text = luaL_tolstring(bridge.state(), -1, nullptr);
    lua_pop(bridge.state(), 2);
    return text;
}

std::string extensionsPath(const RuntimeDevice& device) {
    return device.map("/Applications/Tactora.app/Extensions.lua").string();
}

}  // namespace

// Whatever becomes of Extensions.lua, require finds modules kept beside the scripts.
TEST(LuaBridge, ExtensionsLoadOnceForEachStateAndTheirFailureIsOnlyLogged) {
    struct Case {
        const char* name;
        std::optional<std::string> file;  // none: no file
        std::string expectedLog;          // empty: no log line
        const char* doubled;              // what a function the extensions define gives
    };
    const Case cases[] = {
        {"valid", "function double(n) return 2 * n end", "", "42"},
        {"missing", std::nullopt, "cannot open", "nil"},
        {"syntax error", "function (", "Extensions.lua:1:", "nil"},
        {"runtime error", "error('extension broke')", "extension broke", "nil"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        RuntimeDevice device;
        if (test.file) writeFile(extensionsPath(device), *test.file);
        writeFile(device.map("/var/mobile/Library/Tactora/Scripts/helpers.lua"), "return { answer = 42 }");
        LuaBridge bridge;
        bridge.runLuaString("first = true");
        bridge.runLuaString("second = double and double(21); answer = require('helpers').answer; path = package.path");
        device.loop.drain();
        EXPECT_EQ(global(bridge, "second"), test.doubled);
        EXPECT_EQ(global(bridge, "answer"), "42");
        EXPECT_TRUE(global(bridge, "path").ends_with(";" + device.map("/var/mobile/Library/Tactora/Scripts").string() + "/?.lua"));
        auto log = device.logLines();
        ASSERT_EQ(log.size(), test.expectedLog.empty() ? 0u : 1u);
        for (const std::string& line : log) EXPECT_NE(line.find(test.expectedLog), std::string::npos) << line;
        EXPECT_TRUE(device.alerts.shown().empty());
    }
}

// Each failure is logged and shown as the two options say (the alert waits for the main thread).
TEST(LuaBridge, EveryKindOfFailureIsReportedAsTheOptionsSayButAnInterruptionIsNot) {
    struct Case {
        const char* script;    // null: run a file that does not exist
        std::string reported;  // empty: nothing reported
        bool logErrors = true, alertErrors = true;
    };
    const Case cases[] = {
        {"error('boom')", "[string \"error('boom')\"]:1: boom"},
        {"error('boom')", "[string \"error('boom')\"]:1: boom", true, false},
        {"error('boom')", "[string \"error('boom')\"]:1: boom", false, true},
        {"error('boom')", "", false, false},
        {"error('the user interrupted')", ""},
        {"error('interrupted by nobody', 0) x = 1", "interrupted by nobody"},
        {"x = = 1", "unexpected symbol near '='"},
        {"error({})", "(error object is a table value)"},
        {nullptr, "cannot open"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(::testing::Message() << (test.script ? test.script : "missing file") << " log "
                                          << test.logErrors << " alert " << test.alertErrors);
        RuntimeDevice device;
        writeFile(extensionsPath(device), "");
        device.options(test.logErrors, test.alertErrors);
        LuaBridge bridge;
        if (test.script) bridge.runLuaString(test.script);
        else bridge.runLuaFile(device.map("/var/mobile/Library/Tactora/Scripts/none.lua").string());
        EXPECT_TRUE(device.alerts.shown().empty());
        device.loop.drain();
        auto log = device.logLines();
        ASSERT_EQ(log.size(), !test.reported.empty() && test.logErrors ? 1u : 0u);
        if (!log.empty()) {
            EXPECT_TRUE(log[0].starts_with("03-07 09:05:03 ")) << log[0];
            EXPECT_NE(log[0].find(test.reported), std::string::npos) << log[0];
        }
        auto alerts = device.alerts.shown();
        ASSERT_EQ(alerts.size(), !test.reported.empty() && test.alertErrors ? 1u : 0u);
        if (!alerts.empty()) {
            EXPECT_NE(alerts[0].message.find(test.reported), std::string::npos) << alerts[0].message;
            EXPECT_EQ(alerts[0].title, "");
            EXPECT_EQ(alerts[0].cancelButton, "OK");
        }
        // The state takes the next script as usual.
        bridge.runLuaString("after = 1");
        EXPECT_EQ(global(bridge, "after"), "1");
    }
}

namespace {

void setSpeed(std::optional<float> speed) {
    std::shared_ptr<PlaySettings> settings;
    if (speed) (settings = std::make_shared<PlaySettings>())->setPlaySpeed(*speed);
    Global::sharedInstance().setCurrentPlaySettings(settings);
}

}  // namespace

TEST(ScriptFunctions, SleepsScaleLinearlyWithThePlaySpeedAndUsleepFlushesTheTouchesBeforeItsPause) {
    const std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    // Speed (none: no settings), the pause asked for and the one slept, in single precision.
    const std::tuple<std::optional<float>, unsigned, std::uint32_t> cases[] = {
        {1.0f, 1000000, 1000000}, {std::nullopt, 250000, 250000}, {2.0f, 1000000, 0}, {1.5f, 1000000, 500000},
        {3.0f, 1000000, 0}, {-1.0f, 1000, 3000}, {1.9f, 3, 0},  // 0.3 truncated
        {1.0f, 16777217, 16777216},  // the count itself is narrowed to a float first
        {0.5f, 4000000000u, most},   // 6e9 does not fit
        {0.0f, 2147483648u, most},   // exactly 2^32
    };
    RuntimeDevice device;
    for (const auto& [speed, requested, slept] : cases) {
        setSpeed(speed);
        device.clock.clear();
        customUsleep(requested);
        EXPECT_EQ(device.clock.sleeps(), std::vector<std::uint32_t>{slept}) << requested << " at " << speed.value_or(-99);
    }

    // At 1.5x every pause, even of zero, sends the touches first; the run's end syncs and pauses anyway.
    device.clock.clear();
    writeFile(extensionsPath(device), "");
    setSpeed(1.5f);
    LuaBridge().runLuaString("touchDown(3, 100, 200) usleep(0) touchUp(3, 100, 200) usleep(400000) usleep(4294967296 + 10)");
    EXPECT_EQ(device.ports.ids(), (std::vector<std::int32_t>{SimulateMessageTouch, SimulateMessageSync,
                                                              SimulateMessageTouch, SimulateMessageSync,
                                                              SimulateMessageSync, SimulateMessageSync}));
    EXPECT_EQ(device.clock.sleeps(), (std::vector<std::uint32_t>{0, 200000, 5, 16000}));
    struct { std::int32_t phase, finger; double x, y; } touch;
    ASSERT_EQ(device.ports.messages()[0].data.size(), sizeof touch);
    std::memcpy(&touch, device.ports.messages()[0].data.data(), sizeof touch);
    EXPECT_EQ(std::tie(touch.phase, touch.finger, touch.x, touch.y), std::make_tuple(touchPhaseDown, 3, 100.0, 200.0));
}

namespace {

// A frame of `width` x `height` white pixels with the given pixels set to other colours.
host::Frame screenFrame(std::uint32_t width, std::uint32_t height, const std::vector<std::tuple<int, int, std::uint32_t>>& pixels) {
    host::Frame frame{std::vector<std::uint8_t>(std::size_t(width) * height * 4, 0xFF), width, height};
    for (auto [x, y, colour] : pixels)
        for (int i = 0; i < 3; ++i) frame.rgba[(std::size_t(y) * width + x) * 4 + i] = std::uint8_t(colour >> (16 - 8 * i));
    return frame;
}

void writePng(const std::filesystem::path& path, const host::Frame& frame) {
    auto png = host::PngCodec().encodePng(frame.rgba.data(), frame.width, frame.height, frame.width * 4);
    writeFile(path, std::string(png->begin(), png->end()));
}

}  // namespace

// Screen functions answer in points, as integers or {x, y} tables; findImage passes on every option.
TEST(ScriptFunctions, ScreenResultsReachScriptsAsIntegersAndPointTablesInLogLines) {
    RuntimeDevice device;
    ASSERT_FALSE(std::filesystem::exists(device.logFile()));  // the first line creates it
    // 10 x 8 points at 2x: two red pixels, and a 2 x 2 pattern at pixel (6, 4).
    const std::uint32_t red = 0xFF0000, green = 0x00FF00, blue = 0x0000FF, grey = 0x808080;
    host::SimulatedDisplay display(*host::findDeviceProfile("10x8@2"));
    auto screen = std::make_shared<host::Frame>(
        screenFrame(20, 16, {{4, 2, red}, {10, 12, red}, {6, 4, green}, {7, 4, blue}, {6, 5, blue}, {7, 5, green}}));
    display.setFrameSource([screen] { return screen; });
    host::PngCodec codec;
    platform().display = &display, platform().imageCodec = &codec;
    reset_screen_scale_factor();
    auto scripts = device.map("/var/mobile/Library/Tactora/Scripts");
    writePng(scripts / "pattern.png", screenFrame(2, 2, {{0, 0, green}, {1, 0, blue}, {0, 1, blue}, {1, 1, green}}));
    // The same pattern with one grey pixel: found only when grey is ignored or fuzzy allows it.
    writePng(scripts / "smudged.png", screenFrame(2, 2, {{0, 0, green}, {1, 0, blue}, {0, 1, blue}, {1, 1, grey}}));

    writeFile(extensionsPath(device), "");  // only the script writes to the log
    LuaBridge bridge;
    bridge.runLuaString(R"(
        local function show(points)
            local parts = {}
            for i, p in ipairs(points) do parts[i] = p[1] .. "," .. p[2] .. "#" .. #p end
            return "[" .. table.concat(parts, " ") .. "]"
        end
        local w, h = getScreenSize()
        local pw, ph = getScreenResolution()
        log(w .. "x" .. h .. " " .. pw .. "x" .. ph .. " " .. getScreenBitDepth())
        log(getColor(2, 1) .. " " .. getColor(0, 0) .. " " .. getColor(100, 100))
        log(show(findColor(0xFF0000)) .. show(findColor(0xFF0000, 1)) .. show(findColor(0x123456)))
        local dir = rootDir()
        log(show(findImage({ imagePath = dir .. "pattern.png" })))
        log(show(findImage({ imagePath = dir .. "smudged.png" })))
        log(show(findImage({ imagePath = dir .. "smudged.png", ignoreColors = { 0x808080 } })))
        log(show(findImage({ imagePath = dir .. "smudged.png", ignoreColors = { 0x111111, 0x808080 } })))
        log(show(findImage({ imagePath = dir .. "smudged.png", fuzzy = 0.75 })))
        log(show(findImage({ imagePath = dir .. "missing.png" })))
    )");
    device.clock.now = FakeClock(2026, 12, 31, 23, 59, 58).now;
    bridge.runLuaString("logging('later lines, with ünïcode, are appended')");
    device.loop.drain();
    std::string expected;
    for (const char* line : {"10x8 20x16 32", "16711680 16777215 -1", "[2,1#2 5,6#2][2,1#2][]", "[3,2#2]", "[]",
                             "[3,2#2]", "[3,2#2]", "[3,2#2]", "[]"})
        expected += std::string("03-07 09:05:03 ") + line + "\n";
    EXPECT_EQ(device.log(), expected + "12-31 23:59:58 later lines, with ünïcode, are appended\n");
    reset_screen_scale_factor();
}
