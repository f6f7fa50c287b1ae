#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "FoundationFakes.h"
#include "host/HostEventRegistry.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

struct CountingListener final : LAListener {
    std::vector<std::string> received;
    bool handle = true;
    void activatorReceiveEvent(LAEvent& event) override {
        received.push_back(event.name() + "/" + event.mode());
        if (handle) event.setHandled(true);
    }
};

}  // namespace

TEST(HostEventRegistry, KeepsAssignmentsAcrossRestartsDeliversThemAndLosesNoneToABrokenFileOrAFailedWrite) {
    ScratchDirectory root;
    const std::string file = (root.path() / "prefs" / "registry.json").string();
    {
        host::HostEventRegistry registry(file);
        registry.assignEvent(LAEvent("a", LAEventModeSpringBoard), "us");
        registry.assignEvent(LAEvent("a", LAEventModeLockScreen), "us");
        registry.assignEvent(LAEvent("b", LAEventModeSpringBoard), "them");
        registry.assignEvent(LAEvent("b", LAEventModeSpringBoard), "us");  // taken over
        registry.removeListenerAssignment("them", LAEvent("a", LAEventModeLockScreen));  // not theirs
        registry.setEventModes("c", {LAEventModeApplication});
        registry.setListenerRequiresAssignment("them", true);
        EXPECT_TRUE(registry.lastSaveSucceeded());
    }
    host::HostEventRegistry registry(file);
    EXPECT_EQ(registry.eventsAssignedToListenerWithName("us").size(), 3u);
    EXPECT_TRUE(registry.eventsAssignedToListenerWithName("them").empty());
    EXPECT_TRUE(registry.listenerWithNameRequiresAssignment("them"));
    EXPECT_FALSE(registry.eventWithName("c", LAEventModeSpringBoard));
    EXPECT_TRUE(registry.eventWithName("c", LAEventModeApplication));
    EXPECT_TRUE(registry.eventWithName("anything", LAEventModeLockScreen));

    CountingListener us;
    registry.registerListener(&us, "us");
    EXPECT_TRUE(registry.sendEvent("a", LAEventModeLockScreen));
    EXPECT_FALSE(registry.sendEvent("a", LAEventModeApplication));  // not assigned in that mode
    us.handle = false;
    EXPECT_FALSE(registry.sendEvent("b"));
    EXPECT_EQ(us.received, (std::vector<std::string>{"a/lockscreen", "b/springboard"}));

    bool failWrites = true;
    host::HostEventRegistry writer(file, true, [&](const std::string& path, const std::string& text) {
        return !failWrites && host::writeFileAtomically(path, text);
    });
    writer.assignEvent(LAEvent("d", LAEventModeSpringBoard), "us");
    EXPECT_FALSE(writer.lastSaveSucceeded());
    EXPECT_EQ(host::HostEventRegistry(file).eventsAssignedToListenerWithName("us").size(), 3u);
    failWrites = false;
    writer.assignEvent(LAEvent("e", LAEventModeSpringBoard), "us");
    EXPECT_EQ(host::HostEventRegistry(file).eventsAssignedToListenerWithName("us").size(), 5u);

    std::ofstream(file) << "{\"assignments\": [ {\"event\": 1";
    host::HostEventRegistry fresh(file);
    EXPECT_TRUE(fresh.eventsAssignedToListenerWithName("us").empty());
    EXPECT_TRUE(std::filesystem::exists(file + ".broken")) << "a broken file is set aside, not overwritten";
    fresh.assignEvent(LAEvent("a", LAEventModeSpringBoard), "us");
    EXPECT_EQ(host::HostEventRegistry(file).eventsAssignedToListenerWithName("us").size(), 1u);
}
