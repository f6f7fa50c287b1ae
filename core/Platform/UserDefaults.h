#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace tactora {

// One stored value: what the platform's property-list store can hold that the system uses.
using DefaultsValue = std::variant<bool, std::int64_t, double, std::string>;

// The process's user-defaults store (NSUserDefaults on the device, one file on the host).
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    // The object stored under `key`, or none. Default: nothing is ever stored.
    virtual std::optional<DefaultsValue> objectForKey(const std::string& key) const {
        (void)key;
        return std::nullopt;
    }
    // Stores `value` under `key`, replacing what was there. Default: dropped.
    virtual void setObject(const std::string& key, const DefaultsValue& value) {
        (void)key;
        (void)value;
    }
    // Removes `key` if present. Default: nothing to remove.
    virtual void removeObject(const std::string& key) { (void)key; }

    // The platform's boolValue of the stored object: false when absent; numbers are true when
    // non-zero; strings are true when they start with Y, y, T, t or a non-zero digit.
    bool boolForKey(const std::string& key) const;
    // The stored string, or none when absent or not a string.
    std::optional<std::string> stringForKey(const std::string& key) const;
};

}  // namespace tactora
