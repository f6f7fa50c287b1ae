#pragma once

#include <map>
#include <optional>
#include <string>

namespace tactora {

using LocalizationTable = std::map<std::string, std::string>;

// The user-visible texts in English, Japanese, Simplified and Traditional Chinese.
class Localization {
public:
    static Localization& sharedInstance();
    // The text for `key` in the first preferred language, or none for an unknown key.
    static std::optional<std::string> localize(const std::string& key);

    const LocalizationTable& enKeyValue() const { return enKeyValue_; }
    const LocalizationTable& jaKeyValue() const { return jaKeyValue_; }
    const LocalizationTable& zhsKeyValue() const { return zhsKeyValue_; }
    const LocalizationTable& zhtKeyValue() const { return zhtKeyValue_; }

private:
    Localization();
    void initKeyValues();

    LocalizationTable enKeyValue_;
    LocalizationTable jaKeyValue_;
    LocalizationTable zhsKeyValue_;
    LocalizationTable zhtKeyValue_;
};

// localize(key) as a string for display: the text, or empty for an unknown key.
std::string localizedText(const std::string& key);

}  // namespace tactora
