#include "ios/MachClock.h"

#include <mach/mach_time.h>

namespace tactora::ios {

std::uint64_t MachClock::absoluteTime() const { return mach_absolute_time(); }

}  // namespace tactora::ios
