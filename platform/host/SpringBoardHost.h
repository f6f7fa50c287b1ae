#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "Platform/Feedback.h"
#include "Platform/Platform.h"
#include "host/HostAlerts.h"
#include "host/HostEventRegistry.h"
#include "host/HostHIDSource.h"
#include "host/HostPresenter.h"

namespace tactora {
class ActionListener;
}

namespace tactora::host {

class MainLoop;

// Feedback on the host: counted, and told to whoever listens (the console).
class SpringBoardFeedback final : public Feedback {
public:
    void vibrate() override;
    void playBundledSound() override;
    int vibrations() const { return vibrations_.load(std::memory_order_relaxed); }
    std::function<void(const char* what)> onFeedback;

private:
    std::atomic<int> vibrations_{0};
};

// The parts of SpringBoard the system lives with on the host: the event registry, alerts and
// panels held open for the console and the control API, the HID source for the recorder and
// feedback. Installs them as ports; start() then loads the controller as SpringBoard would.
class SpringBoardHost {
public:
    // `console` (may be null) gets one line for every alert, panel and feedback.
    SpringBoardHost(MainLoop& loop, const std::string& registryPath, std::ostream* console);
    ~SpringBoardHost();

    // Loads the controller (main loop). Null if it could not start.
    std::shared_ptr<ActionListener> start();
    const std::shared_ptr<ActionListener>& listener() const { return listener_; }

    MainLoop& loop() { return loop_; }
    HostEventRegistry& registry() { return registry_; }
    HostAlerts& alerts() { return alerts_; }
    HostPresenter& presenter() { return presenter_; }
    HostHIDSource& hidSource() { return hidSource_; }
    SpringBoardFeedback& feedback() { return feedback_; }

private:
    void say(const std::string& line);

    MainLoop& loop_;
    std::ostream* console_;
    Platform saved_{};
    HostEventRegistry registry_;
    HostAlerts alerts_;
    HostPresenter presenter_;
    HostHIDSource hidSource_;
    SpringBoardFeedback feedback_;
    std::shared_ptr<ActionListener> listener_;
};

// Where the host keeps its event registry, as a device path.
inline constexpr const char* eventRegistryDevicePath = "/var/mobile/Library/Preferences/libactivator.json";

}  // namespace tactora::host
