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
    std::vector<std::string> loggedMessages() const {
        std::vector<std::string> messages;
        for (const auto& entry : device.log.entries) messages.push_back(entry.message + " @ " + entry.function);
        return messages;
    }

    FakeDevice device;
};

}  // namespace

TEST_F(DataManagerTest, InitDbCreatesBothTablesOnceAndKeepsTheirRows) {
    EXPECT_EQ(file(), device.map("/var/mobile/Library/Tactora/Library/data.sqlite3").string());
    const std::vector<std::vector<std::string>> schema = {
        {"PLAY_SETTINGS",
         "CREATE TABLE PLAY_SETTINGS (ROW INTEGER PRIMARY KEY, SCRIPT_TITLE TEXT, PLAY_DIRECTLY BOOLEAN, TIME "
         "INTEGER, INTERVAL INTEGER, SPEED NUMERIC)"},
        {"ACTIVATOR_TRIGGER",
         "CREATE TABLE ACTIVATOR_TRIGGER (ROW INTEGER PRIMARY KEY, EVENT_NAME TEXT, FOR_WHAT INTEGER, SCRIPT_TITLE "
         "TEXT)"},
    };
    const std::string query = "SELECT name, sql FROM sqlite_master ORDER BY rowid;";
    EXPECT_EQ(rawRows(file(), query), schema);

    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("a.lua")));
    EXPECT_TRUE(DataManager::initDb());
    EXPECT_EQ(rawRows(file(), query), schema);
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    EXPECT_TRUE(device.log.entries.empty());
}

TEST_F(DataManagerTest, DuplicateTitlesKeepEveryRowAndLookupsTakeTheOldest) {
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("a.lua", false, 2, 3, 1.5f)));
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("b.lua", true, 9, 9, 2.0f)));
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("a.lua", true, 7, 8, 0.5f)));
    EXPECT_EQ(DataManager::countPlaySettings(), 3);

    auto found = DataManager::findPlaySettingsByScriptTitle("a.lua");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->scriptTitle(), "a.lua");
    EXPECT_FALSE(found->playDirectly());
    EXPECT_EQ(found->repeatTime(), 2);
    EXPECT_EQ(found->repeatInterval(), 3);
    EXPECT_EQ(found->playSpeed(), 1.5f);
    // Fields the store does not hold come back with their defaults.
    EXPECT_EQ(found->scriptPath(), std::nullopt);
    EXPECT_EQ(found->playType(), 0);

    auto all = DataManager::findAllPlaySettings();
    ASSERT_TRUE(all);
    std::vector<std::string> titles;
    for (const auto& s : *all) titles.push_back(s->scriptTitle().value_or("?") + ":" + std::to_string(s->repeatTime()));
    EXPECT_EQ(titles, (std::vector<std::string>{"a.lua:2", "b.lua:9", "a.lua:7"}));

    EXPECT_EQ(DataManager::findPlaySettingsByScriptTitle("A.lua"), nullptr);

    // An update touches every row of the title.
    ASSERT_TRUE(DataManager::updatePlaySettings(*settingsFor("a.lua", true, 0, 4, 3.0f)));
    EXPECT_EQ(rawRows(file(), "SELECT TIME FROM PLAY_SETTINGS WHERE SCRIPT_TITLE='a.lua'"),
              (std::vector<std::vector<std::string>>{{"0"}, {"0"}}));

    ASSERT_TRUE(DataManager::updateScriptTitleOfPlaySettingsFrom("a.lua", "c.lua"));
    EXPECT_EQ(DataManager::findPlaySettingsByScriptTitle("a.lua"), nullptr);
    ASSERT_TRUE(DataManager::deletePlaySettingsByScriptTitle("c.lua"));
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    // Deleting what is not there still succeeds.
    EXPECT_TRUE(DataManager::deletePlaySettingsByScriptTitle("c.lua"));
    EXPECT_TRUE(device.log.entries.empty());
}

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

TEST_F(DataManagerTest, IntegersOutsideThirtyTwoBitsReadBackTruncated) {
    const std::pair<long, long> times[] = {
        {(1L << 32) + 5, 5},
        {1L << 31, -(1L << 31)},
        {-1, -1},
        {(1L << 33) - 1, -1},
    };
    for (const auto& [stored, read] : times) {
        ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("t.lua", false, stored, stored)));
        auto settings = DataManager::findPlaySettingsByScriptTitle("t.lua");
        ASSERT_TRUE(settings);
        EXPECT_EQ(settings->repeatTime(), read) << stored;
        EXPECT_EQ(settings->repeatInterval(), read) << stored;
        ASSERT_TRUE(DataManager::deletePlaySettingsByScriptTitle("t.lua"));
    }
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("e", (1L << 32) + 2, "x")));
    EXPECT_EQ(DataManager::getActivatorTriggerByEventName("e")->forWhat(), 2);
}

TEST_F(DataManagerTest, MissingStringsAreStoredAndMatchedAsTheTextNull) {
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("panel", 1, std::nullopt)));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger(std::nullopt, 2, "a.lua")));
    EXPECT_EQ(rawRows(file(), "SELECT EVENT_NAME, SCRIPT_TITLE FROM ACTIVATOR_TRIGGER ORDER BY ROW"),
              (std::vector<std::vector<std::string>>{{"panel", "(null)"}, {"(null)", "a.lua"}}));
    auto panel = DataManager::getActivatorTriggerByEventName("panel");
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->scriptTitle(), "(null)");
    auto unnamed = DataManager::getActivatorTriggerByEventName(std::nullopt);
    ASSERT_TRUE(unnamed);
    EXPECT_EQ(unnamed->eventName(), "(null)");

    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor(std::nullopt)));
    auto untitled = DataManager::findPlaySettingsByScriptTitle(std::nullopt);
    ASSERT_TRUE(untitled);
    EXPECT_EQ(untitled->scriptTitle(), "(null)");
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

TEST_F(DataManagerTest, AnApostropheBreaksTheStatementAndWritersLogWhere) {
    ASSERT_TRUE(DataManager::insertPlaySettings(*settingsFor("fine.lua")));
    ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger("e", 3, "fine.lua")));
    const std::string title = "it's.lua";
    struct Case {
        std::function<bool()> call;
        const char* function;  // the name logged, or none
    };
    const Case cases[] = {
        {[&] { return DataManager::insertPlaySettings(*settingsFor(title)); }, "+[DataManager insertPlaySettings:]"},
        {[&] { return DataManager::updatePlaySettings(*settingsFor(title)); }, "+[DataManager updatePlaySettings:]"},
        {[&] { return DataManager::updateScriptTitleOfPlaySettingsFrom("fine.lua", title); },
         "+[DataManager updateScriptTitleOfPlaySettingsFrom:to:]"},
        {[&] { return DataManager::deletePlaySettingsByScriptTitle(title); }, nullptr},
        {[&] { return DataManager::addActivatorTrigger(ActivatorTrigger(title, 3, "fine.lua")); },
         "+[DataManager addActivatorTrigger:]"},
        {[&] { return DataManager::removeActivatorTrigger(title); }, "+[DataManager removeActivatorTrigger:]"},
        {[&] { return DataManager::removeActivatorTriggerByScriptTitle(title); }, nullptr},
        {[&] { return DataManager::updateScriptTitleOfActivatorTriggerFrom(title, "fine.lua"); },
         "+[DataManager updateScriptTitleOfActivatorTriggerFrom:to:]"},
    };
    for (const Case& c : cases) {
        device.log.entries.clear();
        EXPECT_FALSE(c.call());
        if (!c.function) {
            EXPECT_TRUE(device.log.entries.empty()) << ::testing::PrintToString(loggedMessages());
            continue;
        }
        ASSERT_EQ(device.log.entries.size(), 1u) << c.function;
        const auto& entry = device.log.entries.front();
        EXPECT_EQ(entry.message, "error to update data");
        EXPECT_EQ(entry.function, c.function);
        EXPECT_NE(entry.file.find("DataManager.cpp"), std::string::npos) << entry.file;
        EXPECT_GT(entry.line, 0);
    }
    device.log.entries.clear();
    EXPECT_EQ(DataManager::findPlaySettingsByScriptTitle(title), nullptr);
    EXPECT_EQ(DataManager::getActivatorTriggerByScriptTitle(title), nullptr);
    EXPECT_EQ(DataManager::getActivatorTriggerByEventName(title), nullptr);
    EXPECT_TRUE(device.log.entries.empty());
    // Nothing that was stored before changed.
    EXPECT_EQ(DataManager::countPlaySettings(), 1);
    EXPECT_EQ(DataManager::getActivatorTriggerByEventName("e")->scriptTitle(), "fine.lua");
}

TEST(DataManagerWithoutFile, EveryOperationFailsQuietlyWhenTheFileCannotBeOpened) {
    FakeDevice device;  // the library directory is never created
    EXPECT_FALSE(DataManager::initDb());
    EXPECT_EQ(DataManager::countPlaySettings(), -1);
    EXPECT_FALSE(DataManager::insertPlaySettings(PlaySettings()));
    EXPECT_FALSE(DataManager::updatePlaySettings(PlaySettings()));
    EXPECT_FALSE(DataManager::deletePlaySettingsByScriptTitle("a.lua"));
    EXPECT_FALSE(DataManager::addActivatorTrigger(ActivatorTrigger("e", 1, "")));
    EXPECT_FALSE(DataManager::removeActivatorTrigger("e"));
    EXPECT_EQ(DataManager::findAllPlaySettings(), std::nullopt);
    EXPECT_EQ(DataManager::getActivatorTriggersAll(), std::nullopt);
    EXPECT_EQ(DataManager::getActivatorTriggerForControlPanel(), nullptr);
    EXPECT_TRUE(device.log.entries.empty());
    EXPECT_FALSE(std::filesystem::exists(device.map(devicepaths::libraryDirectory)));
}

TEST(DataManagerWithoutFile, ADamagedFileFailsEveryStatementAndIsLeftAlone) {
    FakeDevice device;
    std::filesystem::create_directories(device.map(devicepaths::libraryDirectory));
    const std::string garbage(4096, 'x');
    std::ofstream(DataManager::dataFilePath(), std::ios::binary) << garbage;

    EXPECT_FALSE(DataManager::initDb());
    ASSERT_EQ(device.log.entries.size(), 1u);
    EXPECT_EQ(device.log.entries[0].message, "error to init db");
    EXPECT_EQ(device.log.entries[0].function, "+[DataManager initDb]");
    EXPECT_FALSE(DataManager::insertPlaySettings(PlaySettings()));
    EXPECT_EQ(DataManager::countPlaySettings(), -1);
    auto all = DataManager::findAllPlaySettings();
    ASSERT_TRUE(all);  // the file opened; the query found nothing
    EXPECT_TRUE(all->empty());

    std::ifstream in(DataManager::dataFilePath(), std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(content, garbage);
}

TEST(DataManagerWithoutFile, CountIsMinusOneWithoutTheTableAndZeroForAnEmptyOne) {
    FakeDevice device;
    std::filesystem::create_directories(device.map(devicepaths::libraryDirectory));
    EXPECT_EQ(DataManager::countPlaySettings(), -1);  // the file is made, the table is not
    ASSERT_TRUE(DataManager::initDb());
    EXPECT_EQ(DataManager::countPlaySettings(), 0);
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
