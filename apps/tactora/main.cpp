// tactora: the desktop face of Tactora. Plays, records, encrypts and inspects scripts on a
// simulated device whose files live under a root directory.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Command.h"
#include "host/DeviceProfiles.h"
#include "host/HostPaths.h"
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

namespace {

using namespace tactora;

// A problem found after the command line was read but before any command ran; ends the tool with
// `code`.
struct SetupError {
    std::string message;
    int code;
};

// The global options that take a value, so that the word after them is not taken for a command.
bool takesValue(const std::string& word) {
    return word == "--root" || word == "--device" || word == "--screen" || word == "--language";
}

// The first word of the command line that is not a global option or its value; empty when none.
std::string commandWord(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.empty() || word.front() != '-') return word;
        if (takesValue(word)) ++i;
    }
    return {};
}

std::string commandList(const CLI::App& app) {
    std::string list;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        list += (list.empty() ? "" : ", ") + command->get_name();
    return list;
}

// What every command needs before it starts: a device tree to work in, and screens that fit the
// device.
void prepare(const CLI::App& app, const cli::GlobalOptions& options) {
    if (!options.host.screens.empty()) {
        // Validated when the option was read.
        const host::DeviceProfile profile = *host::findDeviceProfile(options.host.device);
        for (const std::string& path : options.host.screens) {
            std::string error;
            auto frame = host::loadFrame(path, error);
            if (!frame) throw SetupError{error, 2};
            if (int(frame->width) != profile.pixelWidth() || int(frame->height) != profile.pixelHeight()) {
                throw SetupError{"--screen " + path + " is " + std::to_string(frame->width) + "x" +
                                     std::to_string(frame->height) + " pixels, but the " + profile.name +
                                     " screen is " + std::to_string(profile.pixelWidth()) + "x" +
                                     std::to_string(profile.pixelHeight()) +
                                     "; give a picture of the screen's size or the device it shows (--device)",
                                 2};
            }
        }
    }
    std::string error;
    if (host::ensureRoot(host::chooseRoot(options.host.root), true, error)) return;
    // Encrypting and decrypting read and write the files named, never the device tree.
    for (const CLI::App* command : app.get_subcommands()) {
        if (command->get_name() == "encrypt" || command->get_name() == "decrypt") return;
    }
    throw SetupError{error, 1};
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tactora::cli;
    CLI::App app{"Tactora: record, play and inspect touch-automation scripts on a simulated device"};
    app.name("tactora");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer("Exit status: 0 when the command did its work, 1 when it (or a script it played) failed, 2 for a "
               "mistake on the command line.");
    GlobalOptions options;
    app.add_option("--root", options.host.root,
                   "Directory under which the device tree (/var/mobile/Library/Tactora/...) lives, created when "
                   "missing; default: $TACTORA_ROOT, else ~/.tactora")
        ->check(CLI::Validator(
            [](std::string& root) { return root.empty() ? std::string("the root must name a directory") : std::string(); },
            "DIR"));
    app.add_option("--device", options.host.device,
                   "Device profile of the simulated screen: iphone-se (320x568@2, default), iphone-8, "
                   "iphone-8-plus, iphone-12, or WxH@S in points")
        ->check(CLI::Validator(
            [](std::string& name) {
                return tactora::host::findDeviceProfile(name) ? std::string() : "unknown device profile " + name;
            },
            "PROFILE"));
    app.add_option("--screen", options.host.screens,
                   "PNG file the simulated screen shows, of the device's size in pixels; repeat it for a sequence "
                   "(each capture shows the next one, the last one stays)")
        ->check(CLI::Validator(
            [](std::string& path) {
                std::string error;
                return tactora::host::loadFrame(path, error) ? std::string() : error;
            },
            "FILE.png"));
    app.add_option("--language", options.host.language,
                   "First preferred language of the interface, exactly as the device names it: ja, "
                   "zh-Hans, zh-Hant, en; default: $TACTORA_LANGUAGE, else $LANGUAGE, $LC_ALL, $LANG");
    app.add_flag("-v,--verbose", options.host.verbose,
                 "Print diagnostic lines and the simulated device's feedback (vibration, sound, apps) on stderr");

    auto commands = registry();
    std::stable_sort(commands.begin(), commands.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [order, setup] : commands) setup(app, options);
    // Runs once the whole line is read, before the chosen command's own callback.
    app.parse_complete_callback([&app, &options] { prepare(app, options); });

    // Exit status, for every command alike: what the command left in options.exitCode (0, or 1
    // when it or its script failed); 2 for any mistake on the command line; 0 for --help.
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {  // --help
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        const std::string word = commandWord(argc, argv);
        const auto all = app.get_subcommands([](const CLI::App*) { return true; });
        const bool known = std::any_of(all.begin(), all.end(), [&](const CLI::App* c) { return c->get_name() == word; });
        if (word.empty() && app.get_subcommands().empty()) {
            std::fprintf(stderr, "tactora: no command given; the commands are: %s (tactora --help tells more)\n",
                         commandList(app).c_str());
        } else if (!known) {
            std::fprintf(stderr, "tactora: unknown command \"%s\"; the commands are: %s\n", word.c_str(),
                         commandList(app).c_str());
        } else {
            std::fprintf(stderr, "tactora %s: %s\nRun tactora %s --help for more information.\n", word.c_str(),
                         error.what(), word.c_str());
        }
        return 2;
    } catch (const SetupError& error) {
        std::fprintf(stderr, "tactora: %s\n", error.message.c_str());
        return error.code;
    }
    return options.exitCode;
}
