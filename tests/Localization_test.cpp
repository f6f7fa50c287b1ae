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

TEST(Localization, EveryKeyHasAFilledTextInAllFourLanguagesWithTheSamePlaceholders) {
    Localization& shared = Localization::sharedInstance();
    const LocalizationTable& english = shared.enKeyValue();
    for (const LocalizationTable* table : {&english, &shared.jaKeyValue(), &shared.zhsKeyValue(), &shared.zhtKeyValue()}) {
        ASSERT_EQ(table->size(), english.size());
        for (const auto& [key, text] : english) {
            ASSERT_TRUE(table->count(key)) << key;
            EXPECT_FALSE(table->at(key).empty()) << key;
            EXPECT_EQ(placeholders(table->at(key)), placeholders(text)) << key;
        }
    }
}

TEST(Localization, OnlyTheBareFirstLanguageTagChoosesATranslation) {
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
        for (const auto& [key, text] : *table) {
            SCOPED_TRACE(key + " in " + (preferred.empty() ? std::string("<none>") : preferred.front()));
            EXPECT_EQ(Localization::localize(key), std::optional<std::string>(text));
            EXPECT_EQ(localizedText(key), text);
        }
    }
}
