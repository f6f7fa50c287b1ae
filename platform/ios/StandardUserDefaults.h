#pragma once

#include "Platform/UserDefaults.h"

namespace tactora::ios {

// The process's standard NSUserDefaults (SpringBoard's own domain inside SpringBoard).
class StandardUserDefaults final : public UserDefaults {
public:
    std::optional<DefaultsValue> objectForKey(const std::string& key) const override;
    void setObject(const std::string& key, const DefaultsValue& value) override;
    void removeObject(const std::string& key) override;
};

}  // namespace tactora::ios
