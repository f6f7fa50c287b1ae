#pragma once

#include <mutex>
#include <string>

#include "Platform/UserDefaults.h"

namespace tactora::host {

// The user-defaults store as one JSON object in a file (by default
// ROOT/var/mobile/Library/Preferences/tactora.defaults.json).
//
// Every read loads the file afresh, so a value set by another process (the CLI changing an
// option while a player runs) is seen at the next read. Every change rewrites the whole file
// through a temporary file that is flushed to disk and then renamed over the old one, so a crash
// at any moment leaves either the old or the new content. Changes from several processes are
// ordered by an advisory lock on a sibling ".lock" file.
//
// A file that does not parse reads as empty. It is left as it is until the next change, which
// first moves it aside to "<file>.corrupt" so that nothing is lost silently.
class FileUserDefaults final : public UserDefaults {
public:
    explicit FileUserDefaults(std::string path);

    std::optional<DefaultsValue> objectForKey(const std::string& key) const override;
    void setObject(const std::string& key, const DefaultsValue& value) override;
    void removeObject(const std::string& key) override;

    const std::string& path() const { return path_; }

private:
    template <class Change>
    void change(Change&& apply);

    std::string path_;
    mutable std::mutex mutex_;
};

// Where the host keeps the user defaults, as a device path.
inline constexpr const char* userDefaultsDevicePath = "/var/mobile/Library/Preferences/tactora.defaults.json";

}  // namespace tactora::host
