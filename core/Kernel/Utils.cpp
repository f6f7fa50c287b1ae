#include "Kernel/Utils.h"

#include <algorithm>
#include <cstdio>

#include "Platform/Platform.h"

namespace tactora {

std::optional<std::vector<std::string>> splitPropertyValue(std::string_view bytes) {
    if (bytes.empty()) return std::nullopt;
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = bytes.find('\0', start);
        parts.emplace_back(bytes.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return parts;
}

std::optional<std::vector<std::string>> getValue(std::string_view name) {
    const auto bytes = platform().deviceInfo->deviceTreeProperty(name);
    if (!bytes) return std::nullopt;
    return splitPropertyValue(*bytes);
}

namespace {

std::optional<std::string> firstOf(std::string_view name) {
    auto values = getValue(name);
    if (!values) return std::nullopt;
    return std::move(values->front());
}

}  // namespace

std::optional<std::string> imei() { return firstOf("device-imei"); }
std::optional<std::string> backlightlevel() { return firstOf("backlight-level"); }

std::string screenSizeText(double widthPoints, double heightPoints, double scale) {
    const double a = widthPoints * scale, b = heightPoints * scale;
    char text[64];
    std::snprintf(text, sizeof text, "%.0fx%.0f", std::min(a, b), std::max(a, b));
    return text;
}

Rect boundsForOrientation(Rect bounds, int orientation) {
    if (orientation == 3 || orientation == 4) std::swap(bounds.width, bounds.height);
    return bounds;
}

std::string Utils::getScreenSize() {
    const Display& display = *platform().display;
    const Display::Size bounds = display.bounds();
    return screenSizeText(bounds.width, bounds.height, display.scale());
}

Rect Utils::currentScreenBoundsDependOnOrientation() {
    const Display& display = *platform().display;
    const Display::Size bounds = display.bounds();
    return boundsForOrientation(Rect{0, 0, bounds.width, bounds.height}, display.interfaceOrientation());
}

std::vector<DeviceInfo::AppInfo> Utils::appInstalledList() {
    std::vector<DeviceInfo::AppInfo> apps;
    // The registry first: the cache file is gone since iOS 8 and is read only where the registry
    // cannot be asked or knows nothing.
    const DeviceInfo& info = *platform().deviceInfo;
    const auto registered = info.registeredApplications();
    const auto cache = registered && !registered->empty() ? std::optional(installationCacheOf(*registered))
                                                          : info.installationCache();
    if (!cache) return apps;
    apps.insert(apps.end(), cache->user.begin(), cache->user.end());
    apps.insert(apps.end(), cache->system.begin(), cache->system.end());
    return apps;
}

Display::Size Utils::scaledToWidth(Display::Size image, float width) { return {width, image.height}; }

Display::Size Utils::scaledToWidth2(Display::Size image, float width) {
    const float factor = width / static_cast<float>(image.width);
    return {image.width * factor, image.height * factor};
}

Rect aspectFitRect(Display::Size source, Display::Size target) {
    const double ratio = std::min(target.width / source.width, target.height / source.height);
    const double width = source.width * ratio, height = source.height * ratio;
    return Rect{static_cast<double>(static_cast<long>((target.width - width) * 0.5)),
                static_cast<double>(static_cast<long>((target.height - height) * 0.5)), width, height};
}

}  // namespace tactora
