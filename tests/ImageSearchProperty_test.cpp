// The fast search against the plain reference on many random screens and templates, for every
// instruction-set variant this processor runs.
#include <gtest/gtest.h>

#include <random>

#include "ImageSearchReference.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/ScreenFunctions.h"
#include "ScreenFakes.h"

using namespace tactora;
using namespace screentest;

namespace {

// A random case: a screen drawn from a small palette (so that colours repeat and partial
// matches are common), a template cut from it or drawn afresh, then disturbed.
struct Case {
    PixelBufferPtr screen;
    PixelBufferPtr templ;
    std::int32_t howMany = 0;
    std::vector<std::int32_t> ignore{0};
    float fuzzy = 0;
    std::string describe() const {
        return std::to_string(screen->width) + "x" + std::to_string(screen->height) + " template " +
               std::to_string(templ->width) + "x" + std::to_string(templ->height) + " count " +
               std::to_string(howMany) + " fuzzy " + std::to_string(fuzzy) + " ignoring " + std::to_string(ignore[0]);
    }
};

Case randomCase(std::mt19937& rng) {
    auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    std::vector<std::uint32_t> palette(static_cast<std::size_t>(pick(1, 6)));
    for (auto& color : palette) color = static_cast<std::uint32_t>(rng()) & 0xFFFFFF;
    // Colours that differ from a palette colour in one channel bit only: near misses.
    if (pick(0, 1)) palette.push_back(palette[0] ^ (1u << pick(0, 23)));
    const int width = pick(1, 40), height = pick(1, 30);
    Case c;
    c.screen = solidBuffer(width, height, palette[0]);
    const int flat = pick(0, 3);  // how flat: 0 every pixel random, 3 mostly the first colour
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (pick(0, 3) >= flat) setPixel(*c.screen, x, y, palette[static_cast<std::size_t>(pick(0, static_cast<int>(palette.size()) - 1))]);
    // Templates up to the full screen size, sometimes larger.
    const int tw = std::min(pick(1, width + 1), pick(1, width + 1)), th = std::min(pick(1, height + 1), pick(1, height + 1));
    if (tw <= width && th <= height && pick(0, 3)) {
        const int tx = pick(0, width - tw), ty = pick(0, height - th);
        c.templ = crop(*c.screen, tx, ty, tw, th);
        // Plant more copies, then disturb a few template pixels (near misses).
        for (int copies = pick(0, 3); copies > 0; --copies) {
            const int px = pick(0, width - tw), py = pick(0, height - th);
            for (int y = 0; y < th; ++y)
                std::memcpy(c.screen->data + (py + y) * c.screen->bytesPerRow + px * 4, c.templ->data + y * c.templ->bytesPerRow, tw * 4);
        }
        for (int flips = pick(0, 3); flips > 0; --flips)
            setPixel(*c.templ, pick(0, tw - 1), pick(0, th - 1), palette[static_cast<std::size_t>(pick(0, static_cast<int>(palette.size()) - 1))]);
    } else {
        c.templ = solidBuffer(tw, th, palette[0]);
        for (int y = 0; y < th; ++y)
            for (int x = 0; x < tw; ++x)
                if (pick(0, 2) >= flat) setPixel(*c.templ, x, y, palette[static_cast<std::size_t>(pick(0, static_cast<int>(palette.size()) - 1))]);
    }
    // Alpha is never compared: scramble it.
    for (auto* buffer : {c.screen.get(), c.templ.get()})
        for (std::uint64_t i = 3; i < buffer->bytesPerRow * buffer->height; i += 4) buffer->data[i] = static_cast<std::uint8_t>(rng());
    static const float fuzzies[] = {0, 1, 0.99f, 0.95f, 0.9f, 0.8f, 0.75f, 0.5f, 0.3f, 0.01f, -1, 2};
    c.fuzzy = fuzzies[pick(0, 11)];
    c.howMany = pick(0, 2) ? 0 : pick(-1, 5);
    if (pick(0, 2) == 0) {
        const int n = pick(1, 3);
        c.ignore = {n};
        for (int i = 0; i < n; ++i)
            c.ignore.push_back(pick(0, 3) ? static_cast<std::int32_t>(palette[static_cast<std::size_t>(pick(0, static_cast<int>(palette.size()) - 1))])
                                          : static_cast<std::int32_t>(rng() & 0xFFFFFF));
    }
    return c;
}

}  // namespace

TEST(ImageSearchProperty, FastSearchFindsWhatThePlainSearchFindsInTheSameOrder) {
    std::mt19937 rng(20241122);
    for (const SearchKernels* kernels : availableSearchKernels()) {
        reference::KernelScope scope(kernels);
        for (int round = 0; round < 3000; ++round) {
            Case c = randomCase(rng);
            MatchListPtr fast(findImage(c.screen.get(), c.templ.get(), c.howMany, c.ignore.data(), c.fuzzy));
            const auto plain = reference::findImage(*c.screen, *c.templ, c.howMany, c.ignore, c.fuzzy);
            ASSERT_EQ(reference::differences(fast.get(), plain), "") << kernels->name << " round " << round << ": " << c.describe();
            ASSERT_EQ(ignore_colors_count(), -1);
        }
    }
}

TEST(ImageSearchProperty, WideScreensAndTemplatesCrossEveryVectorBoundary) {
    // Widths around multiples of 4, 8, 16 and 64, where the vector loops hand over to their tails.
    std::mt19937 rng(7);
    for (const SearchKernels* kernels : availableSearchKernels()) {
        reference::KernelScope scope(kernels);
        for (int width : {63, 64, 65, 70, 79, 80, 81, 129}) {
            auto screen = solidBuffer(width, 12, 0x102030);
            for (int i = 0; i < width * 12 / 7; ++i) setPixel(*screen, rng() % width, rng() % 12, 0x405060);
            for (int tw : {1, 3, 4, 5, 8, 9, 16, 17, 33}) {
                auto templ = crop(*screen, width - tw - 1, 2, tw, 3);
                for (float fuzzy : {0.0f, 0.9f, 0.6f}) {
                    MatchListPtr fast(findImage(screen.get(), templ.get(), 0, std::vector<std::int32_t>{0}.data(), fuzzy));
                    const auto plain = reference::findImage(*screen, *templ, 0, {0}, fuzzy);
                    ASSERT_EQ(reference::differences(fast.get(), plain), "")
                        << kernels->name << " width " << width << " template " << tw << " fuzzy " << fuzzy;
                    ASSERT_FALSE(plain.empty());  // the cut-out itself is always found
                }
            }
        }
    }
}

TEST(ImageSearchProperty, FindColorAndConversionAgreeWithThePlainVersions) {
    std::mt19937 rng(99);
    for (const SearchKernels* kernels : availableSearchKernels()) {
        reference::KernelScope scope(kernels);
        for (int round = 0; round < 60; ++round) {
            const int width = 1 + static_cast<int>(rng() % 90), height = 1 + static_cast<int>(rng() % 20);
            const std::uint32_t colors[] = {0x000000, 0xFFFFFF, static_cast<std::uint32_t>(rng() & 0xFFFFFF)};
            auto screen = solidBuffer(width, height, colors[0]);
            for (int i = 0; i < width * height / 3; ++i) setPixel(*screen, rng() % width, rng() % height, colors[rng() % 3]);
            ScopedScreen scoped(std::to_string(width) + "x" + std::to_string(height) + "@1", frameOf(*screen));
            const ScreenImage image = CaptureScreen::captureScreen();
            PixelBufferPtr converted(getImageData(image));
            ASSERT_NE(converted, nullptr);
            for (std::size_t i = 0; i < static_cast<std::size_t>(width * height); ++i) {
                ASSERT_EQ(pixelAt(*converted, i % width, i / width), pixelAt(*screen, i % width, i / width)) << kernels->name;
                ASSERT_EQ(converted->data[i * 4 + 3], 0xFF);
            }
            const std::int64_t howMany = rng() % 3 ? 0 : static_cast<std::int64_t>(rng() % 40);
            const std::uint32_t wanted = colors[rng() % 3] | (rng() % 2 ? 0xAB000000u : 0);
            MatchListPtr fast(findColor(wanted, howMany));
            ASSERT_EQ(reference::differences(fast.get(), reference::findColor(*screen, wanted, howMany)), "")
                << kernels->name << " " << width << "x" << height;
        }
    }
}
