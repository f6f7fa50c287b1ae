// A recording injection port, queues whose background threads are joined, RuntimeDevice for the
// interpreter and the runner, and ControlDevice, a simulated SpringBoard for the controller.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <span>
#include <thread>

#include "FoundationFakes.h"
#include "Kernel/EventSimulate.h"
#include "Models/Global.h"
#include "Platform/Display.h"
#include "Platform/MessagePorts.h"
#include "Platform/Queues.h"
#include "host/HostAlerts.h"
#include "host/HostEventRegistry.h"
#include "host/HostHIDSource.h"
#include "host/HostPresenter.h"
#include "host/MainLoop.h"
#include "host/OpenSSLCrypto.h"
#include "host/SimulatedApps.h"

namespace tactora::testing {

struct SentMessage { std::int32_t id; std::vector<std::uint8_t> data; };

// The injection port of a receiver that only writes down what it was sent.
class RecordingPorts final : public MessagePorts {
public:
    std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) override {
        return name == injectionPortName ? std::make_unique<Remote>(log_) : nullptr;
    }
    std::vector<SentMessage> messages() const { std::lock_guard l(log_->mutex); return log_->messages; }
    std::vector<std::int32_t> ids() const {
        std::vector<std::int32_t> result;
        for (const SentMessage& message : messages()) result.push_back(message.id);
        return result;
    }
    size_t count(std::int32_t id) const { return std::ranges::count(ids(), id); }
    void clear() { std::lock_guard l(log_->mutex); log_->messages.clear(); }

private:
    struct Log { std::mutex mutex; std::vector<SentMessage> messages; };
    struct Remote final : RemoteMessagePort {
        explicit Remote(std::shared_ptr<Log> log) : log_(std::move(log)) {}
        bool isValid() const override { return true; }
        SendStatus sendRequest(std::int32_t id, std::span<const std::uint8_t> data, double, double,
                               std::vector<std::uint8_t>* reply) override {
            std::lock_guard lock(log_->mutex);
            log_->messages.push_back({id, {data.begin(), data.end()}});
            if (reply) reply->clear();
            return SendStatus::success;
        }
        std::shared_ptr<Log> log_;
    };
    std::shared_ptr<Log> log_ = std::make_shared<Log>();
};

// The main queue is a MainLoop the test pumps; background work runs on threads joined when the
// queues go, so no run outlives the fakes it uses.
class JoiningQueues final : public Queues {
public:
    explicit JoiningQueues(host::MainLoop& loop) : loop_(loop) {}
    ~JoiningQueues() override { join(); }
    void runOnMain(std::function<void()> work) override { loop_.post(std::move(work)); }
    void runInBackground(std::function<void()> work) override { std::lock_guard l(mutex_); threads_.emplace_back(std::move(work)); }
    bool isMainThread() const override { return loop_.isLoopThread(); }
    void join() {
        std::unique_lock lock(mutex_);
        auto threads = std::exchange(threads_, {});
        lock.unlock();
        for (std::thread& thread : threads) thread.join();
    }

private:
    host::MainLoop& loop_;
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

// The scripts and library directories, a main loop the test pumps and background threads it
// joins; Global is reset on both ends.
class RuntimeDevice : public FakeDevice {
public:
    RuntimeDevice() : queues(loop) {
        Global::sharedInstance().reset();
        EventSimulate::resetConnection();
        Platform& p = platform();
        p.clock = &clock, p.feedback = &feedback, p.apps = &apps, p.messagePorts = &ports, p.queues = &queues;
        std::filesystem::create_directories(map("/var/mobile/Library/Tactora/Scripts"));
        std::filesystem::create_directories(map("/var/mobile/Library/Tactora/Library"));
    }
    ~RuntimeDevice() {
        queues.join();
        loop.drain();
        Global::sharedInstance().reset();
        EventSimulate::resetConnection();
    }

    std::filesystem::path logFile() const { return map("/var/mobile/Library/Tactora/Library/log.log"); }
    std::string log() const { return readFile(logFile()); }
    std::vector<std::string> logLines() const { return lines(log()); }
    // Sets the error and finished-alert options.
    void options(bool logErrors, bool alertErrors, bool finishedAlert = true) {
        defaults.setObject(logErrorsKey, logErrors);
        defaults.setObject(showErrorsByAlertKey, alertErrors);
        defaults.setObject(showPlayFinishedAlertKey, finishedAlert);
    }

    FakeClock clock{2026, 3, 7, 9, 5, 3};
    CountingFeedback feedback;
    host::SimulatedApps apps;
    RecordingPorts ports;
    host::MainLoop loop;
    JoiningQueues queues;
};

class FixedDisplay final : public Display {
public:
    Size size{320, 568};
    Size bounds() const override { return size; }
    double scale() const override { return 2.0; }
};

// The host's event registry, alerts, panels and HID source, and a main loop the test thread runs.
// Sleeps are real.
class ControlDevice : public FakeDevice {
public:
    ControlDevice() : queues(loop), registry((root.path() / "registry.json").string()), hidSource(queues) {
        Global::sharedInstance().reset();
        clock.realSleeps = true;
        Platform& p = platform();
        p.alerts = &hostAlerts, p.presenter = &presenter, p.eventRegistry = &registry, p.feedback = &feedback;
        p.queues = &queues, p.clock = &clock, p.hidSource = &hidSource, p.display = &display, p.crypto = &crypto;
    }
    ~ControlDevice() { loop.drain(), Global::sharedInstance().reset(); }

    std::filesystem::path scriptsDirectory() const { return map(devicepaths::scriptsDirectory); }
    std::string writeScript(const std::string& name, const std::string& text = "-- nothing\n") const {
        writeFile(scriptsDirectory() / name, text);
        return (scriptsDirectory() / name).string();
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
    FakeClock clock{2014, 5, 1, 13, 45, 10};
    FixedDisplay display;
    host::OpenSSLCrypto crypto;
};

}  // namespace tactora::testing

namespace tactora {
namespace runtimetest = testing;  // the runtime tests' name for the shared fakes
}  // namespace tactora
