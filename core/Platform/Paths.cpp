#include "Platform/Paths.h"

namespace tactora {

std::string packagePath(std::string_view devicePath, std::string_view packageRoot) {
    std::string_view package = devicepaths::packageDirectory;
    bool inPackage = devicePath.starts_with(package) &&
                     (devicePath.size() == package.size() || devicePath[package.size()] == '/');
    if (!inPackage || packageRoot.empty()) return std::string(devicePath);
    std::string mapped(packageRoot);
    if (mapped.back() == '/') mapped.pop_back();
    mapped += devicePath;
    return mapped;
}

}  // namespace tactora
