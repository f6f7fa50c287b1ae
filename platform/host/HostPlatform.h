#pragma once

#include <memory>
#include <string>

namespace tactora::host {

class MainLoop;

// What the command line chose for this process.
struct HostOptions {
    std::string root;          // empty: TACTORA_ROOT or ~/.tactora
    std::string device = "iphone-se";  // device profile of the simulated display
    bool verbose = false;      // diagnostics on stderr
};

// Installs every host port for this process. The returned object owns them; keep it alive as
// long as the process uses the core.
class HostPlatform {
public:
    explicit HostPlatform(const HostOptions& options);
    ~HostPlatform();
    HostPlatform(const HostPlatform&) = delete;
    HostPlatform& operator=(const HostPlatform&) = delete;

    MainLoop& mainLoop();
    const std::string& root() const;

private:
    struct Ports;
    std::unique_ptr<Ports> ports_;
};

}  // namespace tactora::host
