#include "PlayValues.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <optional>

namespace tactora::cli {

namespace {

// The whole text as a decimal integer; none for anything else or a number out of range.
std::optional<long> wholeNumber(const std::string& text) {
    if (text.empty()) return std::nullopt;
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(text.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE) return std::nullopt;
    return value;
}

[[noreturn]] void refuse(const std::string& option, const std::string& range, const std::string& text) {
    throw UsageError(option + " must be " + range + " (what the play settings panel allows), not \"" + text + "\"");
}

}  // namespace

CLI::Validator repeatTimeCheck(const std::string& option) {
    return CLI::Validator(
        [option](std::string& text) {
            std::optional<long> value = wholeNumber(text);
            if (!value || *value < 0) refuse(option, "a whole number, 0 or more", text);
            return std::string();
        },
        "N");
}

CLI::Validator repeatIntervalCheck(const std::string& option) {
    return CLI::Validator(
        [option](std::string& text) {
            std::optional<long> value = wholeNumber(text);
            if (!value || *value < 0 || *value > 1000000) refuse(option, "whole seconds from 0 to 1000000", text);
            return std::string();
        },
        "SECONDS");
}

CLI::Validator playSpeedCheck(const std::string& option) {
    return CLI::Validator(
        [option](std::string& text) {
            char* end = nullptr;
            double value = text.empty() ? NAN : std::strtod(text.c_str(), &end);
            // NaN fails both comparisons, so it is refused with the infinities.
            if (text.empty() || *end != '\0' || !(value >= 0.1 && value <= 1.9))
                refuse(option, "a number from 0.1 to 1.9", text);
            return std::string();
        },
        "SPEED");
}

}  // namespace tactora::cli
