#include <gtest/gtest.h>
#include <png.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "FoundationFakes.h"
#include "Kernel/CaptureScreen.h"
#include "Kernel/ScreenFunctions.h"
#include "ScreenFakes.h"
#include "host/HostPaths.h"

using namespace tactora;
using namespace screentest;

namespace {

PixelBufferPtr readPng(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return host::PngCodec().decodePng(bytes.data(), bytes.size());
}

// A screen whose every pixel tells where it is: red = x, green = y, blue = x ^ y.
PixelBufferPtr coordinateScreen(std::uint64_t width, std::uint64_t height) {
    auto screen = solidBuffer(width, height, 0);
    for (std::uint64_t y = 0; y < height; ++y)
        for (std::uint64_t x = 0; x < width; ++x) setPixel(*screen, x, y, (x & 0xFF) << 16 | (y & 0xFF) << 8 | ((x ^ y) & 0xFF));
    return screen;
}

}  // namespace

TEST(CaptureScreen, ATwoTimesScreenCapturesEveryPixelAndReportsPointsAndPixels) {
    ScopedScreen scoped("iphone-se", host::solidFrame(640, 1136, 0x204060));
    EXPECT_EQ(getScreenSize(), (std::pair<double, double>{320, 568}));
    EXPECT_EQ(getScreenResolution(), (std::pair<double, double>{640, 1136}));
    EXPECT_EQ(get_screen_scale_factor(), 2.0f);
    const ScreenImage image = CaptureScreen::captureScreen();
    ASSERT_EQ(image.width, 640);
    ASSERT_EQ(image.height, 1136);
    EXPECT_EQ(image.bytesPerRow(), 2560u);
    // B, G, R, X in memory.
    EXPECT_EQ(image.pixels[0], 0x60);
    EXPECT_EQ(image.pixels[1], 0x40);
    EXPECT_EQ(image.pixels[2], 0x20);
    PixelBufferPtr rgba(getImageData(image));
    ASSERT_NE(rgba, nullptr);
    EXPECT_EQ(rgba->bytesPerRow, 2560u);
    const std::uint8_t last[4] = {0x20, 0x40, 0x60, 0xFF};
    EXPECT_EQ(std::memcmp(rgba->data + rgba->bytesPerRow * 1136 - 4, last, 4), 0);
}

TEST(CaptureScreen, AThreeTimesScreenUsesFactorOneForCoordinates) {
    ScopedScreen scoped("iphone-8-plus");
    EXPECT_EQ(get_screen_scale_factor(), 1.0f);
    EXPECT_EQ(getScreenResolution(), getScreenSize());
    const ScreenImage image = CaptureScreen::captureScreen();
    EXPECT_EQ(image.width, 1242);
    EXPECT_EQ(image.height, 2208);
    // The factor is cached: a display that changes its mind is not asked again.
    EXPECT_EQ(get_screen_scale_factor(), 1.0f);
}

TEST(CaptureScreen, ScreenshotsWriteTheScreenAndTheRegionInPixelsAsPng) {
    auto screen = coordinateScreen(200, 160);
    ScopedScreen scoped("100x80@2", frameOf(*screen));
    tactora::testing::ScratchDirectory dir;
    screenshot(dir.file("whole.png").c_str());
    auto whole = readPng(dir.file("whole.png"));
    ASSERT_NE(whole, nullptr);
    ASSERT_EQ(whole->width, 200u);
    EXPECT_EQ(std::memcmp(whole->data, screen->data, 200 * 160 * 4), 0);

    screenshotRegion(dir.file("region.png").c_str(), 10, 20, 30, 40);
    auto region = readPng(dir.file("region.png"));
    ASSERT_NE(region, nullptr);
    EXPECT_EQ(region->width, 60u);
    EXPECT_EQ(region->height, 80u);
    EXPECT_EQ(pixelAt(*region, 0, 0), pixelAt(*screen, 20, 40));
    EXPECT_EQ(pixelAt(*region, 59, 79), pixelAt(*screen, 79, 119));

    // Clipped to the screen; nothing at all when the rectangle misses it.
    screenshotRegion(dir.file("clipped.png").c_str(), 90, 70, 50, 50);
    auto clipped = readPng(dir.file("clipped.png"));
    ASSERT_NE(clipped, nullptr);
    EXPECT_EQ(clipped->width, 20u);
    EXPECT_EQ(clipped->height, 20u);
    EXPECT_EQ(pixelAt(*clipped, 0, 0), pixelAt(*screen, 180, 140));
    screenshotRegion(dir.file("outside.png").c_str(), 200, 0, 10, 10);
    EXPECT_FALSE(std::filesystem::exists(dir.file("outside.png")));
    // A directory that does not exist simply gets no file.
    screenshot(dir.file("no/such/dir.png").c_str());
}

TEST(PngCodec, RoundTripsOpaqueAndTranslucentPixels) {
    host::PngCodec codec;
    auto image = coordinateScreen(7, 5);
    image->data[3] = 0x80;  // first pixel half transparent, premultiplied
    image->data[0] = 0x40;
    image->data[1] = 0x20;
    image->data[2] = 0x00;
    auto png = codec.encodePng(image->data, 7, 5, image->bytesPerRow);
    ASSERT_TRUE(png);
    auto back = codec.decodePng(png->data(), png->size());
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->width, 7u);
    ASSERT_EQ(back->height, 5u);
    EXPECT_EQ(std::memcmp(back->data, image->data, 7 * 5 * 4), 0);

    // A fully transparent pixel carries no colour once premultiplied, whatever the file holds.
    std::uint8_t straight[4] = {200, 100, 50, 0};
    png_image raw{};
    raw.version = PNG_IMAGE_VERSION;
    raw.width = raw.height = 1;
    raw.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    ASSERT_TRUE(png_image_write_to_memory(&raw, nullptr, &size, 0, straight, 0, nullptr));
    std::vector<std::uint8_t> file(size);
    ASSERT_TRUE(png_image_write_to_memory(&raw, file.data(), &size, 0, straight, 0, nullptr));
    auto clear = codec.decodePng(file.data(), size);
    ASSERT_NE(clear, nullptr);
    EXPECT_EQ(std::vector<std::uint8_t>(clear->data, clear->data + 4), std::vector<std::uint8_t>(4, 0));
}

TEST(PngCodec, RefusesWhatIsNotAReadablePng) {
    host::PngCodec codec;
    auto png = codec.encodePng(coordinateScreen(16, 16)->data, 16, 16, 64);
    ASSERT_TRUE(png);
    for (std::size_t cut : {0ul, 7ul, 8ul, 33ul, png->size() / 2, png->size() - 13}) {
        EXPECT_EQ(codec.decodePng(png->data(), cut), nullptr) << cut;
    }
    std::vector<std::uint8_t> corrupt = *png;
    corrupt[corrupt.size() / 2] ^= 0x55;
    EXPECT_EQ(codec.decodePng(corrupt.data(), corrupt.size()), nullptr);
    EXPECT_EQ(codec.decodePng(nullptr, 0), nullptr);
    EXPECT_FALSE(codec.encodePng(nullptr, 1, 1, 4));
}

TEST(PngCodec, PremultipliesRoundingToNearest) {
    for (std::uint32_t c = 0; c < 256; ++c)
        for (std::uint32_t a = 0; a < 256; ++a)
            ASSERT_EQ(host::premultiply(c, a), (2 * c * a + 255) / 510) << c << " " << a;
}
