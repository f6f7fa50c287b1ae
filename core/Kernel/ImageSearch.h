#pragma once

// The matcher: colour helpers, the process-wide search state (how-many limit, tolerance, ignore
// list) and the image search over RGBA pixel buffers.
//
// Colours come in two forms. Scripts use 0xRRGGBB. The matcher uses the pixel-order value
// 0xBBGGRR: the first three bytes of an R, G, B, A pixel read little-endian.
//
// The state is a set of plain process-wide values, as on the device: only one search runs at a
// time (on the script thread), and findImage sets what it needs on every call.

#include <cstdint>

#include "Kernel/MatchList.h"
#include "Kernel/PixelBuffer.h"
#include "Platform/Display.h"

namespace tactora {

// 0xRRGGBB -> 0xBBGGRR.
std::uint32_t hex_to_rgc(std::uint32_t color);
// (r << 16) + (g << 8) + b, not masked.
std::uint32_t rgb_to_hex(std::uint32_t r, std::uint32_t g, std::uint32_t b);
// The pixel-order value of the pixel at (x, y).
std::uint32_t get_rgb(const PixelBuffer* buffer, std::uint64_t x, std::uint64_t y);
// True when the low three bytes are equal.
bool is_same_rgb(std::uint32_t a, std::uint32_t b);
// True when the pixel-order value is in the ignore list; false when there is no list.
bool is_ignore_color(std::uint32_t rgc);

// The search state.
void set_howmany(std::int32_t howMany);
// tolerance = truncate((1 - fuzzy) * (float)(width * height)), in 32-bit float.
void set_tolerance(std::uint64_t width, std::uint64_t height, float fuzzy);
void set_no_tolerance();
// list[0] = n, list[1..n] = colours 0xRRGGBB. Replaces the ignore list.
void set_ignore(const std::int32_t* list);
// Forgets the ignore list (its count stays as it was).
void set_no_ignore();
// Frees the ignore list and sets its count to -1.
void release_ignore();
std::int32_t get_howmany();
std::int32_t get_tolerance();
// The number of colours in the ignore list; -1 when there is none.
std::int32_t ignore_colors_count();

// Does the template match with its top-left corner at screen pixel (x, y)? At most `tolerance`
// of the non-ignored pixels may differ in R, G or B. The caller keeps the template inside the
// screen.
bool match(const PixelBuffer* screen, std::uint64_t x, std::uint64_t y, const PixelBuffer* templ);
// Every position where the template matches, rows first; points are pixel corners x 0.5. Stops
// at the how-many limit. The last column and row of positions (template touching the right or
// bottom edge) are never tried. Null when out of memory.
MatchList* xfindImage(const PixelBuffer* screen, const PixelBuffer* templ);
// Sets the limit, the tolerance from fuzzy (exact unless 0 < fuzzy <= 1) and the ignore list
// (ignoreList[0] = n, then n colours 0xRRGGBB), runs xfindImage and drops the ignore list.
MatchList* findImage(const PixelBuffer* screen, const PixelBuffer* templ, std::int32_t howMany,
                     const std::int32_t* ignoreList, float fuzzy);

// findColor over a capture already taken: every pixel of colour 0xRRGGBB, rows first, at most
// howMany (< 1: all). Null when out of memory.
MatchList* findColorInCapture(const ScreenImage& image, std::uint32_t color, std::int64_t howMany);

}  // namespace tactora
