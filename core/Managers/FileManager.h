#pragma once

#include <string>
#include <vector>

namespace tactora {

// The scripts and library directories.
class FileManager {
public:
    // Creates both directories when missing; on failure shows an alert and answers false.
    static bool prepareDirectories();
    // The names in the scripts directory whose lower-cased extension is "lua" or "e", in listing order.
    static std::vector<std::string> getAllScriptFileTitles();
    static bool fileIsDirectory(const std::string& path);
};

}  // namespace tactora
