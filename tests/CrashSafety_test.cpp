// A writer process is killed at random moments while it changes the user defaults and the
// database; whatever the moment, both must stay readable and hold the old or the new value.
//
// The writer is this test binary started again (fork, then exec) with one test selected and its
// instructions in the environment, so it starts as a fresh single-threaded process.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "FoundationFakes.h"
#include "ToolProcess.h"
#include "Managers/DataManager.h"
#include "host/FileUserDefaults.h"
#include "host/HostPaths.h"

using namespace tactora;
using tactora::testing::Child;
using tactora::testing::ScratchDirectory;

namespace {

constexpr const char* rootVariable = "TACTORA_CRASH_WRITER_ROOT";
constexpr const char* reportVariable = "TACTORA_CRASH_WRITER_FD";
constexpr const char* onlyDefaultsVariable = "TACTORA_CRASH_WRITER_ONLY_DEFAULTS";
constexpr const char* counterKey = "crash.counter";
constexpr const char* title = "counter.lua";

std::string defaultsPath(const std::string& root) { return host::HostPaths(root).map(host::userDefaultsDevicePath); }

}  // namespace

// Runs only inside the writer process: writes 1, 2, 3, ... to both stores (or to the defaults
// alone, whose writes are otherwise a small part of the time), reporting each value on the pipe
// once it is stored, until it is killed.
TEST(CrashSafetyWriter, WritesUntilKilled) {
    const char *root = std::getenv(rootVariable), *report = std::getenv(reportVariable);
    if (!root || !report) GTEST_SKIP() << "started by CrashSafety only";
    const int fd = std::atoi(report);
    const bool onlyDefaults = std::getenv(onlyDefaultsVariable) != nullptr;
    host::HostPaths paths(root);
    host::FileUserDefaults defaults(defaultsPath(root));
    platform().paths = &paths;
    platform().userDefaults = &defaults;
    for (std::int64_t value = 1;; ++value) {
        defaults.setObject(counterKey, value);
        PlaySettings settings;
        settings.setScriptTitle(title);
        settings.setRepeatTime(long(value));
        if (!onlyDefaults && !DataManager::updatePlaySettings(settings)) std::_Exit(3);
        if (::write(fd, &value, sizeof value) != sizeof value) std::_Exit(4);
    }
}

TEST(CrashSafety, DefaultsAndDatabaseSurviveAWriterKilledAtRandomMoments) {
    ScratchDirectory dir;
    const std::string root = dir.path().string();
    tactora::testing::FakeDevice device;  // installs the fakes we replace below
    host::HostPaths paths(root);
    host::FileUserDefaults defaults(defaultsPath(root));
    platform().paths = &paths;
    platform().userDefaults = &defaults;
    std::filesystem::create_directories(paths.map(devicepaths::libraryDirectory));
    ASSERT_TRUE(DataManager::initDb());
    PlaySettings initial;
    initial.setScriptTitle(title);
    initial.setRepeatTime(0);
    ASSERT_TRUE(DataManager::insertPlaySettings(initial));
    defaults.setObject(counterKey, std::int64_t(0));
    // A large neighbour makes every rewrite of the defaults file take a while.
    defaults.setObject("crash.padding", std::string(1 << 18, 'p'));

    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    std::int64_t dbValue = 0;
    for (int round = 0; round < 25; ++round) {
        int report[2];
        ASSERT_EQ(::pipe(report), 0);
        const bool onlyDefaults = round % 2 == 1;
        pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            ::close(report[0]);
            setenv(rootVariable, root.c_str(), 1);
            setenv(reportVariable, std::to_string(report[1]).c_str(), 1);
            if (onlyDefaults) setenv(onlyDefaultsVariable, "1", 1);
            execl("/proc/self/exe", "tactora_tests", "--gtest_filter=CrashSafetyWriter.WritesUntilKilled",
                  static_cast<char*>(nullptr));
            std::_Exit(127);
        }
        Child child(pid);
        ::close(report[1]);
        // Let the writer get going (its first report), then kill it a little later.
        std::int64_t value = 0;
        ASSERT_EQ(::read(report[0], &value, sizeof value), ssize_t(sizeof value)) << "the writer never wrote";
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        child.kill();
        std::int64_t last = value;
        while (::read(report[0], &value, sizeof value) == ssize_t(sizeof value)) last = value;
        ::close(report[0]);

        // The writer counts from 1 again in every round; reported values are complete in both
        // stores, and at most the one after the last report may also have landed.
        auto stored = defaults.objectForKey(counterKey);
        ASSERT_TRUE(stored) << "the defaults file became unreadable in round " << round;
        std::int64_t inDefaults = std::get<std::int64_t>(*stored);
        EXPECT_TRUE(inDefaults == last || inDefaults == last + 1) << inDefaults << " after " << last;
        EXPECT_EQ(defaults.stringForKey("crash.padding"), std::string(1 << 18, 'p'));
        auto row = DataManager::findPlaySettingsByScriptTitle(title);
        ASSERT_TRUE(row) << "the database became unreadable in round " << round;
        if (onlyDefaults) {
            EXPECT_EQ(row->repeatTime(), dbValue);
        } else {
            EXPECT_TRUE(row->repeatTime() == last || row->repeatTime() == last + 1)
                << row->repeatTime() << " after " << last;
            dbValue = row->repeatTime();
        }
        EXPECT_EQ(DataManager::countPlaySettings(), 1);
    }
    // The next change clears what the killed writers left behind.
    defaults.setObject(counterKey, std::int64_t(-1));
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(defaultsPath(root)).parent_path()))
        EXPECT_EQ(entry.path().filename().string().find(".tmp."), std::string::npos) << entry.path();
}
