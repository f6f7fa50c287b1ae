// The search by counting equal pixels, each way of counting forced in turn, against the plain
// reference; and a search that gives up when the run is told to stop.
#include <gtest/gtest.h>

#include <random>

#include "ImageSearchReference.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/ImageSearchCounting.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/SearchKernels.h"
#include "RuntimeFakes.h"
#include "ScreenFakes.h"

using namespace tactora;
using namespace screentest;

namespace {

struct CountingScope {
    explicit CountingScope(CountingChoice c) { useCounting(c); }
    ~CountingScope() { useCounting(CountingChoice::byCost); }
};

// A screen of flat rectangles and scattered pixels from a small palette, so that colours repeat,
// template colours form rectangles with holes, and near matches are common.
PixelBufferPtr randomScreen(std::mt19937& rng, const std::vector<std::uint32_t>& palette, int width, int height) {
    auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    auto color = [&] { return palette[static_cast<std::size_t>(pick(0, static_cast<int>(palette.size()) - 1))]; };
    auto screen = solidBuffer(width, height, palette[0]);
    for (int boxes = pick(0, 6); boxes > 0; --boxes) {
        const int x = pick(0, width - 1), y = pick(0, height - 1), w = pick(1, width - x), h = pick(1, height - y);
        const std::uint32_t c = color();
        for (int row = y; row < y + h; ++row)
            for (int column = x; column < x + w; ++column) setPixel(*screen, column, row, c);
    }
    const int dots = pick(0, width * height / pick(1, 4));
    for (int i = 0; i < dots; ++i) setPixel(*screen, pick(0, width - 1), pick(0, height - 1), color());
    return screen;
}

}  // namespace

TEST(ImageSearchBound, EveryWayOfCountingFindsWhatThePlainSearchFinds) {
    const CountingChoice ways[] = {CountingChoice::scatter, CountingChoice::rectangles, CountingChoice::bounded,
                                   CountingChoice::mixed, CountingChoice::byCost};
    static const float fuzzies[] = {1, 0.99f, 0.9f, 0.8f, 0.5f, 0.3f, 0.01f, 0, -1};
    std::mt19937 rng(15);
    auto pick = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    // Positions the count cannot rule out are compared by the instruction-set kernels: each of them.
    std::vector<std::pair<const SearchKernels*, CountingChoice>> runs;
    for (const SearchKernels* kernels : availableSearchKernels())
        for (CountingChoice way : ways) runs.emplace_back(kernels, way);
    for (const auto& [kernels, way] : runs) {
        reference::KernelScope kernelScope(kernels);
        CountingScope scope(way);
        for (int round = 0; round < 500; ++round) {
            std::vector<std::uint32_t> palette(static_cast<std::size_t>(pick(1, 5)));
            for (auto& c : palette) c = static_cast<std::uint32_t>(rng()) & 0xFFFFFF;
            palette.push_back(palette[0] ^ (1u << pick(0, 23)));  // differs in one bit
            const int width = pick(1, 48), height = pick(1, 32);
            auto screen = randomScreen(rng, palette, width, height);
            // Templates up to the screen's size (and one larger): cut out and disturbed, or drawn.
            const int tw = pick(1, width + 1), th = pick(1, height + 1);
            PixelBufferPtr templ;
            if (tw <= width && th <= height && pick(0, 2)) {
                templ = crop(*screen, pick(0, width - tw), pick(0, height - th), tw, th);
                for (int flips = pick(0, 4); flips > 0; --flips)
                    setPixel(*templ, pick(0, tw - 1), pick(0, th - 1), palette[static_cast<std::size_t>(pick(0, 1))]);
            } else {
                templ = randomScreen(rng, palette, tw, th);
            }
            const float fuzzy = fuzzies[pick(0, 8)];
            const std::int32_t howMany = pick(0, 3) ? 0 : pick(-1, 4);
            // Ignored colours mostly from the palette, sometimes one the screen does not have.
            std::vector<std::int32_t> ignore{0};
            if (pick(0, 2) == 0) {
                ignore = {pick(1, 2)};
                for (int i = 0; i < ignore[0]; ++i) {
                    const std::uint32_t c = pick(0, 4) ? palette[static_cast<std::size_t>(pick(0, static_cast<int>(palette.size()) - 1))]
                                                       : rng() & 0xFFFFFF;
                    ignore.push_back(static_cast<std::int32_t>(c));
                }
            }
            MatchListPtr fast(findImage(screen.get(), templ.get(), howMany, ignore.data(), fuzzy));
            const auto plain = reference::findImage(*screen, *templ, howMany, ignore, fuzzy);
            ASSERT_EQ(reference::differences(fast.get(), plain), "")
                << kernels->name << " way " << static_cast<int>(way) << " round " << round << ": " << width << "x" << height
                << " template " << tw << "x" << th << " fuzzy " << fuzzy << " count " << howMany << " ignoring " << ignore[0];
            ASSERT_EQ(ignore_colors_count(), -1);
        }
    }
}

TEST(ImageSearchBound, ASearchToldToStopFindsNothingAndTheNextRunSearchesAgain) {
    // A screen big enough that the cost model counts, with the template planted twice.
    std::mt19937 rng(3);
    auto screen = solidBuffer(200, 120, 0xFFFFFF);
    for (int i = 0; i < 2000; ++i) setPixel(*screen, rng() % 200, rng() % 120, rng() & 0xFFFFFF);
    auto templ = crop(*screen, 40, 30, 48, 48);
    for (int y = 0; y < 48; ++y) std::memcpy(screen->data + (60 + y) * screen->bytesPerRow + 130 * 4, templ->data + y * 192, 192);
    const std::int32_t ignore[] = {1, 0x123456};
    tactora::testing::RuntimeDevice device;
    LuaBridge bridge;
    for (CountingChoice way : {CountingChoice::byCost, CountingChoice::never})
        for (const std::int32_t* list : {static_cast<const std::int32_t*>(nullptr), ignore}) {
            CountingScope scope(way);
            bridge.stopLuaRunning();
            MatchListPtr stopped(findImage(screen.get(), templ.get(), 0, list, 0.5f));
            ASSERT_NE(stopped, nullptr);
            EXPECT_EQ(stopped->count, 0);
            EXPECT_EQ(ignore_colors_count(), -1);
            bridge.runLuaString("");  // a new run forgets the stop
            MatchListPtr found(findImage(screen.get(), templ.get(), 0, list, 0.5f));
            const std::vector<std::int32_t> plainList = list ? std::vector<std::int32_t>(ignore, ignore + 2) : std::vector<std::int32_t>{0};
            EXPECT_EQ(reference::differences(found.get(), reference::findImage(*screen, *templ, 0, plainList, 0.5f)), "");
            EXPECT_GE(found->count, 2);
        }
}
