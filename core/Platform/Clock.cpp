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

bool Clock::sleepMicrosecondsUnless(std::uint32_t microseconds, const std::function<bool()>& stopped) {
    // A steady deadline, so that neither a change of the wall clock nor a spurious wakeup
    // lengthens or shortens the pause.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
    std::unique_lock lock(wakeMutex_);
    return !wakeup_.wait_until(lock, deadline, stopped);
}

void Clock::wakeSleepers() {
    // The condition was made true before this lock is taken, so a sleeper either asked after the
    // change (and saw it) or already waits and hears the notification: none can miss it.
    { std::lock_guard lock(wakeMutex_); }
    wakeup_.notify_all();
}

}  // namespace tactora
