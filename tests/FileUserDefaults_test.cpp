#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "FoundationFakes.h"
#include "host/FileUserDefaults.h"

using namespace tactora;
using tactora::host::FileUserDefaults;
using tactora::testing::ScratchDirectory;
namespace fs = std::filesystem;

namespace {

std::string contentOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

TEST(FileUserDefaults, ValuesKeepTheirTypeAcrossARestart) {
    ScratchDirectory dir;
    const std::string path = (dir.path() / "Preferences" / "defaults.json").string();  // directory made on demand
    {
        FileUserDefaults defaults(path);
        EXPECT_EQ(defaults.objectForKey("missing"), std::nullopt);
        defaults.setObject("flag", true);
        defaults.setObject("count", std::int64_t(-3));
        defaults.setObject("big", std::int64_t(1) << 40);
        defaults.setObject("ratio", 1.0);
        defaults.setObject("script.password.a.lua.e", std::string("pa\"ss\nwörd"));
        defaults.setObject("flag", false);  // replaces
        defaults.setObject("gone", std::string("x"));
        defaults.removeObject("gone");
        defaults.removeObject("never-there");
    }
    FileUserDefaults reopened(path);
    EXPECT_EQ(reopened.objectForKey("flag"), DefaultsValue(false));
    EXPECT_EQ(reopened.objectForKey("count"), DefaultsValue(std::int64_t(-3)));
    EXPECT_EQ(reopened.objectForKey("big"), DefaultsValue(std::int64_t(1) << 40));
    EXPECT_EQ(reopened.objectForKey("ratio"), DefaultsValue(1.0));
    EXPECT_EQ(reopened.stringForKey("script.password.a.lua.e"), "pa\"ss\nwörd");
    EXPECT_EQ(reopened.objectForKey("gone"), std::nullopt);
}

TEST(FileUserDefaults, AChangeByAnotherWriterIsSeenAtTheNextRead) {
    ScratchDirectory dir;
    const std::string path = (dir.path() / "defaults.json").string();
    FileUserDefaults player(path);
    FileUserDefaults settingsTool(path);
    EXPECT_FALSE(player.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"));
    settingsTool.setObject("TACTORA.SETTINGS.LOG_ERRORS", false);
    EXPECT_EQ(player.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"), DefaultsValue(false));
    player.setObject("other", std::int64_t(1));
    EXPECT_EQ(settingsTool.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"), DefaultsValue(false));
}

TEST(FileUserDefaults, ADamagedFileReadsEmptyAndIsMovedAsideOnlyByTheNextChange) {
    const std::string damaged[] = {
        "{\"TACTORA.SETTINGS.LOG_ERRORS\": fal",  // cut short
        "[true, false]",                          // not an object
        "",                                       // empty
        std::string("\0\0\0\0", 4),               // zeroes after a crash of the file system
    };
    for (const std::string& content : damaged) {
        ScratchDirectory dir;
        const fs::path path = dir.path() / "defaults.json";
        std::ofstream(path, std::ios::binary) << content;
        FileUserDefaults defaults(path.string());
        EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"), std::nullopt);
        EXPECT_FALSE(defaults.boolForKey("anything"));
        EXPECT_EQ(contentOf(path), content) << "reading must not rewrite the file";

        defaults.setObject("key", std::int64_t(5));
        EXPECT_EQ(defaults.objectForKey("key"), DefaultsValue(std::int64_t(5)));
        EXPECT_EQ(contentOf(path.string() + ".corrupt"), content);
    }
}
