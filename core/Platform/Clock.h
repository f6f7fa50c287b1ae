#pragma once

#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>

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

    // Blocks like sleepMicroseconds, but ends early once `stopped()` holds. `stopped` is asked as
    // the sleep begins and again after every wakeSleepers(), on the sleeping thread; it must be
    // quick and must not sleep itself. Returns false when the sleep was cut short. Default: a wait
    // on a condition variable, which serves the device as well as the host.
    virtual bool sleepMicrosecondsUnless(std::uint32_t microseconds, const std::function<bool()>& stopped);

    // Makes every sleepMicrosecondsUnless in progress ask its condition again. Whoever makes a
    // condition true calls this after doing so; any thread may. Default: wakes the waits above.
    virtual void wakeSleepers();

private:
    std::mutex wakeMutex_;
    std::condition_variable wakeup_;
};

}  // namespace tactora
