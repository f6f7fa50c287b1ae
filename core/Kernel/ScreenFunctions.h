#pragma once

#include <cstdint>
#include <utility>

#include "Kernel/MatchList.h"

namespace tactora {

// The screen as scripts see it. Every call captures the screen anew through the display port.

// The colour 0xRRGGBB at (x, y) in points, or 0xFFFFFFFF when out of range.
std::uint32_t getColor(double x, double y);
// Every pixel of exactly `color` (0xRRGGBB), at most `howMany` (< 1: all); null when out of memory.
MatchList* findColor(std::uint32_t color, std::int64_t howMany);
// Where the PNG template at `path` occurs. `ignoreList[0]` is the count n, then n colours 0xRRGGBB.
// An unreadable template gives an empty list; null when out of memory.
MatchList* findImageWrapper(const char* path, std::int64_t howMany, const std::int32_t* ignoreList,
                            float fuzzy);

void screenshot(const char* path);
// The rectangle in points, converted with get_screen_scale_factor and clipped to the screen.
void screenshotRegion(const char* path, std::int32_t x, std::int32_t y, std::int32_t width,
                      std::int32_t height);

// Width and height in points.
std::pair<double, double> getScreenSize();
// Width and height in points times get_screen_scale_factor.
std::pair<double, double> getScreenResolution();
int getScreenBitDepth();

// 2.0 on a screen whose scale is exactly 2, else 1.0; computed once.
float get_screen_scale_factor();

}  // namespace tactora
