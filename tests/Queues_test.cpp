#include "Platform/Queues.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>

using namespace tactora;

TEST(Queues, ASerialQueueRunsItsWorkInOrderEvenWhenReleasedWithWorkWaiting) {
    Queues queues;
    std::mutex mutex;
    std::vector<int> done;
    auto last = std::make_shared<std::promise<void>>();  // outlives the worker's last call
    std::promise<void> gate;
    {
        auto queue = queues.makeSerialQueue("test");
        queue->async([open = gate.get_future().share()] { open.wait(); });  // holds the rest back until the queue is gone
        for (int i = 0; i < 5; ++i) queue->async([&, i] { const std::lock_guard lock(mutex); done.push_back(i); });
        queue->async([last] { last->set_value(); });
    }
    gate.set_value();
    ASSERT_EQ(last->get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    std::lock_guard lock(mutex);
    EXPECT_EQ(done, (std::vector<int>{0, 1, 2, 3, 4}));
}
