// tactora record: makes a recording from a file of input events, as if a person had touched the
// simulated screen while the recorder ran.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Command.h"
#include "Kernel/Recorder.h"
#include "Models/Global.h"
#include "Platform/Alerts.h"
#include "Platform/Clock.h"
#include "Platform/Display.h"
#include "Platform/Platform.h"
#include "host/HostHIDSource.h"
#include "host/InputEvents.h"
#include "host/MainLoop.h"

namespace tactora::cli {

namespace {

// Alerts of a run without a person: printed, never waited for.
class PrintedAlerts final : public Alerts {
public:
    int shown = 0;
    void showAlert(AlertRequest alert) override {
        ++shown;
        std::fprintf(stderr, "tactora: %s%s%s\n", alert.title.c_str(), alert.title.empty() ? "" : ": ",
                     alert.message.c_str());
    }
};

struct RecordOptions {
    std::string input;
    std::string output;
};

void record(GlobalOptions& options, const RecordOptions& record) {
    std::ifstream in(record.input, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "tactora: cannot read %s\n", record.input.c_str());
        options.exitCode = 1;
        return;
    }
    std::stringstream text;
    text << in.rdbuf();

    host::HostPlatform host(options.host);
    // Every line is checked before anything is written.
    std::string error;
    auto events = host::parseInputEvents(text.str(), platform().display->bounds(), error);
    if (!events) {
        std::fprintf(stderr, "tactora: %s: %s\n", record.input.c_str(), error.c_str());
        options.exitCode = 1;
        return;
    }

    PrintedAlerts alerts;
    host::HostHIDSource source(*platform().queues);
    platform().alerts = &alerts;
    platform().hidSource = &source;

    startRecording();
    std::optional<std::string> path = recordingFilePath();
    const std::uint64_t start = platform().clock->absoluteTime() + 24;
    for (const host::InputEvent& input : *events) {
        HIDEvent event = input.event;
        event.timestamp = host::ticksAfter(start, input.t);
        source.deliver(event);
    }
    host.mainLoop().drain();
    stopRecording();
    if (alerts.shown || !path) {
        options.exitCode = 1;
        return;
    }

    std::string result = *path;
    if (!record.output.empty()) {
        std::error_code failure;
        std::filesystem::rename(*path, record.output, failure);
        if (failure) {
            std::filesystem::copy_file(*path, record.output, std::filesystem::copy_options::overwrite_existing, failure);
            if (failure) {
                std::fprintf(stderr, "tactora: cannot write %s (%s); the recording stays in %s\n",
                             record.output.c_str(), failure.message().c_str(), path->c_str());
                options.exitCode = 1;
                return;
            }
            std::filesystem::remove(*path, failure);
        }
        result = record.output;
    }
    std::printf("%s\n", result.c_str());
}

const RegisterCommand registration(40, [](CLI::App& app, GlobalOptions& options) {
    static RecordOptions recordOptions;
    CLI::App* command = app.add_subcommand(
        "record", "Record a script from a JSON-lines file of input events (see docs/recording.md)");
    command->add_option("--input", recordOptions.input, "The input events, one JSON object a line")->required();
    command->add_option("--output", recordOptions.output,
                        "Where the script goes; default: the scripts directory, named after the time");
    command->callback([&options] { record(options, recordOptions); });
});

}  // namespace

}  // namespace tactora::cli
