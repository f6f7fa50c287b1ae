#pragma once

#include <string>
#include <string_view>

namespace tactora {

// The fixed device paths. Code names them by these constants and asks the paths port where they
// live on this machine.
namespace devicepaths {
inline constexpr std::string_view scriptsDirectory = "/var/mobile/Library/Tactora/Scripts";
inline constexpr std::string_view libraryDirectory = "/var/mobile/Library/Tactora/Library";
inline constexpr std::string_view logFile = "/var/mobile/Library/Tactora/Library/log.log";
// Belongs to the installed package (rootless jailbreaks put it under /var/jb).
inline constexpr std::string_view extensionsFile = "/Applications/Tactora.app/Extensions.lua";
}  // namespace devicepaths

class Paths {
public:
    virtual ~Paths() = default;

    // Where the absolute device path `devicePath` (or anything below it) lives on this machine.
    // Default: the device path as it stands.
    virtual std::string map(std::string_view devicePath) const { return std::string(devicePath); }
};

}  // namespace tactora
