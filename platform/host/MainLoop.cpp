#include "host/MainLoop.h"

#include <algorithm>

namespace tactora::host {

void MainLoop::post(std::function<void()> work) {
    // Notified under the lock: once the loop has run this work, the poster no longer touches the
    // loop, so the loop may be destroyed right after (a finished script run posts its last step
    // from a thread that is just ending).
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    ready_.notify_all();
}

bool MainLoop::runOne(std::unique_lock<std::mutex>& lock) {
    if (work_.empty()) return false;
    auto next = std::move(work_.front());
    work_.pop_front();
    lock.unlock();
    next();
    lock.lock();
    return true;
}

void MainLoop::run() {
    std::unique_lock lock(mutex_);
    loopThread_ = std::this_thread::get_id();
    while (!quit_) {
        if (!runOne(lock)) ready_.wait(lock, [this] { return quit_ || !work_.empty(); });
    }
}

void MainLoop::quit() {
    std::lock_guard lock(mutex_);
    quit_ = true;
    ready_.notify_all();
}

bool MainLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    // `done` may turn true on another thread without posting anything, so look again every few
    // milliseconds as well as after every work item.
    auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mutex_);
    loopThread_ = std::this_thread::get_id();
    for (;;) {
        lock.unlock();
        bool finished = done();
        lock.lock();
        if (finished) return true;
        if (runOne(lock)) continue;
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return false;
        ready_.wait_until(lock, std::min(deadline, now + std::chrono::milliseconds(5)),
                          [this] { return !work_.empty(); });
    }
}

void MainLoop::drain() {
    std::unique_lock lock(mutex_);
    loopThread_ = std::this_thread::get_id();
    while (runOne(lock)) {
    }
}

bool MainLoop::isLoopThread() const {
    std::lock_guard lock(mutex_);
    return loopThread_ == std::this_thread::get_id();
}

}  // namespace tactora::host
