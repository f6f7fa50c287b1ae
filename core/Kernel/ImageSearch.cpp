#include "Kernel/ImageSearch.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "Kernel/CaptureScreen.h"
#include "Kernel/ScreenFunctions.h"
#include "Platform/ImageCodec.h"
#include "Platform/Platform.h"

namespace tactora {

namespace {

// The search state. Plain values: one search at a time, on the script thread.
std::int32_t howManyLimit = 0;
std::int32_t toleranceBudget = 0;
std::uint8_t* ignoreColors = nullptr;  // 3 bytes per colour: R, G, B
std::int32_t ignoreCount = -1;

// Appends one point, growing the array to 16 and then by doubling. False when out of memory;
// the array is then freed.
bool appendPoint(MatchList* list, std::uint32_t& capacity, float x, float y) {
    if (static_cast<std::uint64_t>(list->count) == capacity) {
        const std::uint32_t grown = capacity == 0 ? 16 : capacity * 2;
        void* more = grown > capacity ? std::realloc(list->points, sizeof(MatchPoint) * grown) : nullptr;
        if (!more) {
            std::free(list->points);
            list->points = nullptr;
            return false;
        }
        list->points = static_cast<MatchPoint*>(more);
        capacity = grown;
    }
    list->points[list->count++] = MatchPoint{x, y};
    return true;
}

inline std::uint32_t threeBytes(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16;
}

}  // namespace

std::uint32_t hex_to_rgc(std::uint32_t v) { return ((v << 16) & 0xFF0000u) | (v & 0xFF00u) | ((v >> 16) & 0xFFu); }

std::uint32_t rgb_to_hex(std::uint32_t r, std::uint32_t g, std::uint32_t b) { return (r << 16) + (g << 8) + b; }

std::uint32_t get_rgb(const PixelBuffer* buffer, std::uint64_t x, std::uint64_t y) {
    return threeBytes(buffer->data + y * buffer->bytesPerRow + x * buffer->bytesPerPixel);
}

bool is_same_rgb(std::uint32_t a, std::uint32_t b) { return (a & 0xFFFFFFu) == (b & 0xFFFFFFu); }

bool is_ignore_color(std::uint32_t rgc) {
    if (ignoreCount < 1 || !ignoreColors) return false;
    for (std::int32_t i = 0; i < ignoreCount; ++i)
        if (threeBytes(ignoreColors + 3 * i) == (rgc & 0xFFFFFFu)) return true;
    return false;
}

void set_howmany(std::int32_t howMany) { howManyLimit = howMany; }

void set_tolerance(std::uint64_t width, std::uint64_t height, float fuzzy) {
    const float pixels = static_cast<float>(width * height);
    toleranceBudget = static_cast<std::int32_t>((1 - fuzzy) * pixels);
}

void set_no_tolerance() { toleranceBudget = 0; }

void set_ignore(const std::int32_t* list) {
    const std::int32_t n = list ? list[0] : 0;
    std::free(ignoreColors);
    ignoreColors = nullptr;
    ignoreCount = n;
    if (n < 1) return;
    ignoreColors = static_cast<std::uint8_t*>(std::malloc(3 * static_cast<std::size_t>(n)));
    if (!ignoreColors) {
        ignoreCount = -1;
        return;
    }
    for (std::int32_t i = 0; i < n; ++i) {
        const auto color = static_cast<std::uint32_t>(list[i + 1]);
        ignoreColors[3 * i] = static_cast<std::uint8_t>(color >> 16);
        ignoreColors[3 * i + 1] = static_cast<std::uint8_t>(color >> 8);
        ignoreColors[3 * i + 2] = static_cast<std::uint8_t>(color);
    }
}

void set_no_ignore() {
    // The list is owned by whoever set it; findImage frees it through release_ignore.
    ignoreColors = nullptr;
}

void release_ignore() {
    if (!ignoreColors) return;
    std::free(ignoreColors);
    ignoreColors = nullptr;
    ignoreCount = -1;
}

std::int32_t get_howmany() { return howManyLimit; }
std::int32_t get_tolerance() { return toleranceBudget; }
std::int32_t ignore_colors_count() { return ignoreCount; }

bool match(const PixelBuffer* screen, std::uint64_t x, std::uint64_t y, const PixelBuffer* templ) {
    if (templ->height < 1) return true;
    std::int32_t budget = toleranceBudget;
    const std::int32_t ignoring = ignoreCount;
    for (std::uint64_t ty = 0; ty < templ->height; ++ty) {
        const std::uint8_t* s = screen->data + (y + ty) * screen->bytesPerRow + x * screen->bytesPerPixel;
        const std::uint8_t* t = templ->data + ty * templ->bytesPerRow;
        for (std::uint64_t tx = 0; tx < templ->width; ++tx, s += screen->bytesPerPixel, t += templ->bytesPerPixel) {
            if (s[0] == t[0] && s[1] == t[1] && s[2] == t[2]) continue;
            if (ignoring >= 1 && (is_ignore_color(threeBytes(s)) || is_ignore_color(threeBytes(t)))) continue;
            if (budget < 1) return false;
            --budget;
        }
    }
    return true;
}

MatchList* xfindImage(const PixelBuffer* screen, const PixelBuffer* templ) {
    auto* list = static_cast<MatchList*>(std::calloc(1, sizeof(MatchList)));
    if (!list) return nullptr;
    const std::int64_t rows = static_cast<std::int64_t>(screen->height) - static_cast<std::int64_t>(templ->height);
    const std::int64_t cols = static_cast<std::int64_t>(screen->width) - static_cast<std::int64_t>(templ->width);
    if (rows < 1) return list;
    std::uint32_t capacity = 0;
    for (std::int64_t y = 0; y < rows; ++y) {
        for (std::int64_t x = 0; x < cols; ++x) {
            if (match(screen, static_cast<std::uint64_t>(x), static_cast<std::uint64_t>(y), templ) &&
                !appendPoint(list, capacity, static_cast<float>(x * 0.5), static_cast<float>(y * 0.5))) {
                std::free(list);
                return nullptr;
            }
            if (howManyLimit >= 1 && list->count >= howManyLimit) return list;
        }
    }
    return list;
}

MatchList* findImage(const PixelBuffer* screen, const PixelBuffer* templ, std::int32_t howMany,
                     const std::int32_t* ignoreList, float fuzzy) {
    set_howmany(howMany);
    if (fuzzy > 0 && fuzzy <= 1)
        set_tolerance(templ->width, templ->height, fuzzy);
    else
        set_no_tolerance();
    if (ignoreList && ignoreList[0] >= 1)
        set_ignore(ignoreList);
    else
        set_no_ignore();
    MatchList* result = xfindImage(screen, templ);
    release_ignore();
    return result;
}

// --- the screen-level entry points -------------------------------------------------------------

std::uint32_t getColor(double x, double y) {
    const double s = get_screen_scale_factor();
    const ScreenImage image = CaptureScreen::captureScreen();
    const double width = image.empty() ? 0 : image.width;
    const double height = image.empty() ? 0 : image.height;
    if (s * x > width || s * y > height) return 0xFFFFFFFFu;
    // The byte index into the RGBA drawing of the capture. x = width / s passes the bound above
    // and reads the start of the next row; an index outside the pixels reads nothing.
    const double index = std::trunc(s * x * 4 + s * (width * 4) * y);
    if (!(index >= 0 && index + 3 <= width * height * 4)) return 0xFFFFFFFFu;
    const auto at = static_cast<std::size_t>(index);
    // Byte i of the RGBA drawing is channel i % 4 of pixel i / 4: R, G, B from bytes 2, 1, 0
    // of the B, G, R, X capture; alpha is 255.
    auto rgbaByte = [&](std::size_t i) -> std::uint32_t {
        static constexpr int source[4] = {2, 1, 0, -1};
        const int channel = source[i % 4];
        return channel < 0 ? 0xFFu : image.pixels[i / 4 * 4 + static_cast<std::size_t>(channel)];
    };
    return rgb_to_hex(rgbaByte(at), rgbaByte(at + 1), rgbaByte(at + 2));
}

MatchList* findColor(std::uint32_t color, std::int64_t howMany) {
    const std::uint32_t rgc = hex_to_rgc(color);
    const ScreenImage image = CaptureScreen::captureScreen();
    PixelBufferPtr screen(getImageData(image));
    if (!screen) return nullptr;
    auto* list = static_cast<MatchList*>(std::malloc(sizeof(MatchList)));
    if (!list) return nullptr;
    *list = MatchList{};
    std::uint32_t capacity = 0;
    for (std::uint64_t y = 0; y < screen->height; ++y) {
        for (std::uint64_t x = 0; x < screen->width; ++x) {
            if (get_rgb(screen.get(), x, y) == rgc &&
                !appendPoint(list, capacity, static_cast<float>(x * 0.5), static_cast<float>(y * 0.5))) {
                std::free(list);
                return nullptr;
            }
            if (howMany >= 1 && list->count >= howMany) return list;
        }
    }
    return list;
}

MatchList* findImageWrapper(const char* path, std::int64_t howMany, const std::int32_t* ignoreList, float fuzzy) {
    const ScreenImage image = CaptureScreen::captureScreen();
    std::vector<std::uint8_t> bytes;
    if (path) {
        std::ifstream file(mappedScriptPath(path), std::ios::binary);
        if (file) bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    PixelBufferPtr templ = platform().imageCodec->decodePng(bytes.data(), bytes.size());
    // A template that cannot be read finds nothing.
    if (!templ) return static_cast<MatchList*>(std::calloc(1, sizeof(MatchList)));
    PixelBufferPtr screen(getImageData(image));
    if (!screen) return nullptr;
    return findImage(screen.get(), templ.get(), static_cast<std::int32_t>(howMany), ignoreList, fuzzy);
}

}  // namespace tactora
