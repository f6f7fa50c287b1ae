#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Apps.h"

namespace tactora::host {

// What a simulated application is doing.
enum class AppState { notRunning, background, foreground };

struct SimulatedApp {
    std::string bundleId;
    AppState state = AppState::notRunning;
};

// The installed applications of the simulated device. Launching brings an app to the foreground
// (sending the one there before to the background); terminating stops a running app. Unknown
// identifiers change nothing, as on the device. Safe to use from any thread.
class SimulatedApps final : public Apps {
public:
    // One line per change, e.g. "app launch com.apple.Preferences". Empty: no lines.
    using TraceSink = std::function<void(const std::string& line)>;

    explicit SimulatedApps(std::vector<SimulatedApp> apps = defaultApps());

    void launch(const std::string& bundleId) override;
    void terminate(const std::string& bundleId) override;
    bool isForeground(const std::string& bundleId) const override;

    // The state of `bundleId`, or none when it is not installed.
    std::optional<AppState> state(const std::string& bundleId) const;
    // Installs `bundleId` (or changes its state).
    void install(const std::string& bundleId, AppState state = AppState::notRunning);
    void setTraceSink(TraceSink sink);

    // A few of the system's own applications, none running.
    static std::vector<SimulatedApp> defaultApps();

private:
    SimulatedApp* find(const std::string& bundleId);
    void trace(const std::string& line);

    mutable std::mutex mutex_;
    std::vector<SimulatedApp> apps_;
    TraceSink sink_;
};

}  // namespace tactora::host
