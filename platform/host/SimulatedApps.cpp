#include "host/SimulatedApps.h"

#include <algorithm>

namespace tactora::host {

SimulatedApps::SimulatedApps(std::vector<SimulatedApp> apps) : apps_(std::move(apps)) {}

std::vector<SimulatedApp> SimulatedApps::defaultApps() {
    return {
        {"com.apple.mobilesafari", AppState::notRunning},
        {"com.apple.Preferences", AppState::notRunning},
        {"com.apple.mobilenotes", AppState::notRunning},
        {"com.apple.MobileSMS", AppState::notRunning},
        {"com.apple.camera", AppState::notRunning},
    };
}

SimulatedApp* SimulatedApps::find(const std::string& bundleId) {
    auto found = std::find_if(apps_.begin(), apps_.end(),
                              [&](const SimulatedApp& app) { return app.bundleId == bundleId; });
    return found == apps_.end() ? nullptr : &*found;
}

void SimulatedApps::trace(const std::string& line) {
    if (sink_) sink_(line);
}

void SimulatedApps::launch(const std::string& bundleId) {
    std::lock_guard lock(mutex_);
    SimulatedApp* app = find(bundleId);
    if (!app) return;
    // Only one application is in front at a time.
    for (SimulatedApp& other : apps_) {
        if (other.state == AppState::foreground) other.state = AppState::background;
    }
    app->state = AppState::foreground;
    trace("app launch " + bundleId);
}

void SimulatedApps::terminate(const std::string& bundleId) {
    std::lock_guard lock(mutex_);
    SimulatedApp* app = find(bundleId);
    // Only a process that exists can be sent the signal.
    if (!app || app->state == AppState::notRunning) return;
    app->state = AppState::notRunning;
    trace("app terminate " + bundleId);
}

bool SimulatedApps::isForeground(const std::string& bundleId) const {
    std::lock_guard lock(mutex_);
    auto found = std::find_if(apps_.begin(), apps_.end(),
                              [&](const SimulatedApp& app) { return app.bundleId == bundleId; });
    return found != apps_.end() && found->state == AppState::foreground;
}

std::optional<AppState> SimulatedApps::state(const std::string& bundleId) const {
    std::lock_guard lock(mutex_);
    for (const SimulatedApp& app : apps_) {
        if (app.bundleId == bundleId) return app.state;
    }
    return std::nullopt;
}

void SimulatedApps::install(const std::string& bundleId, AppState state) {
    std::lock_guard lock(mutex_);
    if (SimulatedApp* app = find(bundleId)) {
        app->state = state;
    } else {
        apps_.push_back({bundleId, state});
    }
}

void SimulatedApps::setTraceSink(TraceSink sink) {
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
}

}  // namespace tactora::host
