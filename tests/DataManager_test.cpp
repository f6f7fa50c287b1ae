#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>

#include "FoundationFakes.h"
#include "Managers/DataManager.h"
#include "Managers/Database.h"
#include "Managers/PlaySettingsManager.h"

using namespace tactora;
using tactora::testing::FakeDevice;

namespace {

std::shared_ptr<PlaySettings> settingsFor(std::optional<std::string> title, bool playDirectly = false,
                                          long times = 1, long interval = 1, float speed = 1.0f) {
    auto settings = std::make_shared<PlaySettings>();
    settings->setScriptTitle(std::move(title));
    settings->setPlayDirectly(playDirectly);
    settings->setRepeatTime(times);
    settings->setRepeatInterval(interval);
    settings->setPlaySpeed(speed);
    return settings;
}

// Rows of a query run straight on the file, each column as text ("NULL" for a null value).
std::vector<std::vector<std::string>> rawRows(const std::string& path, const std::string& sql) {
    std::vector<std::vector<std::string>> rows;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        ADD_FAILURE() << "cannot open " << path;
        return rows;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << sqlite3_errmsg(db);
    }
    while (statement && sqlite3_step(statement) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const unsigned char* text = sqlite3_column_text(statement, i);
            row.push_back(text ? reinterpret_cast<const char*>(text) : "NULL");
        }
        rows.push_back(row);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return rows;
}

class DataManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(device.map(devicepaths::libraryDirectory));
        ASSERT_TRUE(DataManager::initDb());
    }
    std::string file() const { return DataManager::dataFilePath(); }
    FakeDevice device;
};

}  // namespace

TEST_F(DataManagerTest, SpeedsAreStoredWithOneDecimalOfTheWidenedFloat) {
    const std::pair<float, const char*> speeds[] = {
        // NUMERIC keeps a whole number as an integer, hence "1" for 1.0.
        {1.55f, "1.5"}, {0.75f, "0.8"}, {1.25f, "1.2"}, {1.0f, "1"}, {2.96f, "3"}, {0.04f, "0"}, {0.35f, "0.3"},
    };
    for (const auto& [speed, stored] : speeds) {
        SCOPED_TRACE(stored);
        // One row written by the insert, one by the update; both round alike.
        ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("s.lua", false, 1, 1, speed)));
        ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("u.lua", false, 1, 1, 9.0f)));
        ASSERT_TRUE(DataManager::updatePlaySettings(*settingsFor("u.lua", false, 1, 1, speed)));
        EXPECT_EQ(rawRows(file(), "SELECT SPEED FROM PLAY_SETTINGS ORDER BY ROW"),
                  (std::vector<std::vector<std::string>>{{stored}, {stored}}));
        for (const char* title : {"s.lua", "u.lua"}) {
            auto read = DataManager::findPlaySettingsByScriptTitle(title);
            ASSERT_TRUE(read);
            EXPECT_EQ(read->playSpeed(), std::stof(stored)) << title;
        }
        ASSERT_TRUE(DataManager::deletePlaySettingsByScriptTitle("s.lua"));
        ASSERT_TRUE(DataManager::deletePlaySettingsByScriptTitle("u.lua"));
    }
}

TEST_F(DataManagerTest, TriggersAreFoundByEventTitleAndRole) {
    EXPECT_EQ(DataManager::getActivatorTriggerForControlPanel(), nullptr);
    EXPECT_EQ(DataManager::getActivatorTriggerForStartStopPlaying(), nullptr);
    auto all = DataManager::getActivatorTriggersAll();
    ASSERT_TRUE(all);
    EXPECT_TRUE(all->empty());

    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("hold", 1, "")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("press", 2, "")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("shake", 3, "a.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("shake", 3, "b.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("swipe", 3, "a.lua")));

    EXPECT_EQ(DataManager::getActivatorTriggerForControlPanel()->eventName(), "hold");
    EXPECT_EQ(DataManager::getActivatorTriggerForStartStopPlaying()->eventName(), "press");
    EXPECT_EQ(DataManager::getActivatorTriggerByEventName("shake")->scriptTitle(), "a.lua");
    EXPECT_EQ(DataManager::getActivatorTriggerByScriptTitle("a.lua")->eventName(), "shake");
    EXPECT_EQ(DataManager::getActivatorTriggerByEventName("nothing"), nullptr);

    ASSERT_TRUE(DataManager::updateScriptTitleOfActivatorTriggerFrom("a.lua", "c.lua"));
    EXPECT_EQ(DataManager::getActivatorTriggerByScriptTitle("a.lua"), nullptr);
    EXPECT_EQ(DataManager::getActivatorTriggerByEventName("swipe")->scriptTitle(), "c.lua");

    ASSERT_TRUE(DataManager::removeActivatorTrigger("shake"));  // both rows of the event go
    ASSERT_TRUE(DataManager::removeActivatorTriggerByScriptTitle("c.lua"));
    all = DataManager::getActivatorTriggersAll();
    ASSERT_TRUE(all);
    std::vector<std::string> left;
    for (const auto& t : *all) left.push_back(t->eventName().value_or("?") + "/" + std::to_string(t->forWhat()));
    EXPECT_EQ(left, (std::vector<std::string>{"hold/1", "press/2"}));
}

TEST_F(DataManagerTest, PlaySettingsManagerAnswersFromItsCacheUntilReloaded) {
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("a.lua", false)));
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("a.lua", true)));
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("b.lua", false)));
    PlaySettingsManager manager;
    EXPECT_TRUE(manager.ifPlayDirectly("a.lua"));  // the second row of a.lua plays directly
    EXPECT_FALSE(manager.ifPlayDirectly("b.lua"));
    EXPECT_FALSE(manager.ifPlayDirectly("A.lua"));
    EXPECT_TRUE(manager.hasPlaySettings("b.lua"));
    EXPECT_FALSE(manager.hasPlaySettings("B.lua"));
    EXPECT_FALSE(manager.hasPlaySettings("c.lua"));

    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("c.lua", true)));
    EXPECT_FALSE(manager.hasPlaySettings("c.lua"));
    EXPECT_EQ(manager.findPlaySettingsByScriptTitle("c.lua")->playDirectly(), true);  // the store, not the cache
    manager.reloadData();
    EXPECT_TRUE(manager.hasPlaySettings("c.lua"));
    EXPECT_TRUE(manager.ifPlayDirectly("c.lua"));

    std::filesystem::remove(DataManager::dataFilePath());
    std::filesystem::remove_all(device.map(devicepaths::libraryDirectory));
    manager.reloadData();
    EXPECT_FALSE(manager.hasPlaySettings("a.lua"));
}
