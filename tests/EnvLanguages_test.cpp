#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "host/EnvLanguages.h"

using tactora::host::EnvLanguages;
using tactora::host::languageTagFromLocale;

namespace {

// Sets environment variables for a scope and puts the previous values back.
class ScopedEnvironment {
public:
    explicit ScopedEnvironment(const std::map<std::string, const char*>& values) {
        for (const auto& [name, value] : values) {
            const char* old = std::getenv(name.c_str());
            saved_[name] = old ? std::optional<std::string>(old) : std::nullopt;
            if (value)
                setenv(name.c_str(), value, 1);
            else
                unsetenv(name.c_str());
        }
    }
    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_) {
            if (value)
                setenv(name.c_str(), value->c_str(), 1);
            else
                unsetenv(name.c_str());
        }
    }

private:
    std::map<std::string, std::optional<std::string>> saved_;
};

using List = std::vector<std::string>;

}  // namespace

TEST(EnvLanguages, LocalesBecomeLanguageTags) {
    EXPECT_EQ(languageTagFromLocale("ja_JP.UTF-8"), "ja-JP");
    EXPECT_EQ(languageTagFromLocale("de_DE@euro"), "de-DE");
    EXPECT_EQ(languageTagFromLocale("ja"), "ja");
    EXPECT_EQ(languageTagFromLocale("C.UTF-8"), "");
    EXPECT_EQ(languageTagFromLocale("POSIX"), "");
    EXPECT_EQ(languageTagFromLocale(""), "");
}

TEST(EnvLanguages, AChosenLanguageWinsAndIsTakenAsWritten) {
    struct Case {
        std::map<std::string, const char*> environment;
        std::string chosen;
        List expected;
    };
    const Case cases[] = {
        {{{"TACTORA_LANGUAGE", nullptr}, {"LANGUAGE", nullptr}, {"LC_ALL", nullptr}, {"LANG", nullptr}}, "", {"en"}},
        {{{"TACTORA_LANGUAGE", nullptr}, {"LANGUAGE", nullptr}, {"LC_ALL", "C"}, {"LANG", "C.UTF-8"}}, "", {"en"}},
        {{{"TACTORA_LANGUAGE", nullptr}, {"LANGUAGE", nullptr}, {"LC_ALL", nullptr}, {"LANG", "ja_JP.UTF-8"}},
         "",
         {"ja-JP"}},
        {{{"TACTORA_LANGUAGE", nullptr}, {"LANGUAGE", "fr:ja"}, {"LC_ALL", "de_DE.UTF-8"}, {"LANG", "fr_FR"}},
         "",
         {"fr", "ja", "de-DE", "fr-FR"}},
        {{{"TACTORA_LANGUAGE", nullptr}, {"LANGUAGE", ":"}, {"LC_ALL", ""}, {"LANG", "ja"}}, "", {"ja"}},
        {{{"TACTORA_LANGUAGE", "zh-Hant"}, {"LANGUAGE", "ja"}, {"LC_ALL", nullptr}, {"LANG", "ja_JP.UTF-8"}},
         "",
         {"zh-Hant"}},
        {{{"TACTORA_LANGUAGE", "zh-Hant"}, {"LANGUAGE", "ja"}, {"LC_ALL", nullptr}, {"LANG", nullptr}},
         "zh-Hans",
         {"zh-Hans"}},
        {{{"TACTORA_LANGUAGE", ""}, {"LANGUAGE", nullptr}, {"LC_ALL", "ja_JP"}, {"LANG", nullptr}}, "", {"ja-JP"}},
    };
    for (const Case& c : cases) {
        ScopedEnvironment environment(c.environment);
        EXPECT_EQ(EnvLanguages(c.chosen).preferredLanguages(), c.expected) << ::testing::PrintToString(c.expected);
    }
}
