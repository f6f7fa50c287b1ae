#include <gtest/gtest.h>

#include <fstream>

#include "FoundationFakes.h"
#include "host/FileUserDefaults.h"

using namespace tactora;
using tactora::host::FileUserDefaults;
using tactora::testing::readFile;
using tactora::testing::ScratchDirectory;
using namespace std::string_literals;

TEST(FileUserDefaults, ValuesKeepTheirTypeAcrossARestartAndAnotherWritersChangeIsSeenAtTheNextRead) {
    ScratchDirectory dir;
    const std::string path = (dir.path() / "Preferences" / "defaults.json").string();  // directory made on demand
    {
        FileUserDefaults defaults(path), settingsTool(path);
        EXPECT_EQ(defaults.objectForKey("flag"), std::nullopt);
        defaults.setObject("flag", true);
        defaults.setObject("count", std::int64_t(-3));
        defaults.setObject("big", std::int64_t(1) << 40);
        defaults.setObject("ratio", 1.0);
        defaults.setObject("script.password.a.lua.e", std::string("pa\"ss\nwörd"));
        defaults.setObject("gone", std::string("x"));
        defaults.removeObject("gone");
        defaults.removeObject("never-there");
        settingsTool.setObject("flag", false);  // replaces, and the first one sees it
        EXPECT_EQ(defaults.objectForKey("flag"), DefaultsValue(false));
        defaults.setObject("other", std::int64_t(1));
        EXPECT_EQ(settingsTool.objectForKey("flag"), DefaultsValue(false));
    }
    FileUserDefaults reopened(path);
    EXPECT_EQ(reopened.objectForKey("flag"), DefaultsValue(false));
    EXPECT_EQ(reopened.objectForKey("count"), DefaultsValue(std::int64_t(-3)));
    EXPECT_EQ(reopened.objectForKey("big"), DefaultsValue(std::int64_t(1) << 40));
    EXPECT_EQ(reopened.objectForKey("ratio"), DefaultsValue(1.0));
    EXPECT_EQ(reopened.stringForKey("script.password.a.lua.e"), "pa\"ss\nwörd");
    EXPECT_EQ(reopened.objectForKey("gone"), std::nullopt);
}

TEST(FileUserDefaults, ADamagedFileReadsEmptyAndIsMovedAsideOnlyByTheNextChange) {
    // Cut short, not an object, empty, zeroes after a crash of the file system.
    for (const std::string& content : {"{\"TACTORA.SETTINGS.LOG_ERRORS\": fal"s, "[true, false]"s, ""s, "\0\0\0\0"s}) {
        ScratchDirectory dir;
        const std::string path = dir.file("defaults.json");
        std::ofstream(path, std::ios::binary) << content;
        FileUserDefaults defaults(path);
        EXPECT_EQ(defaults.objectForKey("TACTORA.SETTINGS.LOG_ERRORS"), std::nullopt);
        EXPECT_FALSE(defaults.boolForKey("anything"));
        EXPECT_EQ(readFile(path), content) << "reading must not rewrite the file";
        defaults.setObject("key", std::int64_t(5));
        EXPECT_EQ(defaults.objectForKey("key"), DefaultsValue(std::int64_t(5)));
        EXPECT_EQ(readFile(path + ".corrupt"), content);
    }
}
