#include "host/PngCodec.h"

#include <png.h>

#include <cstring>

namespace tactora::host {

PixelBufferPtr PngCodec::decodePng(const std::uint8_t* bytes, std::size_t size) const {
    if (!bytes || size < 8 || png_sig_cmp(bytes, 0, 8) != 0) return nullptr;
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    // The simplified interface reports every libpng error through its return value.
    if (!png_image_begin_read_from_memory(&image, bytes, size)) return nullptr;
    if (image.width < 1 || image.height < 1 || image.width > maximumSide || image.height > maximumSide ||
        static_cast<std::uint64_t>(image.width) * image.height > maximumPixels) {
        png_image_free(&image);
        return nullptr;
    }
    image.format = PNG_FORMAT_RGBA;
    const std::size_t rowBytes = static_cast<std::size_t>(image.width) * 4;
    auto* data = static_cast<std::uint8_t*>(std::malloc(rowBytes * image.height));
    auto* record = static_cast<PixelBuffer*>(std::malloc(sizeof(PixelBuffer)));
    if (!data || !record) {
        std::free(data);
        std::free(record);
        png_image_free(&image);
        return nullptr;
    }
    *record = PixelBuffer{data, image.width, image.height, rowBytes, 4};
    PixelBufferPtr result(record);
    if (!png_image_finish_read(&image, nullptr, data, static_cast<png_int_32>(rowBytes), nullptr)) {
        png_image_free(&image);
        return nullptr;
    }
    for (std::size_t i = 0, n = rowBytes * image.height; i < n; i += 4) {
        const std::uint32_t a = data[i + 3];
        if (a == 0xFF) continue;
        data[i] = premultiply(data[i], a);
        data[i + 1] = premultiply(data[i + 1], a);
        data[i + 2] = premultiply(data[i + 2], a);
    }
    return result;
}

std::optional<std::vector<std::uint8_t>> PngCodec::encodePng(const std::uint8_t* rgba, std::uint32_t width,
                                                             std::uint32_t height, std::size_t bytesPerRow) const {
    if (!rgba || width < 1 || height < 1 || width > maximumSide || height > maximumSide || bytesPerRow < width * 4ull)
        return std::nullopt;
    // PNG keeps straight alpha: undo the premultiplication (rounded) where alpha is partial.
    std::vector<std::uint8_t> straight(static_cast<std::size_t>(width) * 4 * height);
    for (std::uint32_t y = 0; y < height; ++y) {
        const std::uint8_t* from = rgba + y * bytesPerRow;
        std::uint8_t* to = straight.data() + static_cast<std::size_t>(y) * width * 4;
        for (std::uint32_t x = 0; x < width; ++x, from += 4, to += 4) {
            const std::uint32_t a = from[3];
            for (int c = 0; c < 3; ++c) {
                if (a == 0xFF)
                    to[c] = from[c];
                else if (a == 0)
                    to[c] = 0;
                else
                    to[c] = static_cast<std::uint8_t>(std::min<std::uint32_t>(255, (from[c] * 255u + a / 2) / a));
            }
            to[3] = static_cast<std::uint8_t>(a);
        }
    }
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, straight.data(), 0, nullptr)) return std::nullopt;
    std::vector<std::uint8_t> png(size);
    if (!png_image_write_to_memory(&image, png.data(), &size, 0, straight.data(), 0, nullptr)) return std::nullopt;
    png.resize(size);
    return png;
}

}  // namespace tactora::host
