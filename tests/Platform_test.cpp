#include <gtest/gtest.h>

#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"
#include "host/HostPaths.h"

using namespace tactora;

TEST(HostPaths, LaysTheDeviceTreeUnderTheRoot) {
    host::HostPaths paths("/tmp/some-root/");
    EXPECT_EQ(paths.map(devicepaths::scriptsDirectory), "/tmp/some-root/var/mobile/Library/Tactora/Scripts");
    EXPECT_EQ(paths.map("relative/name.lua"), "relative/name.lua");
    EXPECT_EQ(host::HostPaths("/").map("/var/x"), "/var/x");
}

TEST(ScopedPlatform, PutsThePreviousPortsBack) {
    Paths* before = platform().paths;
    host::HostPaths paths("/r");
    {
        ScopedPlatform scope;
        platform().paths = &paths;
        EXPECT_EQ(platform().paths->map("/a"), "/r/a");
    }
    EXPECT_EQ(platform().paths, before);
}
