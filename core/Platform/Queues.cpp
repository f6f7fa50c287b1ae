#include "Platform/Queues.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace tactora {

namespace {

// The worker owns the queue's state, so releasing the queue (even from inside one of its own work
// items) only tells the worker to finish what was submitted and end.
struct QueueState {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<std::function<void()>> work;
    bool closing = false;
};

class ThreadSerialQueue final : public SerialQueue {
public:
    ThreadSerialQueue() : state_(std::make_shared<QueueState>()) {
        std::thread([state = state_] {
            for (;;) {
                std::function<void()> next;
                {
                    std::unique_lock lock(state->mutex);
                    state->ready.wait(lock, [&] { return state->closing || !state->work.empty(); });
                    if (state->work.empty()) return;
                    next = std::move(state->work.front());
                    state->work.pop_front();
                }
                next();
            }
        }).detach();
    }
    ~ThreadSerialQueue() override {
        {
            std::lock_guard lock(state_->mutex);
            state_->closing = true;
        }
        state_->ready.notify_one();
    }
    void async(std::function<void()> work) override {
        {
            std::lock_guard lock(state_->mutex);
            state_->work.push_back(std::move(work));
        }
        state_->ready.notify_one();
    }

private:
    std::shared_ptr<QueueState> state_;
};

}  // namespace

void Queues::runInBackground(std::function<void()> work) { std::thread(std::move(work)).detach(); }

std::shared_ptr<SerialQueue> Queues::makeSerialQueue(const std::string&) {
    return std::make_shared<ThreadSerialQueue>();
}

}  // namespace tactora
