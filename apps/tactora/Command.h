#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "host/HostPlatform.h"

namespace tactora::cli {

// Options every subcommand takes, and the exit code a subcommand leaves.
struct GlobalOptions {
    host::HostOptions host;
    int exitCode = 0;
};

// Adds one subcommand to the tool. Each command lives in a file of its own and registers itself
// with a static RegisterCommand, so the tool's main never lists them.
using CommandSetup = void (*)(CLI::App& app, GlobalOptions& options);

struct RegisterCommand {
    RegisterCommand(int order, CommandSetup setup);
};

}  // namespace tactora::cli
