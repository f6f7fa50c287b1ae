#pragma once

#include "Platform/Queues.h"

namespace tactora::ios {

// The main queue, the global queue of default priority and private serial queues of GCD.
class GCDQueues final : public Queues {
public:
    void runOnMain(std::function<void()> work) override;
    void runInBackground(std::function<void()> work) override;
    std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) override;
    bool isMainThread() const override;
};

}  // namespace tactora::ios
