#include "Control/ScriptManager.h"

#include <gtest/gtest.h>

#include <future>
#include <numeric>

#include "Kernel/LuaBridge.h"
#include "RuntimeFakes.h"

using namespace tactora;
using namespace tactora::testing;
using Sleeps = std::vector<std::uint32_t>;

namespace {

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
    ~Runner() { ScriptManager::setFinishedObserver(nullptr), ScriptManager::setPassObserver(nullptr); }

    // Starts `script` with these settings; an encrypted one (type 1) plays its text, never the file.
    std::shared_ptr<PlaySettings> start(const std::string& script, long times, long interval, int playType = 0,
                                        int nowOrLater = 0) {
        auto settings = std::make_shared<PlaySettings>();
        auto path = device.map("/var/mobile/Library/Tactora/Scripts/play.lua");
        writeFile(path, playType == 1 ? "error('the file was played')" : script);
        settings->setScriptTitle("play.lua"), settings->setScriptPath(path.string());
        settings->setScriptContent(script), settings->setPlayType(playType);
        settings->setRepeatTime(times), settings->setRepeatInterval(interval), settings->setPlayNowOrLater(nowOrLater);
        Global::sharedInstance().setCurrentPlaySettings(settings);
        ScriptManager::runScript();
        return settings;
    }
    // Waits until the finishing step has run.
    void finish() {
        EXPECT_TRUE(device.loop.runUntil([this] { return finishes.load() > 0; }, std::chrono::seconds(20)));
        device.queues.join();
    }
    // The passes a script that logs "pass" made.
    long passes() const { return std::ranges::count_if(device.logLines(), [](auto& l) { return l.ends_with(" pass"); }); }

    RuntimeDevice device;
    std::mutex mutex;
    std::vector<std::uint64_t> announced;  // the passes the observer was told of
    std::atomic<int> finishes{0};
    std::thread::id finishedOn;
};

}  // namespace

// A count of 0 or less plays until stopped (here at the end of the fourth pass). Only a run started
// at once with the option on shows the finished alert; a script ready to play stays chosen.
TEST(ScriptManager, PlaysAsOftenAsAskedWithTheIntervalOnlyBetweenPassesAndEndsAsChosen) {
    const Sleeps endless = {500000, 16000, 1000000, 16000, 1000000, 16000, 1000000, 16000, 500000};
    const struct {
        long times, interval, passes;
        Sleeps sleeps;
        int nowOrLater;
        bool ready, finishedOption, alertShown;
    } cases[] = {
        {1, 5, 1, {500000, 16000, 500000}, 0, false, true, true},
        {3, 2, 3, {500000, 16000, 2000000, 16000, 2000000, 16000, 500000}, 0, false, false, false},
        {2, 0, 2, {500000, 16000, 16000, 500000}, 1, true, true, false},
        {2, -3, 2, {500000, 16000, 16000, 500000}, 1, false, true, false},
        {2, 5000, 2, {500000, 16000, 4000000000u, 1000000000u, 16000, 500000}, 0, true, true, true},
        {0, 1, 4, endless, 0, false, true, true},
        {-1, 1, 4, endless, 0, false, true, true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(::testing::Message() << test.times << " times, " << test.interval << " s apart, later "
                                          << test.nowOrLater << " ready " << test.ready);
        Runner runner;
        std::atomic<int> ends{0};
        runner.device.clock.onSleep = [&](std::uint32_t us) {
            if (us == 16000 && ++ends == 4) ScriptManager::stopPlaying();
        };
        runner.device.options(true, true, test.finishedOption);
        Global::sharedInstance().setIsReadyToPlay(test.ready);
        auto settings = runner.start("log('pass')", test.times, test.interval, 0, test.nowOrLater);
        runner.finish();
        EXPECT_EQ(runner.passes(), test.passes);
        EXPECT_EQ(runner.device.clock.sleeps(), test.sleeps);
        std::vector<std::uint64_t> expected(test.passes);
        std::iota(expected.begin(), expected.end(), 1);
        EXPECT_EQ(runner.announced, expected);
        EXPECT_EQ(runner.device.alerts.shown().size(), test.alertShown ? 1u : 0u);
        EXPECT_EQ(Global::sharedInstance().currentPlaySettings(), test.ready ? settings : nullptr);
        EXPECT_EQ(runner.device.feedback.vibrations, 2);
    }
}

// The stop ends even a script that never pauses; the finishing step then runs on the main thread.
TEST(ScriptManager, StopEndsABusyScriptAndTheFinishingStepClearsTheRunOnTheMainThread) {
    Runner runner;
    std::promise<void> started;
    std::weak_ptr<LuaBridge> bridgeDuringRun;
    std::atomic<bool> playingDuringRun{false}, once{false};
    runner.device.clock.onSleep = [&](std::uint32_t us) {
        if (us != 0 || once.exchange(true)) return;
        bridgeDuringRun = Global::sharedInstance().luaBridge();
        playingDuringRun = Global::sharedInstance().isPlaying();
        started.set_value();
    };
    runner.start("usleep(0) while true do local t = {} end", 0, 1, 1);
    ASSERT_EQ(started.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ScriptManager::stopPlaying();
    EXPECT_FALSE(Global::sharedInstance().isPlaying());
    runner.finish();

    EXPECT_TRUE(playingDuringRun);
    EXPECT_TRUE(bridgeDuringRun.expired()) << "the interpreter outlived its run";
    EXPECT_EQ(runner.finishedOn, std::this_thread::get_id());
    EXPECT_EQ(runner.finishes, 1);
    Global& global = Global::sharedInstance();
    EXPECT_FALSE(global.isPlaying() || global.luaBridge() || global.currentPlaySettings());
    EXPECT_EQ(runner.device.log(), "");
    EXPECT_EQ(runner.device.clock.sleeps(), (Sleeps{500000, 0, 16000, 500000}));
    EXPECT_EQ(runner.device.feedback.vibrations, 2);
    EXPECT_EQ(runner.device.feedback.idleTimerCalls, (std::vector<bool>{true, false}));
    auto alerts = runner.device.alerts.shown();
    ASSERT_EQ(alerts.size(), 1u);
    EXPECT_EQ(alerts[0].title + "|" + alerts[0].message + "|" + alerts[0].cancelButton, "Tactora|Playing Finished!|OK");
    EXPECT_TRUE(alerts[0].otherButtons.empty());
    EXPECT_FALSE(alerts[0].didDismissWithButtonIndex);
}

TEST(ScriptManager, EncryptedScriptsPlayTheirTextAndAnErrorEndsOnlyThatPass) {
    Runner runner;
    runner.device.options(true, false);
    runner.start("count = (count or 0) + 1 log('pass') error('pass ' .. count .. ' failed')", 2, 0, 1);
    runner.finish();
    auto log = runner.device.logLines();
    ASSERT_EQ(log.size(), 4u);
    EXPECT_TRUE(log[1].ends_with("pass 1 failed"));
    EXPECT_TRUE(log[3].ends_with("pass 2 failed")) << "one interpreter serves every pass of a run";
}
