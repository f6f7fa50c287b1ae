#include <gtest/gtest.h>

#include <fstream>

#include "FoundationFakes.h"
#include "host/DemoScene.h"
#include "host/PngCodec.h"
#include "host/SceneFile.h"

using namespace tactora::host;
namespace fs = std::filesystem;

namespace {

// A scratch directory with three images; the scene only needs them to exist.
struct SceneDirectory {
    tactora::testing::ScratchDirectory scratch;
    fs::path dir = scratch.path();
    SceneDirectory() {
        for (const char* name : {"a.png", "b.png", "c.png"}) std::ofstream(dir / name) << "\x89PNG\r\n\x1a\n";
    }
    std::optional<SceneFile> parse(const std::string& text, std::string& error) const {
        return parseScene(text, dir.string(), error);
    }
};

const char* kShop = R"({
  "screens": [
    {"name": "home", "image": "a.png",
     "taps": [{"x": 10, "y": 10, "width": 50, "height": 50, "show": "shop"}]},
    {"name": "shop", "image": "b.png", "app": "com.example.shop",
     "taps": [{"x": 0, "y": 100, "width": 320, "height": 40, "show": "cart"}]},
    {"name": "cart", "image": "c.png", "app": "com.example.shop"}
  ],
  "apps": [{"bundleId": "com.example.shop", "screen": "shop"},
           {"bundleId": "com.example.mail", "screen": "home"}]
})";

// A decoded RGBA picture; at() is 0xRRGGBB.
struct Rgba {
    tactora::PixelBufferPtr image;
    explicit Rgba(const fs::path& path) {
        const std::string bytes = tactora::testing::readFile(path);
        image = PngCodec().decodePng(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    int width() const { return image ? int(image->width) : 0; }
    int height() const { return image ? int(image->height) : 0; }
    std::uint32_t at(int x, int y) const {
        const std::uint8_t* p = image->data + y * image->bytesPerRow + x * image->bytesPerPixel;
        return std::uint32_t(p[0]) << 16 | p[1] << 8 | p[2];
    }
};

}  // namespace

TEST(SceneFile, ReadsScreensTapsAndAppsWithImagesBesideTheFile) {
    SceneDirectory files;
    std::string error;
    auto scene = files.parse(kShop, error);
    ASSERT_TRUE(scene) << error;
    EXPECT_EQ(scene->start, "home");  // the first screen when the file names none
    ASSERT_EQ(scene->screens.size(), 3u);
    EXPECT_EQ(scene->screens[1].image, (files.dir / "b.png").string());
    ASSERT_EQ(scene->screens[0].taps.size(), 1u);
    EXPECT_TRUE(scene->screens[0].taps[0].contains(10, 59.5));
    EXPECT_FALSE(scene->screens[0].taps[0].contains(60, 10));  // right edge is outside
    EXPECT_EQ(scene->findApp("com.example.shop")->screen, "shop");
}

TEST(SceneFile, RefusesBrokenScenesAndSaysWhere) {
    SceneDirectory files;
    const std::pair<const char*, const char*> cases[] = {
        {"{", "not valid JSON"},
        {"[]", "JSON object"},
        {R"({"screens": []})", "scene.screens is empty"},
        {R"({"screens": [{"name": "a", "image": "missing.png"}]})", "scene.screens[0].image"},
        {R"({"screens": [{"name": "a", "image": "a.png"}, {"name": "a", "image": "b.png"}]})", "used twice"},
        {R"({"screens": [{"name": "a", "image": "a.png", "taps": [{"x": 0, "y": 0, "width": 0, "height": 5, "show": "a"}]}]})",
         "taps[0] has no area"},
        {R"({"screens": [{"name": "a", "image": "a.png", "taps": [{"x": "1", "y": 0, "width": 1, "height": 1, "show": "a"}]}]})",
         "taps[0].x must be a number"},
        {R"({"screens": [{"name": "a", "image": "a.png", "taps": [{"x": 0, "y": 0, "width": 1, "height": 1, "show": "b"}]}]})",
         "shows no screen: b"},
        {R"({"start": "b", "screens": [{"name": "a", "image": "a.png"}]})", "start names no screen"},
        {R"({"screens": [{"name": "a", "image": "a.png", "app": "x"}]})", "not in scene.apps"},
        {R"({"screens": [{"name": "a", "image": "a.png"}], "apps": [{"bundleId": "x", "screen": "z"}]})", "opens no screen"},
    };
    for (const auto& [text, expected] : cases) {
        std::string error;
        EXPECT_FALSE(files.parse(text, error)) << text;
        EXPECT_NE(error.find(expected), std::string::npos) << text << " gave: " << error;
    }
}

TEST(SceneState, TapsActOnlyDownAndUpInsideTheRegionAndAppsFollowTheirScreens) {
    SceneDirectory files;
    std::string error;
    SceneState state(*files.parse(kShop, error));
    std::vector<std::string> shown;
    state.setOnChange([&](const std::string& name) { shown.push_back(name); });

    state.fingerDown(1, 20, 20);
    state.fingerUp(1, 200, 200);  // slid off the icon: no tap
    state.fingerDown(1, 200, 200);
    state.fingerUp(1, 20, 20);    // slid onto it: no tap either
    state.fingerUp(2, 20, 20);    // an up without a down
    EXPECT_EQ(state.currentScreen(), "home");
    EXPECT_TRUE(shown.empty());

    const auto before = state.version();
    state.fingerDown(1, 20, 20);
    state.fingerDown(2, 30, 30);
    state.fingerUp(1, 25, 25);
    EXPECT_EQ(state.currentScreen(), "shop");
    EXPECT_EQ(state.currentImage(), (files.dir / "b.png").string());
    EXPECT_EQ(state.version(), before + 1);
    // Finger 2 went down on the home screen; lifting it over the shop's region does nothing.
    state.fingerUp(2, 5, 110);
    EXPECT_EQ(state.currentScreen(), "shop");
    EXPECT_EQ(shown, std::vector<std::string>{"shop"});

    // Apps follow the screen they own.
    state.home();
    tactora::Apps& apps = state;

    EXPECT_FALSE(apps.isForeground("com.example.shop"));
    EXPECT_FALSE(apps.isForeground(""));
    apps.launch("com.unknown");
    EXPECT_EQ(state.currentScreen(), "home");

    apps.launch("com.example.shop");
    EXPECT_TRUE(apps.isForeground("com.example.shop"));
    state.fingerDown(1, 100, 120);
    state.fingerUp(1, 100, 120);
    EXPECT_EQ(state.currentScreen(), "cart");
    EXPECT_TRUE(apps.isForeground("com.example.shop"));  // the cart belongs to the shop too
    apps.launch("com.example.shop");                       // already in front: stays where it is
    EXPECT_EQ(state.currentScreen(), "cart");

    apps.terminate("com.example.mail");  // not in front: nothing changes
    EXPECT_EQ(state.currentScreen(), "cart");
    apps.terminate("com.example.shop");
    EXPECT_EQ(state.currentScreen(), "home");
    EXPECT_FALSE(apps.isForeground("com.example.shop"));

    apps.launch("com.example.shop");
    state.home();
    EXPECT_EQ(state.currentScreen(), "home");
    EXPECT_FALSE(state.show("nowhere"));
}

TEST(DemoScene, TheTemplateTheButtonAndTheTapsAgreeWithThePictures) {
    SceneDirectory files;
    using namespace demoscene;
    std::string error;
    ASSERT_TRUE(writeDemoScene((files.dir / "demo").string(), error)) << error;
    auto scene = loadScene((files.dir / "demo" / "scene.json").string(), error);
    ASSERT_TRUE(scene) << error;

    const Rgba home(files.dir / "demo" / "home.png"), icon(files.dir / "demo" / "icon.png"), app(files.dir / "demo" / "app.png");
    ASSERT_EQ(home.width(), 640);
    ASSERT_EQ(home.height(), 1136);
    ASSERT_GT(icon.width(), 0);
    ASSERT_GT(app.width(), 0);

    // The template occurs once on the home screen, inside the icon's tap region.
    int found = 0, foundX = -1, foundY = -1;
    for (int y = 0; y + icon.height() <= home.height(); ++y)
        for (int x = 0; x + icon.width() <= home.width(); ++x) {
            bool same = true;
            for (int j = 0; j < icon.height() && same; ++j)
                for (int i = 0; i < icon.width() && same; ++i) same = home.at(x + i, y + j) == icon.at(i, j);
            if (same) ++found, foundX = x, foundY = y;
        }
    EXPECT_EQ(found, 1);
    const SceneTap& iconTap = scene->findScreen("home")->taps.at(0);
    EXPECT_TRUE(iconTap.contains(foundX / 2.0, foundY / 2.0));
    EXPECT_EQ(iconTap.show, scene->findApp(appBundleId)->screen);

    // The button's colour is found only inside the button, whose tap region shows "done".
    int first = -1;
    for (int y = 0; y < app.height(); ++y)
        for (int x = 0; x < app.width(); ++x)
            if (app.at(x, y) == buttonColor) {
                if (first < 0) first = y * app.width() + x;
                EXPECT_TRUE(scene->findScreen("app")->taps.at(0).contains(x / 2.0, y / 2.0)) << x << "," << y;
            }
    ASSERT_GE(first, 0);
    EXPECT_EQ(scene->findScreen("app")->taps.at(0).show, "done");
    EXPECT_EQ(scene->findScreen("done")->app, appBundleId);
}
