#include <gtest/gtest.h>

#include "Kernel/Utils.h"
#include "Platform/Platform.h"
#include "ScreenFakes.h"
#include "host/SimulatedDeviceInfo.h"

using namespace tactora;
using Strings = std::vector<std::string>;

TEST(Utils, DeviceTreeValuesSplitAtEachNul) {
    using namespace std::string_literals;
    ScopedPlatform scope;
    host::SimulatedDeviceInfo info(*host::findDeviceProfile("iphone-se"));
    platform().deviceInfo = &info;
    info.setProperty("abc", "abc"s + '\0');
    info.setProperty("pair", "one\0two"s);
    info.setProperty("empty", ""s);
    info.setProperty("device-imei", "35 1234\0"s);
    EXPECT_EQ(getValue("abc"), (Strings{"abc", ""}));
    EXPECT_EQ(getValue("pair"), (Strings{"one", "two"}));
    EXPECT_EQ(getValue("empty"), std::nullopt);
    EXPECT_EQ(getValue("missing"), std::nullopt);
    EXPECT_EQ(imei(), "35 1234");
    info.setProperty("backlight-level", std::nullopt);
    EXPECT_EQ(backlightlevel(), std::nullopt);
    // Without the port there is no device tree at all, and no installation cache.
    resetPlatform();
    EXPECT_EQ(getValue("abc"), std::nullopt);
    EXPECT_TRUE(Utils::appInstalledList().empty());
}

TEST(Utils, ScreenSizeAndBoundsDoNotDependOnHowTheScreenIsHeld) {
    EXPECT_EQ(screenSizeText(320, 568, 2), "640x1136");
    EXPECT_EQ(screenSizeText(568, 320, 2), "640x1136");
    EXPECT_EQ(screenSizeText(414, 736, 3), "1242x2208");
    screentest::ScopedScreen scoped("iphone-se");
    EXPECT_EQ(Utils::getScreenSize(), "640x1136");
    const Rect portrait{0, 0, 320, 568}, landscape{0, 0, 568, 320};
    for (int orientation : {1, 2, 0, 7}) {
        scoped.display().setInterfaceOrientation(orientation);
        EXPECT_EQ(Utils::currentScreenBoundsDependOnOrientation(), portrait) << orientation;
    }
    for (int orientation : {3, 4}) {
        scoped.display().setInterfaceOrientation(orientation);
        EXPECT_EQ(Utils::currentScreenBoundsDependOnOrientation(), landscape) << orientation;
    }
}

TEST(Utils, ImageGeometryHelpers) {
    // Channel offsets in A, R, G, B order.
    EXPECT_EQ(alphaOffset(3, 2, 10), 92);
    EXPECT_EQ(redOffset(3, 2, 10), 93);
    EXPECT_EQ(greenOffset(3, 2, 10), 94);
    EXPECT_EQ(blueOffset(3, 2, 10), 95);
    // Stretch in width only, or scale both sides.
    EXPECT_EQ(Utils::scaledToWidth({100, 40}, 50).height, 40);
    EXPECT_EQ(Utils::scaledToWidth2({100, 40}, 50).height, 20);
    // Aspect fit, centred, origin truncated.
    EXPECT_EQ(aspectFitRect({100, 50}, {45, 45}), (Rect{0, 11, 45, 22.5}));
    EXPECT_EQ(aspectFitRect({30, 60}, {101, 60}), (Rect{35, 0, 30, 60}));
}
