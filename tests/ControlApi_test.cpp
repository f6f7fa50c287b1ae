#include <gtest/gtest.h>

#include <httplib.h>

#include <atomic>
#include <thread>

#include "RuntimeFakes.h"
#include "Control/ActionListener.h"
#include "Kernel/Recorder.h"
#include "host/ControlApi.h"
#include "host/InputEvents.h"
#include "host/SpringBoardHost.h"

using namespace tactora;
using namespace tactora::testing;
using nlohmann::json;

namespace {

class ControlApiTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(springBoard.start()); }
    host::ApiReply post(const std::string& path, const json& body) { return api.handle("POST", path, body); }
    json state() { return api.state(); }

    ControlDevice device;
    host::SpringBoardHost springBoard{device.loop, (device.root.path() / "registry.json").string(), nullptr};
    host::ControlApi api{springBoard};
};

}  // namespace

TEST_F(ControlApiTest, DrivesTheControlPanelAndThePlaySettingsPanel) {
    device.writeScript("tap.lua");
    auto reply = post("/api/event", {{"name", LAEventNameVolumeDownHoldShort}});
    ASSERT_EQ(reply.status, 200);
    EXPECT_TRUE(reply.body["handled"]);
    json panel = state()["panels"][0];
    EXPECT_EQ(panel["panel"], "ControlPanelView");
    EXPECT_EQ(panel["recordButton"], "Record");
    ASSERT_EQ(panel["rows"].size(), 1u);
    EXPECT_EQ(panel["rows"][0]["text"], "tap.lua");
    EXPECT_TRUE(state()["flags"]["isControlPanelShowing"]);

    EXPECT_EQ(post("/api/panel/control/select", {{"title", "missing.lua"}}).status, 404);
    EXPECT_EQ(post("/api/panel/settings/button", {{"tag", 101}}).status, 409);  // not open yet
    ASSERT_EQ(post("/api/panel/control/select", {{"title", "tap.lua"}}).status, 200);
    panel = state()["panels"][0];
    ASSERT_EQ(panel["panel"], "PlaySettingsView");
    EXPECT_EQ(post("/api/panel/settings/stepper", {{"tag", 504}, {"direction", "plus"}}).status, 400);
    ASSERT_EQ(post("/api/panel/settings/stepper", {{"tag", 503}, {"direction", "minus"}}).status, 200);
    ASSERT_EQ(post("/api/panel/settings/count", {{"text", "3"}}).status, 200);
    panel = state()["panels"][0];
    EXPECT_EQ(panel["playSpeedValueText"], "0.9x");
    EXPECT_EQ(panel["repeatCountText"], "3");

    ASSERT_EQ(post("/api/panel/settings/button", {{"tag", 102}}).status, 200);
    json now = state();
    EXPECT_TRUE(now["flags"]["isReadyToPlay"]);
    EXPECT_FALSE(now["flags"]["isPlaying"]);
    EXPECT_EQ(now["currentPlaySettings"]["repeatTime"], 3);
    ASSERT_EQ(now["alerts"].size(), 1u);
    EXPECT_EQ(now["alerts"][0]["tag"], playLaterTipAlertTag);
    EXPECT_FALSE(post("/api/event", {{"name", LAEventNameVolumeDownPress}}).body["handled"]);
    ASSERT_EQ(post("/api/alert/button", {{"index", 1}}).status, 200);
    EXPECT_TRUE(state()["alerts"].empty());
    EXPECT_EQ(post("/api/alert/button", {{"index", 0}}).status, 409);
}

TEST(InputEvents, TurnsLinesIntoHidEventsAndNamesTheFirstBadLine) {
    const Display::Size screen{320, 568};
    std::string error;
    auto events = host::parseInputEvents(
        "{\"t\": 0, \"touch\": [{\"finger\": 1, \"phase\": \"down\", \"x\": 160, \"y\": 142},"
        " {\"finger\": 2, \"phase\": \"still\", \"x\": 0, \"y\": 568}]}\n"
        "\n"
        "{\"t\": 10, \"home\": \"up\"}\n"
        "{\"t\": 10, \"hid\": {\"type\": 11, \"children\": [{\"index\": 4, \"touch\": 0, \"eventMask\": 2}]}}\n",
        screen, error);
    ASSERT_TRUE(events) << error;
    ASSERT_EQ(events->size(), 3u);
    const HIDEvent& touch = (*events)[0].event;
    EXPECT_EQ(touch.type, kIOHIDEventTypeDigitizer);
    ASSERT_EQ(touch.children.size(), 2u);
    EXPECT_DOUBLE_EQ(touch.children[0].x, 0.5);
    EXPECT_DOUBLE_EQ(touch.children[0].y, 0.25);
    EXPECT_EQ(recordedLines(touch, 320, 568), "\ntouchDown(1, 160.0, 142.0);\n");
    EXPECT_EQ(recordedLines((*events)[1].event, 320, 568), "homeButtonUp();\n");
    EXPECT_EQ((*events)[2].event.children[0].index, 4u);

    struct Case {
        const char* text;
        const char* error;
    } bad[] = {
        {"{\"t\": 5, \"home\": \"up\"}\n{\"t\": 4, \"home\": \"down\"}", "line 2: \"t\" goes back in time"},
        {"[1]", "line 1: each line must be a JSON object"},
        {"{\"t\": 0, \"touch\": [{\"finger\": 1, \"phase\": \"hover\", \"x\": 1, \"y\": 1}]}", "line 1: \"phase\""},
        {"{\"t\": 0, \"touch\": [{\"finger\": 1.5, \"phase\": \"up\", \"x\": 1, \"y\": 1}]}", "line 1: \"finger\""},
        {"{\"t\": -1, \"home\": \"up\"}", "line 1: \"t\" must not be negative"},
        {"{\"t\": 0, \"home\": \"up\", \"touch\": []}", "line 1: each line needs exactly one"},
        {"{\"t\": 0", "line 1: not valid JSON"},
    };
    for (const Case& c : bad) {
        EXPECT_FALSE(host::parseInputEvents(c.text, screen, error)) << c.text;
        EXPECT_EQ(error.rfind(c.error, 0), 0u) << error;
    }
    EXPECT_EQ(host::ticksAfter(100, 2000.5), 100u + 48012u);
}
