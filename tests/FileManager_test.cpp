#include <gtest/gtest.h>
#include <algorithm>
#include <fstream>

#include "FoundationFakes.h"
#include "Managers/FileManager.h"

using namespace tactora;
using tactora::testing::FakeDevice;
namespace fs = std::filesystem;

namespace {

void touch(const fs::path& path) { std::ofstream(path) << "-- script\n"; }

}  // namespace

TEST(FileManager, AScriptsDirectoryThatCannotBeMadeIsReportedAndTheLibraryLeftAlone) {
    FakeDevice device;
    // A dangling link where the directory belongs: it does not exist, and nothing, not even
    // root, can create a directory in its place.
    fs::path scripts = device.map(devicepaths::scriptsDirectory);
    fs::create_directories(scripts.parent_path());
    fs::create_symlink(device.root.path() / "nowhere", scripts);

    EXPECT_FALSE(FileManager::prepareDirectories());
    ASSERT_EQ(device.alerts.shown().size(), 1u);
    const AlertRequest alert = device.alerts.shown()[0];
    EXPECT_EQ(alert.title, "Error");
    EXPECT_EQ(alert.message,
              "Failed to create Scripts directory. Info:" + std::make_error_code(std::errc::file_exists).message());
    EXPECT_EQ(alert.cancelButton, "OK");
    EXPECT_FALSE(fs::exists(device.map(devicepaths::libraryDirectory)));
}

TEST(FileManager, PreparedDirectoriesKeepTheirScriptsWhoseTitlesEndInLuaOrEWhateverTheirCase) {
    FakeDevice device;
    EXPECT_TRUE(FileManager::getAllScriptFileTitles().empty());  // no directory yet
    EXPECT_TRUE(FileManager::prepareDirectories());
    EXPECT_TRUE(fs::is_directory(device.map(devicepaths::libraryDirectory)));
    EXPECT_TRUE(FileManager::getAllScriptFileTitles().empty());
    fs::path scripts = device.map(devicepaths::scriptsDirectory);
    for (const char* name : {"a.lua", "b.LUA", "c.lua.e", "d.txt", "e", "g.E", "h.lua.bak", ".lua", "i.", "j.Lua"})
        touch(scripts / name);
    fs::create_directories(scripts / "f.lua");
    fs::create_directories(scripts / "k.dir");
    touch(scripts / "k.dir" / "inner.lua");
    EXPECT_TRUE(FileManager::prepareDirectories());  // a second time: nothing lost, nothing said
    EXPECT_TRUE(device.alerts.shown().empty());
    EXPECT_EQ(FileManager::scriptPath("a.lua"), (scripts / "a.lua").string());

    std::vector<std::string> titles = FileManager::getAllScriptFileTitles();
    std::vector<std::string> sorted = titles;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, (std::vector<std::string>{".lua", "a.lua", "b.LUA", "c.lua.e", "f.lua", "g.E", "j.Lua"}));
    // In the order the directory lists them, not sorted.
    std::vector<std::string> listing;
    for (const auto& entry : fs::directory_iterator(scripts))
        if (std::ranges::count(titles, entry.path().filename().string())) listing.push_back(entry.path().filename().string());
    EXPECT_EQ(titles, listing);
}
