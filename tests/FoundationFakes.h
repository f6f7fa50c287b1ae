// Fakes for the storage, language, alert, feedback, clock and diagnostic ports, and a device tree
// under a temporary root. They may be called from a script thread while the test thread reads them.
#pragma once

#include <unistd.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "Platform/Alerts.h"
#include "Platform/Clock.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Feedback.h"
#include "Platform/Languages.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"
#include "host/HostPaths.h"

namespace tactora::testing {

// The user defaults keys of the three settings options.
inline constexpr const char* logErrorsKey = "TACTORA.SETTINGS.LOG_ERRORS";
inline constexpr const char* showErrorsByAlertKey = "TACTORA.SETTINGS.SHOW_ERRORS_BY_ALERT";
inline constexpr const char* showPlayFinishedAlertKey = "TACTORA.SETTINGS.SHOW_PLAY_FINISHED_ALERT";

// `values` may be read directly while no other thread uses the defaults.
class MemoryUserDefaults final : public UserDefaults {
public:
    std::map<std::string, DefaultsValue> values;

    std::optional<DefaultsValue> objectForKey(const std::string& key) const override {
        std::lock_guard lock(mutex_);
        auto found = values.find(key);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    }
    void setObject(const std::string& key, const DefaultsValue& value) override { std::lock_guard l(mutex_); values[key] = value; }
    void removeObject(const std::string& key) override { std::lock_guard l(mutex_); values.erase(key); }

private:
    mutable std::mutex mutex_;
};

class FixedLanguages final : public Languages {
public:
    std::vector<std::string> list{"en"};
    std::vector<std::string> preferredLanguages() const override { return list; }
};

class RecordingDiagnosticLog final : public DiagnosticLog {
public:
    struct Entry { std::string message, file; int line; std::string function; };
    std::vector<Entry> entries;  // read once the work that logs has ended
    void write(std::string_view message, std::string_view file, int line, std::string_view function) override {
        std::lock_guard lock(mutex_);
        entries.push_back({std::string(message), std::string(file), line, std::string(function)});
    }

private:
    std::mutex mutex_;
};

class RecordingAlerts final : public Alerts {
public:
    void showAlert(AlertRequest alert) override { std::lock_guard l(mutex_); shown_.push_back(std::move(alert)); }
    std::vector<AlertRequest> shown() const { std::lock_guard l(mutex_); return shown_; }

private:
    mutable std::mutex mutex_;
    std::vector<AlertRequest> shown_;
};

class CountingFeedback final : public Feedback {
public:
    std::atomic<int> vibrations{0};
    std::mutex mutex;
    std::vector<bool> idleTimerCalls;
    void vibrate() override { ++vibrations; }
    void playBundledSound() override {}
    void resetIdleTimerAndUndim(bool playing) override { std::lock_guard l(mutex); idleTimerCalls.push_back(playing); }
};

// Local time stands at `now` and absolute time at `ticks`. Sleeps are written down instead of
// slept (unless `realSleeps`); `onSleep` runs inside each one, on the sleeping thread, so that a
// test can act "during" a pause, and a stop asked before or during it cuts it short.
class FakeClock final : public Clock {
public:
    std::tm now{};
    std::uint64_t ticks = 0;
    bool realSleeps = false;
    std::function<void(std::uint32_t microseconds)> onSleep;

    FakeClock(int year, int month, int day, int hour, int minute, int second) {
        now.tm_year = year - 1900, now.tm_mon = month - 1, now.tm_mday = day;
        now.tm_hour = hour, now.tm_min = minute, now.tm_sec = second;
    }
    std::uint64_t absoluteTime() const override { return ticks; }
    std::tm localNow() const override { return now; }
    void sleepMicroseconds(std::uint32_t microseconds) override {
        note(microseconds);
        if (realSleeps) Clock::sleepMicroseconds(microseconds);
    }
    bool sleepMicrosecondsUnless(std::uint32_t microseconds, const std::function<bool()>& stopped) override {
        note(microseconds);
        return realSleeps ? Clock::sleepMicrosecondsUnless(microseconds, stopped) : !stopped();
    }
    std::vector<std::uint32_t> sleeps() const { std::lock_guard l(mutex_); return sleeps_; }
    void clear() { std::lock_guard l(mutex_); sleeps_.clear(); }

private:
    void note(std::uint32_t microseconds) {
        std::unique_lock lock(mutex_);
        sleeps_.push_back(microseconds);
        auto hook = onSleep;
        lock.unlock();
        if (hook) hook(microseconds);
    }

    mutable std::mutex mutex_;
    std::vector<std::uint32_t> sleeps_;
};

// A fresh directory under the system's temporary directory, removed with everything in it.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tactora-test-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
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

// A device tree under a temporary root, with in-memory defaults and recording log and alerts
// installed for the scope of a test.
class FakeDevice {
public:
    FakeDevice() : paths(root.path().string()) {
        Platform& p = platform();
        p.paths = &paths, p.userDefaults = &defaults, p.languages = &languages, p.diagnosticLog = &log, p.alerts = &alerts;
    }
    std::filesystem::path map(std::string_view devicePath) const { return paths.map(devicePath); }

    ScopedPlatform scope;
    ScratchDirectory root;
    host::HostPaths paths;
    MemoryUserDefaults defaults;
    FixedLanguages languages;
    RecordingDiagnosticLog log;
    RecordingAlerts alerts;
};

}  // namespace tactora::testing
