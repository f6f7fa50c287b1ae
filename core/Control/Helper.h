#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tactora {

// The three user options, true until set; the first read stores the default.
class Helper {
public:
    static bool ifShowPlayFinishedAlert();
    static bool ifShowErrorsByAlert();
    static bool ifLogErrors();
};

inline constexpr const char* settingsPortName = "tactora.tactoratweak.springboard";
inline constexpr const char* orientationChangedNotification =
    "TACTORA.TACTORA_TWEAK.SpringBoard.NoteInterfaceOrientationChangedNotification";

// The settings port's callback: ids 4, 5, 6 with exactly 4 bytes set an option; anything else is
// ignored. Never replies.
void myCallBack(std::int32_t messageId, std::span<const std::uint8_t> data);

// True when `text` ends in `suffix`, byte for byte.
bool str_ends_with(const char* text, const char* suffix);

}  // namespace tactora
