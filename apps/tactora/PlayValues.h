// The repeat count, interval and speed the desktop accepts: what the phone's play settings panel
// can give, so that a run on the desktop never does what the device could not.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tactora::cli {

// A usage error that leaves the tool's usage status, 2. Thrown from an option's check, it passes
// CLI11's own validation errors and reaches main like any parse error.
class UsageError : public CLI::ParseError {
public:
    explicit UsageError(std::string message) : CLI::ParseError("UsageError", std::move(message), 2) {}
};

// Checks for --repeat (a whole number, 0 or more: typed into the count field, which takes digits
// only), --interval (whole seconds from 0 to 1000000, the interval stepper's range) and --speed
// (0.1 to 1.9, the speed stepper's range). Each names the option and the range when it refuses.
CLI::Validator repeatTimeCheck(const std::string& option);
CLI::Validator repeatIntervalCheck(const std::string& option);
CLI::Validator playSpeedCheck(const std::string& option);

}  // namespace tactora::cli
