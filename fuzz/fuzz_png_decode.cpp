// Feeds arbitrary bytes to the host PNG decoder, and what decodes back through the encoder and
// the decoder again: neither may crash, leak or read out of bounds, and a decoded image must
// survive the round trip.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "host/PngCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const tactora::host::PngCodec codec;
    tactora::PixelBufferPtr image = codec.decodePng(data, size);
    if (!image) return 0;
    if (image->width < 1 || image->height < 1 || image->bytesPerRow != image->width * 4 || image->bytesPerPixel != 4)
        std::abort();
    // Premultiplied: no colour channel above its alpha.
    for (std::uint64_t i = 0; i < image->bytesPerRow * image->height; i += 4)
        if (image->data[i] > image->data[i + 3] || image->data[i + 1] > image->data[i + 3] ||
            image->data[i + 2] > image->data[i + 3])
            std::abort();
    if (image->width * image->height > 256 * 256) return 0;  // keep each run short
    auto png = codec.encodePng(image->data, static_cast<std::uint32_t>(image->width),
                               static_cast<std::uint32_t>(image->height), image->bytesPerRow);
    if (!png) std::abort();
    tactora::PixelBufferPtr again = codec.decodePng(png->data(), png->size());
    if (!again || again->width != image->width || again->height != image->height) std::abort();
    // Opaque pixels come back exactly (translucent ones may round).
    for (std::uint64_t i = 0; i < image->bytesPerRow * image->height; i += 4)
        if (image->data[i + 3] == 0xFF && std::memcmp(image->data + i, again->data + i, 4) != 0) std::abort();
    return 0;
}
