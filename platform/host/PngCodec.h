#pragma once

#include "Platform/ImageCodec.h"

namespace tactora::host {

// PNG through libpng's simplified interface. Any PNG colour type and depth is read (converted to
// 8-bit sRGB RGBA); a file that is not a readable PNG, or larger than 16384 pixels a side or 32
// million pixels in all, gives null.
class PngCodec final : public ImageCodec {
public:
    PixelBufferPtr decodePng(const std::uint8_t* bytes, std::size_t size) const override;
    std::optional<std::vector<std::uint8_t>> encodePng(const std::uint8_t* rgba, std::uint32_t width,
                                                       std::uint32_t height,
                                                       std::size_t bytesPerRow) const override;

    static constexpr std::uint32_t maximumSide = 16384;
    static constexpr std::uint64_t maximumPixels = std::uint64_t{1} << 25;
};

// round(c * a / 255) for 8-bit c and a.
inline std::uint8_t premultiply(std::uint32_t c, std::uint32_t a) {
    const std::uint32_t t = c * a + 128;
    return static_cast<std::uint8_t>((t + (t >> 8)) >> 8);
}

}  // namespace tactora::host
