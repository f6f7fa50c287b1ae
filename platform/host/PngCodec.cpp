#include "host/PngCodec.h"

#include <png.h>

#include <cstring>
#include <vector>

namespace tactora::host {

namespace {

struct MemoryReader {
    const std::uint8_t* bytes;
    std::size_t size;
    std::size_t offset;
};

void readFromMemory(png_structp png, png_bytep out, png_size_t length) {
    auto* reader = static_cast<MemoryReader*>(png_get_io_ptr(png));
    if (length > reader->size - reader->offset) png_error(png, "truncated");
    std::memcpy(out, reader->bytes + reader->offset, length);
    reader->offset += length;
}

// A broken file is answered by the caller's return value; libpng's own messages would go to stderr.
[[noreturn]] void failSilently(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void ignoreWarning(png_structp, png_const_charp) {}

// A 16-bit PNG as CoreGraphics decodes it: the samples stay the gamma-encoded values they are and
// each becomes its high byte (0x8080 -> 0x80). libpng's simplified reader takes 16-bit samples
// for linear light and re-encodes them, which makes mid-tones far too bright, so these files are
// read with no gamma handling at all. Fills `rows` (straight R, G, B, A) and answers true.
// Nothing with a destructor lives here: libpng leaves by longjmp.
bool readSixteenBit(const std::uint8_t* bytes, std::size_t size, png_bytep* rows, png_uint_32 width,
                    png_uint_32 height) {
    MemoryReader reader{bytes, size, 0};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, failSilently, ignoreWarning);
    if (!png) return false;
    png_infop info = png_create_info_struct(png);
    if (!info || setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, info ? &info : nullptr, nullptr);
        return false;
    }
    png_set_read_fn(png, &reader, readFromMemory);
    png_read_info(png, info);
    if (png_get_image_width(png, info) != width || png_get_image_height(png, info) != height) png_error(png, "size");
    const int colorType = png_get_color_type(png, info);
    png_set_expand(png);  // tRNS becomes alpha
    png_set_strip_16(png);
    if (!(colorType & PNG_COLOR_MASK_COLOR)) png_set_gray_to_rgb(png);
    if (!(colorType & PNG_COLOR_MASK_ALPHA) && !png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != static_cast<png_size_t>(width) * 4) png_error(png, "layout");
    png_read_image(png, rows);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
}

}  // namespace

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
    if (image.format & PNG_FORMAT_FLAG_LINEAR) {
        png_image_free(&image);
        std::vector<png_bytep> rows(record->height);
        for (std::size_t y = 0; y < rows.size(); ++y) rows[y] = data + y * rowBytes;
        if (!readSixteenBit(bytes, size, rows.data(), static_cast<png_uint_32>(record->width),
                            static_cast<png_uint_32>(record->height)))
            return nullptr;
    } else {
        image.format = PNG_FORMAT_RGBA;
        if (!png_image_finish_read(&image, nullptr, data, static_cast<png_int_32>(rowBytes), nullptr)) {
            png_image_free(&image);
            return nullptr;
        }
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
