#pragma once

#include <cstdint>
#include <ctime>

namespace tactora {

// Time as the device keeps it.
class Clock {
public:
    virtual ~Clock() = default;

    // Absolute-time ticks (mach_absolute_time on the device; 24 MHz ticks of CLOCK_MONOTONIC on
    // the host). Default: 0.
    virtual std::uint64_t absoluteTime() const { return 0; }

    // Now, in local time. Default: the C library's local time.
    virtual std::tm localNow() const;

    // Blocks the calling thread for `microseconds` (the platform's usleep). Default: does so.
    virtual void sleepMicroseconds(std::uint32_t microseconds);
};

}  // namespace tactora
