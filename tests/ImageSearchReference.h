// A plain, obviously correct statement of the colour and image search, to check the fast production
// search against point for point and in order (and to time it against).
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "Kernel/MatchList.h"
#include "Kernel/PixelBuffer.h"

namespace reference {

using tactora::MatchPoint;
using tactora::PixelBuffer;

inline std::uint32_t colorAt(const PixelBuffer& b, std::uint64_t x, std::uint64_t y) {
    const std::uint8_t* p = b.data + y * b.bytesPerRow + x * b.bytesPerPixel;
    return p[0] | p[1] << 8 | p[2] << 16;
}

inline std::uint32_t pixelOrder(std::uint32_t c) { return (c >> 16 & 0xFF) | (c & 0xFF00) | (c & 0xFF) << 16; }

inline MatchPoint pointOf(std::int64_t x, std::int64_t y) { return {static_cast<float>(x * 0.5), static_cast<float>(y * 0.5)}; }

// ignoreList: [n, colour 0xRRGGBB ...], as scripts give it.
inline std::vector<MatchPoint> findImage(const PixelBuffer& screen, const PixelBuffer& templ, std::int32_t howMany,
                                         const std::vector<std::int32_t>& ignoreList, float fuzzy) {
    const auto tolerance = fuzzy > 0 && fuzzy <= 1 ? static_cast<std::int32_t>((1 - fuzzy) * static_cast<float>(templ.width * templ.height)) : 0;
    std::vector<std::uint32_t> ignore;
    for (std::int32_t i = 1; i <= ignoreList[0]; ++i) ignore.push_back(pixelOrder(static_cast<std::uint32_t>(ignoreList[i])));
    auto ignored = [&](std::uint32_t c) { return std::find(ignore.begin(), ignore.end(), c) != ignore.end(); };
    auto match = [&](std::uint64_t x, std::uint64_t y) {
        std::int32_t budget = tolerance;
        for (std::uint64_t ty = 0; ty < templ.height; ++ty)
            for (std::uint64_t tx = 0; tx < templ.width; ++tx) {
                const std::uint32_t s = colorAt(screen, x + tx, y + ty), t = colorAt(templ, tx, ty);
                if (s != t && !ignored(s) && !ignored(t) && budget-- < 1) return false;
            }
        return true;
    };
    std::vector<MatchPoint> found;
    // The last row and column a template could lie on are never tried.
    const std::int64_t rows = std::int64_t(screen.height) - std::int64_t(templ.height), cols = std::int64_t(screen.width) - std::int64_t(templ.width);
    for (std::int64_t y = 0; y < rows; ++y)
        for (std::int64_t x = 0; x < cols; ++x) {
            if (match(x, y)) found.push_back(pointOf(x, y));
            if (howMany >= 1 && std::int64_t(found.size()) >= howMany) return found;
        }
    return found;
}

inline std::vector<MatchPoint> findColor(const PixelBuffer& screen, std::uint32_t color, std::int64_t howMany) {
    std::vector<MatchPoint> found;
    for (std::uint64_t y = 0; y < screen.height; ++y)
        for (std::uint64_t x = 0; x < screen.width; ++x) {
            if (colorAt(screen, x, y) == pixelOrder(color)) found.push_back(pointOf(x, y));
            if (howMany >= 1 && std::int64_t(found.size()) >= howMany) return found;
        }
    return found;
}

// Empty when the fast result holds the same points in the same order, else what differs.
inline std::string differences(const tactora::MatchList* fast, const std::vector<MatchPoint>& plain) {
    if (!fast) return "null result";
    if (fast->count != std::int64_t(plain.size())) return "count " + std::to_string(fast->count) + " vs " + std::to_string(plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i)
        if (fast->points[i].x != plain[i].x || fast->points[i].y != plain[i].y) return "point " + std::to_string(i);
    return "";
}

}  // namespace reference
