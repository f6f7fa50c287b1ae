#pragma once

#include <string>

#include "Platform/Languages.h"

namespace tactora::host {

// The preferred languages of the desktop user.
//
// A language chosen explicitly wins and is taken exactly as written, so that "ja", "zh-Hans"
// and "zh-Hant" can be asked for: first the one given to the constructor (the CLI's --language),
// then the environment variable TACTORA_LANGUAGE. Otherwise the locale variables LANGUAGE (a
// colon-separated list), LC_ALL and LANG are turned into language tags in that order
// ("ja_JP.UTF-8" becomes "ja-JP"); "C" and "POSIX" say nothing. With nothing said the answer is
// English. A locale such as zh_CN becomes "zh-CN", which the interface shows in English: the
// Chinese texts need the script tags above.
class EnvLanguages final : public Languages {
public:
    explicit EnvLanguages(std::string chosen = {}) : chosen_(std::move(chosen)) {}
    std::vector<std::string> preferredLanguages() const override;

private:
    std::string chosen_;
};

// "ja_JP.UTF-8" -> "ja-JP", "de_DE@euro" -> "de-DE", "C" -> "".
std::string languageTagFromLocale(const std::string& locale);

}  // namespace tactora::host
