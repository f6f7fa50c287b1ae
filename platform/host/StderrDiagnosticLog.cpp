#include "host/StderrDiagnosticLog.h"

namespace tactora::host {

StderrDiagnosticLog::StderrDiagnosticLog(std::string path, bool quiet)
    : path_(std::move(path)), quiet_(quiet) {}

void StderrDiagnosticLog::write(std::string_view message, std::string_view file, int line,
                                std::string_view function) {
    if (quiet_) return;
    std::string_view base = file.substr(file.find_last_of('/') == std::string_view::npos ? 0 : file.find_last_of('/') + 1);
    std::lock_guard lock(mutex_);
    FILE* out = path_.empty() ? stderr : std::fopen(path_.c_str(), "a");
    if (!out) return;
    std::fprintf(out, "[%.*s:%d %.*s] %.*s\n", int(base.size()), base.data(), line, int(function.size()),
                 function.data(), int(message.size()), message.data());
    if (out != stderr) std::fclose(out);
}

}  // namespace tactora::host
