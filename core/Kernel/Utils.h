#pragma once

// Facts about the device for the script services and the interface: device-tree properties, the
// screen's size as text, the bounds as the user sees them, the installed applications, and the
// sizes that the image-scaling helpers draw at.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/DeviceInfo.h"
#include "Platform/Display.h"

namespace tactora {

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const Rect&) const = default;
};

// The property `name` of the device tree split at each NUL byte ("abc\0" gives "abc" and "");
// nothing when the property is missing, empty or not a byte string.
std::optional<std::vector<std::string>> getValue(std::string_view name);
// The first element of the "device-imei" and "backlight-level" properties.
std::optional<std::string> imei();
std::optional<std::string> backlightlevel();

// Splits raw property bytes at each NUL byte; nothing for no bytes.
std::optional<std::vector<std::string>> splitPropertyValue(std::string_view bytes);

class Utils {
public:
    // The screen's size in pixels (points times the true scale) as "%.0fx%.0f", smaller first.
    static std::string getScreenSize();
    // The screen's bounds with width and height exchanged in landscape (orientations 3 and 4).
    static Rect currentScreenBoundsDependOnOrientation();
    // The information dictionaries of the installation cache, "User" first, then "System";
    // empty when there is no cache.
    static std::vector<DeviceInfo::AppInfo> appInstalledList();

    // The size imageWithImage:scaledToWidth: draws at: the width changes, the height is kept.
    static Display::Size scaledToWidth(Display::Size image, float width);
    // The size imageWithImage2:scaledToWidth: draws at: both sides by width / image width.
    static Display::Size scaledToWidth2(Display::Size image, float width);
};

// The pure rules behind the methods above.
std::string screenSizeText(double widthPoints, double heightPoints, double scale);
Rect boundsForOrientation(Rect bounds, int orientation);

// Byte index of a channel of pixel (x, y) in a buffer of `width` pixels of 4 bytes, in the
// A, R, G, B order.
inline long alphaOffset(long x, long y, long width) { return (x + y * width) * 4; }
inline long redOffset(long x, long y, long width) { return alphaOffset(x, y, width) | 1; }
inline long greenOffset(long x, long y, long width) { return alphaOffset(x, y, width) | 2; }
inline long blueOffset(long x, long y, long width) { return alphaOffset(x, y, width) | 3; }

// Where scaleToSize: draws an image of `source` size inside `target`: scaled by the smaller of the
// two ratios and centred, the origin truncated to whole points.
Rect aspectFitRect(Display::Size source, Display::Size target);

}  // namespace tactora
