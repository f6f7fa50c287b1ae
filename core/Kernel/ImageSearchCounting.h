#pragma once

// The fuzzy image search by counting: instead of comparing the template at every position, it
// counts, for every position at once, how many template pixels are equal to the screen pixel
// under them. Per template colour c that count is a correlation of two indicators ("screen pixel
// is c", "template pixel is c"); the sum over colours is the number of equal pixels. Each colour
// is counted the cheapest of two exact ways:
//   - scattering: every screen pixel of colour c adds one to each position that puts a template
//     pixel of colour c on it (cheap when c is rare on the screen or in the template);
//   - rectangles: the template's c pixels cut into rectangles, each counted at every position
//     from a summed-area table of the screen's c pixels (cheap for flat areas and borders);
// or, when both cost too much, is only bounded: with w pixels of colour c on the screen under the
// template at some position and t of c in the template, at least t + w - (template pixels) and at
// most min(t, w) are equal (one summed-area table gives w everywhere). A position whose most
// equal pixels cannot reach what a match needs is discarded; one whose fewest already reach it
// matches; the others are handed back to be compared pixel by pixel. With every colour counted
// the counts are exact and the positions found need no comparison.
//
// Screen pixels of an ignored colour never differ, so they count as equal under every template
// pixel that is compared.

#include <cstdint>
#include <functional>
#include <vector>

#include "Kernel/PixelBuffer.h"

namespace tactora {

struct CountingQuery {
    const PixelBuffer* screen = nullptr;  // 4 bytes a pixel
    const std::uint32_t* templ = nullptr;  // width x height pixels, rows packed
    const std::uint32_t* care = nullptr;   // null: every pixel compared; else 0x00FFFFFF compared, 0 ignored
    std::uint32_t width = 0, height = 0;
    std::int64_t rows = 0, cols = 0;  // the positions tried: x < cols, y < rows
    std::int64_t budget = 0;          // differing pixels a match may have
    std::vector<std::uint32_t> ignored;  // pixel-order colours that never differ on the screen
    double directNanoseconds = 0;      // what comparing position by position would cost
};

enum class CountingOutcome { declined, done, stopped };

// Calls visit(x, y, certain) for the positions that match (certain) or may match (not certain:
// the caller compares them), rows first; visit returns false to end the search. Declines, before
// visiting anything, when comparing position by position would be cheaper. `stopped` when the run
// was told to stop.
CountingOutcome searchByCounting(const CountingQuery& query,
                                 const std::function<bool(std::int64_t x, std::int64_t y, bool certain)>& visit);

// How searchByCounting chooses (tests and benchmarks): by cost, never, or forced with every
// colour counted one way (scattered, in rectangles, only bounded), or with the colours mixed
// among the ways and some left uncounted.
enum class CountingChoice { byCost, never, scatter, rectangles, bounded, mixed };
void useCounting(CountingChoice choice);

}  // namespace tactora
