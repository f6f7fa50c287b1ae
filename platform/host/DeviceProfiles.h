#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tactora::host {

// A device the host can simulate: its screen in points and its scale.
struct DeviceProfile {
    std::string name;
    std::string model;
    double widthPoints;
    double heightPoints;
    double scale;
    int pixelWidth() const { return static_cast<int>(widthPoints * scale); }
    int pixelHeight() const { return static_cast<int>(heightPoints * scale); }
};

const std::vector<DeviceProfile>& deviceProfiles();
// The profile named `name` ("iphone-se", "iphone-8", "iphone-8-plus", "iphone-12"), or one given
// as WxH@S ("320x568@2").
std::optional<DeviceProfile> findDeviceProfile(const std::string& name);

}  // namespace tactora::host
