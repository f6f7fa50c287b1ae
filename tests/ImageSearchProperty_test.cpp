// The fast search, in every instruction-set variant and every way of counting equal pixels, against
// the plain one of ImageSearchReference.h: the same points in the same order.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "ImageSearchReference.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/ImageSearchCounting.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/ScreenFunctions.h"
#include "Kernel/SearchKernels.h"
#include "RuntimeFakes.h"
#include "ScreenFakes.h"

using namespace tactora;
using namespace screentest;
using Ignore = std::vector<std::int32_t>;
using reference::differences;

namespace {

struct SearchScope {
    SearchScope(const SearchKernels* kernels, CountingChoice way) { useSearchKernels(kernels), useCounting(way); }
    ~SearchScope() { useSearchKernels(nullptr), useCounting(CountingChoice::byCost); }
};

struct Case {
    std::shared_ptr<PixelBuffer> screen, templ;  // one screen serves several cases
    std::int32_t howMany = 0;
    Ignore ignore{0};
    float fuzzy = 0;
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
    return out << c.screen->width << "x" << c.screen->height << " template " << c.templ->width << "x" << c.templ->height
               << " count " << c.howMany << " fuzzy " << c.fuzzy << " ignoring " << c.ignore[0];
}

// Flat rectangles and scattered pixels from a small palette: colours repeat, template colours form
// rectangles with holes, and near matches are common.
PixelBufferPtr randomPicture(std::mt19937& rng, const std::vector<std::uint32_t>& palette, int width, int height) {
    auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    auto screen = solidBuffer(width, height, palette[0]);
    for (int boxes = pick(0, 6); boxes > 0; --boxes) {
        const int x = pick(0, width - 1), y = pick(0, height - 1), w = pick(1, width - x), h = pick(1, height - y);
        const std::uint32_t c = palette[rng() % palette.size()];
        for (int row = y; row < y + h; ++row)
            for (int column = x; column < x + w; ++column) setPixel(*screen, column, row, c);
    }
    for (int dots = pick(0, width * height / pick(1, 4)); dots > 0; --dots)
        setPixel(*screen, pick(0, width - 1), pick(0, height - 1), palette[rng() % palette.size()]);
    return screen;
}

Case randomCase(std::mt19937& rng) {
    auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    std::vector<std::uint32_t> palette(static_cast<std::size_t>(pick(1, 5)));
    for (auto& c : palette) c = rng() & 0xFFFFFF;
    palette.push_back(palette[0] ^ (1u << pick(0, 23)));  // a near miss: one bit off
    const int width = pick(1, 48), height = pick(1, 32), tw = pick(1, width + 1), th = pick(1, height + 1);
    Case c{randomPicture(rng, palette, width, height), nullptr};
    if (tw <= width && th <= height && pick(0, 2)) {
        // Cut out, planted again elsewhere (several matches), then disturbed.
        c.templ = crop(*c.screen, pick(0, width - tw), pick(0, height - th), tw, th);
        for (int copies = pick(0, 3); copies > 0; --copies) {
            const int px = pick(0, width - tw), py = pick(0, height - th);
            for (int y = 0; y < th; ++y) std::memcpy(c.screen->data + (py + y) * c.screen->bytesPerRow + px * 4, c.templ->data + y * c.templ->bytesPerRow, tw * 4);
        }
        for (int flips = pick(0, 4); flips > 0; --flips) setPixel(*c.templ, pick(0, tw - 1), pick(0, th - 1), palette[rng() % palette.size()]);
    } else {
        c.templ = randomPicture(rng, palette, tw, th);
    }
    // Alpha is never compared: scramble it.
    for (auto* buffer : {c.screen.get(), c.templ.get()})
        for (std::uint64_t i = 3; i < buffer->bytesPerRow * buffer->height; i += 4) buffer->data[i] = static_cast<std::uint8_t>(rng());
    static const float fuzzies[] = {0, 1, 0.99f, 0.95f, 0.9f, 0.8f, 0.75f, 0.5f, 0.3f, 0.01f, -1, 2};
    c.fuzzy = fuzzies[pick(0, 11)];
    c.howMany = pick(0, 2) ? 0 : pick(-1, 5);
    if (pick(0, 2) == 0) {  // ignored colours mostly from the palette, sometimes one nowhere on the screen
        c.ignore = {pick(1, 3)};
        for (int i = 0; i < c.ignore[0]; ++i) c.ignore.push_back(static_cast<std::int32_t>(pick(0, 4) ? palette[rng() % palette.size()] : rng() & 0xFFFFFF));
    }
    return c;
}

}  // namespace

TEST(ImageSearchProperty, FastSearchFindsWhatThePlainSearchFindsInTheSameOrder) {
    const CountingChoice ways[] = {CountingChoice::never, CountingChoice::scatter, CountingChoice::rectangles,
                                   CountingChoice::bounded, CountingChoice::mixed, CountingChoice::byCost};
    std::mt19937 rng(20241122);
    // Each random case is searched by one way of counting, so every variant meets them all.
    std::vector<std::pair<Case, std::vector<CountingChoice>>> cases;
    for (int round = 0; round < 3000; ++round) cases.push_back({randomCase(rng), {ways[round % std::size(ways)]}});
    // Widths around multiples of 4, 8, 16 and 64, where the vector loops hand over to their tails.
    for (int width : {63, 64, 65, 70, 79, 80, 81, 129}) {
        std::shared_ptr<PixelBuffer> screen = solidBuffer(width, 12, 0x102030);
        for (int i = 0; i < width * 12 / 7; ++i) setPixel(*screen, rng() % width, rng() % 12, 0x405060);
        for (int tw : {1, 3, 4, 5, 8, 9, 16, 17, 33})
            for (float fuzzy : {0.0f, 0.9f, 0.6f})
                cases.push_back({{screen, crop(*screen, width - tw - 1, 2, tw, 3), 0, {0}, fuzzy}, {std::begin(ways), std::end(ways)}});
    }
    for (const SearchKernels* kernels : availableSearchKernels())
        for (const auto& [c, byWays] : cases)
            for (CountingChoice way : byWays) {
                SearchScope scope(kernels, way);
                MatchListPtr fast(findImage(c.screen.get(), c.templ.get(), c.howMany, c.ignore.data(), c.fuzzy));
                ASSERT_EQ(differences(fast.get(), reference::findImage(*c.screen, *c.templ, c.howMany, c.ignore, c.fuzzy)), "")
                    << kernels->name << " way " << int(way) << ": " << c;
                ASSERT_EQ(ignore_colors_count(), -1);
            }
}

TEST(ImageSearchProperty, FindColorAndConversionAgreeWithThePlainVersions) {
    std::mt19937 rng(99);
    for (const SearchKernels* kernels : availableSearchKernels()) {
        SearchScope scope(kernels, CountingChoice::byCost);
        for (int round = 0; round < 60; ++round) {
            const int width = 1 + static_cast<int>(rng() % 90), height = 1 + static_cast<int>(rng() % 20);
            const std::uint32_t colors[] = {0x000000, 0xFFFFFF, static_cast<std::uint32_t>(rng() & 0xFFFFFF)};
            auto screen = solidBuffer(width, height, colors[0]);
            for (int i = 0; i < width * height / 3; ++i) setPixel(*screen, rng() % width, rng() % height, colors[rng() % 3]);
            ScopedScreen scoped(std::to_string(width) + "x" + std::to_string(height) + "@1", frameOf(*screen));
            PixelBufferPtr converted(getImageData(CaptureScreen::captureScreen()));
            ASSERT_NE(converted, nullptr);
            for (std::size_t i = 0; i < static_cast<std::size_t>(width * height); ++i) {
                ASSERT_EQ(pixelAt(*converted, i % width, i / width), pixelAt(*screen, i % width, i / width)) << kernels->name;
                ASSERT_EQ(converted->data[i * 4 + 3], 0xFF);
            }
            const std::int64_t howMany = rng() % 3 ? 0 : static_cast<std::int64_t>(rng() % 40);
            const std::uint32_t wanted = colors[rng() % 3] | (rng() % 2 ? 0xAB000000u : 0);
            MatchListPtr fast(findColor(wanted, howMany));
            ASSERT_EQ(differences(fast.get(), reference::findColor(*screen, wanted, howMany)), "") << kernels->name << " " << width << "x" << height;
        }
    }
}

TEST(ImageSearchProperty, ASearchToldToStopFindsNothingAndTheNextRunSearchesAgain) {
    // A screen big enough that the cost model counts, with the template planted twice.
    std::mt19937 rng(3);
    auto screen = solidBuffer(200, 120, 0xFFFFFF);
    for (int i = 0; i < 2000; ++i) setPixel(*screen, rng() % 200, rng() % 120, rng() & 0xFFFFFF);
    auto templ = crop(*screen, 40, 30, 48, 48);
    for (int y = 0; y < 48; ++y) std::memcpy(screen->data + (60 + y) * screen->bytesPerRow + 130 * 4, templ->data + y * 192, 192);
    const Ignore ignore{1, 0x123456};
    tactora::testing::RuntimeDevice device;
    LuaBridge bridge;
    for (CountingChoice way : {CountingChoice::byCost, CountingChoice::never})
        for (const Ignore& list : {Ignore{0}, ignore}) {
            SearchScope scope(nullptr, way);
            // No list at all and an empty one search alike.
            const std::int32_t* given = list[0] ? list.data() : nullptr;
            bridge.stopLuaRunning();
            MatchListPtr stopped(findImage(screen.get(), templ.get(), 0, given, 0.5f));
            ASSERT_NE(stopped, nullptr);
            EXPECT_EQ(stopped->count, 0);
            EXPECT_EQ(ignore_colors_count(), -1);
            bridge.runLuaString("");  // a new run forgets the stop
            MatchListPtr found(findImage(screen.get(), templ.get(), 0, given, 0.5f));
            EXPECT_EQ(differences(found.get(), reference::findImage(*screen, *templ, 0, list, 0.5f)), "");
            EXPECT_GE(found->count, 2);
        }
}
