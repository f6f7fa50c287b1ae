#include "ios/IOSPaths.h"

namespace tactora::ios {

IOSPaths::IOSPaths() : packageRoot_(builtPackageRoot) {}

std::string IOSPaths::map(std::string_view devicePath) const { return packagePath(devicePath, packageRoot_); }

}  // namespace tactora::ios
