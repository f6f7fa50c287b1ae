// The Lua-facing wrappers of the screenshot, screen-metric, colour and image functions.
// Arguments are checked before anything that owns memory exists: a failed check longjmps.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "Kernel/LuaProxy.h"
#include "Kernel/MatchList.h"
#include "Kernel/ScreenFunctions.h"
#include "Kernel/ScriptFunctions.h"

namespace tactora {

namespace {

// A Lua number as an integer, truncated toward zero; out-of-range values saturate instead of
// being undefined.
std::int64_t numberToInteger(lua_Number value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775807.0) return std::numeric_limits<std::int64_t>::max();
    if (value <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

// Pushes a width and a height as integers.
int pushSize(lua_State* L, std::pair<double, double> size) {
    lua_pushinteger(L, static_cast<lua_Integer>(numberToInteger(size.first)));
    lua_pushinteger(L, static_cast<lua_Integer>(numberToInteger(size.second)));
    return 2;
}

// Pushes the search result as a sequence of {x, y} and releases it. A null result (out of
// memory) is an empty table.
void pushMatches(lua_State* L, MatchList* list) {
    int count = list && list->points ? static_cast<int>(list->count) : 0;
    lua_createtable(L, count, 0);  // -> result
    for (int i = 0; i < count; ++i) {
        lua_createtable(L, 2, 0);  // result -> result, point
        lua_pushnumber(L, list->points[i].x);
        lua_rawseti(L, -2, 1);
        lua_pushnumber(L, list->points[i].y);
        lua_rawseti(L, -2, 2);
        lua_rawseti(L, -2, i + 1);  // result, point -> result
    }
    releaseMatchList(list);
}

}  // namespace

int screenshotProxy(lua_State* L) { return stringArgumentProxy<&screenshot>(L); }

int screenshotRegionProxy(lua_State* L) {
    const char* path = luaL_checklstring(L, 1, nullptr);
    std::int32_t x = checkInt32(L, 2);
    std::int32_t y = checkInt32(L, 3);
    std::int32_t width = checkInt32(L, 4);
    std::int32_t height = checkInt32(L, 5);
    screenshotRegion(path, x, y, width, height);
    return 0;
}

int getScreenSizeProxy(lua_State* L) { return pushSize(L, getScreenSize()); }

int getScreenResolutionProxy(lua_State* L) { return pushSize(L, getScreenResolution()); }

int getScreenBitDepthProxy(lua_State* L) {
    lua_pushinteger(L, getScreenBitDepth());
    return 1;
}

int getColorProxy(lua_State* L) {
    lua_Integer x = luaL_checkinteger(L, 1);
    lua_Integer y = luaL_checkinteger(L, 2);
    // Signed, so that "off the screen" (0xFFFFFFFF) reads -1.
    auto colour = static_cast<std::int32_t>(getColor(static_cast<double>(x), static_cast<double>(y)));
    lua_pushinteger(L, colour);
    return 1;
}

int findColorProxy(lua_State* L) {
    lua_Number colour = luaL_checknumber(L, 1);
    lua_Integer howMany = luaL_optinteger(L, 2, 0);
    MatchList* found = findColor(static_cast<std::uint32_t>(numberToInteger(colour)), howMany);
    pushMatches(L, found);
    return 1;
}

int findImageProxy(lua_State* L) {
    lua_settop(L, 1);
    luaL_checktype(L, 1, LUA_TTABLE);
    lua_getfield(L, 1, "imagePath");     // slot 2
    lua_getfield(L, 1, "count");         // slot 3
    lua_getfield(L, 1, "fuzzy");         // slot 4
    lua_getfield(L, 1, "ignoreColors");  // slot 5
    const char* path = luaL_checklstring(L, 2, nullptr);
    lua_Integer howMany = luaL_optinteger(L, 3, 0);
    lua_Number fuzzy = luaL_optnumber(L, 4, 0.0);

    // A number, boolean or function has no length, so it means no list, as on the device. A
    // string does have one, but no entries to read: that is a mistake worth naming.
    size_t ignoreCount = 0;
    if (lua_istable(L, 5)) {
        ignoreCount = lua_rawlen(L, 5);
    } else if (lua_type(L, 5) == LUA_TSTRING) {
        return luaL_argerror(L, 1, "ignoreColors must be a table, got string");
    }
    // Every colour is checked before the list is allocated, so a bad entry leaks nothing.
    for (size_t i = 1; i <= ignoreCount; ++i) {
        lua_rawgeti(L, 5, static_cast<int>(i));  // -> entry (slot 6)
        luaL_checkinteger(L, 6);
        lua_settop(L, 5);
    }
    // The list the matcher takes: the count, then the colours.
    auto* ignoreList = static_cast<std::int32_t*>(std::malloc((ignoreCount + 1) * sizeof(std::int32_t)));
    if (!ignoreList) return luaL_error(L, "not enough memory");
    ignoreList[0] = static_cast<std::int32_t>(ignoreCount);
    for (size_t i = 1; i <= ignoreCount; ++i) {
        lua_rawgeti(L, 5, static_cast<int>(i));
        ignoreList[i] = static_cast<std::int32_t>(lua_tointeger(L, -1));
        lua_settop(L, 5);
    }
    MatchList* found = findImageWrapper(path, howMany, ignoreList, static_cast<float>(fuzzy));
    std::free(ignoreList);
    lua_settop(L, 1);  // drops the four option values
    pushMatches(L, found);
    return 1;
}

}  // namespace tactora
