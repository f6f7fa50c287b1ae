#pragma once

#include <lua.h>

#include "Platform/PropertyList.h"

namespace tactora {

// Pushes `value` onto the Lua stack as the value a script would expect of it: text and bytes as
// strings, numbers as numbers, truth values as booleans, a date as its seconds since 2001-01-01,
// an array as a table indexed from 1 and a dictionary as a table keyed by its keys, all the way
// down. Raises a Lua memory error when the interpreter runs out of memory, like any push.
void pushPropertyList(lua_State* state, const PropertyList& value);
void pushPropertyList(lua_State* state, const PropertyList::Dictionary& dictionary);

}  // namespace tactora
