#include "host/EnvLanguages.h"

#include <algorithm>
#include <cstdlib>

namespace tactora::host {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

void addOnce(std::vector<std::string>& list, std::string tag) {
    if (tag.empty() || std::find(list.begin(), list.end(), tag) != list.end()) return;
    list.push_back(std::move(tag));
}

}  // namespace

std::string languageTagFromLocale(const std::string& locale) {
    std::string tag = locale.substr(0, locale.find_first_of(".@"));
    if (tag == "C" || tag == "POSIX") return {};
    std::replace(tag.begin(), tag.end(), '_', '-');
    return tag;
}

std::vector<std::string> EnvLanguages::preferredLanguages() const {
    if (!chosen_.empty()) return {chosen_};
    if (std::string chosen = environment("TACTORA_LANGUAGE"); !chosen.empty()) return {chosen};

    std::vector<std::string> languages;
    std::string list = environment("LANGUAGE");
    for (std::size_t start = 0; start <= list.size();) {
        std::size_t end = list.find(':', start);
        if (end == std::string::npos) end = list.size();
        addOnce(languages, languageTagFromLocale(list.substr(start, end - start)));
        start = end + 1;
    }
    addOnce(languages, languageTagFromLocale(environment("LC_ALL")));
    addOnce(languages, languageTagFromLocale(environment("LANG")));
    if (languages.empty()) languages.push_back("en");
    return languages;
}

}  // namespace tactora::host
