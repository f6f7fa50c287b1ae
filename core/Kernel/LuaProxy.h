// Shapes shared by the Lua-facing wrappers. A wrapper checks every argument before anything with
// a destructor exists: a failed check longjmps out of it.
#pragma once

#include <cstdint>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace tactora {

// A Lua integer argument as the 32-bit value the injection records and screen calls take.
inline std::int32_t checkInt32(lua_State* L, int argument) {
    return static_cast<std::int32_t>(luaL_checkinteger(L, argument));
}

// A wrapper for a function of one string argument and no result.
template <void (*call)(const char*)>
int stringArgumentProxy(lua_State* L) {
    call(luaL_checklstring(L, 1, nullptr));
    return 0;
}

}  // namespace tactora
