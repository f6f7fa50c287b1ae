// A scratch root given as text, a main loop on a thread of its own and a HID layer that keeps
// what it was asked to dispatch.
#pragma once

#include <gtest/gtest.h>

#include <thread>

#include "FoundationFakes.h"
#include "Platform/HIDDispatch.h"
#include "host/MainLoop.h"

namespace tactora::testing {

// A scratch directory whose path the socket and receiver calls take as text.
class TempRoot : public ScratchDirectory {
public:
    std::string path() const { return ScratchDirectory::path().string(); }
};

// Runs a MainLoop on its own thread for the life of the object.
class LoopThread {
public:
    LoopThread() : thread_([this] { loop_.run(); }) {}
    ~LoopThread() { loop_.quit(), thread_.join(); }
    host::MainLoop& loop() { return loop_; }
    std::thread::id id() const { return thread_.get_id(); }

private:
    host::MainLoop loop_;
    std::thread thread_;
};

// A HID layer that records every event and answers with a chosen display.
class RecordingHIDDispatch final : public HIDDispatch {
public:
    void dispatchDigitizer(const HandEventDescription& hand) override { std::lock_guard l(mutex); hands.push_back(hand); }
    void dispatchKeyboard(const KeyboardEventDescription& key) override { std::lock_guard l(mutex); keys.push_back(key); }
    DigitizerDisplay display() const override { return ++displayQueries, screen; }
    void userEventOccurred() override { ++userEvents; }
    std::uint64_t absoluteTime() const override { return ++ticks; }

    DigitizerDisplay screen{640, 1136, true, 2.0f};
    std::mutex mutex;
    std::vector<HandEventDescription> hands;
    std::vector<KeyboardEventDescription> keys;
    mutable int displayQueries = 0;
    int userEvents = 0;
    mutable std::uint64_t ticks = 1000;
};

}  // namespace tactora::testing
