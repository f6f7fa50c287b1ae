#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Managers/DataManager.h"

namespace tactora {

// A cache of every stored play settings record, refreshed only by reloadData.
class PlaySettingsManager {
public:
    PlaySettingsManager();
    void reloadData();
    bool hasPlaySettings(const std::string& title) const;
    bool ifPlayDirectly(const std::string& title) const;
    // Reads the store, not the cache.
    std::shared_ptr<PlaySettings> findPlaySettingsByScriptTitle(const std::optional<std::string>& title) const;

private:
    PlaySettingsList playSettingsArray_;
};

}  // namespace tactora
