#pragma once

#include <string>
#include <vector>

namespace tactora {

// The scripts and library directories. Paths handed in and out are paths on this machine: the
// fixed device directories after the paths port has placed them.
class FileManager {
public:
    // Creates both directories when missing; on failure shows an alert and answers false.
    static bool prepareDirectories();
    // The names in the scripts directory whose lower-cased extension is "lua" or "e", in listing order.
    static std::vector<std::string> getAllScriptFileTitles();
    // The text after the last dot of the file name a path ends in, lower-cased; empty when that
    // name has no dot. "lua" and "e" make a script, and this is the one place that says so:
    // a name such as ".lua" is a script here, in every list and to every player.
    static std::string lowerCasedExtension(const std::string& path);
    static bool isScriptName(const std::string& path);
    static bool fileIsDirectory(const std::string& path);

    // The scripts directory and the library directory on this machine.
    static std::string scriptsDirectoryPath();
    static std::string libraryDirectoryPath();
    // True for a plain file name, the only kind of title that names a script: not empty, not "."
    // or "..", without a slash or a zero byte. Anything else would reach outside the scripts
    // directory.
    static bool isScriptTitle(const std::string& title);
    // The scripts directory joined with a script's title.
    static std::string scriptPath(const std::string& title);
};

}  // namespace tactora
