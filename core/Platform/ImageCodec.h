#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "Kernel/PixelBuffer.h"

namespace tactora {

// PNG decoding and encoding (CoreGraphics / ImageIO on the device, libpng on the host).
class ImageCodec {
public:
    virtual ~ImageCodec() = default;

    // Decodes the PNG file held in `bytes` into a new buffer of 4 bytes per pixel R, G, B, A,
    // alpha premultiplied (each colour channel round(c * a / 255)), bytes per row = width * 4,
    // rows top to bottom: what drawing the image into a 0x4001 bitmap context gives. Null when
    // the bytes are not a PNG file that can be read. Default: null.
    virtual PixelBufferPtr decodePng(const std::uint8_t* bytes, std::size_t size) const {
        (void)bytes;
        (void)size;
        return nullptr;
    }

    // Encodes `width` x `height` pixels R, G, B, A with premultiplied alpha (rows `bytesPerRow`
    // apart) as a PNG file. Nothing when the image cannot be encoded. Default: nothing.
    virtual std::optional<std::vector<std::uint8_t>> encodePng(const std::uint8_t* rgba,
                                                               std::uint32_t width,
                                                               std::uint32_t height,
                                                               std::size_t bytesPerRow) const {
        (void)rgba;
        (void)width;
        (void)height;
        (void)bytesPerRow;
        return std::nullopt;
    }
};

}  // namespace tactora
