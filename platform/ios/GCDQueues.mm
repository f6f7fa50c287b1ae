#include "ios/GCDQueues.h"

#import <Foundation/Foundation.h>
#include <dispatch/dispatch.h>

namespace tactora::ios {

namespace {

// The block owns a copy of the work item, so the caller's object may go at once.
dispatch_block_t blockFor(std::function<void()> work) {
    auto shared = std::make_shared<std::function<void()>>(std::move(work));
    return ^{
      (*shared)();
    };
}

class GCDSerialQueue final : public SerialQueue {
public:
    explicit GCDSerialQueue(const std::string& label)
        : queue_(dispatch_queue_create(label.c_str(), DISPATCH_QUEUE_SERIAL)) {}
    void async(std::function<void()> work) override { dispatch_async(queue_, blockFor(std::move(work))); }

private:
    dispatch_queue_t queue_;  // released by ARC with the object; queued blocks keep it alive
};

}  // namespace

void GCDQueues::runOnMain(std::function<void()> work) {
    dispatch_async(dispatch_get_main_queue(), blockFor(std::move(work)));
}

void GCDQueues::runInBackground(std::function<void()> work) {
    dispatch_async(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0), blockFor(std::move(work)));
}

std::shared_ptr<SerialQueue> GCDQueues::makeSerialQueue(const std::string& label) {
    return std::make_shared<GCDSerialQueue>(label);
}

bool GCDQueues::isMainThread() const { return [NSThread isMainThread]; }

}  // namespace tactora::ios
