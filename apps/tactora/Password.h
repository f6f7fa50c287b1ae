#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace tactora::cli {

// Where a command takes a script password from: --password, then --password-file, then
// $TACTORA_PASSWORD, then a prompt on the terminal with echo off.
struct PasswordSource {
    std::optional<std::string> password;
    std::string passwordFile;

    void addOptions(CLI::App& command);
    // None, after saying why on standard error, when no source gives one. `confirm` asks twice
    // at the prompt and refuses an empty password (for new files).
    std::optional<std::string> choose(bool confirm) const;
};

}  // namespace tactora::cli
