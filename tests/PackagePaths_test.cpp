#include <gtest/gtest.h>

#include "Platform/Paths.h"

TEST(PackagePaths, OnlyThePackageDirectoryMovesUnderTheRootlessPrefix) {
    const struct {
        std::string_view path, root, expected;
    } cases[] = {
        {"/Applications/Tactora.app/Extensions.lua", "/var/jb", "/var/jb/Applications/Tactora.app/Extensions.lua"},
        {"/Applications/Tactora.app", "/var/jb/", "/var/jb/Applications/Tactora.app"},
        // A sibling whose name merely starts like the package's is not the package.
        {"/Applications/Tactora.apps/x", "/var/jb", "/Applications/Tactora.apps/x"},
        // User data stays in /var/mobile whatever the layout; rootful, nothing moves.
        {"/var/mobile/Library/Tactora/Scripts", "/var/jb", "/var/mobile/Library/Tactora/Scripts"},
        {"/Applications/Tactora.app/Extensions.lua", "", "/Applications/Tactora.app/Extensions.lua"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tactora::packagePath(c.path, c.root), c.expected) << c.path << " under '" << c.root << "'";
}
