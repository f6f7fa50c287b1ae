#pragma once

#include "Platform/Installation.h"

namespace tactora::ios {

// The installation as this process sees it: the layout this build was packaged for, the slice
// that was loaded, the system, and which of the libraries the tweak relies on are loaded here.
class IOSInstallation final : public Installation {
public:
    std::string layout() const override;
    std::string loadedSlice() const override;
    std::string systemVersion() const override;
    std::string deviceModel() const override;
    bool hasActivator() const override;
    bool hasRocketBootstrap() const override;
    bool dispatchHookInstalled() const override;
};

// Backboardd's start-up tells whether its hook on the HID system's dispatch took.
void noteDispatchHookInstalled(bool installed);

}  // namespace tactora::ios
