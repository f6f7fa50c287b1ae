#include "host/HostClock.h"

#include <time.h>

namespace tactora::host {

std::uint64_t monotonicTicks() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 24'000'000ull +
           static_cast<std::uint64_t>(now.tv_nsec) * 24ull / 1000ull;
}

std::uint64_t HostClock::absoluteTime() const { return monotonicTicks(); }

}  // namespace tactora::host
