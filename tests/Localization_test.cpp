#include <gtest/gtest.h>

#include <regex>

#include "Platform/Languages.h"
#include "Platform/Platform.h"
#include "Views/Localization.h"

using namespace tactora;

namespace {

class FixedLanguages final : public Languages {
public:
    std::vector<std::string> list;
    std::vector<std::string> preferredLanguages() const override { return list; }
};

class LocalizationTest : public ::testing::Test {
protected:
    void SetUp() override { platform().languages = &languages; }
    void speak(std::vector<std::string> list) { languages.list = std::move(list); }

    ScopedPlatform scope;
    FixedLanguages languages;
};

// The printf-style placeholders of a text, in order, so that a translation cannot drop or swap one.
std::vector<std::string> placeholders(const std::string& text) {
    static const std::regex pattern("%[-+ #0-9.]*[a-zA-Z@%]");
    std::vector<std::string> found;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it)
        found.push_back(it->str());
    return found;
}

}  // namespace

TEST_F(LocalizationTest, EveryKeyHasAFilledTextInAllFourLanguagesWithTheSamePlaceholders) {
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

TEST_F(LocalizationTest, OnlyTheBareFirstLanguageTagChoosesATranslation) {
    Localization& shared = Localization::sharedInstance();
    struct Choice {
        std::vector<std::string> preferred;
        const LocalizationTable* table;
    };
    const Choice choices[] = {
        {{"en"}, &shared.enKeyValue()},
        {{"ja", "en"}, &shared.jaKeyValue()},
        {{"zh-Hans"}, &shared.zhsKeyValue()},
        {{"zh-Hant", "ja"}, &shared.zhtKeyValue()},
        {{"ja-JP"}, &shared.enKeyValue()},
        {{"zh-Hans-CN"}, &shared.enKeyValue()},
        {{"zh-hans"}, &shared.enKeyValue()},
        {{"fr", "ja"}, &shared.enKeyValue()},
        {{"en", "zh-Hans"}, &shared.enKeyValue()},
        {{}, &shared.enKeyValue()},
    };
    for (const Choice& choice : choices) {
        speak(choice.preferred);
        for (const auto& [key, text] : *choice.table) {
            SCOPED_TRACE(key + " in " + (choice.preferred.empty() ? std::string("<none>") : choice.preferred.front()));
            EXPECT_EQ(Localization::localize(key), std::optional<std::string>(text));
            EXPECT_EQ(localizedText(key), text);
        }
    }
}
