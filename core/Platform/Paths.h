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
// The installed package's own directory; rootless jailbreaks put it (and everything below it)
// under /var/jb.
inline constexpr std::string_view packageDirectory = "/Applications/Tactora.app";
inline constexpr std::string_view extensionsFile = "/Applications/Tactora.app/Extensions.lua";
}  // namespace devicepaths

// Where `devicePath` lives when the package was installed under `packageRoot` ("" for a rootful
// jailbreak, "/var/jb" for a rootless one): the package directory and what lies below it move
// with the package; every other path (user data included) stays where it is.
std::string packagePath(std::string_view devicePath, std::string_view packageRoot);

class Paths {
public:
    virtual ~Paths() = default;

    // Where the absolute device path `devicePath` (or anything below it) lives on this machine.
    // Default: the device path as it stands.
    virtual std::string map(std::string_view devicePath) const { return std::string(devicePath); }
    // A script function (`function`) could neither read nor write the file a script named
    // `path`, which this machine placed at `mapped`. Default: nothing to tell, as on the device,
    // where the two are the same file and a missing one is simply missing.
    virtual void scriptFileMissed(std::string_view function, std::string_view path, const std::string& mapped) const {
        (void)function;
        (void)path;
        (void)mapped;
    }
};

}  // namespace tactora
