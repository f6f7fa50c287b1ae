#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "Platform/Queues.h"

namespace tactora::host {

// The host's main queue: work posted from any thread runs, in order, on the thread that runs
// the loop (the process's main thread in the CLI; a test thread in tests).
class MainLoop {
public:
    void post(std::function<void()> work);
    // Runs posted work until quit() (returns at once if quit was already asked).
    void run();
    void quit();
    // Runs what is posted until `done` holds or `timeout` passes; true when `done` held.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);
    // Runs everything already posted, then returns.
    void drain();
    bool isLoopThread() const;

private:
    bool runOne(std::unique_lock<std::mutex>& lock);

    mutable std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> work_;
    bool quit_ = false;
    std::thread::id loopThread_;
};

// Queues whose main queue is a MainLoop.
class HostQueues final : public Queues {
public:
    explicit HostQueues(MainLoop& loop) : loop_(loop) {}
    void runOnMain(std::function<void()> work) override { loop_.post(std::move(work)); }
    bool isMainThread() const override { return loop_.isLoopThread(); }

private:
    MainLoop& loop_;
};

}  // namespace tactora::host
