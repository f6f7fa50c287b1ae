#include "Managers/PlaySettingsManager.h"

namespace tactora {

PlaySettingsManager::PlaySettingsManager() { reloadData(); }

void PlaySettingsManager::reloadData() {
    // A store that cannot be opened leaves an empty cache.
    playSettingsArray_ = DataManager::findAllPlaySettings().value_or(PlaySettingsList{});
}

bool PlaySettingsManager::hasPlaySettings(const std::string& title) const {
    for (const auto& settings : playSettingsArray_) {
        if (settings->scriptTitle() == title) return true;
    }
    return false;
}

bool PlaySettingsManager::ifPlayDirectly(const std::string& title) const {
    // With duplicate rows for one title, any of them set to play directly is enough.
    for (const auto& settings : playSettingsArray_) {
        if (settings->scriptTitle() == title && settings->playDirectly()) return true;
    }
    return false;
}

std::shared_ptr<PlaySettings> PlaySettingsManager::findPlaySettingsByScriptTitle(
    const std::optional<std::string>& title) const {
    return DataManager::findPlaySettingsByScriptTitle(title);
}

}  // namespace tactora
