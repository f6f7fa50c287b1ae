#pragma once

#include <string_view>

namespace tactora {

// Developer diagnostics (os_log on the device, stderr or a file on the host). Not the script log.
class DiagnosticLog {
public:
    virtual ~DiagnosticLog() = default;

    // Records `message` with where it came from: source file, line and the function's full name
    // (an Objective-C style name such as "+[DataManager initDb]"). Default: dropped.
    virtual void write(std::string_view message, std::string_view file, int line,
                       std::string_view function) {
        (void)message;
        (void)file;
        (void)line;
        (void)function;
    }
};

}  // namespace tactora

// Writes a diagnostic entry tagged with this source location and `function`.
#define TACTORA_DIAGNOSTIC(function, message) \
    ::tactora::platform().diagnosticLog->write((message), __FILE__, __LINE__, (function))
