#include "Kernel/CaptureScreen.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "Kernel/ScreenFunctions.h"
#include "Kernel/SearchKernels.h"
#include "Platform/ImageCodec.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

// 0.0 until computed. Written once from the script thread; a race would write the same value.
std::atomic<float> cachedScaleFactor{0.0f};

// Like writeToFile:atomically:NO: the script is not told whether it worked; only the paths port
// hears of a file that could not be created.
bool writeFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    return true;
}

// Converts `width` x `height` pixels of the capture starting at (x, y) and writes them as PNG.
void writeRegion(const char* function, const char* path, const ScreenImage& image, std::int64_t x, std::int64_t y,
                 std::int64_t width, std::int64_t height) {
    if (!path || width < 1 || height < 1) return;
    const std::size_t rowBytes = static_cast<std::size_t>(width) * 4;
    std::vector<std::uint8_t> rgba(rowBytes * static_cast<std::size_t>(height));
    for (std::int64_t row = 0; row < height; ++row) {
        const std::uint8_t* from = image.pixels.get() + static_cast<std::size_t>(y + row) * image.bytesPerRow() +
                                   static_cast<std::size_t>(x) * 4;
        std::uint8_t* to = rgba.data() + static_cast<std::size_t>(row) * rowBytes;
        for (std::int64_t column = 0; column < width; ++column, from += 4, to += 4) {
            to[0] = from[2];
            to[1] = from[1];
            to[2] = from[0];
            to[3] = 0xFF;
        }
    }
    auto png = platform().imageCodec->encodePng(rgba.data(), static_cast<std::uint32_t>(width),
                                                static_cast<std::uint32_t>(height), rowBytes);
    if (!png) return;
    const std::string mapped = mappedScriptPath(path);
    if (!writeFile(mapped, *png)) platform().paths->scriptFileMissed(function, path, mapped);
}

}  // namespace

ScreenImage CaptureScreen::captureScreen() {
    Display& display = *platform().display;
    const Display::Size bounds = display.bounds();
    const float scale = static_cast<float>(display.scale());
    const double width = bounds.width * scale;
    const double height = bounds.height * scale;
    ScreenImage image;
    // A screen is at most a few thousand pixels a side; anything else is a broken port.
    if (!(width >= 1 && height >= 1 && width <= 65536 && height <= 65536)) return image;
    image.width = static_cast<std::int32_t>(width);
    image.height = static_cast<std::int32_t>(height);
    image.pixels.reset(new (std::nothrow) std::uint8_t[image.byteCount()]);
    if (!image.pixels || !display.capture(image.pixels.get(), image.width, image.height)) return ScreenImage{};
    return image;
}

PixelBuffer* getImageData(const ScreenImage& image) {
    auto* buffer = static_cast<PixelBuffer*>(std::malloc(sizeof(PixelBuffer)));
    if (!buffer) return nullptr;
    const bool empty = image.empty();
    const std::uint64_t width = empty ? 0 : static_cast<std::uint64_t>(image.width);
    const std::uint64_t height = empty ? 0 : static_cast<std::uint64_t>(image.height);
    const std::size_t bytes = width * 4 * height;
    auto* data = static_cast<std::uint8_t*>(std::malloc(bytes ? bytes : 1));
    if (!data) {
        std::free(buffer);
        return nullptr;
    }
    // What drawing an opaque B, G, R, X image into an R, G, B, A premultiplied context gives.
    if (bytes) searchKernels().bgrxToRgba(image.pixels.get(), data, width * height);
    *buffer = PixelBuffer{data, width, height, width * 4, 4};
    return buffer;
}

void releasePixels(void* info, const void* data) {
    (void)info;
    std::free(const_cast<void*>(data));
}

float get_screen_scale_factor() {
    const float cached = cachedScaleFactor.load(std::memory_order_relaxed);
    if (cached != 0.0f) return cached;
    static constexpr float factors[2] = {1.0f, 2.0f};
    const Display& display = *platform().display;
    const float factor = display.respondsToDisplayLink() ? factors[display.scale() == 2.0] : 1.0f;
    cachedScaleFactor.store(factor, std::memory_order_relaxed);
    return factor;
}

void reset_screen_scale_factor() { cachedScaleFactor.store(0.0f, std::memory_order_relaxed); }

void screenshot(const char* path) {
    const ScreenImage image = CaptureScreen::captureScreen();
    if (image.empty()) return;
    writeRegion("screenshot", path, image, 0, 0, image.width, image.height);
}

void screenshotRegion(const char* path, std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) {
    const ScreenImage image = CaptureScreen::captureScreen();
    if (image.empty()) return;
    const double f = get_screen_scale_factor();
    // The rectangle in pixels, clipped to the image as CGImageCreateWithImageInRect does: the
    // rectangle is first made integral (outward), then intersected with the image.
    double left = x * f, top = y * f, right = left + width * f, bottom = top + height * f;
    if (width < 0) std::swap(left, right);
    if (height < 0) std::swap(top, bottom);
    left = std::max(std::floor(left), 0.0);
    top = std::max(std::floor(top), 0.0);
    right = std::min(std::ceil(right), static_cast<double>(image.width));
    bottom = std::min(std::ceil(bottom), static_cast<double>(image.height));
    if (right <= left || bottom <= top) return;
    writeRegion("screenshotRegion", path, image, static_cast<std::int64_t>(left), static_cast<std::int64_t>(top),
                static_cast<std::int64_t>(right - left), static_cast<std::int64_t>(bottom - top));
}

std::pair<double, double> getScreenSize() {
    const Display::Size bounds = platform().display->bounds();
    return {bounds.width, bounds.height};
}

std::pair<double, double> getScreenResolution() {
    const Display::Size bounds = platform().display->bounds();
    const double f = get_screen_scale_factor();
    return {bounds.width * f, bounds.height * f};
}

int getScreenBitDepth() { return 32; }

std::string mappedScriptPath(const char* path) {
    if (!path) return {};
    const Paths& paths = *platform().paths;
    std::string root = paths.map("/");
    if (root.size() > 1 && std::string_view(path).starts_with(root)) return path;
    return paths.map(path);
}

}  // namespace tactora
