#include "Platform/UserDefaults.h"

#include <cstdlib>

namespace tactora {

bool UserDefaults::boolForKey(const std::string& key) const {
    auto value = objectForKey(key);
    if (!value) return false;
    if (auto* b = std::get_if<bool>(&*value)) return *b;
    if (auto* i = std::get_if<std::int64_t>(&*value)) return *i != 0;
    if (auto* d = std::get_if<double>(&*value)) return *d != 0.0;
    const std::string& s = std::get<std::string>(*value);
    size_t i = s.find_first_not_of(" \t\n");
    if (i == std::string::npos) return false;
    char c = s[i];
    if (c == 'Y' || c == 'y' || c == 'T' || c == 't') return true;
    if (c == '+' || c == '-') ++i;
    return std::atoi(s.c_str() + (i < s.size() ? i : s.size())) != 0;
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
    auto value = objectForKey(key);
    if (!value) return std::nullopt;
    if (auto* s = std::get_if<std::string>(&*value)) return *s;
    return std::nullopt;
}

}  // namespace tactora
