// tactora scripts: the scripts on the simulated device, marked as the control panel marks them.
#include <cstdio>

#include "Command.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"
#include "Managers/PlaySettingsManager.h"

namespace tactora::cli {

namespace {

void listScripts(GlobalOptions& options) {
    host::HostPlatform host(options.host);
    // The same start-up order as on the device: directories, then the tables.
    if (!FileManager::prepareDirectories()) {
        options.exitCode = 1;
        return;
    }
    if (!DataManager::initDb()) {
        std::fprintf(stderr, "tactora: cannot use the database %s\n", DataManager::dataFilePath().c_str());
        options.exitCode = 1;
        return;
    }
    std::vector<std::string> titles = FileManager::getAllScriptFileTitles();
    if (titles.empty()) {
        std::printf("No scripts in %s\n", FileManager::scriptsDirectoryPath().c_str());
        return;
    }
    ActivatorTriggerList triggers = DataManager::getActivatorTriggersAll().value_or(ActivatorTriggerList{});
    PlaySettingsManager playSettings;
    for (const std::string& title : titles) {
        bool assigned = false;
        for (const auto& trigger : triggers) {
            if (trigger->scriptTitle() == title) {
                assigned = true;
                break;
            }
        }
        std::printf("%s %s  %s\n", assigned ? "◎" : " ", playSettings.ifPlayDirectly(title) ? "▷" : " ",
                    title.c_str());
    }
    std::printf("\n◎ an event plays it   ▷ plays directly, without asking for play settings\n");
}

const RegisterCommand registration(20, [](CLI::App& app, GlobalOptions& options) {
    CLI::App* command = app.add_subcommand(
        "scripts", "List the scripts in the scripts directory (◎: an event is assigned, ▷: plays directly)");
    command->callback([&options] { listScripts(options); });
});

}  // namespace

}  // namespace tactora::cli
