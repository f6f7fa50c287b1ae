#include "host/DeviceProfiles.h"

#include <cstdio>

namespace tactora::host {

const std::vector<DeviceProfile>& deviceProfiles() {
    static const std::vector<DeviceProfile> profiles = {
        {"iphone-se", "iPhone SE (1st generation)", 320, 568, 2},
        {"iphone-8", "iPhone 8", 375, 667, 2},
        {"iphone-8-plus", "iPhone 8 Plus", 414, 736, 3},
        {"iphone-12", "iPhone 12", 390, 844, 3},
    };
    return profiles;
}

std::optional<DeviceProfile> findDeviceProfile(const std::string& name) {
    for (const auto& profile : deviceProfiles())
        if (profile.name == name) return profile;
    double width = 0, height = 0, scale = 0;
    char tail = 0;
    if (std::sscanf(name.c_str(), "%lfx%lf@%lf%c", &width, &height, &scale, &tail) == 3 && width >= 1 &&
        height >= 1 && width <= 4096 && height <= 4096 && (scale == 1 || scale == 2 || scale == 3))
        return DeviceProfile{name, "custom", width, height, scale};
    return std::nullopt;
}

}  // namespace tactora::host
