#pragma once

#include <functional>
#include <memory>
#include <string>

namespace tactora {

// A serial queue: work items run one at a time, in submission order, on a thread of its own.
class SerialQueue {
public:
    virtual ~SerialQueue() = default;
    virtual void async(std::function<void()> work) = 0;
};

// The main and background queues (GCD on the device, threads on the host).
class Queues {
public:
    virtual ~Queues() = default;

    // Runs `work` later on the main thread, in submission order. Default: runs it at once on the
    // calling thread.
    virtual void runOnMain(std::function<void()> work) { work(); }

    // Runs `work` on a background thread (the global queue of default priority). Default: a
    // detached thread.
    virtual void runInBackground(std::function<void()> work);

    // A new private serial queue. Default: one thread per queue, ended when the queue is released.
    virtual std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label);

    // True on the main thread. Default: false.
    virtual bool isMainThread() const { return false; }
};

}  // namespace tactora
