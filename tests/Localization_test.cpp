#include "Views/Localization.h"

#include <gtest/gtest.h>

#include <regex>

#include "FoundationFakes.h"

using namespace tactora;

namespace {

// The printf-style placeholders of a text, in order, so that a translation cannot drop or swap one.
std::vector<std::string> placeholders(const std::string& text) {
    static const std::regex pattern("%[-+ #0-9.]*[a-zA-Z@%]");
    std::vector<std::string> found;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it)
        found.push_back(it->str());
    return found;
}

}  // namespace

// Only the bare first language tag chooses a translation; every translation fills every key and
// keeps the English placeholders in order.
TEST(Localization, EveryKeyIsTranslatedForTheBareFirstLanguageTagWithTheSamePlaceholders) {
    ScopedPlatform scope;
    tactora::testing::FixedLanguages languages;
    platform().languages = &languages;
    Localization& shared = Localization::sharedInstance();
    const LocalizationTable &en = shared.enKeyValue(), &ja = shared.jaKeyValue();
    const std::pair<std::vector<std::string>, const LocalizationTable*> choices[] = {
        {{"en"}, &en},          {{"ja", "en"}, &ja},          {{"zh-Hans"}, &shared.zhsKeyValue()},
        {{"zh-Hant", "ja"}, &shared.zhtKeyValue()},           {{"ja-JP"}, &en},
        {{"zh-Hans-CN"}, &en},  {{"zh-hans"}, &en},           {{"fr", "ja"}, &en},
        {{"en", "zh-Hans"}, &en}, {{}, &en}};
    for (const auto& [preferred, table] : choices) {
        languages.list = preferred;
        ASSERT_EQ(table->size(), en.size());
        for (const auto& [key, english] : en) {
            SCOPED_TRACE(key + " in " + (preferred.empty() ? std::string("<none>") : preferred.front()));
            ASSERT_TRUE(table->count(key));
            const std::string& text = table->at(key);
            EXPECT_FALSE(text.empty());
            EXPECT_EQ(placeholders(text), placeholders(english));
            EXPECT_EQ(Localization::localize(key), std::optional<std::string>(text));
            EXPECT_EQ(localizedText(key), text);
        }
    }
}
