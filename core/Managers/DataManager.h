#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Models/ActivatorTrigger.h"
#include "Models/PlaySettings.h"

namespace tactora {

class ResultSet;

using PlaySettingsList = std::vector<std::shared_ptr<PlaySettings>>;
using ActivatorTriggerList = std::vector<std::shared_ptr<ActivatorTrigger>>;

// The store of play settings and triggers in "data.sqlite3". One connection per call, one
// statement per connection.
class DataManager {
public:
    // "data.sqlite3" in the library directory, as a path on this machine.
    static std::string dataFilePath();
    // Creates both tables when missing; the library directory must exist (FileManager).
    static bool initDb();

    static bool insertPlaySettings(const PlaySettings& settings);
    static bool updatePlaySettings(const PlaySettings& settings);
    static bool updateScriptTitleOfPlaySettingsFrom(const std::optional<std::string>& oldTitle,
                                                    const std::optional<std::string>& newTitle);
    static bool deletePlaySettingsByScriptTitle(const std::optional<std::string>& title);
    static std::optional<PlaySettingsList> findAllPlaySettings();
    static std::shared_ptr<PlaySettings> findPlaySettingsByScriptTitle(const std::optional<std::string>& title);
    static long countPlaySettings();

    static bool addActivatorTrigger(const ActivatorTrigger& trigger);
    static bool removeActivatorTrigger(const std::optional<std::string>& eventName);
    static bool removeActivatorTriggerByScriptTitle(const std::optional<std::string>& title);
    static bool updateScriptTitleOfActivatorTriggerFrom(const std::optional<std::string>& oldTitle,
                                                        const std::optional<std::string>& newTitle);
    static std::optional<ActivatorTriggerList> getActivatorTriggersAll();
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerByEventName(const std::optional<std::string>& eventName);
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerByScriptTitle(const std::optional<std::string>& title);
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerForControlPanel();
    static std::shared_ptr<ActivatorTrigger> getActivatorTriggerForStartStopPlaying();

    static PlaySettingsList mapFMResultSetToPlaySettingsArray(ResultSet& rows);
    static ActivatorTriggerList mapFMResultSetToActivatorTriggerArray(ResultSet& rows);
};

}  // namespace tactora
