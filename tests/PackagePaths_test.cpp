#include <gtest/gtest.h>

#include "Platform/Paths.h"

namespace tactora {
namespace {

TEST(PackagePaths, OnlyThePackageDirectoryMovesUnderTheRootlessPrefix) {
    struct Case {
        std::string_view path, root, expected;
    } cases[] = {
        {"/Applications/Tactora.app/Extensions.lua", "/var/jb", "/var/jb/Applications/Tactora.app/Extensions.lua"},
        {"/Applications/Tactora.app", "/var/jb", "/var/jb/Applications/Tactora.app"},
        {"/Applications/Tactora.app/test.m4a", "/var/jb/", "/var/jb/Applications/Tactora.app/test.m4a"},
        // A sibling whose name merely starts like the package's is not the package.
        {"/Applications/Tactora.apps/x", "/var/jb", "/Applications/Tactora.apps/x"},
        // User data stays in /var/mobile whatever the layout.
        {"/var/mobile/Library/Tactora/Scripts", "/var/jb", "/var/mobile/Library/Tactora/Scripts"},
        {"/var/mobile/Library/Tactora/Library/log.log", "/var/jb", "/var/mobile/Library/Tactora/Library/log.log"},
        // Rootful: nothing moves.
        {"/Applications/Tactora.app/Extensions.lua", "", "/Applications/Tactora.app/Extensions.lua"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(packagePath(c.path, c.root), c.expected) << c.path << " under '" << c.root << "'";
    }
}

}  // namespace
}  // namespace tactora
