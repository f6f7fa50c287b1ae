#pragma once

#include "Platform/DiagnosticLog.h"

namespace tactora::ios {

// Unified logging, subsystem "com.tactora.tactora": `log stream --predicate
// 'subsystem == "com.tactora.tactora"'` or Console shows the entries.
class OSLogDiagnosticLog final : public DiagnosticLog {
public:
    void write(std::string_view message, std::string_view file, int line, std::string_view function) override;
};

}  // namespace tactora::ios
