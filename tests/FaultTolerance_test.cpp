// Faults a device meets (docs/reliability.md): stops at any moment, an unwritable log, a locked, damaged
// or full store, a killed writer; the process goes on and keeps what it stored. Then the soak.
#include <gtest/gtest.h>
#include <lua.hpp>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <random>

#include "Control/ScriptManager.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/Recorder.h"
#include "Managers/DataManager.h"
#include "Managers/Database.h"
#include "RuntimeFakes.h"
#include "ToolProcess.h"
#include "host/DeviceProfiles.h"
#include "host/FileUserDefaults.h"
#include "host/HostClock.h"
#include "host/PngCodec.h"
#include "host/ReceiverProcess.h"
#include "host/SimulatedDisplay.h"
#include "host/UnixMessagePorts.h"

using namespace tactora;
using namespace tactora::runtimetest;
namespace fs = std::filesystem;
using std::chrono::steady_clock;

namespace {

PlaySettings settingsFor(const std::string& title, long times) {
    PlaySettings settings;
    settings.setScriptTitle(title), settings.setPlayDirectly(true), settings.setRepeatTime(times), settings.setPlaySpeed(1.5f);
    return settings;
}

// The current settings: a script file played at speed 2.
void playNext(const fs::path& path, long times, long interval) {
    auto settings = std::make_shared<PlaySettings>();
    settings->setScriptTitle(path.filename().string()), settings->setScriptPath(path.string());
    settings->setRepeatTime(times), settings->setRepeatInterval(interval), settings->setPlaySpeed(2.0f);
    Global::sharedInstance().setCurrentPlaySettings(settings);
}

std::vector<std::string> storedTitles() {
    std::vector<std::string> titles;
    if (auto all = DataManager::findAllPlaySettings())
        for (const auto& settings : *all) titles.push_back(settings->scriptTitle().value_or("?"));
    return titles;
}

}  // namespace

TEST(Faults, AStopAtAThousandRandomPointsAlwaysEndsIdle) {
    RuntimeDevice device;
    device.options(true, false, false);
    std::atomic<int> finishes{0};
    ScriptManager::setFinishedObserver([&] { ++finishes; });
    const char* scripts[] = {
        "while true do local t = {} end",
        "for i = 1, 300 do touchDown(1, i, i) usleep(100) touchMove(1, i + 1, i) touchUp(1, i, i) end",
        "local s = '' for i = 1, 100000 do s = s .. 'ab' if #s > 512 then s = '' end end",
        "local t = {} for i = 1, 5000 do t[i] = {i, tostring(i)} end getColor(10, 10) error('broken')",
        "for i = 1, 100 do pcall(error, 'caught') coroutine.wrap(function() coroutine.yield(i) end)() end",
    };
    const auto path = device.map("/var/mobile/Library/Tactora/Scripts/fault.lua");
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> pick(0, std::size(scripts) - 1), delay(0, 1500);
    for (int point = 0; point < 1000; ++point) {
        device.clock.clear(), device.ports.clear();
        writeFile(path, scripts[pick(random)]);
        playNext(path, point % 3, 1);  // until stopped, once, or twice
        const int before = finishes;
        ScriptManager::runScript();
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        ScriptManager::stopPlaying();
        const bool finished = device.loop.runUntil([&] { return finishes > before; }, std::chrono::seconds(2));
        device.queues.join();
        ASSERT_TRUE(finished) << "stop " << point << " did not end the run";
        const Global& global = Global::sharedInstance();
        ASSERT_TRUE(!global.isPlaying() && !global.luaBridge() && !global.currentPlaySettings()) << "stop " << point;
    }
    ScriptManager::setFinishedObserver(nullptr);
    // Script errors are logged, stops never are.
    for (const auto& line : device.logLines()) EXPECT_EQ(line.find("interrupted"), std::string::npos) << line;
}

TEST(Faults, ALockedStoreFailsAChangeWithinASecondAShortLockOnlyDelaysItAndADamagedOneIsNotMadeWorse) {
    RuntimeDevice device;
    ASSERT_TRUE(DataManager::initDb());
    ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("kept.lua", 3)));
    const fs::path file = DataManager::dataFilePath();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr), SQLITE_OK);

    const auto begin = steady_clock::now();
    EXPECT_FALSE(DataManager::insertPlaySettings(settingsFor("blocked.lua", 1)));
    const double waited = std::chrono::duration<double>(steady_clock::now() - begin).count();
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

    // A broken header, then all garbage: every operation fails and the bytes stay for a rescue.
    for (const std::string& damaged : {"not a database!!" + readFile(file).substr(16), std::string(5000, '\x5a')}) {
        writeFile(file, damaged);
        EXPECT_FALSE(DataManager::initDb());
        EXPECT_FALSE(DataManager::insertPlaySettings(settingsFor("new.lua", 1)));
        DataManager::updateScriptTitleOfPlaySettingsFrom(std::string("kept.lua"), std::string("t1.lua"));
        EXPECT_EQ(DataManager::countPlaySettings(), -1);
        EXPECT_TRUE(storedTitles().empty());
        DataManager::getActivatorTriggersAll();
        EXPECT_EQ(readFile(file), damaged) << "a damaged store is never removed or replaced";
    }
}

TEST(Faults, AnUnwritableLogLosesTheLineButNeverHoldsTheScript) {
    const std::function<void(const fs::path& log)> makers[] = {
        [](const fs::path& log) { fs::create_directories(log); },
        [](const fs::path& log) { ASSERT_EQ(::mkfifo(log.c_str(), 0644), 0); },  // a pipe nobody reads
        [](const fs::path& log) { fs::create_symlink("/dev/full", log); },
        [](const fs::path& log) { fs::create_symlink("/nowhere/log.log", log); },
        [](const fs::path& log) { fs::remove_all(log.parent_path()); },
    };
    for (std::size_t i = 0; i < std::size(makers); ++i) {
        SCOPED_TRACE(i);
        RuntimeDevice device;
        device.options(true, false, false);
        makers[i](device.logFile());
        LuaBridge bridge;
        auto script = std::async(std::launch::async, [&] {
            bridge.runLuaString("log('one') logging('two') touchDown(1, 5, 5) error('three')");
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
    const fs::path recording = *recordingFilePath();
    HIDEvent touch{kIOHIDEventTypeDigitizer, 0, 0, 0, 0, {}};  // five fingers: about 150 bytes an event
    for (std::uint32_t finger = 1; finger <= 5; ++finger)
        touch.children.push_back({finger, 1, kIOHIDDigitizerEventPosition, 0.1 * finger, 0.1 * finger});

    // Files may grow only so far, as on a full disk (writes past it fail with EFBIG, SIGXFSZ ignored).
    int stored = 1, refused = 0;
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{std::max<rlim_t>(fs::file_size(store), fs::file_size(recording) + 1000), previous.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    for (int i = 0; i < 150; ++i) {
        (DataManager::insertPlaySettings(settingsFor("row" + std::to_string(i) + ".lua", i)) ? stored : refused)++;
        touch.timestamp = 24000u * (i + 1);
        handle_events(touch);
    }
    ::setrlimit(RLIMIT_FSIZE, &previous), ::signal(SIGXFSZ, handler);
    stopRecording();
    EXPECT_GT(refused, 0) << "the limit never bit";
    sqlite3* db = nullptr;
    std::string integrity;
    sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_exec(db, "PRAGMA integrity_check;", [](void* out, int, char** row, char**) { return *static_cast<std::string*>(out) = row[0], 0; }, &integrity, nullptr);
    sqlite3_close(db);
    EXPECT_EQ(integrity, "ok");
    const auto titles = storedTitles();
    ASSERT_EQ(static_cast<int>(titles.size()), stored);
    EXPECT_EQ(titles.front(), "kept.lua");

    // The recording stops at the last line that fitted, and still loads as a script.
    const std::string text = readFile(recording);
    ASSERT_TRUE(text.ends_with('\n'));
    std::size_t moves = 0;
    for (std::size_t at = text.find("touchMove"); at != std::string::npos; at = text.find("touchMove", at + 1)) ++moves;
    EXPECT_GT(moves, 0u);
    EXPECT_LT(moves, 5 * 150u) << "the limit never bit the recording";
    lua_State* L = luaL_newstate();
    EXPECT_EQ(luaL_loadstring(L, text.c_str()), LUA_OK) << lua_tostring(L, -1);
    lua_close(L);
    EXPECT_TRUE(DataManager::insertPlaySettings(settingsFor("after.lua", 1))) << "with room again, storing works";
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
    EXPECT_EQ(device.log(), "");
}

// A writer process (this binary with one test selected) is killed at random moments while it changes
// the user defaults and the database; both must stay readable and hold the old or the new value.
constexpr const char* writerVariable = "TACTORA_CRASH_WRITER";  // "<report fd> <only defaults> <root>"

// The writer: stores 1, 2, 3, ... in both stores (or the defaults alone), reporting each once stored.
TEST(CrashSafetyWriter, WritesUntilKilled) {
    const char* instructions = std::getenv(writerVariable);
    if (!instructions) GTEST_SKIP() << "started by CrashSafety only";
    int fd = -1, onlyDefaults = 0, rootAt = 0;
    std::sscanf(instructions, "%d %d %n", &fd, &onlyDefaults, &rootAt);
    host::HostPaths paths(instructions + rootAt);
    host::FileUserDefaults defaults(paths.map(host::userDefaultsDevicePath));
    platform().paths = &paths, platform().userDefaults = &defaults;
    for (std::int64_t value = 1;; ++value) {
        defaults.setObject("crash.counter", value);
        if (!onlyDefaults && !DataManager::updatePlaySettings(settingsFor("counter.lua", long(value)))) std::_Exit(3);
        if (::write(fd, &value, sizeof value) != sizeof value) std::_Exit(4);
    }
}

TEST(CrashSafety, DefaultsAndDatabaseSurviveAWriterKilledAtRandomMoments) {
    tactora::testing::FakeDevice device;
    host::FileUserDefaults defaults(device.paths.map(host::userDefaultsDevicePath));
    platform().userDefaults = &defaults;
    fs::create_directories(device.map(devicepaths::libraryDirectory));
    ASSERT_TRUE(DataManager::initDb());
    ASSERT_TRUE(DataManager::insertPlaySettings(settingsFor("counter.lua", 0)));
    defaults.setObject("crash.counter", std::int64_t(0));
    // A large neighbour makes every rewrite of the defaults file take a while.
    const std::string padding(1 << 18, 'p');
    defaults.setObject("crash.padding", padding);

    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::int64_t dbValue = 0;
    for (int round = 0; round < 25; ++round) {
        int report[2];
        ASSERT_EQ(::pipe(report), 0);
        const bool onlyDefaults = round % 2 == 1;
        // Set only while the writer starts: the writer test of this process must skip.
        setenv(writerVariable, (std::to_string(report[1]) + " " + std::to_string(onlyDefaults) + " " + device.root.path().string()).c_str(), 1);
        tactora::testing::Child child({"/proc/self/exe", "--gtest_filter=CrashSafetyWriter.WritesUntilKilled"});
        unsetenv(writerVariable);
        ::close(report[1]);
        ASSERT_TRUE(child.running());
        // Let the writer get going (its first report), then kill it a little later.
        std::int64_t value = 0;
        ASSERT_EQ(::read(report[0], &value, sizeof value), ssize_t(sizeof value)) << "the writer never wrote";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        child.kill();
        std::int64_t last = value;
        while (::read(report[0], &value, sizeof value) == ssize_t(sizeof value)) last = value;
        ::close(report[0]);

        // Each round counts from 1: the last reported value is stored, or the one after it.
        auto stored = defaults.objectForKey("crash.counter");
        ASSERT_TRUE(stored) << "the defaults file became unreadable in round " << round;
        const std::int64_t inDefaults = std::get<std::int64_t>(*stored);
        EXPECT_TRUE(inDefaults == last || inDefaults == last + 1) << inDefaults << " after " << last;
        EXPECT_EQ(defaults.stringForKey("crash.padding"), padding);
        auto row = DataManager::findPlaySettingsByScriptTitle("counter.lua");
        ASSERT_TRUE(row) << "the database became unreadable in round " << round;
        if (!onlyDefaults) {
            EXPECT_TRUE(row->repeatTime() == last || row->repeatTime() == last + 1) << row->repeatTime() << " after " << last;
            dbValue = row->repeatTime();
        }
        EXPECT_EQ(row->repeatTime(), dbValue);
        EXPECT_EQ(DataManager::countPlaySettings(), 1);
    }
    // The next change clears what the killed writers left behind.
    defaults.setObject("crash.counter", std::int64_t(-1));
    for (const auto& entry : fs::directory_iterator(fs::path(device.paths.map(host::userDefaultsDevicePath)).parent_path()))
        EXPECT_EQ(entry.path().filename().string().find(".tmp."), std::string::npos) << entry.path();
}

// The soak: a script of touches, searches and pauses played pass after pass at speed 2 with a real
// receiver process. TACTORA_SOAK_PASSES sets the passes (scripts/soak.sh runs 10,000).
namespace {

// Sanitizers keep freed memory in quarantine, so resident memory says nothing there (leaks: LSan).
#if defined(__SANITIZE_THREAD__)
constexpr std::uint64_t defaultPasses = 40;
#elif defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t defaultPasses = 100;
#else
constexpr std::uint64_t defaultPasses = 300;
#endif
constexpr bool memoryIsMeaningful = defaultPasses == 300;

struct Sample { std::uint64_t pass; long rssKb, threads, files; };

Sample sample(std::uint64_t pass) {
    // Less the listing's own descriptor.
    Sample s{pass, -1, -1, long(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})) - 1};
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) s.rssKb = std::atol(line.c_str() + 6);
        if (line.starts_with("Threads:")) s.threads = std::atol(line.c_str() + 8);
    }
    return s;
}

}  // namespace

TEST(Soak, ThousandsOfPassesKeepMemoryFilesAndThreadsFlat) {
    const char* configured = std::getenv("TACTORA_SOAK_PASSES");
    const std::uint64_t passes = configured ? std::strtoull(configured, nullptr, 10) : defaultPasses;
    ASSERT_GE(passes, 20u);

    RuntimeDevice device;
    const std::string root = device.root.path().string();
    host::HostClock clock;
    host::UnixMessagePorts ports{root, nullptr};
    host::SimulatedDisplay display(*host::findDeviceProfile("iphone-se"));
    host::PngCodec codec;
    // Grey, a red square at (400, 600) and an 8 x 8 mark at (100, 900), findImage's template.
    auto frame = std::make_shared<host::Frame>(host::Frame{std::vector<std::uint8_t>(640 * 1136 * 4, 90), 640, 1136});
    std::vector<std::uint8_t> mark;
    for (std::uint32_t y = 0; y < 1136; ++y)
        for (std::uint32_t x = 0; x < 640; ++x) {
            std::uint8_t* pixel = &frame->rgba[(y * 640 + x) * 4];
            pixel[3] = 255;
            if (x >= 400 && x < 420 && y >= 600 && y < 620) pixel[0] = 255, pixel[1] = pixel[2] = 0;
            if (x < 100 || x >= 108 || y < 900 || y >= 908) continue;
            pixel[0] = std::uint8_t(x * 31), pixel[1] = std::uint8_t(y * 17), pixel[2] = 200;
            mark.insert(mark.end(), pixel, pixel + 4);
        }
    display.setFrameSource([frame] { return frame; });
    Platform& p = platform();
    p.clock = &clock, p.messagePorts = &ports, p.display = &display, p.imageCodec = &codec;
    device.options(true, false, false);
    auto png = codec.encodePng(mark.data(), 8, 8, 32);
    ASSERT_TRUE(png);
    writeFile(device.map("/var/mobile/Library/Tactora/Scripts/mark.png"), std::string(png->begin(), png->end()));

    std::string error;
    auto receiver = host::ensureReceiver(root, "iphone-se", "", error, {TACTORA_CLI});
    ASSERT_TRUE(receiver) << error;

    writeFile(device.map("/Applications/Tactora.app/Extensions.lua"), "");
    const auto scriptPath = device.map("/var/mobile/Library/Tactora/Scripts/soak.lua");
    writeFile(scriptPath, R"(
touchDown(1, 100, 200) usleep(30000) touchMove(1, 120, 240) usleep(30000) touchUp(1, 120, 240)
local red = findColor(0xFF0000, 1)
local mark = findImage({imagePath = rootDir() .. "mark.png", count = 1})
if #red ~= 1 or red[1][1] ~= 200 or red[1][2] ~= 300 then error("red square not found") end
if #mark ~= 1 or mark[1][1] ~= 50 or mark[1][2] ~= 450 then error("mark not found") end
touchDown(2, red[1][1], red[1][2]) usleep(50000) touchUp(2, red[1][1], red[1][2])
usleep(200000)
)");
    playNext(scriptPath, long(passes), 0);

    std::mutex mutex;
    std::vector<Sample> samples;
    ScriptManager::setPassObserver([&](std::uint64_t pass) {
        if ((pass - 1) % (passes / 20) != 0 && pass != passes) return;
        std::lock_guard lock(mutex);
        samples.push_back(sample(pass));
    });
    std::atomic<bool> finished{false};
    ScriptManager::setFinishedObserver([&] { finished = true; });
    ScriptManager::runScript();
    const bool ended = device.loop.runUntil([&] { return finished.load(); }, std::chrono::seconds(passes / 5 + 60));
    ScriptManager::setPassObserver(nullptr), ScriptManager::setFinishedObserver(nullptr);
    if (!ended) ScriptManager::stopPlaying();
    device.queues.join();
    ASSERT_TRUE(ended) << "the passes did not end in time";

    EXPECT_EQ(device.log(), "") << "a pass failed";
    EXPECT_GE(display.captureCount(), 2 * passes);
    std::printf("soak: %llu passes\n      pass  rss_kb  fds  threads\n", (unsigned long long)passes);
    for (const Sample& s : samples) std::printf("%10llu %7ld %4ld %8ld\n", (unsigned long long)s.pass, s.rssKb, s.files, s.threads);
    ASSERT_GE(samples.size(), 10u);
    // After warm-up (the first tenth) descriptors and threads stay exact, memory within 2 MB or 5 %.
    const Sample warm = samples[2];
    for (const Sample& s : samples) {
        if (s.pass <= warm.pass) continue;
        EXPECT_EQ(s.files, warm.files) << "pass " << s.pass;
        EXPECT_EQ(s.threads, warm.threads) << "pass " << s.pass;
    }
    if (memoryIsMeaningful) { EXPECT_LE(samples.back().rssKb - warm.rssKb, std::max(2048L, warm.rssKb / 20)) << "memory grew"; }
}
