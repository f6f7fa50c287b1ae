#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "Platform/Feedback.h"

namespace tactora::host {

// Vibration and sound on a desktop: a line each, to a trace sink when one is set, else stderr.
class HostFeedback final : public Feedback {
public:
    using TraceSink = std::function<void(const std::string& line)>;

    void vibrate() override;
    void playBundledSound() override;
    // Every version of the system this simulates keeps the screen lit by itself.

    void setTraceSink(TraceSink sink);
    // Silences the stderr lines (tests, quiet runs); a trace sink still gets them.
    void setQuiet(bool quiet);

private:
    void emit(const std::string& line);

    std::mutex mutex_;
    TraceSink sink_;
    bool quiet_ = false;
};

}  // namespace tactora::host
