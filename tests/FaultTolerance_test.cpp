// Faults a device meets while the system runs: the receiver dying under a playing script, stops
// at any moment, directories and files that vanish, turn into something else or refuse writes,
// a store that is locked or damaged, and a full disk. In every case the result is the documented
// one (docs/reliability.md), the process goes on, and nothing stored earlier is lost.
#include <gtest/gtest.h>
#include <lua.hpp>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <random>
#include <thread>

#include "Control/ScriptManager.h"
#include "Kernel/EventSimulate.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/Recorder.h"
#include "Managers/DataManager.h"
#include "Managers/Database.h"
#include "RuntimeFakes.h"

using namespace tactora;
using namespace tactora::runtimetest;
namespace fs = std::filesystem;
using std::chrono::steady_clock;

namespace {

double secondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// A runtime device whose runs the test starts and waits for; the test thread is the main thread.
struct Player {
    Player() { ScriptManager::setFinishedObserver([this] { ++finishes; }); }
    ~Player() { ScriptManager::setFinishedObserver(nullptr); }

    void start(const std::string& script, long repeatTime = 0) {
        auto settings = std::make_shared<PlaySettings>();
        auto path = device.map("/var/mobile/Library/Tactora/Scripts/fault.lua");
        writeFile(path, script);
        settings->setScriptTitle("fault.lua");
        settings->setScriptPath(path.string());
        settings->setPlayType(0);
        settings->setRepeatTime(repeatTime);
        settings->setPlaySpeed(2.0f);
        Global::sharedInstance().setCurrentPlaySettings(settings);
        finishedBefore = finishes.load();
        ScriptManager::runScript();
    }
    // Stops the run and waits for its finishing step; false when it did not come in time.
    bool stopAndWait(std::chrono::milliseconds limit = std::chrono::seconds(5)) {
        ScriptManager::stopPlaying();
        const bool finished = device.loop.runUntil([&] { return finishes.load() > finishedBefore; }, limit);
        device.queues.join();
        return finished;
    }
    bool idle() const {
        const Global& global = Global::sharedInstance();
        return !global.isPlaying() && !global.luaBridge() && !global.currentPlaySettings();
    }

    RuntimeDevice device;
    std::atomic<int> finishes{0};
    int finishedBefore = 0;
};

std::uintmax_t fileSize(const fs::path& path) {
    std::error_code error;
    return fs::file_size(path, error) * !error;
}

PlaySettings settingsFor(const std::string& title, long times) {
    PlaySettings settings;
    settings.setScriptTitle(title);
    settings.setPlayDirectly(true);
    settings.setRepeatTime(times);
    settings.setRepeatInterval(1);
    settings.setPlaySpeed(1.5f);
    return settings;
}

std::vector<std::string> storedTitles() {
    std::vector<std::string> titles;
    if (auto all = DataManager::findAllPlaySettings())
        for (const auto& settings : *all) titles.push_back(settings->scriptTitle().value_or("?"));
    return titles;
}

std::string integrity(const fs::path& file) {
    sqlite3* db = nullptr;
    sqlite3_stmt* check = nullptr;
    sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_prepare_v2(db, "PRAGMA integrity_check;", -1, &check, nullptr);
    std::string result = sqlite3_step(check) == SQLITE_ROW ? (const char*)sqlite3_column_text(check, 0) : sqlite3_errmsg(db);
    sqlite3_finalize(check);
    sqlite3_close(db);
    return result;
}

// Lets the files of this process grow only to `bytes` while it lives, as a full disk would
// (writes past it fail with EFBIG instead of killing the process).
struct FileSizeLimit {
    explicit FileSizeLimit(rlim_t bytes) : handler(::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &previous);
        rlimit limit{bytes, previous.rlim_max};
        ok = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &previous);
        ::signal(SIGXFSZ, handler);
    }
    sighandler_t handler;
    rlimit previous{};
    bool ok = false;
};

}  // namespace

TEST(Faults, AStopAtAThousandRandomPointsAlwaysEndsIdle) {
    Player player;
    player.device.options(true, false, false);
    const char* scripts[] = {
        "while true do local t = {} end",
        "for i = 1, 300 do touchDown(1, i, i) usleep(100) touchMove(1, i + 1, i) touchUp(1, i, i) end",
        "local s = '' for i = 1, 100000 do s = s .. 'ab' if #s > 512 then s = '' end end",
        "local t = {} for i = 1, 5000 do t[i] = {i, tostring(i)} end getColor(10, 10) error('broken')",
        "for i = 1, 100 do pcall(error, 'caught') coroutine.wrap(function() coroutine.yield(i) end)() end",
    };
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> pick(0, std::size(scripts) - 1), delay(0, 1500);
    for (int point = 0; point < 1000; ++point) {
        player.device.clock.clear();
        player.device.ports.clear();
        player.start(scripts[pick(random)], point % 3);  // until stopped, once, or twice
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        const auto begin = steady_clock::now();
        ASSERT_TRUE(player.stopAndWait()) << "stop " << point << " did not end the run";
        ASSERT_LT(secondsSince(begin), 2.0);
        ASSERT_TRUE(player.idle()) << "stop " << point;
    }
    // Script errors are logged, stops never are.
    for (const auto& line : player.device.logLines()) EXPECT_EQ(line.find("interrupted"), std::string::npos) << line;
}

TEST(Faults, ALockedStoreFailsAChangeWithinASecondAndAShortLockOnlyDelaysIt) {
    RuntimeDevice device;
    ASSERT_TRUE(DataManager::initDb());
    ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("kept.lua", 3)));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(DataManager::dataFilePath().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr), SQLITE_OK);

    auto begin = steady_clock::now();
    EXPECT_FALSE(DataManager::insertPlaySettings(settingsFor("blocked.lua", 1)));
    const double waited = secondsSince(begin);
    EXPECT_GE(waited, Database::busyTimeoutMilliseconds / 1000.0 * 0.9);
    EXPECT_LT(waited, Database::busyTimeoutMilliseconds / 1000.0 + 1.0);

    // A writer that lets go within the time-out costs a delay, not the change.
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        sqlite3_exec(other, "COMMIT;", nullptr, nullptr, nullptr);
    });
    EXPECT_TRUE(DataManager::insertPlaySettings(settingsFor("late.lua", 1)));
    release.join();
    sqlite3_close(other);
    EXPECT_EQ(storedTitles(), (std::vector<std::string>{"kept.lua", "late.lua"}));
}

TEST(Faults, ADamagedStoreAnswersNothingAndIsNotMadeWorse) {
    struct Case {
        const char* what;
        std::function<void(const fs::path&)> damage;
    };
    const std::vector<Case> cases = {
        {"garbage", [](const fs::path& file) { writeFile(file, std::string(5000, '\x5a')); }},
        {"header overwritten",
         [](const fs::path& file) {
             std::string bytes = readFile(file);
             bytes.replace(0, 16, "not a database!!");
             writeFile(file, bytes);
         }},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        RuntimeDevice device;
        ASSERT_TRUE(DataManager::initDb());
        for (int i = 0; i < 15; ++i) ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("s" + std::to_string(i) + ".lua", i)));
        const fs::path file = DataManager::dataFilePath();
        test.damage(file);
        const std::string damaged = readFile(file);

        const bool initialised = DataManager::initDb();
        const bool inserted = DataManager::insertPlaySettings(settingsFor("new.lua", 1));
        DataManager::updateScriptTitleOfPlaySettingsFrom(std::string("s1.lua"), std::string("t1.lua"));
        const long count = DataManager::countPlaySettings();
        const auto all = DataManager::findAllPlaySettings();
        DataManager::getActivatorTriggersAll();
        EXPECT_TRUE(fs::exists(file)) << "a damaged store is never removed or replaced";
        // Not a database at all: every operation fails, and the bytes stay for a rescue.
        EXPECT_FALSE(initialised);
        EXPECT_FALSE(inserted);
        EXPECT_EQ(count, -1);
        EXPECT_TRUE(!all || all->empty());
        EXPECT_EQ(readFile(file), damaged);
    }
}

TEST(Faults, AnUnwritableLogLosesTheLineButNeverHoldsTheScript) {
    struct Case {
        const char* what;
        std::function<void(const fs::path& log)> make;
    };
    const std::vector<Case> cases = {
        {"a directory", [](const fs::path& log) { fs::create_directories(log); }},
        {"a pipe nobody reads", [](const fs::path& log) { ASSERT_EQ(::mkfifo(log.c_str(), 0644), 0); }},
        {"a full device", [](const fs::path& log) { fs::create_symlink("/dev/full", log); }},
        {"a dangling link", [](const fs::path& log) { fs::create_symlink("/nowhere/log.log", log); }},
        {"no library directory", [](const fs::path& log) { fs::remove_all(log.parent_path()); }},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        RuntimeDevice device;
        device.options(true, false, false);
        test.make(device.logFile());
        auto bridge = std::make_shared<LuaBridge>();
        auto script = std::async(std::launch::async, [&] {
            bridge->runLuaString("log('one') logging('two') touchDown(1, 5, 5) error('three')");
        });
        ASSERT_EQ(script.wait_for(std::chrono::seconds(5)), std::future_status::ready) << "the script hung on the log";
        EXPECT_EQ(device.ports.count(SimulateMessageTouch), 1u) << "the script went on after the log";
    }
}

TEST(Faults, AFullDiskKeepsTheStoreWholeAndRecordingsEndingOnACompleteLine) {
    RuntimeDevice device;
    ASSERT_TRUE(DataManager::initDb());
    ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("kept.lua", 1)));
    const fs::path store = DataManager::dataFilePath();
    startRecording();
    auto recording = *recordingFilePath();
    HIDEvent touch;  // five fingers: about 150 bytes an event
    touch.type = kIOHIDEventTypeDigitizer;
    for (std::uint32_t finger = 1; finger <= 5; ++finger)
        touch.children.push_back({finger, 1, kIOHIDDigitizerEventPosition, 0.1 * finger, 0.1 * finger});

    int stored = 1, refused = 0;
    {
        FileSizeLimit limit(std::max<rlim_t>(fileSize(store), fileSize(recording) + 1000));
        ASSERT_TRUE(limit.ok);
        for (int i = 0; i < 150; ++i) {
            (DataManager::insertPlaySettings(settingsFor("row" + std::to_string(i) + ".lua", i)) ? stored : refused)++;
            touch.timestamp = 24000u * (i + 1);
            handle_events(touch);
        }
    }
    stopRecording();
    EXPECT_GT(refused, 0) << "the limit never bit";
    EXPECT_EQ(integrity(store), "ok");
    const auto titles = storedTitles();
    ASSERT_EQ(static_cast<int>(titles.size()), stored);
    EXPECT_EQ(titles.front(), "kept.lua");

    // The recording stops at the last line that fitted, and still loads as a script.
    const std::string text = readFile(recording);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    std::size_t moves = 0;
    for (std::size_t at = text.find("touchMove"); at != std::string::npos; at = text.find("touchMove", at + 1)) ++moves;
    EXPECT_GT(moves, 0u);
    EXPECT_LT(moves, 5 * 150u) << "the limit never bit the recording";
    lua_State* L = luaL_newstate();
    EXPECT_EQ(luaL_loadstring(L, text.c_str()), LUA_OK) << lua_tostring(L, -1);
    lua_close(L);
    // With room again, recording works as before.
    EXPECT_TRUE(DataManager::insertPlaySettings(settingsFor("after.lua", 1)));
}

// Regression: a stop between the runner checking its flag and the chunk starting was lost.
TEST(Faults, AStopThatComesJustBeforeAPassStartsEndsThatPass) {
    RuntimeDevice device;
    writeFile(device.map("/Applications/Tactora.app/Extensions.lua"), "");
    std::atomic<bool> playing{true};
    LuaBridge bridge;
    bridge.keepRunningWhile([&] { return playing.load(); });
    playing = false;
    bridge.stopLuaRunning();
    auto endless = std::async(std::launch::async, [&] { bridge.runLuaString("while true do end"); });
    const bool ended = endless.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
    if (!ended) bridge.stopLuaRunning();  // let the test end either way
    endless.wait();
    EXPECT_TRUE(ended) << "the stop was lost";
    playing = true;
    bridge.runLuaString("done = 1");
    lua_getglobal(bridge.state(), "done");
    EXPECT_EQ(lua_tointeger(bridge.state(), -1), 1) << "once playing again, runs run";
    lua_pop(bridge.state(), 1);
    EXPECT_EQ(device.log(), "");
}
