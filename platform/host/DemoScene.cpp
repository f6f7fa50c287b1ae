#include "host/DemoScene.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

namespace tactora::host {

namespace {

constexpr int kScale = 2;
constexpr int kWidth = 320 * kScale;
constexpr int kHeight = 568 * kScale;

struct Rgb {
    std::uint8_t r, g, b;
};

constexpr Rgb rgb(std::uint32_t hex) {
    return {std::uint8_t(hex >> 16), std::uint8_t(hex >> 8), std::uint8_t(hex)};
}

// An opaque RGBA picture with the few shapes the scene needs. Coordinates are pixels. Shapes have
// hard edges on purpose: an exact colour then lives only where it was painted.
class Canvas {
public:
    Canvas(int width, int height) : width_(width), height_(height), pixels_(std::size_t(width) * height * 4, 255) {}

    int width() const { return width_; }
    int height() const { return height_; }
    const std::vector<std::uint8_t>& pixels() const { return pixels_; }

    void set(int x, int y, Rgb c) {
        if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
        std::uint8_t* p = &pixels_[(std::size_t(y) * width_ + x) * 4];
        p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = 255;
    }
    void fillRect(int x, int y, int w, int h, Rgb c) {
        for (int j = y; j < y + h; ++j)
            for (int i = x; i < x + w; ++i) set(i, j, c);
    }
    void fillRoundRect(int x, int y, int w, int h, int radius, Rgb c) {
        for (int j = 0; j < h; ++j)
            for (int i = 0; i < w; ++i) {
                int dx = std::max({radius - i, i - (w - 1 - radius), 0});
                int dy = std::max({radius - j, j - (h - 1 - radius), 0});
                if (dx * dx + dy * dy <= radius * radius) set(x + i, y + j, c);
            }
    }
    void fillCircle(int cx, int cy, int radius, Rgb c) {
        for (int j = -radius; j <= radius; ++j)
            for (int i = -radius; i <= radius; ++i)
                if (i * i + j * j <= radius * radius) set(cx + i, cy + j, c);
    }
    void ring(int cx, int cy, int outer, int inner, Rgb c) {
        for (int j = -outer; j <= outer; ++j)
            for (int i = -outer; i <= outer; ++i) {
                int d = i * i + j * j;
                if (d <= outer * outer && d > inner * inner) set(cx + i, cy + j, c);
            }
    }
    void verticalGradient(Rgb top, Rgb bottom) {
        for (int y = 0; y < height_; ++y) {
            double t = double(y) / (height_ - 1);
            Rgb c{std::uint8_t(top.r + (bottom.r - top.r) * t), std::uint8_t(top.g + (bottom.g - top.g) * t),
                  std::uint8_t(top.b + (bottom.b - top.b) * t)};
            fillRect(0, y, width_, 1, c);
        }
    }
    Canvas crop(int x, int y, int w, int h) const {
        Canvas out(w, h);
        for (int j = 0; j < h; ++j)
            std::copy_n(&pixels_[(std::size_t(y + j) * width_ + x) * 4], std::size_t(w) * 4,
                        &out.pixels_[std::size_t(j) * w * 4]);
        return out;
    }

private:
    int width_, height_;
    std::vector<std::uint8_t> pixels_;
};

bool writePng(const Canvas& canvas, const std::filesystem::path& path, std::string& error) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = canvas.width();
    image.height = canvas.height();
    image.format = PNG_FORMAT_RGBA;
    if (!png_image_write_to_file(&image, path.c_str(), 0, canvas.pixels().data(), 0, nullptr)) {
        error = "cannot write " + path.string() + ": " + image.message;
        return false;
    }
    return true;
}

void statusBar(Canvas& c, Rgb ink) {
    c.fillRect(12 * kScale, 6 * kScale, 34 * kScale, 8 * kScale, ink);                 // carrier
    c.fillRect(144 * kScale, 6 * kScale, 32 * kScale, 8 * kScale, ink);                // clock
    c.fillRoundRect(284 * kScale, 6 * kScale, 24 * kScale, 9 * kScale, 2 * kScale, ink);  // battery
}

// One app icon at a grid cell; `seed` varies the glyph so that no two icons are alike.
void plainIcon(Canvas& c, int x, int y, Rgb fill, int seed) {
    const int s = demoscene::iconSize * kScale;
    c.fillRoundRect(x, y, s, s, 13 * kScale, fill);
    const Rgb glyph{240, 240, 240};
    switch (seed % 4) {
        case 0: c.fillRect(x + s / 4, y + s / 4, s / 2, s / 2, glyph); break;
        case 1: c.fillCircle(x + s / 2, y + s / 2, s / 4, glyph); break;
        case 2: c.fillRect(x + s / 4, y + s / 2 - s / 12, s / 2, s / 6, glyph); break;
        default: c.ring(x + s / 2, y + s / 2, s / 4, s / 6, glyph); break;
    }
}

void demoIcon(Canvas& c, int x, int y) {
    const int s = demoscene::iconSize * kScale;
    c.fillRoundRect(x, y, s, s, 13 * kScale, rgb(0xF28C28));
    const int cx = x + s / 2, cy = y + s / 2;
    c.ring(cx, cy, 23 * kScale, 18 * kScale, rgb(0xFFFFFF));
    c.ring(cx, cy, 13 * kScale, 8 * kScale, rgb(0xFFFFFF));
    c.fillCircle(cx, cy, 4 * kScale, rgb(0xB3261E));
}

Canvas homeScreen() {
    Canvas c(kWidth, kHeight);
    c.verticalGradient(rgb(0x1D3557), rgb(0x5E3C99));
    statusBar(c, rgb(0xFFFFFF));
    const Rgb palette[] = {rgb(0x3A86FF), rgb(0x8338EC), rgb(0x2A9D8F), rgb(0xE63946), rgb(0x6C757D),
                           rgb(0x264653), rgb(0xE76F51), rgb(0x118AB2)};
    // Four columns of 60-point icons, 16 points apart, starting 18 points in and 40 down.
    for (int row = 0; row < 5; ++row)
        for (int column = 0; column < 4; ++column) {
            const int x = (18 + column * 76) * kScale, y = (40 + row * 72) * kScale;
            if (x == demoscene::iconX * kScale && y == demoscene::iconY * kScale) {
                demoIcon(c, x, y);
            } else {
                plainIcon(c, x, y, palette[(row * 4 + column) % 8], row + column * 3);
            }
            c.fillRect(x + 12 * kScale, y + 64 * kScale, 36 * kScale, 3 * kScale, rgb(0xDDDDDD));  // the name
        }
    // The dock.
    c.fillRect(0, 476 * kScale, kWidth, 92 * kScale, rgb(0x3B3561));
    for (int column = 0; column < 4; ++column)
        plainIcon(c, (18 + column * 76) * kScale, 492 * kScale, palette[(column + 5) % 8], column + 1);
    return c;
}

Canvas appScreen(bool pressed) {
    Canvas c(kWidth, kHeight);
    c.fillRect(0, 0, kWidth, kHeight, rgb(0xF4F4F6));
    c.fillRect(0, 0, kWidth, 64 * kScale, rgb(0x24364F));
    statusBar(c, rgb(0xFFFFFF));
    c.fillRect(110 * kScale, 34 * kScale, 100 * kScale, 12 * kScale, rgb(0xFFFFFF));  // title
    for (int line = 0; line < 5; ++line)  // some text
        c.fillRect(24 * kScale, (96 + line * 26) * kScale, (272 - (line % 3) * 40) * kScale, 10 * kScale, rgb(0xA7ABB3));
    using namespace demoscene;
    if (!pressed) {
        c.fillRect(buttonX * kScale, buttonY * kScale, buttonWidth * kScale, buttonHeight * kScale, rgb(buttonColor));
        c.fillRect((buttonX + 60) * kScale, (buttonY + 24) * kScale, 80 * kScale, 8 * kScale, rgb(0xFFFFFF));
    } else {
        // Done: the button is gone and a large check mark says so.
        const Rgb done = rgb(0x2D6A4F);
        c.fillCircle(160 * kScale, (buttonY + 28) * kScale, 44 * kScale, done);
        for (int i = 0; i < 18 * kScale; ++i) c.fillRect((136 * kScale) + i, (buttonY + 28) * kScale + i, 6 * kScale, 6 * kScale, rgb(0xFFFFFF));
        for (int i = 0; i < 34 * kScale; ++i)
            c.fillRect((136 + 18) * kScale + i, (buttonY + 28 + 18) * kScale - i, 6 * kScale, 6 * kScale, rgb(0xFFFFFF));
    }
    return c;
}

}  // namespace

bool writeDemoScene(const std::string& directory, std::string& error) {
    namespace fs = std::filesystem;
    using namespace demoscene;
    std::error_code ec;
    fs::create_directories(directory, ec);
    if (ec) {
        error = "cannot create " + directory + ": " + ec.message();
        return false;
    }
    const fs::path dir(directory);
    Canvas home = homeScreen();
    const int inset = templateInset * kScale;
    Canvas icon = home.crop(iconX * kScale + inset, iconY * kScale + inset, iconSize * kScale - 2 * inset,
                            iconSize * kScale - 2 * inset);
    if (!writePng(home, dir / "home.png", error) || !writePng(appScreen(false), dir / "app.png", error) ||
        !writePng(appScreen(true), dir / "done.png", error) || !writePng(icon, dir / "icon.png", error))
        return false;

    nlohmann::ordered_json scene = {
        {"device", "iphone-se"},
        {"start", "home"},
        {"screens",
         {{{"name", "home"},
           {"image", "home.png"},
           {"taps", {{{"x", iconX}, {"y", iconY}, {"width", iconSize}, {"height", iconSize}, {"show", "app"}}}}},
          {{"name", "app"},
           {"image", "app.png"},
           {"app", appBundleId},
           {"taps",
            {{{"x", buttonX}, {"y", buttonY}, {"width", buttonWidth}, {"height", buttonHeight}, {"show", "done"}}}}},
          {{"name", "done"}, {"image", "done.png"}, {"app", appBundleId}}}},
        {"apps", {{{"bundleId", appBundleId}, {"name", "Demo"}, {"screen", "app"}}}},
    };
    std::ofstream out(dir / "scene.json");
    out << scene.dump(2) << "\n";
    if (!out.flush()) {
        error = "cannot write " + (dir / "scene.json").string();
        return false;
    }
    return true;
}

}  // namespace tactora::host
