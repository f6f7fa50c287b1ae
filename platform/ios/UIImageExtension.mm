#include "ios/UIImageExtension.h"

#include <cstdio>
#include <cstdlib>

#include "Kernel/Utils.h"

namespace {

// The texts the conversions print when CoreGraphics gives nothing back (the last two without a
// newline: callers that chain them print their own).
constexpr const char* noColorSpaceMessage = "Error allocating color space\n";
constexpr const char* noMemoryMessage = "Error: Memory not allocated!";
constexpr const char* noContextMessage = "Error: Context not created!";

// R, G, B, A in memory: 32-bit big-endian words, alpha premultiplied last.
constexpr CGBitmapInfo rgbaBytes =  // 0x4001
    static_cast<CGBitmapInfo>(kCGBitmapByteOrder32Big) | static_cast<CGBitmapInfo>(kCGImageAlphaPremultipliedLast);

UIImage* drawn(CGSize size, void (^draw)(void)) {
    UIGraphicsBeginImageContext(size);
    draw();
    UIImage* result = UIGraphicsGetImageFromCurrentImageContext();
    UIGraphicsEndImageContext();
    return result;
}

tactora::Display::Size sizeOf(CGSize size) { return {size.width, size.height}; }

}  // namespace

@implementation UIImage (Extension)

- (UIColor*)colorAtPixel:(CGPoint)point {
    const CGSize size = self.size;
    if (!CGRectContainsPoint(CGRectMake(0, 0, size.width, size.height), point)) return nil;
    CGImageRef image = self.CGImage;
    if (!image) return nil;
    unsigned char pixel[4] = {0, 0, 0, 0};
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    CGContextRef context = CGBitmapContextCreate(pixel, 1, 1, 8, 4, space, rgbaBytes);
    CGColorSpaceRelease(space);
    if (!context) return nil;
    // Only the wanted pixel lands on the 1 x 1 bitmap (CoreGraphics counts y from the bottom).
    CGContextSetBlendMode(context, kCGBlendModeCopy);
    CGContextTranslateCTM(context, -point.x, point.y - size.height);
    CGContextDrawImage(context, CGRectMake(0, 0, size.width, size.height), image);
    CGContextRelease(context);
    return [UIColor colorWithRed:pixel[0] / 255.0 green:pixel[1] / 255.0 blue:pixel[2] / 255.0 alpha:pixel[3] / 255.0];
}

- (UIImage*)processImage:(UIImage*)image {
    CGImageRef source = image.CGImage;
    if (!source) return nil;
    const size_t width = CGImageGetWidth(source), height = CGImageGetHeight(source);
    void* pixels = std::calloc(width * height, 4);
    if (!pixels) return nil;
    CGContextRef context = CGBitmapContextCreate(pixels, width, height, 8, width * 4, CGImageGetColorSpace(source),
                                                 kCGImageAlphaPremultipliedLast);
    UIImage* result = nil;
    if (context) {
        CGContextDrawImage(context, CGRectMake(0, 0, width, height), source);
        if (CGImageRef redrawn = CGBitmapContextCreateImage(context)) {
            result = [UIImage imageWithCGImage:redrawn];
            CGImageRelease(redrawn);
        }
        CGContextRelease(context);
    }
    std::free(pixels);
    return result;
}

- (UIImage*)getSubImage:(CGRect)rect {
    CGImageRef crop = self.CGImage ? CGImageCreateWithImageInRect(self.CGImage, rect) : nullptr;
    if (!crop) return nil;
    UIImage* cropped = [UIImage imageWithCGImage:crop];
    CGImageRelease(crop);
    const CGSize size = CGSizeMake(CGRectGetWidth(rect), CGRectGetHeight(rect));
    return drawn(size, ^{
      [cropped drawInRect:CGRectMake(0, 0, size.width, size.height)];
    });
}

- (UIImage*)scaleToSize:(CGSize)size {
    const tactora::Rect fit = tactora::aspectFitRect(sizeOf(self.size), sizeOf(size));
    return drawn(size, ^{
      [self drawInRect:CGRectMake(fit.x, fit.y, fit.width, fit.height)];
    });
}

+ (UIImage*)imageWithBytes:(unsigned char*)bytes withSize:(CGSize)size {
    const size_t width = static_cast<size_t>(size.width), height = static_cast<size_t>(size.height);
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    if (!space) {
        std::fputs(noColorSpaceMessage, stderr);
        std::free(bytes);
        return nil;
    }
    CGContextRef context =
        CGBitmapContextCreate(bytes, width, height, 8, width * 4, space, kCGImageAlphaPremultipliedFirst);
    CGColorSpaceRelease(space);
    if (!context) {
        std::fputs(noContextMessage, stderr);
        std::free(bytes);
        return nil;
    }
    // The image copies the pixels, so the buffer can go at once.
    CGImageRef image = CGBitmapContextCreateImage(context);
    CGContextRelease(context);
    std::free(bytes);
    if (!image) return nil;
    UIImage* result = [UIImage imageWithCGImage:image];
    CGImageRelease(image);
    return result;
}

+ (NSData*)bytesFromImage:(UIImage*)image {
    CGImageRef source = image.CGImage;
    if (!source) return nil;
    const size_t width = CGImageGetWidth(source), height = CGImageGetHeight(source);
    CGColorSpaceRef space = CGColorSpaceCreateDeviceRGB();
    if (!space) {
        std::fputs(noColorSpaceMessage, stderr);
        return nil;
    }
    void* pixels = std::calloc(width * height, 4);
    if (!pixels) {
        std::fputs(noMemoryMessage, stderr);
        CGColorSpaceRelease(space);
        return nil;
    }
    CGContextRef context =
        CGBitmapContextCreate(pixels, width, height, 8, width * 4, space, kCGImageAlphaPremultipliedFirst);
    CGColorSpaceRelease(space);
    if (!context) {
        std::fputs(noContextMessage, stderr);
        std::free(pixels);
        return nil;
    }
    CGContextDrawImage(context, CGRectMake(0, 0, width, height), source);
    CGContextRelease(context);
    NSData* data = [NSData dataWithBytes:pixels length:width * height * 4];
    std::free(pixels);
    return data;
}

- (NSData*)bytes {
    return [UIImage bytesFromImage:self];
}

@end

namespace tactora::ios {

UIImage* imageWithImageScaledToWidth(UIImage* image, float width) {
    const Display::Size size = Utils::scaledToWidth(sizeOf(image.size), width);
    return drawn(CGSizeMake(size.width, size.height), ^{
      [image drawInRect:CGRectMake(0, 0, size.width, size.height)];
    });
}

UIImage* imageWithImage2ScaledToWidth(UIImage* image, float width) {
    const Display::Size size = Utils::scaledToWidth2(sizeOf(image.size), width);
    return drawn(CGSizeMake(size.width, size.height), ^{
      [image drawInRect:CGRectMake(0, 0, size.width, size.height)];
    });
}

}  // namespace tactora::ios
