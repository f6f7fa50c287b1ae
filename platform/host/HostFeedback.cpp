#include "host/HostFeedback.h"

#include <cstdio>

namespace tactora::host {

void HostFeedback::emit(const std::string& line) {
    std::lock_guard lock(mutex_);
    if (sink_) {
        sink_(line);
    } else if (!quiet_) {
        std::fprintf(stderr, "[%s]\n", line.c_str());
    }
}

// System sound 4095 on the device.
void HostFeedback::vibrate() { emit("vibrate"); }

// The bundled "test.m4a", looping, on the device.
void HostFeedback::playBundledSound() { emit("sound test.m4a"); }

void HostFeedback::setTraceSink(TraceSink sink) {
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
}

void HostFeedback::setQuiet(bool quiet) {
    std::lock_guard lock(mutex_);
    quiet_ = quiet;
}

}  // namespace tactora::host
