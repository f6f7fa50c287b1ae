#include "Kernel/SearchKernels.h"

#include <atomic>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#define TACTORA_X86 1
#elif defined(__aarch64__)
#include <arm_neon.h>
#define TACTORA_NEON 1
#endif

namespace tactora {

namespace {

constexpr std::uint32_t colorMask = 0x00FFFFFFu;

inline std::uint32_t load32(const std::uint8_t* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

inline std::uint32_t differs(const std::uint8_t* s, std::uint32_t t, std::uint32_t care) {
    return ((load32(s) ^ t) & care) != 0;
}

// Sets the bits of the matching `lanes`, counted from pixel `first`; how many matched. Always
// inlined, so the count compiles to the calling kernel's own population-count instruction.
[[gnu::always_inline]] inline std::uint32_t markLanes(std::uint64_t* bits, std::uint32_t first, std::uint32_t lanes) {
    bits[first / 64] |= std::uint64_t{lanes} << (first % 64);
    return static_cast<std::uint32_t>(std::popcount(lanes));
}

inline std::uint32_t rgbaFromBgrx(std::uint32_t v) {
    return ((v >> 16) & 0xFFu) | (v & 0xFF00u) | ((v & 0xFFu) << 16) | 0xFF000000u;
}

// --- portable ------------------------------------------------------------------------------------

bool scalarWithinBudget(const std::uint8_t* screen, std::size_t stride, const std::uint32_t* templ, std::uint32_t width,
                        std::uint32_t height, std::int64_t budget) {
    std::int64_t mismatches = 0;
    for (std::uint32_t ty = 0; ty < height; ++ty, screen += stride, templ += width) {
        for (std::uint32_t i = 0; i < width; ++i) mismatches += differs(screen + 4 * i, templ[i], colorMask);
        if (mismatches > budget) return false;
    }
    return true;
}

std::uint32_t scalarRowMismatchBits(const std::uint8_t* screen, const std::uint32_t* templ, const std::uint32_t* care,
                                    std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    std::uint32_t count = 0;
    for (std::uint32_t i = 0; i < n; ++i)
        if (differs(screen + 4 * i, templ[i], care[i])) {
            bits[i / 64] |= std::uint64_t{1} << (i % 64);
            ++count;
        }
    return count;
}

std::uint32_t scalarPairHits(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA, std::uint32_t colorB,
                             std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    std::uint32_t count = 0;
    for (std::uint32_t x = 0; x < n; ++x)
        if ((load32(a + 4 * x) & colorMask) == colorA && (load32(b + 4 * x) & colorMask) == colorB) {
            bits[x / 64] |= std::uint64_t{1} << (x % 64);
            ++count;
        }
    return count;
}

void scalarBgrxToRgba(const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) {
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint32_t v = rgbaFromBgrx(load32(from + 4 * i));
        std::memcpy(to + 4 * i, &v, 4);
    }
}

// Scalar ends of the vector loops: pixels [i, n).
inline std::uint32_t tailMismatchBits(const std::uint8_t* screen, const std::uint32_t* templ, const std::uint32_t* care,
                                      std::uint32_t i, std::uint32_t n, std::uint64_t* bits) {
    std::uint32_t count = 0;
    for (; i < n; ++i)
        if (differs(screen + 4 * i, templ[i], care[i])) {
            bits[i / 64] |= std::uint64_t{1} << (i % 64);
            ++count;
        }
    return count;
}

inline std::uint32_t tailPairHits(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA,
                                  std::uint32_t colorB, std::uint32_t x, std::uint32_t n, std::uint64_t* bits) {
    std::uint32_t count = 0;
    for (; x < n; ++x)
        if ((load32(a + 4 * x) & colorMask) == colorA && (load32(b + 4 * x) & colorMask) == colorB) {
            bits[x / 64] |= std::uint64_t{1} << (x % 64);
            ++count;
        }
    return count;
}

const SearchKernels scalarKernels{"scalar", scalarWithinBudget, scalarRowMismatchBits, scalarPairHits,
                                  scalarBgrxToRgba};

#if TACTORA_X86
// --- SSE2 (every x86-64) ---------------------------------------------------------------------------

inline __m128i load128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

// All-ones in each lane whose colour equals.
inline __m128i sameColor128(const std::uint8_t* s, const std::uint32_t* t, __m128i mask) {
    return _mm_cmpeq_epi32(_mm_and_si128(_mm_xor_si128(load128(s), load128(t)), mask), _mm_setzero_si128());
}

inline std::uint32_t sum128(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x4E));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0xB1));
    return static_cast<std::uint32_t>(_mm_cvtsi128_si32(v));
}

bool sse2WithinBudget(const std::uint8_t* screen, std::size_t stride, const std::uint32_t* templ, std::uint32_t width,
                      std::uint32_t height, std::int64_t budget) {
    const __m128i mask = _mm_set1_epi32(static_cast<int>(colorMask));
    const std::uint32_t vectorWidth = width & ~3u;
    // Each equal lane subtracts -1, so `equal` counts the equal pixels among the `pending` ones
    // compared since the last count. Counting costs a horizontal sum, so it waits until those
    // pixels could take the total over the budget.
    __m128i equal = _mm_setzero_si128();
    std::int64_t mismatches = 0, pending = 0;
    for (std::uint32_t ty = 0; ty < height; ++ty, screen += stride, templ += width) {
        std::uint32_t i = 0;
        for (; i + 8 <= vectorWidth; i += 8) {
            equal = _mm_sub_epi32(equal, sameColor128(screen + 4 * i, templ + i, mask));
            equal = _mm_sub_epi32(equal, sameColor128(screen + 4 * i + 16, templ + i + 4, mask));
        }
        if (i < vectorWidth) equal = _mm_sub_epi32(equal, sameColor128(screen + 4 * i, templ + i, mask));
        pending += vectorWidth;
        for (i = vectorWidth; i < width; ++i) mismatches += differs(screen + 4 * i, templ[i], colorMask);
        if (mismatches + pending > budget) {
            mismatches += pending - sum128(equal);
            equal = _mm_setzero_si128();
            pending = 0;
            if (mismatches > budget) return false;
        }
    }
    return true;
}

std::uint32_t sse2RowMismatchBits(const std::uint8_t* screen, const std::uint32_t* templ, const std::uint32_t* care,
                                  std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    std::uint32_t count = 0, i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128i diff = _mm_and_si128(_mm_xor_si128(load128(screen + 4 * i), load128(templ + i)), load128(care + i));
        const auto same = static_cast<std::uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(diff, _mm_setzero_si128()))));
        const std::uint32_t lanes = ~same & 0xFu;
        if (lanes) count += markLanes(bits, i, lanes);
    }
    return count + tailMismatchBits(screen, templ, care, i, n, bits);
}

std::uint32_t sse2PairHits(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA, std::uint32_t colorB,
                           std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    const __m128i mask = _mm_set1_epi32(static_cast<int>(colorMask));
    const __m128i wantA = _mm_set1_epi32(static_cast<int>(colorA)), wantB = _mm_set1_epi32(static_cast<int>(colorB));
    std::uint32_t count = 0, x = 0;
    for (; x + 4 <= n; x += 4) {
        const __m128i hitA = _mm_cmpeq_epi32(_mm_and_si128(load128(a + 4 * x), mask), wantA);
        const __m128i hitB = _mm_cmpeq_epi32(_mm_and_si128(load128(b + 4 * x), mask), wantB);
        const auto lanes = static_cast<std::uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(_mm_and_si128(hitA, hitB))));
        if (lanes) count += markLanes(bits, x, lanes);
    }
    return count + tailPairHits(a, b, colorA, colorB, x, n, bits);
}

void sse2BgrxToRgba(const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) {
    const __m128i low = _mm_set1_epi32(0xFF), middle = _mm_set1_epi32(0xFF00);
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    std::size_t i = 0;
    for (; i + 4 <= pixels; i += 4) {
        const __m128i v = load128(from + 4 * i);
        const __m128i red = _mm_and_si128(_mm_srli_epi32(v, 16), low);
        const __m128i blue = _mm_slli_epi32(_mm_and_si128(v, low), 16);
        const __m128i out = _mm_or_si128(_mm_or_si128(red, blue), _mm_or_si128(_mm_and_si128(v, middle), alpha));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 4 * i), out);
    }
    scalarBgrxToRgba(from + 4 * i, to + 4 * i, pixels - i);
}

const SearchKernels sse2Kernels{"sse2", sse2WithinBudget, sse2RowMismatchBits, sse2PairHits, sse2BgrxToRgba};

// --- AVX2 (chosen at run time) ---------------------------------------------------------------------

#define TACTORA_AVX2 __attribute__((target("avx2,popcnt")))

TACTORA_AVX2 inline __m256i load256(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

TACTORA_AVX2 inline __m256i sameColor256(const std::uint8_t* s, const std::uint32_t* t, __m256i mask) {
    return _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_xor_si256(load256(s), load256(t)), mask), _mm256_setzero_si256());
}

TACTORA_AVX2 bool avx2WithinBudget(const std::uint8_t* screen, std::size_t stride, const std::uint32_t* templ,
                                   std::uint32_t width, std::uint32_t height, std::int64_t budget) {
    const __m256i mask = _mm256_set1_epi32(static_cast<int>(colorMask));
    const std::uint32_t vectorWidth = width & ~7u;
    __m256i equal = _mm256_setzero_si256();
    std::int64_t mismatches = 0, pending = 0;
    for (std::uint32_t ty = 0; ty < height; ++ty, screen += stride, templ += width) {
        std::uint32_t i = 0;
        for (; i + 16 <= vectorWidth; i += 16) {
            equal = _mm256_sub_epi32(equal, sameColor256(screen + 4 * i, templ + i, mask));
            equal = _mm256_sub_epi32(equal, sameColor256(screen + 4 * i + 32, templ + i + 8, mask));
        }
        if (i < vectorWidth) equal = _mm256_sub_epi32(equal, sameColor256(screen + 4 * i, templ + i, mask));
        pending += vectorWidth;
        for (i = vectorWidth; i < width; ++i) mismatches += differs(screen + 4 * i, templ[i], colorMask);
        if (mismatches + pending > budget) {
            const __m128i folded = _mm_add_epi32(_mm256_castsi256_si128(equal), _mm256_extracti128_si256(equal, 1));
            mismatches += pending - sum128(folded);
            equal = _mm256_setzero_si256();
            pending = 0;
            if (mismatches > budget) return false;
        }
    }
    return true;
}

TACTORA_AVX2 std::uint32_t avx2RowMismatchBits(const std::uint8_t* screen, const std::uint32_t* templ,
                                               const std::uint32_t* care, std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    std::uint32_t count = 0, i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i diff = _mm256_and_si256(_mm256_xor_si256(load256(screen + 4 * i), load256(templ + i)), load256(care + i));
        const auto same = static_cast<std::uint32_t>(
            _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(diff, _mm256_setzero_si256()))));
        const std::uint32_t lanes = ~same & 0xFFu;
        if (lanes) count += markLanes(bits, i, lanes);
    }
    return count + tailMismatchBits(screen, templ, care, i, n, bits);
}

TACTORA_AVX2 std::uint32_t avx2PairHits(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA,
                                        std::uint32_t colorB, std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    const __m256i mask = _mm256_set1_epi32(static_cast<int>(colorMask));
    const __m256i wantA = _mm256_set1_epi32(static_cast<int>(colorA)), wantB = _mm256_set1_epi32(static_cast<int>(colorB));
    std::uint32_t count = 0, x = 0;
    // 16 pixels a step; most steps find nothing and cost one test.
    for (; x + 16 <= n; x += 16) {
        const __m256i hit0 = _mm256_and_si256(_mm256_cmpeq_epi32(_mm256_and_si256(load256(a + 4 * x), mask), wantA),
                                              _mm256_cmpeq_epi32(_mm256_and_si256(load256(b + 4 * x), mask), wantB));
        const __m256i hit1 =
            _mm256_and_si256(_mm256_cmpeq_epi32(_mm256_and_si256(load256(a + 4 * x + 32), mask), wantA),
                             _mm256_cmpeq_epi32(_mm256_and_si256(load256(b + 4 * x + 32), mask), wantB));
        if (_mm256_testz_si256(_mm256_or_si256(hit0, hit1), _mm256_or_si256(hit0, hit1))) continue;
        const auto lanes = static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(hit0))) |
                           static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(hit1))) << 8;
        count += markLanes(bits, x, lanes);
    }
    return count + tailPairHits(a, b, colorA, colorB, x, n, bits);
}

TACTORA_AVX2 void avx2BgrxToRgba(const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) {
    const __m256i order = _mm256_setr_epi8(2, 1, 0, -1, 6, 5, 4, -1, 10, 9, 8, -1, 14, 13, 12, -1,
                                           2, 1, 0, -1, 6, 5, 4, -1, 10, 9, 8, -1, 14, 13, 12, -1);
    const __m256i alpha = _mm256_set1_epi32(static_cast<int>(0xFF000000u));
    std::size_t i = 0;
    for (; i + 8 <= pixels; i += 8)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + 4 * i),
                            _mm256_or_si256(_mm256_shuffle_epi8(load256(from + 4 * i), order), alpha));
    scalarBgrxToRgba(from + 4 * i, to + 4 * i, pixels - i);
}

const SearchKernels avx2Kernels{"avx2", avx2WithinBudget, avx2RowMismatchBits, avx2PairHits, avx2BgrxToRgba};

// --- AVX-512 (chosen at run time) -----------------------------------------------------------------
// Sixteen pixels a step, and a per-lane test that yields the mismatching lanes as a mask.

#define TACTORA_AVX512 __attribute__((target("avx512f,avx2,popcnt")))

TACTORA_AVX512 inline __m512i load512(const void* p) { return _mm512_loadu_si512(p); }

TACTORA_AVX512 bool avx512WithinBudget(const std::uint8_t* screen, std::size_t stride, const std::uint32_t* templ,
                                       std::uint32_t width, std::uint32_t height, std::int64_t budget) {
    const __m512i mask = _mm512_set1_epi32(static_cast<int>(colorMask)), one = _mm512_set1_epi32(1);
    const std::uint32_t vectorWidth = width & ~15u;
    // `differing` counts, lane by lane, the differing pixels among the `pending` ones compared
    // since the last count; the horizontal sum waits until they could exceed the budget.
    __m512i differing = _mm512_setzero_si512();
    std::int64_t mismatches = 0, pending = 0;
    for (std::uint32_t ty = 0; ty < height; ++ty, screen += stride, templ += width) {
        for (std::uint32_t i = 0; i < vectorWidth; i += 16) {
            const __mmask16 lanes = _mm512_test_epi32_mask(_mm512_xor_si512(load512(screen + 4 * i), load512(templ + i)), mask);
            differing = _mm512_mask_add_epi32(differing, lanes, differing, one);
        }
        pending += vectorWidth;
        for (std::uint32_t i = vectorWidth; i < width; ++i) mismatches += differs(screen + 4 * i, templ[i], colorMask);
        if (mismatches + pending > budget) {
            mismatches += _mm512_reduce_add_epi32(differing);
            differing = _mm512_setzero_si512();
            pending = 0;
            if (mismatches > budget) return false;
        }
    }
    return true;
}

TACTORA_AVX512 std::uint32_t avx512RowMismatchBits(const std::uint8_t* screen, const std::uint32_t* templ,
                                                   const std::uint32_t* care, std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    std::uint32_t count = 0, i = 0;
    for (; i + 16 <= n; i += 16) {
        const std::uint32_t lanes =
            _mm512_test_epi32_mask(_mm512_xor_si512(load512(screen + 4 * i), load512(templ + i)), load512(care + i));
        if (lanes) count += markLanes(bits, i, lanes);
    }
    return count + tailMismatchBits(screen, templ, care, i, n, bits);
}

TACTORA_AVX512 std::uint32_t avx512PairHits(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA,
                                            std::uint32_t colorB, std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    const __m512i mask = _mm512_set1_epi32(static_cast<int>(colorMask));
    const __m512i wantA = _mm512_set1_epi32(static_cast<int>(colorA)), wantB = _mm512_set1_epi32(static_cast<int>(colorB));
    std::uint32_t count = 0, x = 0;
    for (; x + 16 <= n; x += 16) {
        // Lanes whose colour (under the mask) is the wanted one: (pixel ^ wanted) & mask == 0.
        const __mmask16 hitA = _mm512_testn_epi32_mask(_mm512_xor_si512(load512(a + 4 * x), wantA), mask);
        if (!hitA) continue;
        const std::uint32_t lanes = _mm512_mask_testn_epi32_mask(hitA, _mm512_xor_si512(load512(b + 4 * x), wantB), mask);
        if (!lanes) continue;
        count += markLanes(bits, x, lanes);
    }
    return count + tailPairHits(a, b, colorA, colorB, x, n, bits);
}

const SearchKernels avx512Kernels{"avx512", avx512WithinBudget, avx512RowMismatchBits, avx512PairHits, avx2BgrxToRgba};

bool hasAvx512() { return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"); }

bool hasAvx2() { return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt"); }
#endif

#if TACTORA_NEON
// --- NEON (every arm64) ----------------------------------------------------------------------------

inline uint32x4_t sameColorNeon(const std::uint8_t* s, const std::uint32_t* t, uint32x4_t mask) {
    const uint32x4_t diff = vandq_u32(veorq_u32(vreinterpretq_u32_u8(vld1q_u8(s)), vld1q_u32(t)), mask);
    return vceqzq_u32(diff);
}

// Lane i set -> bit i.
inline std::uint32_t laneBits(uint32x4_t lanes) {
    static const std::uint32_t weights[4] = {1, 2, 4, 8};
    return vaddvq_u32(vandq_u32(lanes, vld1q_u32(weights)));
}

bool neonWithinBudget(const std::uint8_t* screen, std::size_t stride, const std::uint32_t* templ, std::uint32_t width,
                      std::uint32_t height, std::int64_t budget) {
    const uint32x4_t mask = vdupq_n_u32(colorMask);
    const std::uint32_t vectorWidth = width & ~3u;
    uint32x4_t equal = vdupq_n_u32(0);
    std::int64_t mismatches = 0, pending = 0;
    for (std::uint32_t ty = 0; ty < height; ++ty, screen += stride, templ += width) {
        std::uint32_t i = 0;
        for (; i + 8 <= vectorWidth; i += 8) {
            equal = vsubq_u32(equal, sameColorNeon(screen + 4 * i, templ + i, mask));
            equal = vsubq_u32(equal, sameColorNeon(screen + 4 * i + 16, templ + i + 4, mask));
        }
        if (i < vectorWidth) equal = vsubq_u32(equal, sameColorNeon(screen + 4 * i, templ + i, mask));
        pending += vectorWidth;
        for (i = vectorWidth; i < width; ++i) mismatches += differs(screen + 4 * i, templ[i], colorMask);
        if (mismatches + pending > budget) {
            mismatches += pending - vaddvq_u32(equal);
            equal = vdupq_n_u32(0);
            pending = 0;
            if (mismatches > budget) return false;
        }
    }
    return true;
}

std::uint32_t neonRowMismatchBits(const std::uint8_t* screen, const std::uint32_t* templ, const std::uint32_t* care,
                                  std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    std::uint32_t count = 0, i = 0;
    for (; i + 4 <= n; i += 4) {
        const uint32x4_t diff =
            vandq_u32(veorq_u32(vreinterpretq_u32_u8(vld1q_u8(screen + 4 * i)), vld1q_u32(templ + i)), vld1q_u32(care + i));
        const std::uint32_t lanes = laneBits(vtstq_u32(diff, diff));
        if (lanes) count += markLanes(bits, i, lanes);
    }
    return count + tailMismatchBits(screen, templ, care, i, n, bits);
}

std::uint32_t neonPairHits(const std::uint8_t* a, const std::uint8_t* b, std::uint32_t colorA, std::uint32_t colorB,
                           std::uint32_t n, std::uint64_t* bits) {
    std::memset(bits, 0, bitWords(n) * 8);
    const uint32x4_t mask = vdupq_n_u32(colorMask), wantA = vdupq_n_u32(colorA), wantB = vdupq_n_u32(colorB);
    std::uint32_t count = 0, x = 0;
    for (; x + 4 <= n; x += 4) {
        const uint32x4_t hitA = vceqq_u32(vandq_u32(vreinterpretq_u32_u8(vld1q_u8(a + 4 * x)), mask), wantA);
        const uint32x4_t hitB = vceqq_u32(vandq_u32(vreinterpretq_u32_u8(vld1q_u8(b + 4 * x)), mask), wantB);
        const uint32x4_t hit = vandq_u32(hitA, hitB);
        if (vmaxvq_u32(hit) == 0) continue;
        const std::uint32_t lanes = laneBits(hit);
        count += markLanes(bits, x, lanes);
    }
    return count + tailPairHits(a, b, colorA, colorB, x, n, bits);
}

void neonBgrxToRgba(const std::uint8_t* from, std::uint8_t* to, std::size_t pixels) {
    std::size_t i = 0;
    for (; i + 16 <= pixels; i += 16) {
        uint8x16x4_t v = vld4q_u8(from + 4 * i);
        const uint8x16_t blue = v.val[0];
        v.val[0] = v.val[2];
        v.val[2] = blue;
        v.val[3] = vdupq_n_u8(0xFF);
        vst4q_u8(to + 4 * i, v);
    }
    scalarBgrxToRgba(from + 4 * i, to + 4 * i, pixels - i);
}

const SearchKernels neonKernels{"neon", neonWithinBudget, neonRowMismatchBits, neonPairHits, neonBgrxToRgba};
#endif

const SearchKernels* fastest() {
#if TACTORA_X86
    if (hasAvx512()) return &avx512Kernels;
    return hasAvx2() ? &avx2Kernels : &sse2Kernels;
#elif TACTORA_NEON
    return &neonKernels;
#else
    return &scalarKernels;
#endif
}

std::atomic<const SearchKernels*> chosen{nullptr};

}  // namespace

const SearchKernels& searchKernels() {
    const SearchKernels* kernels = chosen.load(std::memory_order_relaxed);
    if (!kernels) {
        kernels = fastest();
        chosen.store(kernels, std::memory_order_relaxed);
    }
    return *kernels;
}

std::vector<const SearchKernels*> availableSearchKernels() {
    std::vector<const SearchKernels*> all{&scalarKernels};
#if TACTORA_X86
    all.push_back(&sse2Kernels);
    if (hasAvx2()) all.push_back(&avx2Kernels);
    if (hasAvx512()) all.push_back(&avx512Kernels);
#elif TACTORA_NEON
    all.push_back(&neonKernels);
#endif
    return all;
}

void useSearchKernels(const SearchKernels* kernels) { chosen.store(kernels ? kernels : fastest(), std::memory_order_relaxed); }

}  // namespace tactora
