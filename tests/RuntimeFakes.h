// Fakes for the ports the script runtime and the runner use: injection sends, sleeps, alerts,
// feedback, queues and defaults. Every fake is safe to call from the script thread while the test
// thread reads it.
#pragma once

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Kernel/EventSimulate.h"
#include "Models/Global.h"
#include "Platform/Alerts.h"
#include "Platform/Clock.h"
#include "Platform/Feedback.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "Platform/Queues.h"
#include "Platform/UserDefaults.h"
#include "host/HostPaths.h"
#include "host/MainLoop.h"
#include "host/SimulatedApps.h"

namespace tactora::runtimetest {

struct SentMessage {
    std::int32_t id;
    std::vector<std::uint8_t> data;
};

// The injection port of a receiver that only writes down what it was sent.
class RecordingPorts final : public MessagePorts {
public:
    struct Log {
        std::mutex mutex;
        std::vector<SentMessage> messages;
    };

    std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) override {
        if (name != injectionPortName) return nullptr;
        return std::make_unique<Remote>(log_);
    }

    std::vector<SentMessage> messages() const {
        std::lock_guard lock(log_->mutex);
        return log_->messages;
    }
    std::vector<std::int32_t> ids() const {
        std::vector<std::int32_t> result;
        for (const SentMessage& message : messages()) result.push_back(message.id);
        return result;
    }
    size_t count(std::int32_t id) const {
        size_t n = 0;
        for (const SentMessage& message : messages()) n += message.id == id;
        return n;
    }
    void clear() {
        std::lock_guard lock(log_->mutex);
        log_->messages.clear();
    }

private:
    class Remote final : public RemoteMessagePort {
    public:
        explicit Remote(std::shared_ptr<Log> log) : log_(std::move(log)) {}
        bool isValid() const override { return true; }
        SendStatus sendRequest(std::int32_t id, std::span<const std::uint8_t> data, double, double,
                               std::vector<std::uint8_t>* reply) override {
            std::lock_guard lock(log_->mutex);
            log_->messages.push_back({id, {data.begin(), data.end()}});
            if (reply) reply->clear();
            return SendStatus::success;
        }

    private:
        std::shared_ptr<Log> log_;
    };

    std::shared_ptr<Log> log_ = std::make_shared<Log>();
};

// Sleeps are written down instead of slept (unless `realSleeps`); `onSleep` runs inside each one,
// on the sleeping thread, so a test can act "during" a pause.
class FakeClock final : public Clock {
public:
    std::tm now{};
    bool realSleeps = false;
    std::function<void(std::uint32_t microseconds)> onSleep;

    FakeClock() {
        now.tm_year = 2026 - 1900;
        now.tm_mon = 2;  // March
        now.tm_mday = 7;
        now.tm_hour = 9;
        now.tm_min = 5;
        now.tm_sec = 3;
    }
    std::tm localNow() const override { return now; }
    void sleepMicroseconds(std::uint32_t microseconds) override {
        std::function<void(std::uint32_t)> hook;
        {
            std::lock_guard lock(mutex_);
            sleeps_.push_back(microseconds);
            hook = onSleep;
        }
        if (hook) hook(microseconds);
        if (realSleeps) Clock::sleepMicroseconds(microseconds);
    }
    std::vector<std::uint32_t> sleeps() const {
        std::lock_guard lock(mutex_);
        return sleeps_;
    }
    size_t count(std::uint32_t microseconds) const {
        size_t n = 0;
        for (std::uint32_t sleep : sleeps()) n += sleep == microseconds;
        return n;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        sleeps_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::uint32_t> sleeps_;
};

class RecordingAlerts final : public Alerts {
public:
    void showAlert(AlertRequest alert) override {
        std::lock_guard lock(mutex_);
        shown_.push_back(std::move(alert));
    }
    std::vector<AlertRequest> shown() const {
        std::lock_guard lock(mutex_);
        return shown_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<AlertRequest> shown_;
};

class CountingFeedback final : public Feedback {
public:
    std::atomic<int> vibrations{0};
    std::atomic<int> sounds{0};
    std::mutex mutex;
    std::vector<bool> idleTimerCalls;

    void vibrate() override { ++vibrations; }
    void playBundledSound() override { ++sounds; }
    void resetIdleTimerAndUndim(bool playing) override {
        std::lock_guard lock(mutex);
        idleTimerCalls.push_back(playing);
    }
};

class MemoryDefaults final : public UserDefaults {
public:
    std::optional<DefaultsValue> objectForKey(const std::string& key) const override {
        std::lock_guard lock(mutex_);
        auto found = values_.find(key);
        if (found == values_.end()) return std::nullopt;
        return found->second;
    }
    void setObject(const std::string& key, const DefaultsValue& value) override {
        std::lock_guard lock(mutex_);
        values_[key] = value;
    }
    void removeObject(const std::string& key) override {
        std::lock_guard lock(mutex_);
        values_.erase(key);
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, DefaultsValue> values_;
};

// The main queue is a MainLoop the test pumps; background work runs on threads joined when the
// queues go, so no run outlives the fakes it uses.
class JoiningQueues final : public Queues {
public:
    explicit JoiningQueues(host::MainLoop& loop) : loop_(loop) {}
    ~JoiningQueues() override { join(); }
    void runOnMain(std::function<void()> work) override { loop_.post(std::move(work)); }
    void runInBackground(std::function<void()> work) override {
        std::lock_guard lock(mutex_);
        threads_.emplace_back(std::move(work));
    }
    bool isMainThread() const override { return loop_.isLoopThread(); }
    void join() {
        std::vector<std::thread> threads;
        {
            std::lock_guard lock(mutex_);
            threads.swap(threads_);
        }
        for (std::thread& thread : threads) thread.join();
    }

private:
    host::MainLoop& loop_;
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

// A fresh directory, removed with everything in it.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tactora-runtime-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

inline constexpr const char* logErrorsKey = "TACTORA.SETTINGS.LOG_ERRORS";
inline constexpr const char* showErrorsByAlertKey = "TACTORA.SETTINGS.SHOW_ERRORS_BY_ALERT";
inline constexpr const char* showPlayFinishedAlertKey = "TACTORA.SETTINGS.SHOW_PLAY_FINISHED_ALERT";

// A device for the script runtime: a temporary root with the scripts and library directories,
// recording injection port, fake clock, alerts, feedback, apps and defaults, a main loop the test
// pumps and background threads it joins. Global is reset on both ends.
class RuntimeDevice {
public:
    RuntimeDevice() : paths(root.path().string()), queues(loop) {
        Global::sharedInstance().reset();
        EventSimulate::resetConnection();
        Platform& p = platform();
        p.paths = &paths;
        p.userDefaults = &defaults;
        p.clock = &clock;
        p.alerts = &alerts;
        p.feedback = &feedback;
        p.apps = &apps;
        p.messagePorts = &ports;
        p.queues = &queues;
        std::filesystem::create_directories(map("/var/mobile/Library/Tactora/Scripts"));
        std::filesystem::create_directories(map("/var/mobile/Library/Tactora/Library"));
    }
    ~RuntimeDevice() {
        queues.join();
        loop.drain();
        Global::sharedInstance().reset();
        EventSimulate::resetConnection();
    }

    std::filesystem::path map(std::string_view devicePath) const { return paths.map(devicePath); }
    std::filesystem::path logFile() const { return map("/var/mobile/Library/Tactora/Library/log.log"); }
    std::string log() const { return readFile(logFile()); }
    std::vector<std::string> logLines() const { return lines(log()); }

    // Sets the error and finished-alert options (all on unless told).
    void options(bool logErrors, bool alertErrors, bool finishedAlert = true) {
        defaults.setObject(logErrorsKey, logErrors);
        defaults.setObject(showErrorsByAlertKey, alertErrors);
        defaults.setObject(showPlayFinishedAlertKey, finishedAlert);
    }

    ScopedPlatform scope;
    ScratchDirectory root;
    host::HostPaths paths;
    MemoryDefaults defaults;
    FakeClock clock;
    RecordingAlerts alerts;
    CountingFeedback feedback;
    host::SimulatedApps apps;
    RecordingPorts ports;
    host::MainLoop loop;
    JoiningQueues queues;
};

}  // namespace tactora::runtimetest
