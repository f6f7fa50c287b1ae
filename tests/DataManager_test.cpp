#include "Managers/DataManager.h"

#include <gtest/gtest.h>

#include "FoundationFakes.h"
#include "Managers/PlaySettingsManager.h"

using namespace tactora;

namespace {

PlaySettings settingsFor(std::string title, bool playDirectly, float speed = 1.0f) {
    PlaySettings settings;
    settings.setScriptTitle(std::move(title)), settings.setPlayDirectly(playDirectly), settings.setPlaySpeed(speed);
    return settings;
}

class DataManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(device.map(devicepaths::libraryDirectory));
        ASSERT_TRUE(DataManager::initDb());
    }
    tactora::testing::FakeDevice device;
};

}  // namespace

// One row written by the insert, one by the update; both round alike.
TEST_F(DataManagerTest, SpeedsAreStoredWithOneDecimalOfTheWidenedFloat) {
    const std::pair<float, float> speeds[] = {{1.55f, 1.5f}, {0.75f, 0.8f}, {1.25f, 1.2f}, {2.96f, 3}, {0.04f, 0}, {0.35f, 0.3f}};
    for (const auto& [speed, stored] : speeds) {
        ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("s.lua", false, speed)));
        ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("u.lua", false, 9.0f)));
        ASSERT_TRUE(DataManager::updatePlaySettings(settingsFor("u.lua", false, speed)));
        for (const char* title : {"s.lua", "u.lua"}) {
            EXPECT_EQ(DataManager::findPlaySettingsByScriptTitle(title)->playSpeed(), stored) << title << " " << speed;
            ASSERT_TRUE(DataManager::deletePlaySettingsByScriptTitle(title));
        }
    }
}

TEST_F(DataManagerTest, TriggersAreFoundByEventTitleAndRole) {
    EXPECT_FALSE(DataManager::getActivatorTriggerForControlPanel() || DataManager::getActivatorTriggerForStartStopPlaying());
    for (const auto& [event, role, title] : {std::tuple("hold", 1, ""), {"press", 2, ""}, {"shake", 3, "a.lua"},
                                             {"shake", 3, "b.lua"}, {"swipe", 3, "a.lua"}})
        ASSERT_TRUE(DataManager::addActivatorTrigger(ActivatorTrigger(event, role, title)));
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
    auto all = DataManager::getActivatorTriggersAll();
    ASSERT_TRUE(all);
    std::vector<std::string> left;
    for (const auto& t : *all) left.push_back(t->eventName().value_or("?") + "/" + std::to_string(t->forWhat()));
    EXPECT_EQ(left, (std::vector<std::string>{"hold/1", "press/2"}));
}

TEST_F(DataManagerTest, PlaySettingsManagerAnswersFromItsCacheUntilReloaded) {
    for (const auto& [title, direct] : {std::pair("a.lua", false), {"a.lua", true}, {"b.lua", false}})
        ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor(title, direct)));
    PlaySettingsManager manager;
    EXPECT_TRUE(manager.ifPlayDirectly("a.lua"));  // the second row of a.lua plays directly
    EXPECT_FALSE(manager.ifPlayDirectly("b.lua") || manager.ifPlayDirectly("A.lua"));
    EXPECT_TRUE(manager.hasPlaySettings("b.lua"));
    EXPECT_FALSE(manager.hasPlaySettings("B.lua") || manager.hasPlaySettings("c.lua"));

    ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("c.lua", true)));
    EXPECT_FALSE(manager.hasPlaySettings("c.lua"));
    EXPECT_TRUE(manager.findPlaySettingsByScriptTitle("c.lua")->playDirectly());  // the store, not the cache
    manager.reloadData();
    EXPECT_TRUE(manager.hasPlaySettings("c.lua") && manager.ifPlayDirectly("c.lua"));

    std::filesystem::remove_all(device.map(devicepaths::libraryDirectory));
    manager.reloadData();
    EXPECT_FALSE(manager.hasPlaySettings("a.lua"));
}
