#pragma once

#include <string_view>

namespace tactora::host {

// resources/Extensions.lua, compiled into the tool so that it can install it from any directory.
std::string_view extensionsLua();

}  // namespace tactora::host
