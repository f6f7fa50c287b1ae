#include "ios/CoreGraphicsImageCodec.h"

#include <CoreGraphics/CoreGraphics.h>
#include <ImageIO/ImageIO.h>

#include <cstdlib>

namespace tactora::ios {

namespace {

// R, G, B, A in memory with premultiplied alpha: premultiplied-last, 32-bit big-endian (0x4001).
constexpr CGBitmapInfo rgbaPremultiplied =
    static_cast<CGBitmapInfo>(kCGImageAlphaPremultipliedLast) | static_cast<CGBitmapInfo>(kCGBitmapByteOrder32Big);

}  // namespace

PixelBufferPtr CoreGraphicsImageCodec::decodePng(const std::uint8_t* bytes, std::size_t size) const {
    if (!bytes || size == 0) return nullptr;
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, bytes, static_cast<CFIndex>(size));
    CGDataProviderRef provider = data ? CGDataProviderCreateWithCFData(data) : nullptr;
    CGImageRef image = provider ? CGImageCreateWithPNGDataProvider(provider, nullptr, false, kCGRenderingIntentDefault)
                                : nullptr;
    if (provider) CGDataProviderRelease(provider);
    if (data) CFRelease(data);
    if (!image) return nullptr;

    const size_t width = CGImageGetWidth(image), height = CGImageGetHeight(image);
    PixelBufferPtr buffer(static_cast<PixelBuffer*>(std::calloc(1, sizeof(PixelBuffer))));
    if (buffer && width > 0 && height > 0) buffer->data = static_cast<std::uint8_t*>(std::calloc(height, width * 4));
    if (!buffer || !buffer->data) {
        CGImageRelease(image);
        return nullptr;
    }
    buffer->width = width;
    buffer->height = height;
    buffer->bytesPerRow = width * 4;
    buffer->bytesPerPixel = 4;

    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    CGContextRef context = CGBitmapContextCreate(buffer->data, width, height, 8, width * 4, space, rgbaPremultiplied);
    CGColorSpaceRelease(space);
    if (context) {
        CGContextDrawImage(context, CGRectMake(0, 0, width, height), image);
        CGContextRelease(context);
    }
    CGImageRelease(image);
    if (!context) return nullptr;
    return buffer;
}

std::optional<std::vector<std::uint8_t>> CoreGraphicsImageCodec::encodePng(const std::uint8_t* rgba,
                                                                           std::uint32_t width,
                                                                           std::uint32_t height,
                                                                           std::size_t bytesPerRow) const {
    if (!rgba || width == 0 || height == 0 || bytesPerRow < std::size_t(width) * 4) return std::nullopt;
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    // The context only reads the caller's pixels here.
    CGContextRef context = CGBitmapContextCreate(const_cast<std::uint8_t*>(rgba), width, height, 8, bytesPerRow,
                                                 space, rgbaPremultiplied);
    CGColorSpaceRelease(space);
    if (!context) return std::nullopt;
    CGImageRef image = CGBitmapContextCreateImage(context);
    CGContextRelease(context);
    if (!image) return std::nullopt;

    std::optional<std::vector<std::uint8_t>> png;
    CFMutableDataRef data = CFDataCreateMutable(kCFAllocatorDefault, 0);
    CGImageDestinationRef destination = CGImageDestinationCreateWithData(data, CFSTR("public.png"), 1, nullptr);
    if (destination) {
        CGImageDestinationAddImage(destination, image, nullptr);
        if (CGImageDestinationFinalize(destination)) {
            const UInt8* bytes = CFDataGetBytePtr(data);
            png.emplace(bytes, bytes + CFDataGetLength(data));
        }
        CFRelease(destination);
    }
    CFRelease(data);
    CGImageRelease(image);
    return png;
}

}  // namespace tactora::ios
