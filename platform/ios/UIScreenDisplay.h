#pragma once

#include "Platform/Display.h"

namespace tactora::ios {

// Remembers the interface orientation SpringBoard last announced (it follows the front app). Main
// thread.
void noteInterfaceOrientation(int orientation);

// The main UIScreen, captured through the render server into an IOSurface. Its interface
// orientation is the one SpringBoard last announced; before the first announcement, that of
// SpringBoard's own scene or status bar.
class UIScreenDisplay final : public Display {
public:
    Size bounds() const override;
    double scale() const override;
    int interfaceOrientation() const override;
    bool respondsToDisplayLink() const override;
    bool capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) override;
};

}  // namespace tactora::ios
