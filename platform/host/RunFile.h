#pragma once

#include <optional>
#include <string>

namespace tactora::host {

// How other commands find a running system: a small JSON file in the device's library directory
// that holds the control API's port and the process id.
struct RunFile {
    int port = 0;
    long pid = 0;
};

// Where the run file of the installed root lives.
std::string runFilePath();
bool writeRunFile(const RunFile& run);
// The run file of a system that still runs, or none.
std::optional<RunFile> readRunFile();
void removeRunFile();

}  // namespace tactora::host
