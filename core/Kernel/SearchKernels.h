#pragma once

// The inner loops of the colour and image search, in one variant per instruction set: portable
// scalar code; SSE2, AVX2 and AVX-512 on x86-64 (the widest the processor has, chosen at run
// time); NEON on arm64. Every variant computes exactly the same thing; pixels are 4 bytes and
// only bytes 0, 1 and 2 are compared.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tactora {

static_assert(std::endian::native == std::endian::little, "pixels are read as little-endian 32-bit words");

struct SearchKernels {
    const char* name;
    // True when the `width` x `height` template pixels (rows packed) differ from the screen area
    // at `screen` (rows `stride` bytes apart) in at most `budget` pixels.
    bool (*withinBudget)(const std::uint8_t* screen, std::size_t stride, const std::uint32_t* templ,
                         std::uint32_t width, std::uint32_t height, std::int64_t budget);
    // Sets bit i of `bits` (n bits, whole words written) for each of the n pixels whose colour
    // differs from templ[i] under care[i] (0x00FFFFFF: compared, 0: never differs). Returns how
    // many bits it set.
    std::uint32_t (*rowMismatchBits)(const std::uint8_t* screen, const std::uint32_t* templ,
                                     const std::uint32_t* care, std::uint32_t n, std::uint64_t* bits);
    // Sets bit x of `bits` (n bits, whole words written) for each x < n where pixel x of `a` has
    // colour `colorA` and pixel x of `b` colour `colorB` (colours as the low three bytes). Returns
    // how many bits it set.
    std::uint32_t (*pairHits)(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA,
                              std::uint32_t colorB, std::uint32_t n, std::uint64_t* bits);
    // B, G, R, X pixels -> R, G, B, 255.
    void (*bgrxToRgba)(const std::uint8_t* from, std::uint8_t* to, std::size_t pixels);
};

// The fastest variant this processor runs.
const SearchKernels& searchKernels();
// Every variant this processor runs, slowest first (tests and benchmarks).
std::vector<const SearchKernels*> availableSearchKernels();
// Makes `kernels` the ones searchKernels() returns; null restores the fastest (tests, benchmarks).
void useSearchKernels(const SearchKernels* kernels);

inline std::size_t bitWords(std::uint32_t n) { return (static_cast<std::size_t>(n) + 63) / 64; }

}  // namespace tactora
