// Pixel buffers built from colours, and a simulated display with the PNG codec for a test's length.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Kernel/CaptureScreen.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/PixelBuffer.h"
#include "Platform/Platform.h"
#include "host/DeviceProfiles.h"
#include "host/PngCodec.h"
#include "host/SimulatedDisplay.h"

namespace screentest {

inline void setPixel(tactora::PixelBuffer& buffer, std::uint64_t x, std::uint64_t y, std::uint32_t color) {
    std::uint8_t* p = buffer.data + y * buffer.bytesPerRow + x * buffer.bytesPerPixel;
    for (int i = 0; i < 3; ++i) p[i] = static_cast<std::uint8_t>(color >> (16 - 8 * i));
}

// An RGBA buffer of width x height pixels of colour 0xRRGGBB (alpha 255), malloc'd like the real
// ones so that releasePixelBuffer frees it.
inline tactora::PixelBufferPtr solidBuffer(std::uint64_t width, std::uint64_t height, std::uint32_t color,
                                           std::uint64_t bytesPerPixel = 4) {
    auto* buffer = static_cast<tactora::PixelBuffer*>(std::malloc(sizeof(tactora::PixelBuffer)));
    const std::size_t bytes = width * height * bytesPerPixel;
    auto* data = static_cast<std::uint8_t*>(std::malloc(bytes ? bytes : 1));
    *buffer = tactora::PixelBuffer{data, width, height, width * bytesPerPixel, bytesPerPixel};
    for (std::size_t i = 0; i < width * height; ++i) {
        for (std::uint64_t extra = 3; extra < bytesPerPixel; ++extra) data[i * bytesPerPixel + extra] = 0xFF;
        setPixel(*buffer, i % width, i / width, color);
    }
    return tactora::PixelBufferPtr(buffer);
}

inline std::uint32_t pixelAt(const tactora::PixelBuffer& buffer, std::uint64_t x, std::uint64_t y) {
    const std::uint8_t* p = buffer.data + y * buffer.bytesPerRow + x * buffer.bytesPerPixel;
    return static_cast<std::uint32_t>(p[0]) << 16 | static_cast<std::uint32_t>(p[1]) << 8 | p[2];
}

// Copies the width x height area of `from` at (x, y) into a new buffer.
inline tactora::PixelBufferPtr crop(const tactora::PixelBuffer& from, std::uint64_t x, std::uint64_t y,
                                    std::uint64_t width, std::uint64_t height) {
    auto result = solidBuffer(width, height, 0);
    for (std::uint64_t row = 0; row < height; ++row)
        std::memcpy(result->data + row * result->bytesPerRow, from.data + (y + row) * from.bytesPerRow + x * 4, width * 4);
    return result;
}

inline std::shared_ptr<tactora::host::Frame> frameOf(const tactora::PixelBuffer& buffer) {
    auto frame = std::make_shared<tactora::host::Frame>();
    frame->width = static_cast<std::uint32_t>(buffer.width);
    frame->height = static_cast<std::uint32_t>(buffer.height);
    frame->rgba.assign(buffer.data, buffer.data + buffer.bytesPerRow * buffer.height);
    return frame;
}

// A simulated display of `profile` ("WxH@S" or a profile name) showing `screen`, with the PNG
// codec, for the life of the object.
class ScopedScreen {
public:
    explicit ScopedScreen(const std::string& profile, std::shared_ptr<const tactora::host::Frame> screen = nullptr)
        : display_(*tactora::host::findDeviceProfile(profile)) {
        if (screen) display_.setFrameSource([screen] { return screen; });
        tactora::platform().display = &display_;
        tactora::platform().imageCodec = &codec_;
        tactora::reset_screen_scale_factor();
    }
    ~ScopedScreen() { tactora::reset_screen_scale_factor(); }

    tactora::host::SimulatedDisplay& display() { return display_; }

private:
    tactora::ScopedPlatform scope_;
    tactora::host::SimulatedDisplay display_;
    tactora::host::PngCodec codec_;
};

inline std::vector<std::pair<float, float>> pointsOf(const tactora::MatchList* list) {
    std::vector<std::pair<float, float>> points;
    if (list)
        for (std::int64_t i = 0; i < list->count; ++i) points.emplace_back(list->points[i].x, list->points[i].y);
    return points;
}

}  // namespace screentest
