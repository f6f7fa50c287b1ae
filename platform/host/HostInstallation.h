// The installation facts of the desktop: the simulated device stands in for the phone, so the
// "system" is this machine's kernel, the "device" the simulated profile and the "layout" the root
// directory the device tree lives under.
#pragma once

#include <string>

#include "Platform/Installation.h"

namespace tactora::host {

class HostInstallation final : public Installation {
public:
    HostInstallation(std::string root, std::string deviceProfile)
        : root_(std::move(root)), deviceProfile_(std::move(deviceProfile)) {}

    std::string layout() const override { return "root " + root_; }
    std::string loadedSlice() const override;
    std::string systemVersion() const override;
    std::string deviceModel() const override { return "simulated " + deviceProfile_; }
    // The host's event registry stands in for the event library.
    bool hasActivator() const override { return true; }

private:
    std::string root_;
    std::string deviceProfile_;
};

}  // namespace tactora::host
