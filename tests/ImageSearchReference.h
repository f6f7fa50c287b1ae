// A plain, obviously correct statement of the colour and image search, kept beside the tests to
// check the fast production search against, point for point and in order. It keeps its settings
// in a value instead of the process-wide state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Kernel/MatchList.h"
#include "Kernel/PixelBuffer.h"
#include "Kernel/SearchKernels.h"

namespace reference {

struct Settings {
    std::int32_t howMany = 0;
    std::int32_t tolerance = 0;
    std::vector<std::uint32_t> ignore;  // pixel-order values 0xBBGGRR; empty: no list
};

inline std::uint32_t colorAt(const tactora::PixelBuffer& b, std::uint64_t x, std::uint64_t y) {
    const std::uint8_t* p = b.data + y * b.bytesPerRow + x * b.bytesPerPixel;
    return p[0] | p[1] << 8 | p[2] << 16;
}

inline bool ignored(const Settings& settings, std::uint32_t color) {
    for (std::uint32_t entry : settings.ignore)
        if (entry == color) return true;
    return false;
}

inline bool match(const tactora::PixelBuffer& screen, std::uint64_t x, std::uint64_t y,
                  const tactora::PixelBuffer& templ, const Settings& settings) {
    if (templ.height < 1) return true;
    std::int32_t budget = settings.tolerance;
    for (std::uint64_t ty = 0; ty < templ.height; ++ty) {
        for (std::uint64_t tx = 0; tx < templ.width; ++tx) {
            const std::uint32_t s = colorAt(screen, x + tx, y + ty), t = colorAt(templ, tx, ty);
            if (s == t) continue;
            if (!settings.ignore.empty() && (ignored(settings, s) || ignored(settings, t))) continue;
            if (budget < 1) return false;
            --budget;
        }
    }
    return true;
}

inline std::vector<tactora::MatchPoint> xfindImage(const tactora::PixelBuffer& screen,
                                                    const tactora::PixelBuffer& templ, const Settings& settings) {
    std::vector<tactora::MatchPoint> found;
    const std::int64_t rows = static_cast<std::int64_t>(screen.height) - static_cast<std::int64_t>(templ.height);
    const std::int64_t cols = static_cast<std::int64_t>(screen.width) - static_cast<std::int64_t>(templ.width);
    for (std::int64_t y = 0; y < rows; ++y)
        for (std::int64_t x = 0; x < cols; ++x) {
            if (match(screen, x, y, templ, settings))
                found.push_back({static_cast<float>(x * 0.5), static_cast<float>(y * 0.5)});
            if (settings.howMany >= 1 && static_cast<std::int64_t>(found.size()) >= settings.howMany) return found;
        }
    return found;
}

// ignoreList: [n, colour 0xRRGGBB ...], as scripts give it.
inline std::vector<tactora::MatchPoint> findImage(const tactora::PixelBuffer& screen, const tactora::PixelBuffer& templ,
                                                   std::int32_t howMany, const std::vector<std::int32_t>& ignoreList,
                                                   float fuzzy) {
    Settings settings;
    settings.howMany = howMany;
    if (fuzzy > 0 && fuzzy <= 1)
        settings.tolerance = static_cast<std::int32_t>((1 - fuzzy) * static_cast<float>(templ.width * templ.height));
    if (!ignoreList.empty())
        for (std::int32_t i = 1; i <= ignoreList[0]; ++i) {
            const auto c = static_cast<std::uint32_t>(ignoreList[i]);
            settings.ignore.push_back((c >> 16 & 0xFF) | (c & 0xFF00) | (c & 0xFF) << 16);
        }
    return xfindImage(screen, templ, settings);
}

// Every pixel of colour 0xRRGGBB in an RGBA buffer.
inline std::vector<tactora::MatchPoint> findColor(const tactora::PixelBuffer& screen, std::uint32_t color,
                                                   std::int64_t howMany) {
    const std::uint32_t wanted = (color >> 16 & 0xFF) | (color & 0xFF00) | (color & 0xFF) << 16;
    std::vector<tactora::MatchPoint> found;
    for (std::uint64_t y = 0; y < screen.height; ++y)
        for (std::uint64_t x = 0; x < screen.width; ++x) {
            if (colorAt(screen, x, y) == wanted)
                found.push_back({static_cast<float>(x * 0.5), static_cast<float>(y * 0.5)});
            if (howMany >= 1 && static_cast<std::int64_t>(found.size()) >= howMany) return found;
        }
    return found;
}

// Empty when the production result holds the same points in the same order, else what differs.
inline std::string differences(const tactora::MatchList* fast, const std::vector<tactora::MatchPoint>& plain) {
    if (!fast) return "null result";
    if (fast->count != static_cast<std::int64_t>(plain.size()))
        return "count " + std::to_string(fast->count) + " vs " + std::to_string(plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i)
        if (fast->points[i].x != plain[i].x || fast->points[i].y != plain[i].y) return "point " + std::to_string(i);
    return "";
}

// Forces one instruction-set variant of the search for a scope.
struct KernelScope {
    explicit KernelScope(const tactora::SearchKernels* k) { tactora::useSearchKernels(k); }
    ~KernelScope() { tactora::useSearchKernels(nullptr); }
};

}  // namespace reference
