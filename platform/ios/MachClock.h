#pragma once

#include "Platform/Clock.h"

namespace tactora::ios {

// mach_absolute_time ticks; local time and sleeping as the C library does them.
class MachClock final : public Clock {
public:
    std::uint64_t absoluteTime() const override;
};

}  // namespace tactora::ios
