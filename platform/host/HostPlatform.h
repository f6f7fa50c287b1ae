#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tactora::host {

class MainLoop;
class SimulatedApps;
class HostFeedback;
class SimulatedDisplay;

// What the command line chose for this process.
struct HostOptions {
    std::string root;          // empty: TACTORA_ROOT or ~/.tactora
    std::string device = "iphone-se";  // device profile of the simulated display (--device)
    std::vector<std::string> screens;  // PNG files the simulated screen shows, in turn (--screen)
    bool verbose = false;      // diagnostics on stderr
    std::string language;      // first preferred language, exactly as given (--language); empty:
                               // TACTORA_LANGUAGE, else LANGUAGE, LC_ALL, LANG
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
    SimulatedApps& apps();
    HostFeedback& feedback();
    const std::string& root() const;
    SimulatedDisplay& display();
    // What went wrong while installing the ports (an unknown device, an unreadable screen file);
    // the port then falls back (default device, black screen).
    const std::vector<std::string>& problems() const;

private:
    struct Ports;
    std::unique_ptr<Ports> ports_;
};

}  // namespace tactora::host
