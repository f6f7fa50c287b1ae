#pragma once

#include <memory>
#include <mutex>

#include "Platform/HIDSource.h"

namespace tactora {
class Queues;
}

namespace tactora::host {

// Real HID events on the host come from outside (an events file, the control API, the browser):
// deliver() hands each to the registered client on the main loop.
class HostHIDSource final : public HIDSource {
public:
    explicit HostHIDSource(Queues& queues) : queues_(queues) {}

    void* startDelivering(HIDEventCallback callback) override;
    void stopDelivering(void* client) override;

    // From any thread. False when no client takes events.
    bool deliver(const HIDEvent& event);
    bool isDelivering() const;

private:
    struct Client {
        HIDEventCallback callback;
    };
    Queues& queues_;
    mutable std::mutex mutex_;
    std::shared_ptr<Client> client_;
};

}  // namespace tactora::host
