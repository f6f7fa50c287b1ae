#pragma once

#include "Platform/HIDSource.h"

namespace tactora::ios {

// Real HID events seen through an IOHIDEventSystemClient of SpringBoard, delivered on the main
// run loop.
class EventSystemHIDSource final : public HIDSource {
public:
    void* startDelivering(HIDEventCallback callback) override;
    void stopDelivering(void* client) override;
};

}  // namespace tactora::ios
