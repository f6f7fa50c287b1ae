#pragma once

#include "Platform/Languages.h"

namespace tactora::ios {

// NSLocale's preferred languages ("en", "zh-Hans-CN", ...).
class LocaleLanguages final : public Languages {
public:
    std::vector<std::string> preferredLanguages() const override;
};

}  // namespace tactora::ios
