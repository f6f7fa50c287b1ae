#include "ios/OSLogDiagnosticLog.h"

#include <os/log.h>

#include <string>

namespace tactora::ios {

namespace {

os_log_t tweakLog() {
    static os_log_t log = os_log_create("com.tactora.tactora", "diagnostic");
    return log;
}

std::string_view baseName(std::string_view path) {
    size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

void OSLogDiagnosticLog::write(std::string_view message, std::string_view file, int line,
                               std::string_view function) {
    std::string text(message), where(baseName(file)), name(function);
    // Public: the entries are the tweak's own diagnostics and hold no user data worth hiding.
    os_log(tweakLog(), "%{public}s:%d %{public}s %{public}s", where.c_str(), line, name.c_str(), text.c_str());
}

}  // namespace tactora::ios
