#pragma once

#include "Platform/Clock.h"

namespace tactora::host {

// CLOCK_MONOTONIC in 24 MHz ticks, the rate the device's absolute time runs at.
class HostClock final : public Clock {
public:
    std::uint64_t absoluteTime() const override;
};

std::uint64_t monotonicTicks();

}  // namespace tactora::host
