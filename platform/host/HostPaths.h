#pragma once

#include <cstdio>
#include <mutex>
#include <set>
#include <string>

#include "Platform/Paths.h"

namespace tactora::host {

// Lays the device tree out under a root directory chosen by the user: /var/mobile/... becomes
// ROOT/var/mobile/..., /Applications/... becomes ROOT/Applications/...
class HostPaths final : public Paths {
public:
    explicit HostPaths(std::string root);
    std::string map(std::string_view devicePath) const override;
    // Scripts see the phone's file system, so "/home/me/icon.png" is looked for under the root.
    // When the path a script gave names a file (or, for a file to write, a directory) on this
    // machine outside the root, the author most likely meant that one: says so once per path.
    void scriptFileMissed(std::string_view function, std::string_view path, const std::string& mapped) const override;
    const std::string& root() const { return root_; }
    // Where those notes go; stderr unless changed (tests).
    void setNoteStream(std::FILE* out) { notes_ = out; }

private:
    std::string root_;
    std::FILE* notes_ = stderr;
    mutable std::mutex mutex_;
    mutable std::set<std::string, std::less<>> told_;
};

// The root from --root, else TACTORA_ROOT, else ~/.tactora.
std::string chooseRoot(const std::string& fromCommandLine);

// Creates `root` (and its parents) when it does not exist yet, saying so on stderr when
// `announce`; false with `error` when it cannot be made, or exists and is not a directory.
bool ensureRoot(const std::string& root, bool announce, std::string& error);

// Puts the package's own files (Extensions.lua) in a root that has no package directory yet, as
// installing the package does on the phone. A package directory that exists is left as it is,
// with whatever its owner changed or removed.
void installPackageFiles(const Paths& paths);

}  // namespace tactora::host
