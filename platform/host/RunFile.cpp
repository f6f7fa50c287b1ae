#include "host/RunFile.h"

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/HostEventRegistry.h"

namespace tactora::host {

std::string runFilePath() {
    return platform().paths->map(std::string(devicepaths::libraryDirectory) + "/control-api.json");
}

bool writeRunFile(const RunFile& run) {
    nlohmann::json document = {{"port", run.port}, {"pid", run.pid}};
    return writeFileAtomically(runFilePath(), document.dump() + "\n");
}

std::optional<RunFile> readRunFile() {
    std::ifstream in(runFilePath());
    if (!in) return std::nullopt;
    nlohmann::json document = nlohmann::json::parse(in, nullptr, false);
    if (!document.is_object()) return std::nullopt;
    RunFile run{document.value("port", 0), document.value("pid", 0L)};
    if (run.port <= 0 || run.pid <= 0) return std::nullopt;
    // A file left behind by a system that died names a process that is gone.
    if (::kill(static_cast<pid_t>(run.pid), 0) != 0 && errno == ESRCH) return std::nullopt;
    return run;
}

void removeRunFile() {
    std::error_code ignored;
    std::filesystem::remove(runFilePath(), ignored);
}

}  // namespace tactora::host
