#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "host/EnvLanguages.h"

using tactora::host::EnvLanguages;

// Locales become language tags; a chosen language wins and is taken as written.
TEST(EnvLanguages, AChosenLanguageWinsAndIsTakenAsWritten) {
    const std::array<const char*, 4> names = {"TACTORA_LANGUAGE", "LANGUAGE", "LC_ALL", "LANG"};
    struct Case {
        std::array<const char*, 4> values;  // of `names`; null: unset
        std::string chosen;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {{nullptr, nullptr, nullptr, nullptr}, "", {"en"}},
        {{nullptr, nullptr, "C", "C.UTF-8"}, "", {"en"}},
        {{nullptr, nullptr, nullptr, "ja_JP.UTF-8"}, "", {"ja-JP"}},
        {{nullptr, nullptr, nullptr, "de_DE@euro"}, "", {"de-DE"}},
        {{nullptr, nullptr, nullptr, "POSIX"}, "", {"en"}},
        {{nullptr, "fr:ja", "de_DE.UTF-8", "fr_FR"}, "", {"fr", "ja", "de-DE", "fr-FR"}},
        {{nullptr, ":", "", "ja"}, "", {"ja"}},
        {{"zh-Hant", "ja", nullptr, "ja_JP.UTF-8"}, "", {"zh-Hant"}},
        {{"zh-Hant", "ja", nullptr, nullptr}, "zh-Hans", {"zh-Hans"}},
        {{"", nullptr, "ja_JP", nullptr}, "", {"ja-JP"}},
    };
    std::array<std::optional<std::string>, 4> saved;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (const char* old = std::getenv(names[i])) saved[i] = old;
    for (const Case& c : cases) {
        for (std::size_t i = 0; i < names.size(); ++i)
            c.values[i] ? setenv(names[i], c.values[i], 1) : unsetenv(names[i]);
        EXPECT_EQ(EnvLanguages(c.chosen).preferredLanguages(), c.expected) << ::testing::PrintToString(c.expected);
    }
    for (std::size_t i = 0; i < names.size(); ++i) saved[i] ? setenv(names[i], saved[i]->c_str(), 1) : unsetenv(names[i]);
}
