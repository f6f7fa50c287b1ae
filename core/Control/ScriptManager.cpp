#include "Control/ScriptManager.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "Control/Helper.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/ScriptFunctions.h"
#include "Models/Global.h"
#include "Platform/Alerts.h"
#include "Platform/Clock.h"
#include "Platform/Feedback.h"
#include "Platform/Platform.h"
#include "Platform/Queues.h"
#include "Views/Localization.h"

namespace tactora {

namespace {

std::mutex observerMutex;
std::function<void()> finishedObserver;
std::function<void(std::uint64_t)> passObserver;
std::function<void(const std::string&)> failureObserver;

void tellFailure(const std::string& error) {
    std::function<void(const std::string&)> observer;
    {
        std::lock_guard lock(observerMutex);
        observer = failureObserver;
    }
    if (observer) observer(error);
}

void tellPass(std::uint64_t pass) {
    std::function<void(std::uint64_t)> observer;
    {
        std::lock_guard lock(observerMutex);
        observer = passObserver;
    }
    if (observer) observer(pass);
}

// True once the run was asked to stop; the pauses of the runner end early then.
bool stopAsked() { return !Global::sharedInstance().isPlaying(); }

// Blocks for `seconds`, in pieces the platform's sleep can take; nothing for 0 or less. A stop
// ends the wait at once.
void sleepSeconds(double seconds) {
    constexpr double longestPiece = 4000.0;  // below the 32-bit microsecond limit of the clock
    while (seconds > 0) {
        double piece = seconds < longestPiece ? seconds : longestPiece;
        if (!platform().clock->sleepMicrosecondsUnless(static_cast<std::uint32_t>(piece * 1e6), stopAsked)) return;
        seconds -= piece;
    }
}

// Lets the script settle before the first pass and the receiver after the last one. After a stop
// there is nothing to settle: the last pass already flushed its touches and waited for them.
void settle() { platform().clock->sleepMicrosecondsUnless(500000, stopAsked); }

long currentRepeatTime() {
    auto settings = Global::sharedInstance().currentPlaySettings();
    return settings ? settings->repeatTime() : 0;
}

// Reports the end of a run (main thread).
void finishRun() {
    Global& global = Global::sharedInstance();
    vibrate();
    auto settings = global.currentPlaySettings();
    // A run started from play later ends quietly: the user is waiting for the trigger, not for
    // the script.
    int nowOrLater = settings ? settings->playNowOrLater() : 0;
    if (nowOrLater == 0 && Helper::ifShowPlayFinishedAlert()) {
        AlertRequest request;
        request.title = localizedText("Tactora");
        request.message = localizedText("Playing Finished!");
        request.cancelButton = localizedText("OK");
        platform().alerts->showAlert(std::move(request));
    }
    platform().feedback->resetIdleTimerAndUndim(false);
    global.setIsPlaying(false);
    settings.reset();
    global.setLuaBridge(nullptr);  // the interpreter closes here, on the main thread
    if (!global.isReadyToPlay()) global.setCurrentPlaySettings(nullptr);

    std::function<void()> observer;
    {
        std::lock_guard lock(observerMutex);
        observer = finishedObserver;
    }
    if (observer) observer();
}

// The background part of a run: every pass, then the finishing step on the main queue.
void runPasses() {
    Global& global = Global::sharedInstance();
    settle();
    long repeatTime = currentRepeatTime();
    if (repeatTime != 0) {
        // Compared unsigned, so a negative count plays until stopped; the bound is read again
        // after every pass so that a change during the run takes effect.
        for (std::uint64_t pass = 1; pass <= static_cast<std::uint64_t>(repeatTime);
             ++pass, repeatTime = currentRepeatTime()) {
            auto settings = global.currentPlaySettings();
            if (!global.isPlaying() || !settings) break;
            if (pass > 1) sleepSeconds(static_cast<double>(settings->repeatInterval()));
            settings.reset();
            tellPass(pass);
            ScriptManager::doRunNow();
        }
    } else if (global.isPlaying()) {
        // 0 plays until stopped.
        std::uint64_t pass = 1;
        do {
            auto settings = global.currentPlaySettings();
            if (!settings) break;
            if (pass > 1) sleepSeconds(static_cast<double>(settings->repeatInterval()));
            settings.reset();
            tellPass(pass);
            ScriptManager::doRunNow();
            ++pass;
        } while (global.isPlaying());
    }
    settle();
    platform().queues->runOnMain(finishRun);
}

}  // namespace

void ScriptManager::runScript() {
    Global& global = Global::sharedInstance();
    vibrate();
    global.setIsPlaying(true);
    auto bridge = std::make_shared<LuaBridge>();
    // A stop between the loop's last look at the flag and the start of a pass still ends it.
    bridge->keepRunningWhile([] { return Global::sharedInstance().isPlaying(); });
    global.setLuaBridge(std::move(bridge));
    platform().feedback->resetIdleTimerAndUndim(true);
    platform().queues->runInBackground(runPasses);
}

void ScriptManager::doRunNow() {
    Global& global = Global::sharedInstance();
    auto settings = global.currentPlaySettings();
    auto bridge = global.luaBridge();
    if (!settings || !bridge) return;
    switch (settings->playType()) {
        case 0:
            bridge->runLuaFile(settings->scriptPath().value_or(std::string()));
            break;
        case 1:
            bridge->runLuaString(settings->scriptContent().value_or(std::string()));
            break;
        default:
            return;  // not a script this system knows how to play
    }
    if (!bridge->lastError().empty()) tellFailure(bridge->lastError());
}

void ScriptManager::stopPlaying() {
    Global& global = Global::sharedInstance();
    global.setIsPlaying(false);
    if (auto bridge = global.luaBridge()) bridge->stopLuaRunning();
}

void ScriptManager::setFinishedObserver(std::function<void()> observer) {
    std::lock_guard lock(observerMutex);
    finishedObserver = std::move(observer);
}

void ScriptManager::setPassObserver(std::function<void(std::uint64_t pass)> observer) {
    std::lock_guard lock(observerMutex);
    passObserver = std::move(observer);
}

void ScriptManager::setFailureObserver(std::function<void(const std::string& error)> observer) {
    std::lock_guard lock(observerMutex);
    failureObserver = std::move(observer);
}

}  // namespace tactora
