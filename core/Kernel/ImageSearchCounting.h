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
// or is left uncounted, and then assumed equal everywhere. That makes the count an upper bound:
// a position whose bound cannot reach what a match needs is discarded, and the others are handed
// back to be compared pixel by pixel. Without uncounted colours the counts are exact and the
// positions found need no comparison.
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
// colour counted one way (scattered, in rectangles), or with the colours mixed among the ways
// and some left uncounted.
enum class CountingChoice { byCost, never, scatter, rectangles, mixed };
void useCounting(CountingChoice choice);

}  // namespace tactora
