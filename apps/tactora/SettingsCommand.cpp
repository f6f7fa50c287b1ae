// tactora settings: the three user options and the stored play settings of each script.
//
//   tactora settings                                   show everything
//   tactora settings --set log-errors=off              change an option (repeatable)
//   tactora settings --script a.lua --repeat 3 --interval 2 --speed 1.5 --play-directly on
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "Command.h"
#include "PlayValues.h"
#include "Control/Helper.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"

namespace tactora::cli {

namespace {

// The options and the settings-port message that changes each.
struct OptionName {
    const char* name;
    std::int32_t messageId;
    bool (*read)();
};

constexpr std::array<OptionName, 3> optionNames{{
    {"show-play-finished-alert", 4, &Helper::ifShowPlayFinishedAlert},
    {"show-errors-by-alert", 5, &Helper::ifShowErrorsByAlert},
    {"log-errors", 6, &Helper::ifLogErrors},
}};

struct SettingsRequest {
    std::vector<std::string> sets;
    std::string script;
    std::optional<long> repeat;
    std::optional<long> interval;
    std::optional<float> speed;
    std::optional<std::string> playDirectly;
};

std::optional<bool> onOff(const std::string& text) {
    if (text == "on") return true;
    if (text == "off") return false;
    return std::nullopt;
}

// Sends "name=on|off" through the same message the settings screen sends on the device.
bool applySet(const std::string& assignment) {
    auto equals = assignment.find('=');
    std::string name = assignment.substr(0, equals);
    std::optional<bool> value = equals == std::string::npos ? std::nullopt : onOff(assignment.substr(equals + 1));
    for (const OptionName& option : optionNames) {
        if (name != option.name) continue;
        if (!value) break;
        std::uint32_t word = *value ? 1 : 0;
        // One unsigned 32-bit value, little-endian, as on the wire.
        const std::array<std::uint8_t, 4> data{std::uint8_t(word), std::uint8_t(word >> 8), std::uint8_t(word >> 16),
                                               std::uint8_t(word >> 24)};
        myCallBack(option.messageId, data);
        return true;
    }
    std::fprintf(stderr, "tactora: --set wants NAME=on|off with NAME one of show-play-finished-alert, "
                         "show-errors-by-alert, log-errors; got \"%s\"\n",
                 assignment.c_str());
    return false;
}

bool storePlaySettings(const SettingsRequest& request) {
    std::shared_ptr<PlaySettings> settings = DataManager::findPlaySettingsByScriptTitle(request.script);
    const bool existing = settings != nullptr;
    if (!existing) {
        settings = std::make_shared<PlaySettings>();
        settings->setScriptTitle(request.script);
    }
    if (request.repeat) settings->setRepeatTime(*request.repeat);
    if (request.interval) settings->setRepeatInterval(*request.interval);
    if (request.speed) settings->setPlaySpeed(*request.speed);
    if (request.playDirectly) settings->setPlayDirectly(*onOff(*request.playDirectly));
    bool ok = existing ? DataManager::updatePlaySettings(*settings) : DataManager::insertPlaySettings(*settings);
    if (!ok) {
        std::fprintf(stderr, "tactora: the play settings of \"%s\" could not be stored%s\n", request.script.c_str(),
                     request.script.find('\'') != std::string::npos ? " (titles with an apostrophe cannot be)" : "");
        return false;
    }
    std::error_code ignored;
    if (!std::filesystem::exists(FileManager::scriptPath(request.script), ignored)) {
        std::fprintf(stderr, "tactora: note: there is no script \"%s\" in %s yet\n", request.script.c_str(),
                     FileManager::scriptsDirectoryPath().c_str());
    }
    return true;
}

void showSettings() {
    std::printf("Options\n");
    for (const OptionName& option : optionNames) {
        std::printf("  %-26s %s\n", option.name, option.read() ? "on" : "off");
    }
    std::printf("\nPlay settings\n");
    PlaySettingsList all = DataManager::findAllPlaySettings().value_or(PlaySettingsList{});
    if (all.empty()) {
        std::printf("  (none stored)\n");
        return;
    }
    std::printf("  %-30s %-13s %6s %9s %6s\n", "SCRIPT", "PLAY DIRECTLY", "TIMES", "INTERVAL", "SPEED");
    for (const auto& settings : all) {
        std::printf("  %-30s %-13s %6ld %8lds %6.1f\n", settings->scriptTitle().value_or("(null)").c_str(),
                    settings->playDirectly() ? "on" : "off", settings->repeatTime(), settings->repeatInterval(),
                    double(settings->playSpeed()));
    }
    std::printf("  (TIMES 0 plays until stopped)\n");
}

void runSettings(GlobalOptions& options, const SettingsRequest& request) {
    host::HostPlatform host(options.host);
    if (!FileManager::prepareDirectories() || !DataManager::initDb()) {
        options.exitCode = 1;
        return;
    }
    // A path where a title belongs is a misuse, refused before anything changes.
    if (!request.script.empty() && !FileManager::isScriptTitle(request.script)) {
        std::fprintf(stderr, "tactora: --script takes a script's file name, not a path: \"%s\"\n",
                     request.script.c_str());
        options.exitCode = 2;
        return;
    }
    for (const std::string& assignment : request.sets) {
        if (!applySet(assignment)) {
            options.exitCode = 2;
            return;
        }
    }
    if (!request.script.empty() && !storePlaySettings(request)) {
        options.exitCode = 1;
        return;
    }
    showSettings();
}

const RegisterCommand registration(30, [](CLI::App& app, GlobalOptions& options) {
    static SettingsRequest request;
    CLI::App* command = app.add_subcommand("settings", "Show or change the options and the scripts' play settings");
    command->add_option("--set", request.sets,
                        "Change an option: show-play-finished-alert, show-errors-by-alert or log-errors = on|off")
        ->type_name("NAME=on|off");
    CLI::Option* script =
        command->add_option("--script", request.script, "The script whose play settings to store (its file name)")
            ->type_name("TITLE");
    command->add_option("--repeat", request.repeat, "Times to play, 0 or more; 0 plays until stopped")
        ->check(repeatTimeCheck("--repeat"))
        ->needs(script);
    command->add_option("--interval", request.interval, "Whole seconds between two passes, 0 to 1000000")
        ->check(repeatIntervalCheck("--interval"))
        ->needs(script);
    command->add_option("--speed", request.speed,
                        "Play speed from 0.1 to 1.9; 1.0 is as recorded (stored with one decimal)")
        ->check(playSpeedCheck("--speed"))
        ->needs(script);
    command->add_option("--play-directly", request.playDirectly, "Play at once when picked, without asking")
        ->check(CLI::IsMember({"on", "off"}))
        ->needs(script);
    command->callback([&options] { runSettings(options, request); });
});

}  // namespace

}  // namespace tactora::cli
