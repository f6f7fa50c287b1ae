// Fakes for the storage, language, alert and diagnostic ports, shared by the tests of the
// foundation pieces (helpers, localisation, files, data store).
#pragma once

#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Platform/Alerts.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Languages.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"
#include "host/HostPaths.h"

namespace tactora::testing {

class MemoryUserDefaults final : public UserDefaults {
public:
    std::map<std::string, DefaultsValue> values;

    std::optional<DefaultsValue> objectForKey(const std::string& key) const override {
        auto found = values.find(key);
        if (found == values.end()) return std::nullopt;
        return found->second;
    }
    void setObject(const std::string& key, const DefaultsValue& value) override { values[key] = value; }
    void removeObject(const std::string& key) override { values.erase(key); }
};

class FixedLanguages final : public Languages {
public:
    std::vector<std::string> list{"en"};
    std::vector<std::string> preferredLanguages() const override { return list; }
};

struct DiagnosticEntry {
    std::string message;
    std::string file;
    int line;
    std::string function;
};

class RecordingDiagnosticLog final : public DiagnosticLog {
public:
    std::vector<DiagnosticEntry> entries;
    void write(std::string_view message, std::string_view file, int line, std::string_view function) override {
        entries.push_back({std::string(message), std::string(file), line, std::string(function)});
    }
};

class RecordingAlerts final : public Alerts {
public:
    std::vector<AlertRequest> shown;
    void showAlert(AlertRequest alert) override { shown.push_back(std::move(alert)); }
};

// A fresh directory under the system's temporary directory, removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "tactora-test-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// A device tree under a temporary root, with in-memory defaults and recording log and alerts
// installed for the scope of a test.
class FakeDevice {
public:
    FakeDevice() : paths(root.path().string()) {
        Platform& p = platform();
        p.paths = &paths;
        p.userDefaults = &defaults;
        p.languages = &languages;
        p.diagnosticLog = &log;
        p.alerts = &alerts;
    }
    std::filesystem::path map(std::string_view devicePath) const { return paths.map(devicePath); }

    ScopedPlatform scope;
    TemporaryDirectory root;
    host::HostPaths paths;
    MemoryUserDefaults defaults;
    FixedLanguages languages;
    RecordingDiagnosticLog log;
    RecordingAlerts alerts;
};

}  // namespace tactora::testing
