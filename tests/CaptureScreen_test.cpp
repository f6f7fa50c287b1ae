#include <gtest/gtest.h>
#include <png.h>

#include <array>
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

// Points of the profile; pixels at factor 2 on 2x screens and 1 on 3x ones, whose captures are
// still whole. Memory holds B, G, R, X; the converted copy R, G, B, opaque.
TEST(CaptureScreen, CapturesEveryPixelAndReportsPointsAndPixelsAtTheFactorOfTheScreen) {
    struct Case {
        const char* profile;
        std::int32_t width, height;
        float factor;
        double points[2];
    };
    for (const Case& c : {Case{"iphone-se", 640, 1136, 2, {320, 568}}, Case{"iphone-8-plus", 1242, 2208, 1, {414, 736}}}) {
        ScopedScreen scoped(c.profile, host::solidFrame(c.width, c.height, 0x204060));
        EXPECT_EQ(get_screen_scale_factor(), c.factor) << c.profile;
        EXPECT_EQ(getScreenSize(), (std::pair{c.points[0], c.points[1]}));
        EXPECT_EQ(getScreenResolution(), (std::pair{c.points[0] * c.factor, c.points[1] * c.factor}));
        const ScreenImage image = CaptureScreen::captureScreen();
        ASSERT_EQ(image.width, c.width);
        ASSERT_EQ(image.height, c.height);
        EXPECT_EQ(image.bytesPerRow(), c.width * 4u);
        EXPECT_EQ(std::vector<std::uint8_t>(image.pixels.get(), image.pixels.get() + 3), (std::vector<std::uint8_t>{0x60, 0x40, 0x20}));
        PixelBufferPtr rgba(getImageData(image));
        ASSERT_NE(rgba, nullptr);
        EXPECT_EQ(rgba->bytesPerRow, c.width * 4u);
        const std::uint8_t last[4] = {0x20, 0x40, 0x60, 0xFF};
        EXPECT_EQ(std::memcmp(rgba->data + rgba->bytesPerRow * c.height - 4, last, 4), 0);
    }
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

    // Regions are in points, clipped to the screen: {x, y, width, height}, then the pixels written.
    for (auto [region, width, height] : {std::tuple{std::array{10, 20, 30, 40}, 60u, 80u}, std::tuple{std::array{90, 70, 50, 50}, 20u, 20u}}) {
        screenshotRegion(dir.file("region.png").c_str(), region[0], region[1], region[2], region[3]);
        auto written = readPng(dir.file("region.png"));
        ASSERT_NE(written, nullptr);
        EXPECT_EQ(written->width, width);
        EXPECT_EQ(written->height, height);
        EXPECT_EQ(pixelAt(*written, 0, 0), pixelAt(*screen, region[0] * 2, region[1] * 2));
        EXPECT_EQ(pixelAt(*written, width - 1, height - 1), pixelAt(*screen, region[0] * 2 + width - 1, region[1] * 2 + height - 1));
    }
    // Nothing at all when the region misses the screen.
    screenshotRegion(dir.file("outside.png").c_str(), 200, 0, 10, 10);
    EXPECT_FALSE(std::filesystem::exists(dir.file("outside.png")));
    // A directory that does not exist simply gets no file.
    screenshot(dir.file("no/such/dir.png").c_str());
}

// Opaque and translucent pixels come back as written; a file's colours are premultiplied, so a
// clear pixel carries none, whatever the file holds; what is not a whole PNG is refused.
TEST(PngCodec, RoundTripsWhatItWritesAndRefusesWhatIsNotAReadablePng) {
    host::PngCodec codec;
    auto image = coordinateScreen(16, 16);
    std::memcpy(image->data, "\x40\x20\x00\x80", 4);  // half transparent, premultiplied
    auto png = codec.encodePng(image->data, 16, 16, image->bytesPerRow);
    ASSERT_TRUE(png);
    auto back = codec.decodePng(png->data(), png->size());
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->width, 16u);
    ASSERT_EQ(back->height, 16u);
    EXPECT_EQ(std::memcmp(back->data, image->data, 16 * 16 * 4), 0);

    // Straight alpha in the file: clear, and all but opaque.
    std::uint8_t straight[8] = {200, 100, 50, 0, 255, 255, 255, 254};
    png_image raw{};
    raw.version = PNG_IMAGE_VERSION;
    raw.width = 2;
    raw.height = 1;
    raw.format = PNG_FORMAT_RGBA;
    png_alloc_size_t size = 0;
    ASSERT_TRUE(png_image_write_to_memory(&raw, nullptr, &size, 0, straight, 0, nullptr));
    std::vector<std::uint8_t> file(size);
    ASSERT_TRUE(png_image_write_to_memory(&raw, file.data(), &size, 0, straight, 0, nullptr));
    auto clear = codec.decodePng(file.data(), size);
    ASSERT_NE(clear, nullptr);
    EXPECT_EQ(std::vector<std::uint8_t>(clear->data, clear->data + 8), (std::vector<std::uint8_t>{0, 0, 0, 0, 254, 254, 254, 254}));

    for (std::size_t cut : {0ul, 7ul, 8ul, 33ul, png->size() / 2, png->size() - 13}) EXPECT_EQ(codec.decodePng(png->data(), cut), nullptr) << cut;
    (*png)[png->size() / 2] ^= 0x55;
    EXPECT_EQ(codec.decodePng(png->data(), png->size()), nullptr);
    EXPECT_EQ(codec.decodePng(nullptr, 0), nullptr);
    EXPECT_FALSE(codec.encodePng(nullptr, 1, 1, 4));
}

TEST(PngCodec, PremultipliesRoundingToNearest) {
    for (std::uint32_t c = 0; c < 256; ++c)
        for (std::uint32_t a = 0; a < 256; ++a)
            ASSERT_EQ(host::premultiply(c, a), (2 * c * a + 255) / 510) << c << " " << a;
}
