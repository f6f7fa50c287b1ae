#include <gtest/gtest.h>

#include <fstream>

#include "Kernel/ImageSearch.h"
#include "Kernel/ScreenFunctions.h"
#include "FoundationFakes.h"
#include "ScreenFakes.h"

using namespace tactora;
using namespace screentest;
using Points = std::vector<std::pair<float, float>>;

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
    auto screen = solidBuffer(64, 48, 0x202020);
    for (std::uint64_t x = 0; x < 3; ++x) setPixel(*screen, 20 + x, 11, 0x100000 * (x + 1));
    auto templ = crop(*screen, 20, 10, 3, 2);
    ScopedScreen scoped("32x24@2", frameOf(*screen));
    tactora::testing::ScratchDirectory dir;
    auto png = host::PngCodec().encodePng(templ->data, 3, 2, templ->bytesPerRow);
    ASSERT_TRUE(png);
    std::ofstream(dir.file("button.png"), std::ios::binary).write(reinterpret_cast<const char*>(png->data()), png->size());
    std::ofstream(dir.file("broken.png"), std::ios::binary) << "\x89PNG\r\n\x1a\n but not really";
    const std::int32_t noIgnore[] = {0};
    EXPECT_EQ(pointsOf(MatchListPtr(findImageWrapper(dir.file("button.png").c_str(), 0, noIgnore, 1.0f)).get()), (Points{{10, 5}}));
    for (const char* name : {"broken.png", "missing.png"}) {
        MatchListPtr none(findImageWrapper(dir.file(name).c_str(), 0, noIgnore, 0));
        ASSERT_NE(none, nullptr) << name;
        EXPECT_EQ(none->count, 0);
    }
}
