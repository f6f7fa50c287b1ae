#include "Control/ActivatorManager.h"

#include <gtest/gtest.h>

#include "Managers/DataManager.h"
#include "Managers/FileManager.h"
#include "RuntimeFakes.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

const std::vector<std::string> everyMode = {LAEventModeSpringBoard, LAEventModeApplication, LAEventModeLockScreen};
const std::string shake = "libactivator.motion.shake", other = "other.listener";

class ActivatorManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(FileManager::prepareDirectories() && DataManager::initDb());
        device.writeScript("tap.lua");
    }
    size_t assignedTo(const std::string& listener) { return device.registry.eventsAssignedToListenerWithName(listener).size(); }
    ControlDevice device;
};

}  // namespace

TEST_F(ActivatorManagerTest, TheStoreAndTheRegistryAreBroughtIntoAgreementBothWays) {
    // A trigger whose assignment the user took away in the registry, an assignment with no trigger
    // behind it, and another listener's assignment, which is none of our business.
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger(shake, forWhatPlayScript, "tap.lua"), {});
    device.registry.assignEvent(LAEvent(LAEventNameVolumeDownPress, LAEventModeApplication), listenerName);
    device.registry.assignEvent(LAEvent("libactivator.menu.press.double", LAEventModeSpringBoard), other);

    EXPECT_FALSE(ActivatorManager::getActivatorTriggerForControlPanel());
    EXPECT_TRUE(ActivatorManager::getActivatorTriggerAll().empty());
    EXPECT_EQ(assignedTo(listenerName), 0u);
    EXPECT_EQ(assignedTo(other), 1u);
}

TEST_F(ActivatorManagerTest, AnswersWhetherAnEventIsAssignedForARole) {
    ActivatorManager::initControlActions();
    ActivatorManager::assignActivatorTrigger(ActivatorTrigger(shake, forWhatPlayScript, "tap.lua"), everyMode);
    const struct { std::string event; long forWhat; std::optional<std::string> title; bool expected; } cases[] = {
        {LAEventNameVolumeDownHoldShort, 1, {}, true}, {LAEventNameVolumeDownHoldShort, 2, {}, false},
        {LAEventNameVolumeDownPress, 2, {}, true},     {LAEventNameVolumeDownPress, 0, {}, false},
        {LAEventNameVolumeDownPress, 4, {}, false},    {shake, 3, "tap.lua", true},
        {shake, 3, "other.lua", false},                {shake, 1, {}, false},
        {"libactivator.unassigned", 1, {}, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ActivatorManager::isEventAssigned(c.event, c.forWhat, c.title), c.expected) << c.event << " " << c.forWhat;
    ActivatorManager::unassignActivatorTrigger(shake, everyMode);
    EXPECT_FALSE(ActivatorManager::isEventAssigned(shake, 3, "tap.lua"));
    EXPECT_EQ(assignedTo(listenerName), 6u);
}

// A listener that needs an assignment may lose an event only while it keeps another one.
TEST_F(ActivatorManagerTest, AnEventMayBeTakenFromAListenerOnlyIfItKeepsAnotherAssignment) {
    for (const auto& mode : everyMode) device.registry.assignEvent(LAEvent(shake, mode), other);
    EXPECT_TRUE(ActivatorManager::allowedToUnassignEvent(shake, other));
    device.registry.setListenerRequiresAssignment(other, true);
    EXPECT_FALSE(ActivatorManager::allowedToUnassignEvent(shake, other));
    device.registry.assignEvent(LAEvent("libactivator.menu.press.double", LAEventModeSpringBoard), other);
    EXPECT_TRUE(ActivatorManager::allowedToUnassignEvent(shake, other));
}
