#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "Platform/DiagnosticLog.h"

namespace tactora::host {

// Diagnostics as one line each on stderr, or appended to a file.
class StderrDiagnosticLog final : public DiagnosticLog {
public:
    // Empty path: stderr. Quiet: write nothing (the CLI's default unless --verbose).
    explicit StderrDiagnosticLog(std::string path = {}, bool quiet = false);
    void write(std::string_view message, std::string_view file, int line,
               std::string_view function) override;

private:
    std::mutex mutex_;
    std::string path_;
    bool quiet_;
};

}  // namespace tactora::host
