// The Lua-facing wrappers of the touch, home-button, path, log, sleep, alert, feedback and app
// functions. Each checks its arguments first (a failed check longjmps out of the function, so
// nothing with a destructor may be alive by then), does the work and returns its result count.
#include <cstdint>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include "Kernel/EventSimulate.h"
#include "Kernel/ScriptFunctions.h"

namespace tactora {

namespace {

// The home button is the only key scripts can press.
constexpr std::int32_t homeButtonKey = 1;

// A Lua integer argument as the 32-bit value the injection records carry.
std::int32_t checkInt32(lua_State* L, int argument) {
    return static_cast<std::int32_t>(luaL_checkinteger(L, argument));
}

}  // namespace

int homeButtonDownProxy(lua_State*) {
    EventSimulate::keyDown(homeButtonKey);
    return 0;
}

int homeButtonUpProxy(lua_State*) {
    EventSimulate::keyUp(homeButtonKey);
    return 0;
}

int touchDownProxy(lua_State* L) {
    std::int32_t finger = checkInt32(L, 1);
    std::int32_t x = checkInt32(L, 2);
    std::int32_t y = checkInt32(L, 3);
    EventSimulate::touchDown(finger, x, y);
    return 0;
}

int touchMoveProxy(lua_State* L) {
    std::int32_t finger = checkInt32(L, 1);
    std::int32_t x = checkInt32(L, 2);
    std::int32_t y = checkInt32(L, 3);
    EventSimulate::touchMove(finger, x, y);
    return 0;
}

int touchUpProxy(lua_State* L) {
    std::int32_t finger = checkInt32(L, 1);
    std::int32_t x = checkInt32(L, 2);
    std::int32_t y = checkInt32(L, 3);
    EventSimulate::touchUp(finger, x, y);
    return 0;
}

int rootDirProxy(lua_State* L) {
    lua_pushstring(L, rootPathOfDocuments());  // -> path
    return 1;
}

int logProxy(lua_State* L) {
    const char* text = luaL_checklstring(L, 1, nullptr);
    logging(text);
    return 0;
}

int usleepProxy(lua_State* L) {
    auto microseconds = static_cast<std::uint32_t>(luaL_checkunsigned(L, 1));
    // Touches written before a pause take effect before it, even for a pause of 0.
    EventSimulate::syncEvent();
    customUsleep(microseconds);
    return 0;
}

int alertProxy(lua_State* L) {
    const char* text = luaL_checklstring(L, 1, nullptr);
    alert(text);
    return 0;
}

int vibrateProxy(lua_State*) {
    vibrate();
    return 0;
}

int playAudioProxy(lua_State* L) {
    // The path must be a string but the bundled sound plays whatever it names.
    luaL_checklstring(L, 1, nullptr);
    playAudio();
    return 0;
}

int appRunProxy(lua_State* L) {
    const char* bundleId = luaL_checklstring(L, 1, nullptr);
    appRun(bundleId);
    return 0;
}

int appKillProxy(lua_State* L) {
    const char* bundleId = luaL_checklstring(L, 1, nullptr);
    appKill(bundleId);
    return 0;
}

int appIsActiveProxy(lua_State* L) {
    const char* bundleId = luaL_checklstring(L, 1, nullptr);
    lua_pushboolean(L, appIsActive(bundleId) ? 1 : 0);  // -> active
    return 1;
}

}  // namespace tactora
