#include "Control/ScriptManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <numeric>

#include "Kernel/LuaBridge.h"
#include "RuntimeFakes.h"

using namespace tactora;
using namespace tactora::runtimetest;

namespace {

using Sleeps = std::vector<std::uint32_t>;

// A runtime device with a script to play; the test thread is the main thread.
struct Runner {
    Runner() {
        writeFile(device.map("/Applications/Tactora.app/Extensions.lua"), "");
        ScriptManager::setFinishedObserver([this] { finishedOn = std::this_thread::get_id(), ++finishes; });
        ScriptManager::setPassObserver([this](std::uint64_t pass) {
            std::lock_guard lock(mutex);
            announced.push_back(pass);
        });
    }
    ~Runner() {
        ScriptManager::setFinishedObserver(nullptr);
        ScriptManager::setPassObserver(nullptr);
    }

    // Plays `script` (a file, or the text of an encrypted one) with these settings until the
    // finishing step has run.
    std::shared_ptr<PlaySettings> play(const std::string& script, long repeatTime, long repeatInterval,
                                       int playType = 0, int nowOrLater = 0) {
        auto settings = std::make_shared<PlaySettings>();
        auto path = device.map("/var/mobile/Library/Tactora/Scripts/play.lua");
        writeFile(path, script);
        settings->setScriptTitle("play.lua");
        settings->setScriptPath(path.string());
        settings->setScriptContent(script);
        settings->setPlayType(playType);
        settings->setRepeatTime(repeatTime);
        settings->setRepeatInterval(repeatInterval);
        settings->setPlayNowOrLater(nowOrLater);
        Global::sharedInstance().setCurrentPlaySettings(settings);
        ScriptManager::runScript();
        EXPECT_TRUE(device.loop.runUntil([this] { return finishes.load() > 0; }, std::chrono::seconds(20)));
        device.queues.join();
        return settings;
    }

    // The passes a script that logs "pass" made.
    long passes() const { return std::ranges::count_if(device.logLines(), [](auto& line) { return line.ends_with(" pass"); }); }

    RuntimeDevice device;
    std::mutex mutex;
    std::vector<std::uint64_t> announced;  // the passes the observer was told of
    std::atomic<int> finishes{0};
    std::thread::id finishedOn;
};

}  // namespace

TEST(ScriptManager, PlaysAsOftenAsAskedWithTheIntervalOnlyBetweenPasses) {
    struct Case {
        long repeatTime;
        long repeatInterval;
        Sleeps sleeps;
    };
    const Case cases[] = {
        {1, 5, {500000, 16000, 500000}},
        {3, 2, {500000, 16000, 2000000, 16000, 2000000, 16000, 500000}},
        {2, 0, {500000, 16000, 16000, 500000}},
        {2, -3, {500000, 16000, 16000, 500000}},
        {2, 5000, {500000, 16000, 4000000000u, 1000000000u, 16000, 500000}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(::testing::Message() << test.repeatTime << " times, " << test.repeatInterval << " s apart");
        Runner runner;
        runner.play("log('pass')", test.repeatTime, test.repeatInterval);
        EXPECT_EQ(runner.passes(), test.repeatTime);
        EXPECT_EQ(runner.device.clock.sleeps(), test.sleeps);
        std::vector<std::uint64_t> expected(test.repeatTime);
        std::iota(expected.begin(), expected.end(), 1);
        EXPECT_EQ(runner.announced, expected);
    }
}

TEST(ScriptManager, TheFinishingStepRunsOnTheMainThreadAndClearsTheRun) {
    Runner runner;
    std::weak_ptr<LuaBridge> bridgeDuringRun;
    std::atomic<bool> playingDuringRun{false};
    runner.device.clock.onSleep = [&](std::uint32_t microseconds) {
        if (microseconds != 16000) return;
        bridgeDuringRun = Global::sharedInstance().luaBridge();
        playingDuringRun = Global::sharedInstance().isPlaying();
    };
    runner.play("touchDown(1, 5, 6)", 1, 1);

    EXPECT_TRUE(playingDuringRun);
    EXPECT_TRUE(bridgeDuringRun.expired()) << "the interpreter outlived its run";
    EXPECT_EQ(runner.finishedOn, std::this_thread::get_id());
    EXPECT_EQ(runner.finishes, 1);
    Global& global = Global::sharedInstance();
    EXPECT_FALSE(global.isPlaying());
    EXPECT_FALSE(global.luaBridge());
    EXPECT_FALSE(global.currentPlaySettings());
    EXPECT_EQ(runner.device.feedback.vibrations, 2);
    EXPECT_EQ(runner.device.feedback.idleTimerCalls, (std::vector<bool>{true, false}));
    auto alerts = runner.device.alerts.shown();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].title + "|" + alerts[0].message + "|" + alerts[0].cancelButton, "Tactora|Playing Finished!|OK");
    EXPECT_TRUE(alerts[0].otherButtons.empty());
    EXPECT_FALSE(alerts[0].didDismissWithButtonIndex);
}

TEST(ScriptManager, ZeroOrANegativeCountPlaysUntilStopped) {
    for (long repeatTime : {0L, -1L, -1000L}) {
        SCOPED_TRACE(repeatTime);
        Runner runner;
        std::atomic<int> ends{0};
        runner.device.clock.onSleep = [&](std::uint32_t microseconds) {
            if (microseconds == 16000 && ++ends == 4) ScriptManager::stopPlaying();
        };
        runner.play("log('pass')", repeatTime, 1);
        EXPECT_EQ(runner.passes(), 4);
        EXPECT_EQ(runner.device.clock.count(1000000), 3u);
        EXPECT_EQ(runner.device.alerts.shown().size(), 1u);
    }
}

TEST(ScriptManager, EncryptedScriptsPlayTheirTextAndAnErrorEndsOnlyThatPass) {
    Runner runner;
    runner.device.options(true, false);
    runner.play("count = (count or 0) + 1 log('pass') error('pass ' .. count .. ' failed')", 2, 0, 1);
    auto log = runner.device.logLines();
    ASSERT_EQ(log.size(), 4u);
    EXPECT_TRUE(log[1].ends_with("pass 1 failed"));
    EXPECT_TRUE(log[3].ends_with("pass 2 failed")) << "one interpreter serves every pass of a run";
}

TEST(ScriptManager, OnlyARunStartedAtOnceWithTheOptionOnShowsTheFinishedAlert) {
    struct Case {
        int nowOrLater;
        bool readyToPlay;
        bool finishedAlertOption;
        bool alertShown;
        bool settingsKept;
    };
    const Case cases[] = {
        {0, false, true, true, false},
        {0, false, false, false, false},
        {1, true, true, false, true},
        {1, false, true, false, false},
        {0, true, true, true, true},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(::testing::Message() << "later " << test.nowOrLater << " ready " << test.readyToPlay
                                        << " option " << test.finishedAlertOption);
        Runner runner;
        runner.device.options(true, true, test.finishedAlertOption);
        Global::sharedInstance().setIsReadyToPlay(test.readyToPlay);
        auto settings = runner.play("x = 1", 1, 1, 0, test.nowOrLater);
        EXPECT_EQ(runner.device.alerts.shown().size(), test.alertShown ? 1u : 0u);
        EXPECT_EQ(Global::sharedInstance().currentPlaySettings(), test.settingsKept ? settings : nullptr);
        EXPECT_EQ(runner.device.feedback.vibrations, 2);
    }
}

TEST(ScriptManager, StopEndsABusyScriptAndTheRun) {
    Runner runner;
    std::promise<void> started;
    std::atomic<bool> once{false};
    runner.device.clock.onSleep = [&](std::uint32_t microseconds) {
        if (microseconds == 0 && !once.exchange(true)) started.set_value();
    };
    auto settings = std::make_shared<PlaySettings>();
    settings->setScriptContent("usleep(0) while true do local t = {} end");
    settings->setPlayType(1);
    settings->setRepeatTime(0);
    Global::sharedInstance().setCurrentPlaySettings(settings);
    ScriptManager::runScript();
    ASSERT_EQ(started.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ScriptManager::stopPlaying();
    EXPECT_FALSE(Global::sharedInstance().isPlaying());
    ASSERT_TRUE(runner.device.loop.runUntil([&] { return runner.finishes.load() > 0; }, std::chrono::seconds(20)));
    EXPECT_EQ(runner.device.log(), "");
    auto alerts = runner.device.alerts.shown();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].message, "Playing Finished!");
    EXPECT_EQ(runner.device.clock.sleeps(), (Sleeps{500000, 0, 16000, 500000}));
}
