#include <gtest/gtest.h>

#include <filesystem>

#include "RuntimeFakes.h"
#include "Control/ActivatorManager.h"
#include "Managers/DataManager.h"
#include "Managers/FileManager.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

const std::vector<std::string> everyMode = {LAEventModeSpringBoard, LAEventModeApplication, LAEventModeLockScreen};
const std::string shake = "libactivator.motion.shake";

class ActivatorManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(FileManager::prepareDirectories());
        ASSERT_TRUE(DataManager::initDb());
    }
    size_t assignedToUs() { return device.registry.eventsAssignedToListenerWithName(listenerName).size(); }
    ControlDevice device;
};

}  // namespace

TEST_F(ActivatorManagerTest, TheStoreAndTheRegistryAreBroughtIntoAgreementBothWays) {
    device.writeScript("tap.lua");
    // A trigger whose assignment the user took away in the registry.
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger(shake, forWhatPlayScript, "tap.lua"), {});
    // An assignment made in the registry with no trigger behind it.
    device.registry.assignEvent(LAEvent(LAEventNameVolumeDownPress, LAEventModeApplication), listenerName);
    // Another listener's assignment is none of our business.
    device.registry.assignEvent(LAEvent("libactivator.menu.press.double", LAEventModeSpringBoard), "other.listener");

    EXPECT_FALSE(ActivatorManager::getActivatorTriggerForControlPanel());
    EXPECT_TRUE(ActivatorManager::getActivatorTriggerAll().empty());
    EXPECT_EQ(assignedToUs(), 0u);
    EXPECT_EQ(device.registry.eventsAssignedToListenerWithName("other.listener").size(), 1u);
}

TEST_F(ActivatorManagerTest, AnswersWhetherAnEventIsAssignedForARole) {
    device.writeScript("tap.lua");
    ActivatorManager::initControlActions();
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger(shake, forWhatPlayScript, "tap.lua"), everyMode);
    struct Case {
        std::string event;
        long forWhat;
        std::optional<std::string> title;
        bool expected;
    } cases[] = {
        {LAEventNameVolumeDownHoldShort, 1, std::nullopt, true},
        {LAEventNameVolumeDownHoldShort, 2, std::nullopt, false},
        {LAEventNameVolumeDownPress, 2, std::nullopt, true},
        {LAEventNameVolumeDownPress, 0, std::nullopt, false},
        {LAEventNameVolumeDownPress, 4, std::nullopt, false},
        {shake, 3, "tap.lua", true},
        {shake, 3, "other.lua", false},
        {shake, 1, std::nullopt, false},
        {"libactivator.unassigned", 1, std::nullopt, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ActivatorManager::isEventAssigned(c.event, c.forWhat, c.title), c.expected)
            << c.event << " role " << c.forWhat;

    ActivatorManager::unassignActivatorTrigger(shake, everyMode);
    EXPECT_FALSE(ActivatorManager::isEventAssigned(shake, 3, "tap.lua"));
    EXPECT_EQ(assignedToUs(), 6u);
}

TEST_F(ActivatorManagerTest, AnEventMayBeTakenFromAListenerOnlyIfItKeepsAnotherAssignment) {
    const std::string other = "other.listener";
    for (const auto& mode : everyMode) device.registry.assignEvent(LAEvent(shake, mode), other);
    // A listener that needs no assignment may lose everything.
    EXPECT_TRUE(ActivatorManager::allowedToUnassignEvent(shake, other));

    device.registry.setListenerRequiresAssignment(other, true);
    EXPECT_FALSE(ActivatorManager::allowedToUnassignEvent(shake, other));
    device.registry.assignEvent(LAEvent("libactivator.menu.press.double", LAEventModeSpringBoard), other);
    EXPECT_TRUE(ActivatorManager::allowedToUnassignEvent(shake, other));
}
