#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace tactora {

// A raw image: rows top to bottom, 8 bits per channel. Buffers made by getImageData hold
// R, G, B, A with premultiplied alpha and bytesPerRow = width * 4. Allocated with malloc; free
// with releasePixelBuffer (data first, then the record).
struct PixelBuffer {
    std::uint8_t* data = nullptr;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t bytesPerRow = 0;
    std::uint64_t bytesPerPixel = 0;
};

inline void releasePixelBuffer(PixelBuffer* buffer) {
    if (!buffer) return;
    std::free(buffer->data);
    std::free(buffer);
}

struct PixelBufferDeleter {
    void operator()(PixelBuffer* buffer) const { releasePixelBuffer(buffer); }
};
using PixelBufferPtr = std::unique_ptr<PixelBuffer, PixelBufferDeleter>;

}  // namespace tactora
