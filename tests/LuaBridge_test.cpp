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
    const bool nil = lua_isnil(L, -1);
    std::string text = nil ? "nil" : luaL_tolstring(L, -1, nullptr);
    lua_pop(L, nil ? 1 : 2);
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
        if (!log.empty()) {
            EXPECT_NE(log[0].find(test.expectedLog), std::string::npos) << log[0];
        }
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
        SCOPED_TRACE(::testing::Message() << (test.script ? test.script : "missing file") << " log "
                                          << test.logErrors << " alert " << test.alertErrors);
        RuntimeDevice device;
        writeFile(extensionsPath(device), "");
        device.options(test.logErrors, test.alertErrors);
        LuaBridge bridge;
        if (test.script) {
            bridge.runLuaString(test.script);
        } else {
            bridge.runLuaFile(device.map("/var/mobile/Library/Tactora/Scripts/none.lua").string());
        }
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
