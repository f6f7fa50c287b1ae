#include "Control/Helper.h"

#include <cstring>

#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"

namespace tactora {

namespace {

constexpr const char* showPlayFinishedAlertKey = "TACTORA.SETTINGS.SHOW_PLAY_FINISHED_ALERT";
constexpr const char* showErrorsByAlertKey = "TACTORA.SETTINGS.SHOW_ERRORS_BY_ALERT";
constexpr const char* logErrorsKey = "TACTORA.SETTINGS.LOG_ERRORS";

// Every option is on until the user turns it off; the first read stores that default so that a
// settings screen reading the same store sees it.
bool readOption(const char* key) {
    UserDefaults& defaults = *platform().userDefaults;
    if (!defaults.objectForKey(key)) {
        defaults.setObject(key, DefaultsValue(true));
        return true;
    }
    return defaults.boolForKey(key);
}

}  // namespace

bool Helper::ifShowPlayFinishedAlert() { return readOption(showPlayFinishedAlertKey); }

bool Helper::ifShowErrorsByAlert() { return readOption(showErrorsByAlertKey); }

bool Helper::ifLogErrors() { return readOption(logErrorsKey); }

void myCallBack(std::int32_t messageId, std::span<const std::uint8_t> data) {
    const char* key = nullptr;
    switch (messageId) {
        case 6: key = logErrorsKey; break;
        case 5: key = showErrorsByAlertKey; break;
        case 4: key = showPlayFinishedAlertKey; break;
        default: return;
    }
    if (data.size() != 4) return;
    // One unsigned 32-bit value in little-endian order (the byte order of every supported device).
    std::uint32_t value = std::uint32_t(data[0]) | std::uint32_t(data[1]) << 8 | std::uint32_t(data[2]) << 16 |
                          std::uint32_t(data[3]) << 24;
    platform().userDefaults->setObject(key, DefaultsValue(value != 0));
}

bool str_ends_with(const char* text, const char* suffix) {
    std::size_t textLength = std::strlen(text);
    std::size_t suffixLength = std::strlen(suffix);
    if (suffixLength > textLength) return false;
    return std::memcmp(text + textLength - suffixLength, suffix, suffixLength) == 0;
}

}  // namespace tactora
