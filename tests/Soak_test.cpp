// A long run: one script of touches, colour and image searches and pauses, played pass after
// pass at speed 2.0 under the runner, with a real receiver in another process. The process's
// memory, open files and threads are sampled as the passes go; they must stay flat.
// TACTORA_SOAK_PASSES sets the number of passes (300 by default, 100 under ASan, 40 under TSan;
// scripts/soak.sh runs 10,000).
#include <gtest/gtest.h>

#include <chrono>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
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
    long rssKb;
    int files;
    int threads;
};

long statusField(const char* name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name, 0) == 0) return std::atol(line.c_str() + std::strlen(name));
    return -1;
}

int openFiles() {  // less the listing's own descriptor
    return int(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})) - 1;
}

Sample sample(std::uint64_t pass) { return {pass, statusField("VmRSS:"), openFiles(), int(statusField("Threads:"))}; }

// A screen of the simulated device's pixel size, grey with a red square and a small mark.
std::shared_ptr<host::Frame> screen(const host::DeviceProfile& profile) {
    auto frame = std::make_shared<host::Frame>();
    frame->width = profile.pixelWidth();
    frame->height = profile.pixelHeight();
    frame->rgba.resize(std::size_t(frame->width) * frame->height * 4);
    for (std::uint32_t y = 0; y < frame->height; ++y)
        for (std::uint32_t x = 0; x < frame->width; ++x) {
            const bool red = x >= 400 && x < 420 && y >= 600 && y < 620;
            const bool mark = x >= 100 && x < 108 && y >= 900 && y < 908;
            const std::uint8_t pixel[] = {std::uint8_t(red ? 255 : mark ? x * 31 : 90),
                                          std::uint8_t(red ? 0 : mark ? y * 17 : 90), std::uint8_t(red ? 0 : mark ? 200 : 90), 255};
            std::memcpy(&frame->rgba[(std::size_t(y) * frame->width + x) * 4], pixel, 4);
        }
    return frame;
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
    const host::DeviceProfile profile = *host::findDeviceProfile("iphone-se");
    host::SimulatedDisplay display(profile);
    host::PngCodec codec;
    auto frame = screen(profile);
    display.setFrameSource([frame] { return frame; });
    platform().clock = &clock;
    platform().messagePorts = &ports;
    platform().display = &display;
    platform().imageCodec = &codec;
    device.options(true, false, false);

    // The mark, cut from the screen, is the template findImage looks for.
    std::vector<std::uint8_t> mark;
    for (std::uint32_t y = 900; y < 908; ++y)
        mark.insert(mark.end(), frame->rgba.begin() + (std::size_t(y) * frame->width + 100) * 4,
                    frame->rgba.begin() + (std::size_t(y) * frame->width + 108) * 4);
    auto png = codec.encodePng(mark.data(), 8, 8, 32);
    ASSERT_TRUE(png);
    const auto markPath = device.map("/var/mobile/Library/Tactora/Scripts/mark.png");
    writeFile(markPath, std::string(png->begin(), png->end()));

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
    const std::uint64_t every = passes / 20;
    ScriptManager::setPassObserver([&](std::uint64_t pass) {
        if ((pass - 1) % every == 0 || pass == passes) {
            std::lock_guard lock(mutex);
            samples.push_back(sample(pass));
        }
    });
    std::atomic<bool> finished{false};
    ScriptManager::setFinishedObserver([&] { finished = true; });
    const auto begin = std::chrono::steady_clock::now();
    ScriptManager::runScript();
    const bool ended = device.loop.runUntil([&] { return finished.load(); }, std::chrono::seconds(passes / 5 + 60));
    ScriptManager::setPassObserver(nullptr);
    ScriptManager::setFinishedObserver(nullptr);
    if (!ended) ScriptManager::stopPlaying();
    device.queues.join();
    ASSERT_TRUE(ended) << "the passes did not end in time";
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

    EXPECT_EQ(device.log(), "") << "a pass failed";
    EXPECT_GE(display.captureCount(), 2 * passes);
    std::cout << "soak: " << passes << " passes in " << seconds << " s\n  pass      rss_kb  fds  threads\n";
    for (const Sample& s : samples)
        std::cout << "  " << std::setw(8) << s.pass << std::setw(10) << s.rssKb << std::setw(5) << s.files
                  << std::setw(9) << s.threads << "\n";
    ASSERT_GE(samples.size(), 10u);
    // After the first tenth (allocator pools and caches warm up), nothing may grow: descriptors
    // and threads stay exactly as they were, memory within 2 MB or 5 %.
    const Sample& warm = samples[2];
    long peak = 0;
    for (std::size_t i = 2; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i].files, warm.files) << "pass " << samples[i].pass;
        EXPECT_EQ(samples[i].threads, warm.threads) << "pass " << samples[i].pass;
        peak = std::max(peak, samples[i].rssKb);
    }
    if (memoryIsMeaningful) {
        EXPECT_LE(samples.back().rssKb - warm.rssKb, std::max(2048L, warm.rssKb / 20)) << "memory grew";
    }
    RecordProperty("passes", int(passes));
    RecordProperty("peak_rss_kb", int(peak));
}
