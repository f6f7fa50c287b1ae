#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "Kernel/ImageSearch.h"
#include "Kernel/ScreenFunctions.h"
#include "FoundationFakes.h"
#include "ScreenFakes.h"

using namespace tactora;
using namespace screentest;
using Points = std::vector<std::pair<float, float>>;

namespace {

const std::int32_t noIgnore[] = {0};

Points search(const PixelBuffer& screen, const PixelBuffer& templ, std::int32_t howMany = 0, float fuzzy = 0,
              const std::int32_t* ignore = noIgnore) {
    MatchListPtr list(findImage(&screen, &templ, howMany, ignore, fuzzy));
    EXPECT_NE(list, nullptr);
    return pointsOf(list.get());
}

// A screen with a distinct 3 x 2 pattern planted at (px, py).
struct Planted {
    PixelBufferPtr screen;
    PixelBufferPtr templ;
};

Planted planted(std::uint64_t width, std::uint64_t height, std::uint64_t px, std::uint64_t py) {
    Planted p{solidBuffer(width, height, 0x202020), nullptr};
    for (std::uint64_t y = 0; y < 2; ++y)
        for (std::uint64_t x = 0; x < 3; ++x) setPixel(*p.screen, px + x, py + y, 0x100000 * (x + 1) + 0x10 * (y + 1));
    p.templ = crop(*p.screen, px, py, 3, 2);
    return p;
}

}  // namespace

TEST(ImageSearch, ColourFormsSwapRedAndBlue) {
    EXPECT_EQ(hex_to_rgc(0x123456), 0x563412u);
    EXPECT_EQ(hex_to_rgc(0xFF123456), 0x563412u);
    EXPECT_EQ(rgb_to_hex(0x12, 0x34, 0x56), 0x123456u);
    EXPECT_EQ(rgb_to_hex(0x100, 0, 1), 0x1000001u);  // a sum, not masked
    auto buffer = solidBuffer(2, 2, 0);
    setPixel(*buffer, 1, 1, 0xA1B2C3);
    EXPECT_EQ(get_rgb(buffer.get(), 1, 1), hex_to_rgc(0xA1B2C3));
    EXPECT_TRUE(is_same_rgb(0xFF563412, 0x00563412));
    EXPECT_FALSE(is_same_rgb(0x563412, 0x563413));
}

TEST(ImageSearch, NeverTriesThePositionsTouchingTheRightOrBottomEdge) {
    auto screen = solidBuffer(10, 6, 0x445566);
    EXPECT_TRUE(search(*screen, *solidBuffer(10, 1, 0x445566)).empty());
    EXPECT_TRUE(search(*screen, *solidBuffer(1, 6, 0x445566)).empty());
    // One pixel narrower: only x = 0, on every row but the last possible one.
    EXPECT_EQ(search(*screen, *solidBuffer(9, 2, 0x445566)), (Points{{0, 0}, {0, 0.5f}, {0, 1}, {0, 1.5f}}));
    // A template planted at the bottom-right corner is not found.
    auto corner = planted(12, 8, 9, 6);
    EXPECT_TRUE(search(*corner.screen, *corner.templ).empty());
    auto inside = planted(12, 8, 8, 5);
    EXPECT_EQ(search(*inside.screen, *inside.templ), (Points{{4, 2.5f}}));
}

TEST(ImageSearch, StopsAtTheCountWithTheFirstMatchesInRowMajorOrder) {
    auto screen = solidBuffer(8, 6, 0x445566);
    auto templ = solidBuffer(2, 2, 0x445566);
    EXPECT_EQ(search(*screen, *templ, 3), (Points{{0, 0}, {0.5f, 0}, {1, 0}}));
    EXPECT_EQ(search(*screen, *templ, -5).size(), 6u * 4u);
    // The limit set by the last findImage stays for a direct xfindImage.
    set_howmany(2);
    MatchListPtr direct(xfindImage(screen.get(), templ.get()));
    EXPECT_EQ(direct->count, 2);
    set_howmany(0);
}

TEST(ImageSearch, FuzzyGivesEachPositionABudgetOfDifferingPixels) {
    auto screen = solidBuffer(30, 30, 0x000000);
    auto templ = solidBuffer(10, 10, 0xFFFFFF);
    // A white checkerboard at (5, 5): exactly 50 of the template's 100 pixels agree there.
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x)
            if ((x + y) % 2 == 0) setPixel(*screen, 5 + x, 5 + y, 0xFFFFFF);
    EXPECT_EQ(search(*screen, *templ, 0, 0.5f), (Points{{2.5f, 2.5f}}));
    for (float exact : {0.0f, 1.0f, 1.5f, -0.5f}) EXPECT_TRUE(search(*screen, *templ, 0, exact).empty()) << exact;
    // 49 white pixels leave 51 differing: one too many for 0.5.
    setPixel(*screen, 9, 9, 0x000000);
    EXPECT_TRUE(search(*screen, *templ, 0, 0.5f).empty());
}

TEST(ImageSearch, IgnoredColoursOnEitherSideDoNotSpendTheBudget) {
    auto screen = solidBuffer(10, 10, 0x111111);
    auto templ = solidBuffer(3, 3, 0x111111);
    setPixel(*screen, 3, 3, 0xFF0000);  // screen side differs at (2, 2)'s template pixel (1, 1)
    setPixel(*templ, 0, 0, 0x00FF00);   // template side differs everywhere at its (0, 0)
    const std::int32_t both[] = {2, 0xFF0000, 0x00FF00};
    const std::int32_t screenOnly[] = {1, 0xFF0000};
    EXPECT_EQ(search(*screen, *templ, 0, 0, both).size(), 7u * 7u);
    EXPECT_EQ(ignore_colors_count(), -1);
    // Only red ignored: the template's green pixel differs at every position but the one where
    // it lies over the red screen pixel.
    EXPECT_EQ(search(*screen, *templ, 0, 0, screenOnly), (Points{{1.5f, 1.5f}}));
    EXPECT_EQ(ignore_colors_count(), -1);
    // Grey ignored: the screen side is tested first (grey under green is skipped), then the
    // template side (red under grey is skipped); red under green is the one real mismatch.
    const std::int32_t grey[] = {1, 0x111111};
    auto withGrey = search(*screen, *templ, 0, 0, grey);
    EXPECT_EQ(withGrey.size(), 7u * 7u - 1u);
    EXPECT_EQ(std::count(withGrey.begin(), withGrey.end(), std::pair{1.5f, 1.5f}), 0);
    // Without a list, the 8 positions that see both the red and the green pixel need a budget of 2.
    EXPECT_EQ(search(*screen, *templ, 0, 0.8f).size(), 7u * 7u - 8u);  // 9 * 0.2 = 1.8 -> 1
    EXPECT_EQ(search(*screen, *templ, 0, 0.75f).size(), 7u * 7u);      // 2.25 -> 2
}

// --- the screen-level functions over the simulated display ----------------------------------------

TEST(ScreenSearch, ReportsAPixelInTwoPixelPointsOnEveryDevice) {
    for (const char* profile : {"60x30@2", "40x20@3", "120x60@1"}) {
        auto screen = solidBuffer(120, 60, 0x0A0B0C);
        setPixel(*screen, 100, 40, 0xC0FFEE);
        ScopedScreen scoped(profile, frameOf(*screen));
        MatchListPtr found(findColor(0xC0FFEE, 0));
        EXPECT_EQ(pointsOf(found.get()), (Points{{50, 20}})) << profile;
    }
}

TEST(ScreenSearch, FindColorStopsAtTheCountAndGetColorChecksOnlyThatThePointIsNotPastTheEdge) {
    auto screen = solidBuffer(8, 4, 0x101010);
    setPixel(*screen, 6, 2, 0xABCDEF);
    setPixel(*screen, 0, 1, 0x123456);
    ScopedScreen scoped("4x2@2", frameOf(*screen));
    EXPECT_EQ(getColor(3, 1), 0xABCDEFu);
    EXPECT_EQ(pointsOf(MatchListPtr(findColor(0x101010, 2)).get()), (Points{{0, 0}, {0.5f, 0}}));
    EXPECT_EQ(getColor(0, 0), 0x101010u);
    EXPECT_EQ(getColor(4.5, 0), 0xFFFFFFFFu);
    EXPECT_EQ(getColor(0, 2.5), 0xFFFFFFFFu);
    // x * scale equal to the width passes the bound and reads the start of the next row.
    EXPECT_EQ(getColor(4, 0), 0x123456u);
    // On the last row, or above the screen, that read would leave the pixels: -1, not a fault.
    EXPECT_EQ(getColor(4, 1.5), 0xFFFFFFFFu);
    EXPECT_EQ(getColor(0, 2), 0xFFFFFFFFu);
    EXPECT_EQ(getColor(-1, -1), 0xFFFFFFFFu);
    // A negative x on a lower row reads back into the row above, as the memory lies.
    EXPECT_EQ(getColor(-1, 1), 0x101010u);
}

TEST(ScreenSearch, FindImageWrapperReadsAPngTemplateAndToleratesBrokenFiles) {
    auto p = planted(64, 48, 20, 10);
    ScopedScreen scoped("32x24@2", frameOf(*p.screen));
    tactora::testing::ScratchDirectory scratch;
    const auto& dir = scratch.path();
    const std::string good = (dir / "button.png").string(), bad = (dir / "broken.png").string();
    host::PngCodec codec;
    auto png = codec.encodePng(p.templ->data, 3, 2, p.templ->bytesPerRow);
    ASSERT_TRUE(png);
    std::ofstream(good, std::ios::binary).write(reinterpret_cast<const char*>(png->data()), png->size());
    std::ofstream(bad, std::ios::binary) << "\x89PNG\r\n\x1a\n but not really";
    MatchListPtr found(findImageWrapper(good.c_str(), 0, noIgnore, 1.0f));
    EXPECT_EQ(pointsOf(found.get()), (Points{{10, 5}}));
    for (const std::string& path : {bad, (dir / "missing.png").string()}) {
        MatchListPtr none(findImageWrapper(path.c_str(), 0, noIgnore, 0));
        ASSERT_NE(none, nullptr) << path;
        EXPECT_EQ(none->count, 0);
    }
}
