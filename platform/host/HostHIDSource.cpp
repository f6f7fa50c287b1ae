#include "host/HostHIDSource.h"

#include "Platform/Queues.h"

namespace tactora::host {

void* HostHIDSource::startDelivering(HIDEventCallback callback) {
    std::lock_guard lock(mutex_);
    client_ = std::make_shared<Client>(Client{std::move(callback)});
    return client_.get();
}

void HostHIDSource::stopDelivering(void* client) {
    std::lock_guard lock(mutex_);
    if (client_.get() == client) client_.reset();
}

bool HostHIDSource::deliver(const HIDEvent& event) {
    std::weak_ptr<Client> target;
    {
        std::lock_guard lock(mutex_);
        if (!client_) return false;
        target = client_;
    }
    // The client may be stopped before the event reaches the main loop; then it is dropped.
    queues_.runOnMain([this, target, event] {
        std::shared_ptr<Client> client = target.lock();
        if (!client) return;
        {
            std::lock_guard lock(mutex_);
            if (client_ != client) return;
        }
        client->callback(event);
    });
    return true;
}

bool HostHIDSource::isDelivering() const {
    std::lock_guard lock(mutex_);
    return client_ != nullptr;
}

}  // namespace tactora::host
