// A long run: one script of touches, colour and image searches and pauses, played pass after
// pass at speed 2.0 under the runner, with a real receiver in another process. The process's
// memory, open files and threads are sampled as the passes go; they must stay flat.
// TACTORA_SOAK_PASSES sets the number of passes (scripts/soak.sh runs 10,000).
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <mutex>

#include "Control/ScriptManager.h"
#include "RuntimeFakes.h"
#include "host/DeviceProfiles.h"
#include "host/HostClock.h"
#include "host/PngCodec.h"
#include "host/ReceiverProcess.h"
#include "host/SimulatedDisplay.h"
#include "host/UnixMessagePorts.h"

using namespace tactora;
using namespace tactora::runtimetest;

namespace {

// Under a sanitizer freed memory waits in a quarantine, so resident memory says nothing there;
// leaks are LeakSanitizer's business in that build.
#if defined(__SANITIZE_THREAD__)
constexpr std::uint64_t defaultPasses = 40;
constexpr bool memoryIsMeaningful = false;
#elif defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t defaultPasses = 100;
constexpr bool memoryIsMeaningful = false;
#else
constexpr std::uint64_t defaultPasses = 300;
constexpr bool memoryIsMeaningful = true;
#endif

struct Sample {
    std::uint64_t pass;
    long rssKb = -1, threads = -1, files;
};

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
    // A grey 640 x 1136 screen with a red square at (400, 600) and an 8 x 8 mark of many colours at
    // (100, 900); the mark, cut from the screen, is the template findImage looks for.
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
    platform().clock = &clock;
    platform().messagePorts = &ports;
    platform().display = &display;
    platform().imageCodec = &codec;
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
    auto settings = std::make_shared<PlaySettings>();
    settings->setScriptTitle("soak.lua");
    settings->setScriptPath(scriptPath.string());
    settings->setRepeatTime(long(passes));
    settings->setRepeatInterval(0);
    settings->setPlaySpeed(2.0f);
    Global::sharedInstance().setCurrentPlaySettings(settings);

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
    ScriptManager::setPassObserver(nullptr);
    ScriptManager::setFinishedObserver(nullptr);
    if (!ended) ScriptManager::stopPlaying();
    device.queues.join();
    ASSERT_TRUE(ended) << "the passes did not end in time";

    EXPECT_EQ(device.log(), "") << "a pass failed";
    EXPECT_GE(display.captureCount(), 2 * passes);
    std::cout << "soak: " << passes << " passes\n      pass  rss_kb  fds  threads\n";
    for (const Sample& s : samples) std::printf("%10llu %7ld %4ld %8ld\n", (unsigned long long)s.pass, s.rssKb, s.files, s.threads);
    ASSERT_GE(samples.size(), 10u);
    // After the first tenth (allocator pools and caches warm up), nothing may grow: descriptors
    // and threads stay exactly as they were, memory within 2 MB or 5 %.
    const Sample warm = samples[2];
    for (const Sample& s : samples) {
        if (s.pass <= warm.pass) continue;
        EXPECT_EQ(s.files, warm.files) << "pass " << s.pass;
        EXPECT_EQ(s.threads, warm.threads) << "pass " << s.pass;
    }
    if (memoryIsMeaningful) EXPECT_LE(samples.back().rssKb - warm.rssKb, std::max(2048L, warm.rssKb / 20)) << "memory grew";
}
