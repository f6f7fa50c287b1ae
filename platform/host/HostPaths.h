#pragma once

#include <string>

#include "Platform/Paths.h"

namespace tactora::host {

// Lays the device tree out under a root directory chosen by the user: /var/mobile/... becomes
// ROOT/var/mobile/..., /Applications/... becomes ROOT/Applications/...
class HostPaths final : public Paths {
public:
    explicit HostPaths(std::string root);
    std::string map(std::string_view devicePath) const override;
    const std::string& root() const { return root_; }

private:
    std::string root_;
};

// The root from --root, else TACTORA_ROOT, else ~/.tactora.
std::string chooseRoot(const std::string& fromCommandLine);

}  // namespace tactora::host
