#pragma once

#include "Platform/Languages.h"

namespace tactora::ios {

// NSLocale's preferred languages ("en", "zh-Hans-CN", ...) and Foundation's own texts for failed
// file operations.
class LocaleLanguages final : public Languages {
public:
    std::vector<std::string> preferredLanguages() const override;
    std::string fileErrorDescription(int posixError, std::string_view path) const override;
};

}  // namespace tactora::ios
