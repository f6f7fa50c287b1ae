// tactora event: sends an event to the running system, as a gesture or button would.
#include <httplib.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "Command.h"
#include "Platform/EventRegistry.h"
#include "host/RunFile.h"

namespace tactora::cli {

namespace {

struct EventOptions {
    std::string name;
    std::string mode = LAEventModeSpringBoard;
    int port = 0;
};

void sendEvent(GlobalOptions& options, const EventOptions& event) {
    int port = event.port;
    if (port == 0) {
        host::HostPlatform host(options.host);
        auto running = host::readRunFile();
        if (!running) {
            std::fprintf(stderr, "tactora: no system runs on %s (start one with `tactora run` or `tactora sim`)\n", host.root().c_str());
            options.exitCode = 2;
            return;
        }
        port = running->port;
    }
    httplib::Client client("127.0.0.1", port);
    client.set_connection_timeout(2);
    client.set_read_timeout(15);
    nlohmann::json body = {{"name", event.name}, {"mode", event.mode}};
    // The simulator serves only its own page; this tool speaks from the same origin, as that page does.
    httplib::Headers headers = {{"Origin", "http://127.0.0.1:" + std::to_string(port)}};
    auto response = client.Post("/api/event", headers, body.dump(), "application/json");
    if (!response) {
        std::fprintf(stderr, "tactora: the system on port %d does not answer\n", port);
        options.exitCode = 2;
        return;
    }
    nlohmann::json reply = nlohmann::json::parse(response->body, nullptr, false);
    if (response->status != 200 || !reply.is_object()) {
        std::fprintf(stderr, "tactora: %s\n", reply.is_object() ? reply.value("error", response->body).c_str()
                                                              : response->body.c_str());
        options.exitCode = 1;
        return;
    }
    bool handled = reply.value("handled", false);
    std::printf("%s %s\n", event.name.c_str(), handled ? "handled" : "not handled: left to the system");
}

const RegisterCommand registration(61, [](CLI::App& app, GlobalOptions& options) {
    static EventOptions eventOptions;
    CLI::App* command = app.add_subcommand("event", "Send an event (for example " +
                                                        std::string(LAEventNameVolumeDownHoldShort) +
                                                        ") to the running system");
    command->add_option("name", eventOptions.name, "The event's name")->required();
    command->add_option("--mode", eventOptions.mode, "springboard, application or lockscreen")->capture_default_str();
    command->add_option("--port", eventOptions.port, "The control API's port; default: the one the system wrote");
    command->callback([&options] { sendEvent(options, eventOptions); });
});

}  // namespace

}  // namespace tactora::cli
