#include <gtest/gtest.h>

#include <cstdlib>

#include "RuntimeFakes.h"
#include "Kernel/Recorder.h"
#include "Models/Global.h"

using namespace tactora;
using namespace tactora::testing;

namespace {

HIDEvent fingers(std::uint64_t timestamp, std::vector<HIDDigitizerChild> children) {
    return {kIOHIDEventTypeDigitizer, timestamp, 0, 0, 0, std::move(children)};
}
HIDEvent key(std::uint64_t timestamp, std::uint32_t page, std::uint32_t usage, std::int64_t down) {
    return {kIOHIDEventTypeKeyboard, timestamp, page, usage, down, {}};
}
constexpr std::uint32_t touchChanged = kIOHIDDigitizerEventRange | kIOHIDDigitizerEventTouch;
constexpr std::uint32_t moved = kIOHIDDigitizerEventPosition;

}  // namespace

TEST(Recorder, WritesHeaderThenOneGroupPerEventWithThePauseInMicroseconds) {
    ControlDevice device;
    startRecording();
    EXPECT_TRUE(Global::sharedInstance().isRecording());
    const auto path = device.scriptsDirectory() / "2014-05-01 13:45:10.lua";
    ASSERT_EQ(recordingFilePath(), path.string());

    // The tick count passes 2^32 during the recording, so both halves of the timestamp count.
    const std::uint64_t t0 = (1ull << 32) - 50'000;
    // Two fingers land in one event: two lines, no pause before the first group.
    handle_events(fingers(t0, {{1, 1, touchChanged, 0.5, 0.25}, {2, 1, touchChanged, 0.25, 0.5}}));
    // Finger 1 moves while finger 2 stays still: only finger 1 writes.
    handle_events(fingers(t0 + 48'000, {{1, 1, moved, 0.503125, 0.25}, {2, 1, 0, 0.25, 0.5}}));
    // Both still: no text, and the pause before the next line includes this time.
    handle_events(fingers(t0 + 60'000, {{1, 1, 0, 0.503125, 0.25}, {2, 1, 0, 0.25, 0.5}}));
    // An empty digitizer event, a key other than home and home with another down value: nothing.
    handle_events(fingers(t0 + 61'000, {}));
    handle_events(key(t0 + 62'000, 7, 40, 1));
    handle_events(key(t0 + 62'500, 12, 233, 1));  // a consumer key other than home
    handle_events(key(t0 + 63'000, 12, 64, 2));
    handle_events(fingers(t0 + 96'000, {{1, 0, touchChanged, 0.503125, 0.25}, {2, 0, touchChanged, 0.25, 0.5}}));
    handle_events(key(t0 + 96'036, 12, 64, 1));
    handle_events(key(t0 + 96'060, 12, 64, 0));
    stopRecording();

    EXPECT_FALSE(Global::sharedInstance().isRecording());
    EXPECT_FALSE(recordingFilePath());
    EXPECT_EQ(readFile(path),
              "CREATETIME=\"2014-05-01 13:45:10\";\n"
              "SCREEN_RESOLUTION=\"320x568\";\n"
              "\ntouchDown(1, 160.0, 142.0);\n"
              "\ntouchDown(2, 80.0, 284.0);\n"
              "usleep(2000.00);\n"
              "touchMove(1, 161.0, 142.0);\n"
              "usleep(2000.00);\n"
              "touchUp(1, 161.0, 142.0);\n"
              "touchUp(2, 80.0, 284.0);\n"
              "usleep(1.50);\n"
              "homeButtonDown();\n"
              "usleep(1.00);\n"
              "homeButtonUp();\n");
}

TEST(Recorder, TakesEventsFromTheSourceOnlyWhileRecording) {
    ControlDevice device;
    // The pause crosses 1.5 x 2^32 ticks, where a high half read a bit off would jump.
    const std::uint64_t t0 = (3ull << 31) - 1200;
    EXPECT_FALSE(device.hidSource.deliver(key(t0, 12, 64, 1)));

    startRecording();
    void* client = Global::sharedInstance().ioHIDEventSystem();
    ASSERT_NE(client, nullptr);
    // A second start opens a new file but keeps the client.
    device.clock.now.tm_sec = 11;
    startRecording();
    EXPECT_EQ(Global::sharedInstance().ioHIDEventSystem(), client);

    EXPECT_TRUE(device.hidSource.deliver(key(t0, 12, 64, 1)));
    EXPECT_TRUE(device.hidSource.deliver(key(t0 + 2400, 12, 64, 0)));
    device.loop.drain();
    stopRecording();
    EXPECT_EQ(Global::sharedInstance().ioHIDEventSystem(), nullptr);
    EXPECT_FALSE(device.hidSource.deliver(key(t0 + 4800, 12, 64, 1)));

    EXPECT_EQ(readFile(device.scriptsDirectory() / "2014-05-01 13:45:10.lua"),
              "CREATETIME=\"2014-05-01 13:45:10\";\nSCREEN_RESOLUTION=\"320x568\";\n");
    EXPECT_EQ(readFile(device.scriptsDirectory() / "2014-05-01 13:45:11.lua"),
              "CREATETIME=\"2014-05-01 13:45:11\";\nSCREEN_RESOLUTION=\"320x568\";\n"
              "homeButtonDown();\nusleep(100.00);\nhomeButtonUp();\n");
}

TEST(Recorder, AFingerFarOffTheScreenStillWritesCompleteLines) {
    // 1e300 of a 320-point screen prints as over 300 digits; the line must not be cut short.
    const std::string lines =
        recordedLines(fingers(0, {{3, 1, touchChanged, 1e300, -1e300}, {4, 1, moved, 0.5, 0.5}}), 320, 568);
    // Every digit is there: the numbers read back as the products exactly, and the line ends whole.
    const std::string down = "\ntouchDown(3, ", move = "touchMove(4, 160.0, 284.0);\n";
    ASSERT_TRUE(lines.starts_with(down) && lines.ends_with(");\n" + move)) << lines;
    char* end = nullptr;
    EXPECT_EQ(std::strtod(lines.c_str() + down.size(), &end), 1e300 * 320.0);
    ASSERT_EQ(std::string(end, 2), ", ");
    EXPECT_EQ(std::strtod(end + 2, &end), -1e300 * 568.0);
    EXPECT_EQ(std::string(end), ");\n" + move);
}
