#pragma once

#include "Platform/Display.h"

namespace tactora::ios {

// The main UIScreen, captured through the render server into an IOSurface.
class UIScreenDisplay final : public Display {
public:
    Size bounds() const override;
    double scale() const override;
    int interfaceOrientation() const override;
    bool respondsToDisplayLink() const override;
    bool capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) override;
};

}  // namespace tactora::ios
