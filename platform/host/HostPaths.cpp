#include "host/HostPaths.h"

#include <cstdlib>
#include <filesystem>

namespace tactora::host {

HostPaths::HostPaths(std::string root) {
    std::error_code error;
    auto absolute = std::filesystem::absolute(root, error);
    root_ = error ? root : absolute.lexically_normal().string();
    while (root_.size() > 1 && root_.back() == '/') root_.pop_back();
}

std::string HostPaths::map(std::string_view devicePath) const {
    if (devicePath.empty() || devicePath.front() != '/') return std::string(devicePath);
    if (root_ == "/") return std::string(devicePath);
    return root_ + std::string(devicePath);
}

std::string chooseRoot(const std::string& fromCommandLine) {
    if (!fromCommandLine.empty()) return fromCommandLine;
    if (const char* env = std::getenv("TACTORA_ROOT"); env && *env) return env;
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.tactora";
    return ".tactora";
}

}  // namespace tactora::host
