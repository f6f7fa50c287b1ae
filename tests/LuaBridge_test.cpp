#include "Kernel/LuaBridge.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include "RuntimeFakes.h"

using namespace tactora;
using namespace tactora::runtimetest;

namespace {

// A global of the bridge's state as text ("nil" when unset).
std::string global(LuaBridge& bridge, const char* name) {
    lua_State* L = bridge.state();
    lua_getglobal(L, name);
    if (lua_isnil(L, -1)) {
        lua_pop(L, 1);
        return "nil";
    }
    std::string text = luaL_tolstring(L, -1, nullptr);
    lua_pop(L, 2);
    return text;
}

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string extensionsPath(const RuntimeDevice& device) {
    return device.map("/Applications/Tactora.app/Extensions.lua").string();
}

}  // namespace

TEST(LuaBridge, RequireFindsModulesKeptBesideTheScripts) {
    RuntimeDevice device;
    writeFile(extensionsPath(device), "");
    writeFile(device.map("/var/mobile/Library/Tactora/Scripts/helpers.lua"), "return { answer = 42 }");
    LuaBridge bridge;
    bridge.runLuaString("answer = require('helpers').answer; path = package.path");
    EXPECT_EQ(global(bridge, "answer"), "42");
    std::string scripts = device.map("/var/mobile/Library/Tactora/Scripts").string();
    EXPECT_TRUE(endsWith(global(bridge, "path"), ";" + scripts + "/?.lua")) << global(bridge, "path");
}

TEST(LuaBridge, ExtensionsLoadOnceForEachStateAndTheirFailureIsOnlyLogged) {
    struct Case {
        const char* name;
        std::optional<std::string> file;  // none: no file
        std::string expectedLog;          // empty: no log line
    };
    const Case cases[] = {
        {"valid", "function double(n) return 2 * n end", ""},
        {"missing", std::nullopt, "cannot open"},
        {"syntax error", "function (", "Extensions.lua:1:"},
        {"runtime error", "error('extension broke')", "extension broke"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        RuntimeDevice device;
        if (test.file) writeFile(extensionsPath(device), *test.file);
        LuaBridge bridge;
        bridge.runLuaString("first = true");
        bridge.runLuaString("second = true");
        device.loop.drain();
        EXPECT_EQ(global(bridge, "second"), "true");
        auto log = device.logLines();
        if (test.expectedLog.empty()) {
            EXPECT_TRUE(log.empty());
        } else {
            ASSERT_EQ(log.size(), 1u);
            EXPECT_NE(log[0].find(test.expectedLog), std::string::npos) << log[0];
        }
        EXPECT_TRUE(device.alerts.shown().empty());
    }
    RuntimeDevice device;
    writeFile(extensionsPath(device), "function double(n) return 2 * n end");
    LuaBridge bridge;
    bridge.runLuaString("doubled = double(21)");
    EXPECT_EQ(global(bridge, "doubled"), "42");
}

TEST(LuaBridge, ScriptErrorsAreLoggedAndShownAsTheOptionsSay) {
    struct Case {
        bool logErrors;
        bool alertErrors;
    };
    const std::string expected = "[string \"error('boom')\"]:1: boom";
    for (Case options : {Case{true, true}, Case{true, false}, Case{false, true}, Case{false, false}}) {
        SCOPED_TRACE(::testing::Message() << "log " << options.logErrors << " alert " << options.alertErrors);
        RuntimeDevice device;
        writeFile(extensionsPath(device), "");
        device.options(options.logErrors, options.alertErrors);
        LuaBridge bridge;
        bridge.runLuaString("error('boom')");
        // The alert waits for the main thread.
        EXPECT_TRUE(device.alerts.shown().empty());
        device.loop.drain();
        auto log = device.logLines();
        ASSERT_EQ(log.size(), options.logErrors ? 1u : 0u);
        if (options.logErrors) { EXPECT_EQ(log[0], "03-07 09:05:03 " + expected); }
        auto alerts = device.alerts.shown();
        ASSERT_EQ(alerts.size(), options.alertErrors ? 1u : 0u);
        if (options.alertErrors) {
            EXPECT_EQ(alerts[0].message, expected);
            EXPECT_EQ(alerts[0].title, "");
            EXPECT_EQ(alerts[0].cancelButton, "OK");
        }
    }
}

TEST(LuaBridge, EveryKindOfFailureIsReportedButAnInterruptionIsNot) {
    struct Case {
        const char* script;  // null: run a file that does not exist
        std::string reported;  // empty: nothing reported
    };
    const Case cases[] = {
        {"error('interrupted')", ""},
        {"error('the user interrupted')", ""},
        {"error('interrupted by nobody', 0) x = 1", "interrupted by nobody"},
        {"error('interrupted!')", "interrupted!"},
        {"x = = 1", "unexpected symbol near '='"},
        {"error({})", "(error object is a table value)"},
        {"error()", "(error object is a nil value)"},
        {"local t = nil; t.field = 1", "attempt to index local 't'"},
        {nullptr, "cannot open"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.script ? test.script : "missing file");
        RuntimeDevice device;
        writeFile(extensionsPath(device), "");
        LuaBridge bridge;
        if (test.script) {
            bridge.runLuaString(test.script);
        } else {
            bridge.runLuaFile(device.map("/var/mobile/Library/Tactora/Scripts/none.lua").string());
        }
        device.loop.drain();
        auto log = device.logLines();
        auto alerts = device.alerts.shown();
        if (test.reported.empty()) {
            EXPECT_TRUE(log.empty());
            EXPECT_TRUE(alerts.empty());
        } else {
            ASSERT_EQ(log.size(), 1u);
            EXPECT_NE(log[0].find(test.reported), std::string::npos) << log[0];
            ASSERT_EQ(alerts.size(), 1u);
            EXPECT_NE(alerts[0].message.find(test.reported), std::string::npos);
        }
        // The state takes the next script as usual.
        bridge.runLuaString("after = 1");
        EXPECT_EQ(global(bridge, "after"), "1");
    }
}
