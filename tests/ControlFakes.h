// A simulated SpringBoard for the tests of the controller, the panels and the recorder: a fresh
// device tree, the host's event registry, alerts, panels and HID source, a main loop that the
// test thread runs, and counted feedback.
#pragma once

#include <chrono>
#include <ctime>
#include <fstream>
#include <string>

#include "FoundationFakes.h"
#include "Models/Global.h"
#include "Platform/Clock.h"
#include "Platform/Display.h"
#include "Platform/Feedback.h"
#include "host/HostAlerts.h"
#include "host/HostEventRegistry.h"
#include "host/HostHIDSource.h"
#include "host/HostPresenter.h"
#include "host/OpenSSLCrypto.h"
#include "host/MainLoop.h"

namespace tactora::testing {

class CountingFeedback final : public Feedback {
public:
    int vibrations = 0;
    void vibrate() override { ++vibrations; }
};

// Local time stands still at `now`; absolute time is whatever the test sets.
class FixedClock final : public Clock {
public:
    std::tm now{};
    std::uint64_t ticks = 0;
    FixedClock() {
        now.tm_year = 2014 - 1900;
        now.tm_mon = 4;
        now.tm_mday = 1;
        now.tm_hour = 13;
        now.tm_min = 45;
        now.tm_sec = 10;
    }
    std::uint64_t absoluteTime() const override { return ticks; }
    std::tm localNow() const override { return now; }
};

class FixedDisplay final : public Display {
public:
    Size size{320, 568};
    Size bounds() const override { return size; }
    double scale() const override { return 2.0; }
};

class ControlDevice : public FakeDevice {
public:
    ControlDevice()
        : queues(loop),
          registry((root.path() / "registry.json").string()),
          hidSource(queues) {
        Global::sharedInstance().reset();
        Platform& p = platform();
        p.alerts = &hostAlerts;
        p.presenter = &presenter;
        p.eventRegistry = &registry;
        p.feedback = &feedback;
        p.queues = &queues;
        p.clock = &clock;
        p.hidSource = &hidSource;
        p.display = &display;
        p.crypto = &crypto;
    }
    ~ControlDevice() {
        loop.drain();
        Global::sharedInstance().reset();
    }

    std::filesystem::path scriptsDirectory() const { return map(devicepaths::scriptsDirectory); }
    std::string writeScript(const std::string& name, const std::string& text = "-- nothing\n") const {
        std::filesystem::create_directories(scriptsDirectory());
        std::filesystem::path path = scriptsDirectory() / name;
        std::ofstream(path) << text;
        return path.string();
    }
    // Runs the main loop until `done` holds (at most a few seconds).
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
        return loop.runUntil(done, timeout);
    }
    // The messages of the open alerts, oldest first.
    std::vector<std::string> alertMessages() const {
        std::vector<std::string> messages;
        for (const auto& alert : hostAlerts.openAlerts()) messages.push_back(alert.request.message);
        return messages;
    }

    host::MainLoop loop;
    host::HostQueues queues;
    host::HostEventRegistry registry;
    host::HostAlerts hostAlerts;
    host::HostPresenter presenter;
    host::HostHIDSource hidSource;
    CountingFeedback feedback;
    FixedClock clock;
    FixedDisplay display;
    host::OpenSSLCrypto crypto;
};

}  // namespace tactora::testing
