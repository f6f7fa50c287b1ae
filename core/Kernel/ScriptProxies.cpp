// The Lua-facing wrappers of the touch, home-button, path, log, sleep, alert, feedback and app
// functions. Each checks its arguments first, does the work and returns its result count.
#include <cstdint>

#include "Kernel/EventSimulate.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/LuaProxy.h"
#include "Kernel/ScriptFunctions.h"

namespace tactora {

namespace {

// The home button is the only key scripts can press.
constexpr std::int32_t homeButtonKey = 1;

// touchDown, touchMove and touchUp: (finger, x, y) in whole points.
template <std::int32_t (*send)(std::int32_t, std::int32_t, std::int32_t)>
int touchProxy(lua_State* L) {
    std::int32_t finger = checkInt32(L, 1);
    std::int32_t x = checkInt32(L, 2);
    std::int32_t y = checkInt32(L, 3);
    send(finger, x, y);
    return 0;
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

int touchDownProxy(lua_State* L) { return touchProxy<&EventSimulate::touchDown>(L); }
int touchMoveProxy(lua_State* L) { return touchProxy<&EventSimulate::touchMove>(L); }
int touchUpProxy(lua_State* L) { return touchProxy<&EventSimulate::touchUp>(L); }

int rootDirProxy(lua_State* L) {
    lua_pushstring(L, rootPathOfDocuments());  // -> path
    return 1;
}

int logProxy(lua_State* L) { return stringArgumentProxy<&logging>(L); }

int usleepProxy(lua_State* L) {
    auto microseconds = static_cast<std::uint32_t>(luaL_checkunsigned(L, 1));
    // Touches written before a pause take effect before it, even for a pause of 0.
    EventSimulate::syncEvent();
    customUsleep(microseconds);
    if (stopRequested()) return interruptedError(L);
    return 0;
}

int alertProxy(lua_State* L) { return stringArgumentProxy<&alert>(L); }

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

int appRunProxy(lua_State* L) { return stringArgumentProxy<&appRun>(L); }
int appKillProxy(lua_State* L) { return stringArgumentProxy<&appKill>(L); }

int appIsActiveProxy(lua_State* L) {
    const char* bundleId = luaL_checklstring(L, 1, nullptr);
    lua_pushboolean(L, appIsActive(bundleId) ? 1 : 0);  // -> active
    return 1;
}

}  // namespace tactora
