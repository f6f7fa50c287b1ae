#include "Kernel/LuaPropertyList.h"

#include <lauxlib.h>

#include <type_traits>

namespace tactora {

namespace {

// Each level holds its table and one key or value: two slots, checked before each level so a deep
// list gives a Lua error rather than a stack overflow.
constexpr int slotsPerLevel = 3;

}  // namespace

void pushPropertyList(lua_State* state, const PropertyList::Dictionary& dictionary) {
    luaL_checkstack(state, slotsPerLevel, "property list nested too deeply");
    lua_createtable(state, 0, static_cast<int>(dictionary.size()));
    for (const auto& [key, value] : dictionary) {
        lua_pushlstring(state, key.data(), key.size());
        pushPropertyList(state, value);
        lua_rawset(state, -3);
    }
}

void pushPropertyList(lua_State* state, const PropertyList& value) {
    luaL_checkstack(state, slotsPerLevel, "property list nested too deeply");
    std::visit(
        [state](const auto& item) {
            using T = std::decay_t<decltype(item)>;
            if constexpr (std::is_same_v<T, std::string>) {
                lua_pushlstring(state, item.data(), item.size());
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                lua_pushinteger(state, static_cast<lua_Integer>(item));
            } else if constexpr (std::is_same_v<T, double>) {
                lua_pushnumber(state, item);
            } else if constexpr (std::is_same_v<T, bool>) {
                lua_pushboolean(state, item);
            } else if constexpr (std::is_same_v<T, PropertyList::Date>) {
                lua_pushnumber(state, item.secondsSince2001);
            } else if constexpr (std::is_same_v<T, PropertyList::Data>) {
                lua_pushlstring(state, reinterpret_cast<const char*>(item.data()), item.size());
            } else if constexpr (std::is_same_v<T, PropertyList::Array>) {
                lua_createtable(state, static_cast<int>(item.size()), 0);
                int index = 0;
                for (const PropertyList& element : item) {
                    pushPropertyList(state, element);
                    lua_rawseti(state, -2, ++index);
                }
            } else {
                pushPropertyList(state, item);  // a dictionary
            }
        },
        value.value());
}

}  // namespace tactora
