#pragma once

#include "Platform/ImageCodec.h"

namespace tactora::ios {

// PNG through ImageIO, pixels through a CoreGraphics bitmap context.
class CoreGraphicsImageCodec final : public ImageCodec {
public:
    PixelBufferPtr decodePng(const std::uint8_t* bytes, std::size_t size) const override;
    std::optional<std::vector<std::uint8_t>> encodePng(const std::uint8_t* rgba, std::uint32_t width,
                                                       std::uint32_t height, std::size_t bytesPerRow) const override;
};

}  // namespace tactora::ios
