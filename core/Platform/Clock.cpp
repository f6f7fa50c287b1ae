#include "Platform/Clock.h"

#include <chrono>
#include <thread>

namespace tactora {

std::tm Clock::localNow() const {
    std::time_t now = std::time(nullptr);
    std::tm local{};
#if defined(_WIN32)
    localtime_s(&local, &now);
#else
    localtime_r(&now, &local);
#endif
    return local;
}

void Clock::sleepMicroseconds(std::uint32_t microseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

}  // namespace tactora
