#pragma once

#include "Platform/HIDDispatch.h"

namespace tactora::ios {

// Synthetic events into backboardd's HID event system, built field by field from the core's
// descriptions.
class IOKitHIDDispatch final : public HIDDispatch {
public:
    void dispatchDigitizer(const HandEventDescription& hand) override;
    void dispatchKeyboard(const KeyboardEventDescription& key) override;
    DigitizerDisplay display() const override;
    void userEventOccurred() override;
    std::uint64_t absoluteTime() const override;
};

}  // namespace tactora::ios
