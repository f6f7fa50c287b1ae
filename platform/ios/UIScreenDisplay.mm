#include "ios/UIScreenDisplay.h"

#include <IOSurface/IOSurfaceRef.h>
#include <dispatch/dispatch.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "ios/PrivateAPI.h"

namespace tactora::ios {

namespace {

// IOSurface pixel format 'BGRA': bytes B, G, R, A in memory, which is the capture's layout.
constexpr std::uint32_t pixelFormatBGRA = 'BGRA';
constexpr int bytesPerPixel = 4;

CFNumberRef number(int value) { return CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value); }

// The render server draws into a global surface of the screen's pixel size. The properties go in
// this order: global, bytes per element, bytes per row, width, height, pixel format, size.
IOSurfaceRef createSurface(std::int32_t width, std::int32_t height) {
    const int bytesPerRow = width * bytesPerPixel;
    // Deprecated since iOS 11 but still honoured: the render server of iOS 13 and 14 looks the
    // surface up by its id.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    const void* keys[] = {kIOSurfaceIsGlobal,    kIOSurfaceBytesPerElement, kIOSurfaceBytesPerRow, kIOSurfaceWidth,
                          kIOSurfaceHeight,      kIOSurfacePixelFormat,     kIOSurfaceAllocSize};
#pragma clang diagnostic pop
    const void* values[] = {kCFBooleanTrue,
                            number(bytesPerPixel),
                            number(bytesPerRow),
                            number(width),
                            number(height),
                            number(static_cast<int>(pixelFormatBGRA)),
                            number(bytesPerRow * height)};
    constexpr CFIndex count = sizeof keys / sizeof keys[0];
    CFDictionaryRef properties = CFDictionaryCreate(kCFAllocatorDefault, keys, values, count,
                                                    &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    for (CFIndex i = 1; i < count; ++i) CFRelease(values[i]);  // the dictionary holds them now
    IOSurfaceRef surface = IOSurfaceCreate(properties);
    CFRelease(properties);
    return surface;
}

// UIKit state is read on the main thread; the script thread waits for it (the main thread never
// waits for the script thread, so this cannot deadlock).
template <class Read>
auto onMain(Read read) {
    if ([NSThread isMainThread]) return read();
    __block decltype(read()) result{};
    dispatch_sync(dispatch_get_main_queue(), ^{
      result = read();
    });
    return result;
}

// 0 until SpringBoard announces an orientation. Written on the main thread, read on any.
std::atomic<int> announcedOrientation{0};

}  // namespace

void noteInterfaceOrientation(int orientation) {
    if (orientation >= 1 && orientation <= 4) announcedOrientation.store(orientation, std::memory_order_relaxed);
}

Display::Size UIScreenDisplay::bounds() const {
    CGRect bounds = [UIScreen mainScreen].bounds;
    return {bounds.size.width, bounds.size.height};
}

double UIScreenDisplay::scale() const { return [UIScreen mainScreen].scale; }

int UIScreenDisplay::interfaceOrientation() const {
    // On iOS 13 and later SpringBoard's own scene stays upright under a turned app; the
    // announcement says how the user sees the screen.
    if (int announced = announcedOrientation.load(std::memory_order_relaxed)) return announced;
    return onMain([]() -> int {
        if (@available(iOS 13.0, *)) {
            for (UIScene* scene in [UIApplication sharedApplication].connectedScenes) {
                if ([scene isKindOfClass:[UIWindowScene class]]) {
                    return static_cast<int>(((UIWindowScene*)scene).interfaceOrientation);
                }
            }
        }
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
        // Before scenes (and in a process without one) the status bar tells the orientation.
        return static_cast<int>([UIApplication sharedApplication].statusBarOrientation);
#pragma clang diagnostic pop
    });
}

bool UIScreenDisplay::respondsToDisplayLink() const {
    return [[UIScreen mainScreen] respondsToSelector:@selector(displayLinkWithTarget:selector:)];
}

bool UIScreenDisplay::capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) {
    if (!pixels || width < 1 || height < 1) return false;
    IOSurfaceRef surface = createSurface(width, height);
    if (!surface) return false;
    IOSurfaceLock(surface, 0, nullptr);
    CARenderServerRenderDisplay(0, CFSTR("LCD"), surface, 0, 0);
    IOSurfaceUnlock(surface, 0, nullptr);

    bool copied = false;
    if (IOSurfaceLock(surface, kIOSurfaceLockReadOnly, nullptr) == KERN_SUCCESS) {
        const auto* base = static_cast<const std::uint8_t*>(IOSurfaceGetBaseAddress(surface));
        const size_t surfaceRow = IOSurfaceGetBytesPerRow(surface);
        const size_t row = static_cast<size_t>(width) * bytesPerPixel;
        if (base && surfaceRow >= row && IOSurfaceGetHeight(surface) >= static_cast<size_t>(height)) {
            // The surface may pad its rows; the capture's rows are packed.
            for (std::int32_t y = 0; y < height; ++y) std::memcpy(pixels + y * row, base + y * surfaceRow, row);
            copied = true;
        }
        IOSurfaceUnlock(surface, kIOSurfaceLockReadOnly, nullptr);
    }
    CFRelease(surface);
    return copied;
}

}  // namespace tactora::ios
