#include "Kernel/TouchInjector.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <thread>

#include "InjectFakes.h"
#include "Platform/Platform.h"

using namespace tactora;
using tactora::testing::RecordingHIDDispatch;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes touchRecord(std::int32_t phase, std::int32_t finger, double x, double y) {
    const struct { std::int32_t phase, finger; double x, y; } record{phase, finger, x, y};
    static_assert(sizeof record == 24);
    return Bytes(reinterpret_cast<const std::uint8_t*>(&record), reinterpret_cast<const std::uint8_t*>(&record + 1));
}

Bytes keyRecord(std::int32_t usage, std::int32_t usagePage, std::uint8_t down) {
    Bytes record(12, 0xAA);  // the padding is never read
    std::memcpy(record.data(), &usage, 4), std::memcpy(record.data() + 4, &usagePage, 4), record[8] = down;
    return record;
}

class ReceiverTest : public ::testing::Test {
protected:
    void SetUp() override { platform().hidDispatch = &hid; }

    void down(std::int32_t finger, double x, double y) { send(2, touchRecord(1, finger, x, y)); }
    void move(std::int32_t finger, double x, double y) { send(2, touchRecord(0, finger, x, y)); }
    void up(std::int32_t finger, double x, double y) { send(2, touchRecord(2, finger, x, y)); }
    void sync() { send(1, {}); }
    void send(std::int32_t id, const Bytes& data) { EXPECT_TRUE(injector.messageCallBack(id, data).empty()); }

    ScopedPlatform scope;
    RecordingHIDDispatch hid;  // 640 x 1136 pixels at 2x: one point is 1/320 of the width
    TouchInjector injector;
};

}  // namespace

TEST_F(ReceiverTest, EachSyncSendsTheHeldFingersWithTheMasksOfTheirPhaseUntilARealTouch) {
    down(1, 100, 200), up(1, 160, 284), sync();  // down then up before a sync: only the up is sent
    down(4, 32, 56.8), sync(), sync();           // a held finger goes out again at every sync
    move(4, 64, 113.6), sync();
    up(4, 64, 113.6), sync(), sync();  // nothing is held after the up: nothing more is sent
    ASSERT_EQ(hid.hands.size(), 5u);
    // Finger index, finger mask, hand mask, touching (hand and finger), x and y.
    const std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, bool, double, double> expected[] = {
        {1, 3, 0x27, false, 0.5, 0.5}, {4, 3, 0x23, true, 0.1, 0.1}, {4, 3, 0x23, true, 0.1, 0.1},
        {4, 4, 4, true, 0.2, 0.2},     {4, 3, 0x27, false, 0.2, 0.2}};
    for (std::size_t i = 0; i < 5; ++i) {
        const HandEventDescription& hand = hid.hands[i];
        ASSERT_EQ(hand.fingers.size(), 1u);
        const FingerEventDescription& f = hand.fingers[0];
        const auto& [index, fingerMask, handMask, touching, x, y] = expected[i];
        EXPECT_EQ(std::tie(f.index, f.eventMask, hand.eventMask, hand.touch, f.touch),
                  std::tie(index, fingerMask, handMask, touching, touching)) << i;
        EXPECT_DOUBLE_EQ(f.x, x) << i;
        EXPECT_DOUBLE_EQ(f.y, y) << i;
    }
    const HandEventDescription& first = hid.hands[0];
    EXPECT_EQ(std::make_tuple(first.fingers[0].identity, first.transducerType, first.index, first.identity, first.senderID,
                              first.timestamp, first.displayIntegrated && first.builtIn),
              std::make_tuple(2u, 3u, 0u, 1u, std::uint64_t{0x100000236u}, std::uint64_t{1001u}, true));
    EXPECT_EQ(hid.userEvents, 5);

    // A real touch drops every synthetic finger still held; later ones go out again.
    down(1, 10, 10), down(2, 20, 20), sync();
    std::thread([&] { injector.realDigitizerEventArrived(); }).join();  // the hook's own thread
    sync();
    EXPECT_EQ(hid.hands.size(), 6u);
    down(3, 30, 30), sync();
    ASSERT_EQ(hid.hands.size(), 7u);
    EXPECT_EQ(hid.hands[6].fingers.size(), 1u);
    EXPECT_EQ(std::make_tuple(TouchInjector::isRealDigitizerDispatch(3, 11), TouchInjector::isRealDigitizerDispatch(3, 3),
                              TouchInjector::isRealDigitizerDispatch(1, 11)), std::make_tuple(true, false, false));
}

// Fingers are keyed by their decimal text and sent in ascending order, at their mean.
TEST_F(ReceiverTest, FingersOfOneSyncShareAHandEventAtTheirMeanInAscendingOrder) {
    for (std::int32_t finger : {10, -7, 2, INT_MAX, INT_MIN}) down(finger, 0, 0);
    down(0, 320, 568);
    move(3, 320, 1136);  // never down
    EXPECT_EQ(injector.pendingTouches().count("-2147483648"), 1u);
    sync();
    ASSERT_EQ(hid.hands.size(), 1u);
    const HandEventDescription& hand = hid.hands[0];
    std::vector<std::uint32_t> indices;
    for (const auto& finger : hand.fingers) indices.push_back(finger.index);
    EXPECT_EQ(indices, (std::vector<std::uint32_t>{0x80000000u, 0xFFFFFFF9u, 0, 2, 3, 10, 0x7FFFFFFFu}));
    EXPECT_DOUBLE_EQ(hand.x, 2.0 / 7);
    EXPECT_DOUBLE_EQ(hand.y, 3.0 / 7);
    EXPECT_EQ(hand.eventMask, 0x27u) << "down fingers bring range, touch and identity; a moving one position";
    EXPECT_TRUE(hand.range && hand.touch);
    EXPECT_EQ(hand.fingers[4].eventMask, 4u);
    EXPECT_TRUE(hand.fingers[4].touch) << "a moving finger is in contact";

    // "-7" and "7" are different fingers: lifting 7 lifts a finger that was never down.
    up(7, 0, 0), up(-7, 0, 0), sync();
    EXPECT_EQ(hid.hands[1].fingers.size(), 8u);
    EXPECT_EQ(injector.pendingTouches().size(), 6u);
    EXPECT_EQ(injector.pendingTouches().count("-7"), 0u);
}

TEST_F(ReceiverTest, KeysGoOutAtOnceAndMessagesOfTheWrongLengthOrIdAreIgnored) {
    const Bytes touch = touchRecord(1, 1, 10, 10), key = keyRecord(64, 12, 1);
    for (const Bytes& record : {touch, key}) {
        Bytes longer = record, shorter = record;
        longer.push_back(0);
        shorter.pop_back();
        for (std::int32_t id : {2, 3}) send(id, longer), send(id, shorter);
    }
    send(2, {}), send(3, touch), send(2, key);
    for (std::int32_t id : {0, 4, -2, 99}) send(id, touch);
    sync();
    EXPECT_TRUE(injector.pendingTouches().empty() && hid.hands.empty() && hid.keys.empty());

    send(3, keyRecord(0x10040, 0x7000C, 1)), send(3, keyRecord(64, 12, 0));  // the low 16 bits of the usage count
    ASSERT_EQ(hid.keys.size(), 2u);
    EXPECT_EQ(std::make_tuple(hid.keys[0].usage, hid.keys[0].usagePage, hid.keys[0].down, hid.keys[1].down),
              std::make_tuple(64, 12, true, false));
    EXPECT_EQ(hid.keys[0].senderID, 0xDEFACEDBEEFFECE5u);
    EXPECT_NE(hid.keys[0].timestamp, 0u);
    EXPECT_EQ(hid.userEvents, 0);
}

TEST(ReceiverDisplay, PointsBecomeFractionsOfThePortraitDisplayTimesTheScreenFactor) {
    struct Case {
        DigitizerDisplay display;
        double x, y;  // where (100, 200) points land
    } cases[] = {
        {{640, 1136, true, 2.0f}, 100.0 / 320, 200.0 / 568},
        {{1136, 640, true, 2.0f}, 100.0 / 320, 200.0 / 568},  // bounds of a rotated display
        {{750, 1334, false, 2.0f}, 100.0 / 750, 200.0 / 1334},
        {{1242, 2208, true, 3.0f}, 100.0 / 1242, 200.0 / 2208},  // 3x keeps the factor 1
        {{640, 1136, true, 2.0001f}, 100.0 / 640, 200.0 / 1136},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.display.width) + "x" + std::to_string(c.display.height));
        ScopedPlatform scope;
        RecordingHIDDispatch hid;
        hid.screen = c.display;
        platform().hidDispatch = &hid;
        TouchInjector injector;
        injector.messageCallBack(2, touchRecord(1, 1, 100, 200)), injector.messageCallBack(1, {});
        hid.screen = {10, 10, true, 1.0f};  // asked once: later changes are not seen
        injector.messageCallBack(1, {});
        ASSERT_EQ(hid.hands.size(), 2u);
        EXPECT_NEAR(hid.hands[0].fingers[0].x, c.x, 1e-9);
        EXPECT_NEAR(hid.hands[0].fingers[0].y, c.y, 1e-9);
        EXPECT_EQ(hid.hands[1].fingers[0].x, hid.hands[0].fingers[0].x);
        EXPECT_EQ(hid.displayQueries, 1);
    }
}
