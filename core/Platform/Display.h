#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tactora {

// A picture of the composed screen: 32-bit pixels whose bytes in memory are B, G, R and an
// unused fourth byte (CoreGraphics bitmap info 0x2006, little-endian 32-bit, alpha skipped first),
// rows top to bottom, bytesPerRow() = width * 4. Width and height are in pixels.
struct ScreenImage {
    std::unique_ptr<std::uint8_t[]> pixels;
    std::int32_t width = 0;
    std::int32_t height = 0;

    std::size_t bytesPerRow() const { return static_cast<std::size_t>(width) * 4; }
    std::size_t byteCount() const { return bytesPerRow() * static_cast<std::size_t>(height); }
    bool empty() const { return !pixels || width < 1 || height < 1; }
};

// The main display (UIScreen and the render server on the device, a simulated screen on the host).
class Display {
public:
    struct Size {
        double width = 0;
        double height = 0;
    };

    virtual ~Display() = default;

    // The main screen's bounds size in points. Default: 0 x 0.
    virtual Size bounds() const { return {}; }
    // Pixels per point (UIScreen scale: 1, 2 or 3). Default: 1.
    virtual double scale() const { return 1.0; }
    // The interface (status bar) orientation: 1, 2 portrait, 3, 4 landscape. Default: 1.
    virtual int interfaceOrientation() const { return 1; }
    // Whether the screen object answers displayLinkWithTarget:selector: (every screen since
    // iOS 4 does). Default: false.
    virtual bool respondsToDisplayLink() const { return false; }
    // Renders the composed screen into `pixels`, `width` x `height` pixels of 4 bytes in the
    // ScreenImage layout (bytes per row = width * 4). False when nothing could be captured.
    // Default: false.
    virtual bool capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) {
        (void)pixels;
        (void)width;
        (void)height;
        return false;
    }
};

}  // namespace tactora
