// tactora: the desktop face of Tactora. Plays, records, encrypts and inspects scripts on a
// simulated device whose files live under a root directory.
#include <algorithm>
#include <vector>

#include "Command.h"
#include "host/DeviceProfiles.h"
#include "host/SimulatedDisplay.h"

namespace tactora::cli {

namespace {

std::vector<std::pair<int, CommandSetup>>& registry() {
    static std::vector<std::pair<int, CommandSetup>> commands;
    return commands;
}

}  // namespace

RegisterCommand::RegisterCommand(int order, CommandSetup setup) { registry().emplace_back(order, setup); }

}  // namespace tactora::cli

int main(int argc, char** argv) {
    using namespace tactora::cli;
    CLI::App app{"Tactora: record, play and inspect touch-automation scripts on a simulated device"};
    app.name("tactora");
    app.require_subcommand(1);
    app.fallthrough();
    GlobalOptions options;
    app.add_option("--root", options.host.root,
                   "Directory under which the device tree (/var/mobile/Library/Tactora/...) lives; "
                   "default: $TACTORA_ROOT, else ~/.tactora");
    app.add_option("--device", options.host.device,
                   "Device profile of the simulated screen: iphone-se (320x568@2, default), iphone-8, "
                   "iphone-8-plus, iphone-12, or WxH@S in points")
        ->check(CLI::Validator(
            [](std::string& name) {
                return tactora::host::findDeviceProfile(name) ? std::string() : "unknown device profile " + name;
            },
            "PROFILE"));
    app.add_option("--screen", options.host.screens,
                   "PNG file the simulated screen shows; repeat it for a sequence (each capture shows "
                   "the next one, the last one stays)")
        ->check(CLI::Validator(
            [](std::string& path) {
                std::string error;
                return tactora::host::loadFrame(path, error) ? std::string() : error;
            },
            "FILE.png"));
    app.add_option("--language", options.host.language,
                   "First preferred language of the interface, exactly as the device names it: ja, "
                   "zh-Hans, zh-Hant, en; default: $TACTORA_LANGUAGE, else $LANGUAGE, $LC_ALL, $LANG");
    app.add_flag("-v,--verbose", options.host.verbose, "Print diagnostic lines on stderr");

    auto commands = registry();
    std::stable_sort(commands.begin(), commands.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [order, setup] : commands) setup(app, options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    return options.exitCode;
}
