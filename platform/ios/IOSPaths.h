#pragma once

#include <string>

#include "Platform/Paths.h"

namespace tactora::ios {

// The device paths as they are, except the package's own files, which a rootless package keeps
// under its prefix.
class IOSPaths final : public Paths {
public:
    // The prefix this build of the package was made for: "" (rootful) or "/var/jb" (rootless).
    IOSPaths();
    std::string map(std::string_view devicePath) const override;
    const std::string& packageRoot() const { return packageRoot_; }

private:
    std::string packageRoot_;
};

// Set by the build, one value per package layout (see PackageRoot.mm.in).
extern const char* const builtPackageRoot;

}  // namespace tactora::ios
