#include "Kernel/TouchInjector.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <thread>

#include "InjectFakes.h"
#include "Kernel/EventSimulate.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"

using namespace tactora;
using tactora::testing::RecordingHIDDispatch;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes touchRecord(std::int32_t phase, std::int32_t finger, double x, double y) {
    Bytes record(24);
    std::memcpy(record.data(), &phase, 4);
    std::memcpy(record.data() + 4, &finger, 4);
    std::memcpy(record.data() + 8, &x, 8);
    std::memcpy(record.data() + 16, &y, 8);
    return record;
}

Bytes keyRecord(std::int32_t usage, std::int32_t usagePage, std::uint8_t down) {
    Bytes record(12, 0xAA);  // the padding is never read
    std::memcpy(record.data(), &usage, 4);
    std::memcpy(record.data() + 4, &usagePage, 4);
    record[8] = down;
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

TEST_F(ReceiverTest, DownThenUpBeforeSyncSendsOnlyTheUp) {
    down(1, 100, 200);
    up(1, 160, 284);
    sync();
    ASSERT_EQ(hid.hands.size(), 1u);
    const HandEventDescription& hand = hid.hands[0];
    ASSERT_EQ(hand.fingers.size(), 1u);
    const FingerEventDescription& finger = hand.fingers[0];
    EXPECT_EQ(finger.index, 1u);
    EXPECT_EQ(finger.identity, 2u);
    EXPECT_EQ(finger.eventMask, 3u);
    EXPECT_FALSE(finger.range);
    EXPECT_FALSE(finger.touch);
    EXPECT_DOUBLE_EQ(finger.x, 0.5);
    EXPECT_DOUBLE_EQ(finger.y, 0.5);

    EXPECT_EQ(hand.eventMask, 0x27u);
    EXPECT_FALSE(hand.range);
    EXPECT_FALSE(hand.touch);
    EXPECT_EQ(hand.transducerType, 3u);
    EXPECT_EQ(hand.index, 0u);
    EXPECT_EQ(hand.identity, 1u);
    EXPECT_TRUE(hand.displayIntegrated);
    EXPECT_TRUE(hand.builtIn);
    EXPECT_EQ(hand.senderID, 0x100000236u);
    EXPECT_DOUBLE_EQ(hand.x, 0.5);
    EXPECT_EQ(hand.timestamp, 1001u);

    // The lifted finger is gone: the next sync has nothing to send.
    EXPECT_TRUE(injector.pendingTouches().empty());
    sync();
    EXPECT_EQ(hid.hands.size(), 1u);
    EXPECT_EQ(hid.userEvents, 1);
}

TEST_F(ReceiverTest, FingersOfOneSyncShareAHandEventAtTheirMean) {
    down(1, 0, 0);
    down(2, 160, 568);
    move(3, 320, 1136);
    sync();
    ASSERT_EQ(hid.hands.size(), 1u);
    const HandEventDescription& hand = hid.hands[0];
    ASSERT_EQ(hand.fingers.size(), 3u);
    EXPECT_DOUBLE_EQ(hand.x, (0.0 + 0.5 + 1.0) / 3);
    EXPECT_DOUBLE_EQ(hand.y, (0.0 + 1.0 + 2.0) / 3);
    // Down fingers bring range, touch and identity; a moving one brings position.
    EXPECT_EQ(hand.eventMask, 0x27u);
    EXPECT_TRUE(hand.range);
    EXPECT_TRUE(hand.touch);
    EXPECT_EQ(hand.fingers[2].eventMask, 4u);
    EXPECT_TRUE(hand.fingers[2].touch) << "a moving finger is in contact";

    // Only moves: position alone.
    move(1, 10, 10);
    move(2, 10, 10);
    up(3, 0, 0);
    sync();
    sync();
    ASSERT_EQ(hid.hands.size(), 3u);
    EXPECT_EQ(hid.hands[1].eventMask, 0x27u);
    EXPECT_EQ(hid.hands[2].eventMask, 4u);
    EXPECT_EQ(hid.hands[2].fingers.size(), 2u);
}

TEST_F(ReceiverTest, HeldFingersAreSentAgainAtEverySyncUntilLifted) {
    down(4, 32, 56.8);
    sync();
    sync();
    move(4, 64, 113.6);
    sync();
    up(4, 64, 113.6);
    sync();
    sync();
    ASSERT_EQ(hid.hands.size(), 4u);
    struct Expected {
        std::uint32_t fingerMask, handMask;
        bool touching;
        double x;
    } expected[] = {{3, 0x23, true, 0.1}, {3, 0x23, true, 0.1}, {4, 4, true, 0.2}, {3, 0x27, false, 0.2}};
    for (std::size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(hid.hands[i].fingers.size(), 1u);
        EXPECT_EQ(hid.hands[i].fingers[0].eventMask, expected[i].fingerMask);
        EXPECT_EQ(hid.hands[i].eventMask, expected[i].handMask);
        EXPECT_EQ(hid.hands[i].touch, expected[i].touching);
        EXPECT_DOUBLE_EQ(hid.hands[i].fingers[0].x, expected[i].x);
        EXPECT_DOUBLE_EQ(hid.hands[i].fingers[0].y, expected[i].x);
    }
    EXPECT_EQ(hid.userEvents, 4);
}

TEST_F(ReceiverTest, AnyFingerNumberIsKeyedByItsDecimalTextAndSentInAscendingOrder) {
    for (std::int32_t finger : {10, -7, 2, INT_MAX, INT_MIN, 0}) down(finger, 0, 0);
    ASSERT_EQ(injector.pendingTouches().size(), 6u);
    EXPECT_EQ(injector.pendingTouches().count("-7"), 1u);
    EXPECT_EQ(injector.pendingTouches().count("-2147483648"), 1u);
    sync();
    ASSERT_EQ(hid.hands.size(), 1u);
    std::vector<std::uint32_t> indices;
    for (const auto& finger : hid.hands[0].fingers) indices.push_back(finger.index);
    EXPECT_EQ(indices, (std::vector<std::uint32_t>{0x80000000u, 0xFFFFFFF9u, 0, 2, 10, 0x7FFFFFFFu}));

    // "-7" and "7" are different fingers: lifting 7 lifts a finger that was never down.
    up(7, 0, 0);
    up(-7, 0, 0);
    sync();
    EXPECT_EQ(hid.hands[1].fingers.size(), 7u);
    EXPECT_EQ(injector.pendingTouches().size(), 5u);
    EXPECT_EQ(injector.pendingTouches().count("-7"), 0u);
}

TEST_F(ReceiverTest, MessagesOfTheWrongLengthOrAnUnknownIdAreIgnored) {
    Bytes touch = touchRecord(1, 1, 10, 10);
    Bytes longTouch = touch, shortTouch = touch;
    longTouch.push_back(0);
    shortTouch.pop_back();
    send(2, shortTouch);
    send(2, longTouch);
    send(2, {});
    for (std::int32_t id : {0, 4, -2, 99}) send(id, touch);
    Bytes key = keyRecord(64, 12, 1);
    Bytes longKey = key, shortKey = key;
    longKey.push_back(0);
    shortKey.pop_back();
    send(3, shortKey);
    send(3, longKey);
    send(3, touch);
    send(2, key);
    sync();
    EXPECT_TRUE(injector.pendingTouches().empty());
    EXPECT_TRUE(hid.hands.empty());
    EXPECT_TRUE(hid.keys.empty());
}

TEST_F(ReceiverTest, KeysAreDispatchedAtOnceWithTheLow16BitsOfTheirUsage) {
    send(3, keyRecord(0x10040, 0x7000C, 1));
    send(3, keyRecord(64, 12, 0));
    ASSERT_EQ(hid.keys.size(), 2u);
    EXPECT_EQ(hid.keys[0].usage, 64);
    EXPECT_EQ(hid.keys[0].usagePage, 12);
    EXPECT_TRUE(hid.keys[0].down);
    EXPECT_FALSE(hid.keys[1].down);
    EXPECT_EQ(hid.keys[0].senderID, 0xDEFACEDBEEFFECE5u);
    EXPECT_NE(hid.keys[0].timestamp, 0u);
    EXPECT_EQ(hid.userEvents, 0);
    EXPECT_TRUE(hid.hands.empty());
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
        {{320, 480, true, 1.0f}, 100.0 / 320, 200.0 / 480},
        {{640, 1136, true, 2.0001f}, 100.0 / 640, 200.0 / 1136},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.display.width) + "x" + std::to_string(c.display.height));
        ScopedPlatform scope;
        RecordingHIDDispatch hid;
        hid.screen = c.display;
        platform().hidDispatch = &hid;
        TouchInjector injector;
        injector.messageCallBack(2, touchRecord(1, 1, 100, 200));
        injector.messageCallBack(1, {});
        hid.screen = {10, 10, true, 1.0f};  // asked once: later changes are not seen
        injector.messageCallBack(1, {});
        ASSERT_EQ(hid.hands.size(), 2u);
        EXPECT_NEAR(hid.hands[0].fingers[0].x, c.x, 1e-9);
        EXPECT_NEAR(hid.hands[0].fingers[0].y, c.y, 1e-9);
        EXPECT_EQ(hid.hands[1].fingers[0].x, hid.hands[0].fingers[0].x);
        EXPECT_EQ(hid.displayQueries, 1);
    }
}

TEST_F(ReceiverTest, ARealTouchDropsEverySyntheticFingerStillHeld) {
    down(1, 10, 10);
    down(2, 20, 20);
    sync();
    std::thread([&] { injector.realDigitizerEventArrived(); }).join();  // the hook's own thread
    sync();
    EXPECT_EQ(hid.hands.size(), 1u);
    EXPECT_TRUE(injector.pendingTouches().empty());
    down(3, 30, 30);
    sync();
    ASSERT_EQ(hid.hands.size(), 2u);
    EXPECT_EQ(hid.hands[1].fingers.size(), 1u);

    EXPECT_TRUE(TouchInjector::isRealDigitizerDispatch(3, 11));
    EXPECT_FALSE(TouchInjector::isRealDigitizerDispatch(3, 3));
    EXPECT_FALSE(TouchInjector::isRealDigitizerDispatch(1, 11));
}

namespace {

// Hands each request straight to a receiver, as if the port crossed no process.
class LoopbackPorts final : public MessagePorts {
public:
    explicit LoopbackPorts(TouchInjector& injector) : injector_(injector) {}
    std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) override {
        if (name != injectionPortName || !reachable) return nullptr;
        return std::make_unique<Remote>(*this);
    }
    bool reachable = true;
    std::vector<std::int32_t> ids;

private:
    struct Remote final : RemoteMessagePort {
        explicit Remote(LoopbackPorts& ports) : ports(ports) {}
        bool isValid() const override { return ports.reachable; }
        SendStatus sendRequest(std::int32_t id, std::span<const std::uint8_t> data, double, double,
                               std::vector<std::uint8_t>* reply) override {
            ports.ids.push_back(id);
            *reply = ports.injector_.messageCallBack(id, data);
            return SendStatus::success;
        }
        LoopbackPorts& ports;
    };
    TouchInjector& injector_;
};

}  // namespace
