#include "host/HostPaths.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/PackageFiles.h"

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

void HostPaths::scriptFileMissed(std::string_view function, std::string_view path, const std::string& mapped) const {
    if (path.empty() || path.front() != '/' || mapped == path) return;
    const std::filesystem::path desktop(path);
    std::error_code error;
    const bool reading = function == "findImage";
    const bool meant = reading ? std::filesystem::is_regular_file(desktop, error)
                               : std::filesystem::is_directory(desktop.parent_path(), error);
    if (!meant) return;
    {
        std::lock_guard lock(mutex_);
        if (!told_.emplace(path).second) return;
    }
    const std::string scripts = map(devicepaths::scriptsDirectory) + "/";
    const std::string name = desktop.filename().string();
    const std::string head = "tactora: " + std::string(function) + "(\"" + std::string(path) + "\") ";
    const std::string why = ": scripts see the phone's files, which live under the root " + root_ + ", so ";
    if (reading) {
        std::fprintf(notes_, "%s%s%sit looked for %s; copy the picture to %s and name it rootDir() .. \"%s\"\n",
                     head.c_str(), "found no file", why.c_str(), mapped.c_str(), scripts.c_str(), name.c_str());
    } else {
        std::fprintf(notes_, "%s%s%sit meant %s, whose directory does not exist; write to rootDir() .. \"%s\" (%s%s)\n",
                     head.c_str(), "wrote nothing", why.c_str(), mapped.c_str(), name.c_str(), scripts.c_str(),
                     name.c_str());
    }
    std::fflush(notes_);
}

std::string chooseRoot(const std::string& fromCommandLine) {
    if (!fromCommandLine.empty()) return fromCommandLine;
    if (const char* env = std::getenv("TACTORA_ROOT"); env && *env) return env;
    if (const char* home = std::getenv("HOME"); home && *home) return std::string(home) + "/.tactora";
    return ".tactora";
}

bool ensureRoot(const std::string& root, bool announce, std::string& error) {
    namespace fs = std::filesystem;
    std::error_code failure;
    if (fs::is_directory(root, failure)) return true;
    if (fs::exists(root, failure)) {
        error = "the root " + root + " is not a directory";
        return false;
    }
    fs::create_directories(root, failure);
    if (failure) {
        error = "cannot create the root " + root + ": " + failure.message();
        return false;
    }
    if (announce) std::fprintf(stderr, "tactora: created %s, a new device root\n", root.c_str());
    return true;
}

void installPackageFiles(const Paths& paths) {
    namespace fs = std::filesystem;
    const fs::path directory = paths.map(devicepaths::packageDirectory);
    std::error_code failure;
    if (fs::exists(directory, failure) || !fs::create_directories(directory, failure)) return;
    // A file that cannot be written is the same as a package without it: the interpreter says so
    // in the log at its start.
    std::ofstream(paths.map(devicepaths::extensionsFile), std::ios::binary) << extensionsLua();
}

}  // namespace tactora::host
