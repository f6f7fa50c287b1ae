#include <gtest/gtest.h>

#include <lauxlib.h>
#include <lualib.h>

#include <string>

#include "Kernel/LuaPropertyList.h"

using namespace tactora;
using namespace std::string_literals;

// Each kind reaches Lua as what a script would test it against; nested arrays count from 1.
TEST(PropertyList, ReachesLuaWholeWithEveryKindOfValue) {
    lua_State* state = luaL_newstate();
    luaL_openlibs(state);
    // An application's information dictionary with every kind of value, nested.
    pushPropertyList(state, PropertyList::Dictionary{
        {"CFBundleIdentifier", "com.user.a"},
        {"CFBundleVersion", PropertyList(std::int64_t{42})},
        {"MinimumOSVersion", 13.5},
        {"UIRequiresFullScreen", true},
        {"UIStatusBarHidden", false},
        {"InstallDate", PropertyList::Date{700000000.5}},
        {"Token", PropertyList::Data{'a', 0, 'b'}},
        {"CFBundleIcons", PropertyList::Dictionary{{"CFBundlePrimaryIcon", PropertyList::Dictionary{
                              {"CFBundleIconFiles", PropertyList::Array{"Icon", "Icon@2x"}}}}}},
        {"Empty", PropertyList::Array{}},
    });
    lua_setglobal(state, "app");
    const struct {
        const char* expression;
        std::string expected;
    } cases[] = {
        {"app.CFBundleIdentifier", "com.user.a"},
        {"type(app.CFBundleVersion) .. app.CFBundleVersion", "number42"},
        {"type(app.MinimumOSVersion) .. app.MinimumOSVersion", "number13.5"},
        {"tostring(app.UIRequiresFullScreen) .. tostring(app.UIStatusBarHidden)", "truefalse"},
        {"tostring(app.InstallDate)", "700000000.5"},
        {"#app.Token .. app.Token:byte(2)", "30"},
        {"app.CFBundleIcons.CFBundlePrimaryIcon.CFBundleIconFiles[2]", "Icon@2x"},
        {"#app.CFBundleIcons.CFBundlePrimaryIcon.CFBundleIconFiles .. type(app.Empty) .. #app.Empty", "2table0"},
    };
    for (const auto& [expression, expected] : cases) {
        ASSERT_EQ(luaL_dostring(state, ("return "s + expression).c_str()), 0) << lua_tostring(state, -1);
        EXPECT_EQ(lua_tostring(state, -1), expected) << expression;
        lua_pop(state, 1);
    }
    EXPECT_EQ(lua_gettop(state), 0);  // every push is balanced
    lua_close(state);
}
