// What being stoppable costs a script, and how soon a stop takes effect.
//   BM_LoopPlain / BM_LoopInBridge: the same arithmetic loop in a bare Lua state and in the
//   bridge with its stop hook; BM_HookOverhead reports the ratio of their thread CPU times.
//   BM_StopLatency*: time from stopLuaRunning on one thread to the end of the script's protected
//   call on the script's thread, with its median and 99th percentile: in a busy loop, in loops
//   of quick and of slow C calls, in a loop of appRun, in a launch that takes 200 ms to answer
//   and inside a 30 s pause. Where the script has a steady state (a loop, a pause), the stop
//   comes 2 ms after the script began, so that it lands in that state rather than at its start.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>
#include <thread>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "Kernel/LuaBridge.h"
#include "Platform/Apps.h"
#include "Platform/Clock.h"
#include "Platform/Platform.h"
#include "host/HostPaths.h"

using namespace tactora;
using Steady = std::chrono::steady_clock;

namespace {

constexpr const char* loop = "local s = 0 for i = 1, 200000 do s = s + i % 7 end return s";

// Pauses are skipped, except that the end-of-run pause marks when the protected call returned
// and that, with `realPauses`, a script's pause really waits (until its end or a stop).
class MarkingClock final : public tactora::Clock {
public:
    std::atomic<Steady::rep> endOfRun{0};
    std::atomic<bool> started{false};
    bool realPauses = false;
    void sleepMicroseconds(std::uint32_t microseconds) override {
        if (microseconds == 16000) endOfRun.store(Steady::now().time_since_epoch().count());
    }
    bool sleepMicrosecondsUnless(std::uint32_t microseconds, const std::function<bool()>& stopped) override {
        if (microseconds == 500000) return !stopped();  // the runner's settling, not a script's
        started.store(true);
        if (realPauses) return Clock::sleepMicrosecondsUnless(microseconds, stopped);
        return !stopped();
    }
};

// The bridge with no receiver (sends fail at once), no pauses and an empty device tree.
struct BenchDevice {
    BenchDevice() : root(std::filesystem::temp_directory_path() / "tactora-bench-lua"), paths(root.string()) {
        std::filesystem::create_directories(root / "Applications/Tactora.app");
        std::ofstream(root / "Applications/Tactora.app/Extensions.lua") << "";
        platform().paths = &paths;
        platform().clock = &clock;
    }
    ~BenchDevice() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    ScopedPlatform scope;
    std::filesystem::path root;
    host::HostPaths paths;
    MarkingClock clock;
};

// The CPU time of the calling thread: on a machine shared with other jobs, the time the thread
// waits for a core says nothing about the interpreter, and wall time would make the ratio below
// mostly a measure of the load.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double runPlain(lua_State* L) {
    double start = threadSeconds();
    luaL_loadstring(L, loop);
    lua_pcall(L, 0, 0, 0);
    return threadSeconds() - start;
}

double runInBridge(LuaBridge& bridge) {
    double start = threadSeconds();
    bridge.runLuaString(loop);
    return threadSeconds() - start;
}

void BM_LoopPlain(benchmark::State& state) {
    lua_State* L = luaL_newstate();
    luaL_openlibs(L);
    for (auto _ : state) benchmark::DoNotOptimize(runPlain(L));
    lua_close(L);
}
BENCHMARK(BM_LoopPlain)->Unit(benchmark::kMillisecond);

void BM_LoopInBridge(benchmark::State& state) {
    BenchDevice device;
    LuaBridge bridge;
    for (auto _ : state) benchmark::DoNotOptimize(runInBridge(bridge));
}
BENCHMARK(BM_LoopInBridge)->Unit(benchmark::kMillisecond);

// Both in the same iteration, so that the ratio is measured under the same machine load; the
// bridge's run includes its end-of-run flush.
void BM_HookOverhead(benchmark::State& state) {
    BenchDevice device;
    LuaBridge bridge;
    lua_State* L = luaL_newstate();
    luaL_openlibs(L);
    double plain = 0, hooked = 0;
    for (auto _ : state) {
        plain += runPlain(L);
        hooked += runInBridge(bridge);
    }
    lua_close(L);
    state.counters["bridge_over_plain"] = hooked / plain;
}
BENCHMARK(BM_HookOverhead)->Unit(benchmark::kMillisecond);

double percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    size_t index = static_cast<size_t>(share * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

// An app whose launch service answers after 200 ms.
class SlowApps final : public Apps {
public:
    std::atomic<int> launching{0};
    void launch(const std::string&) override {
        ++launching;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        --launching;
    }
};

void stopLatency(benchmark::State& state, const char* script, bool realPauses = false,
                 std::chrono::milliseconds settle = std::chrono::milliseconds(2), Apps* apps = nullptr,
                 std::chrono::microseconds jitter = std::chrono::microseconds(0)) {
    BenchDevice device;
    device.clock.realPauses = realPauses;
    if (apps) platform().apps = apps;
    LuaBridge bridge;
    std::vector<double> latencies;
    std::minstd_rand random(7);
    for (auto _ : state) {
        device.clock.started = false;
        device.clock.endOfRun = 0;
        std::thread runner([&] { bridge.runLuaString(script); });
        while (!device.clock.started.load()) std::this_thread::yield();
        // Into the loop or pause proper, not just its start.
        std::this_thread::sleep_for(settle + std::chrono::microseconds(random() % (jitter.count() + 1)));
        auto stopAt = Steady::now();
        bridge.stopLuaRunning();
        runner.join();
        double seconds = std::chrono::duration<double>(
                             Steady::duration(device.clock.endOfRun.load()) - stopAt.time_since_epoch())
                             .count();
        state.SetIterationTime(seconds);
        latencies.push_back(seconds);
    }
    state.counters["median_us"] = percentile(latencies, 0.5) * 1e6;
    state.counters["p99_us"] = percentile(latencies, 0.99) * 1e6;
}

void BM_StopLatencyBusyLoop(benchmark::State& state) {
    stopLatency(state, "usleep(0) while true do end");
}
BENCHMARK(BM_StopLatencyBusyLoop)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

void BM_StopLatencyCallingC(benchmark::State& state) {
    stopLatency(state, "usleep(0) while true do getScreenBitDepth() end");
}
BENCHMARK(BM_StopLatencyCallingC)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

// Each call takes a fraction of a millisecond, so few VM instructions pass between two looks.
void BM_StopLatencySlowCalls(benchmark::State& state) {
    stopLatency(state, "usleep(0) while true do local s = string.rep('x', 1000000) end");
}
BENCHMARK(BM_StopLatencySlowCalls)->UseManualTime()->Iterations(100)->Unit(benchmark::kMicrosecond);

void BM_StopLatencyInAppRun(benchmark::State& state) {
    stopLatency(state, "usleep(0) while true do appRun('com.example.app') end");
}
BENCHMARK(BM_StopLatencyInAppRun)->UseManualTime()->Iterations(300)->Unit(benchmark::kMicrosecond);

// The stop lands while the launch service has not answered yet; the launch goes on by itself.
void BM_StopLatencyInSlowLaunch(benchmark::State& state) {
    SlowApps apps;
    // The jitter keeps the stop from landing in step with the script's looks at the stop word.
    stopLatency(state, "usleep(0) appRun('com.example.slow')", false, std::chrono::milliseconds(20), &apps,
                std::chrono::microseconds(10000));
    while (apps.launching.load() > 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}
BENCHMARK(BM_StopLatencyInSlowLaunch)->UseManualTime()->Iterations(50)->Unit(benchmark::kMicrosecond);

// The stop lands while the script waits in a 30 s pause, which must not be waited out.
void BM_StopLatencyInPause(benchmark::State& state) {
    stopLatency(state, "usleep(30000000)", true);
}
BENCHMARK(BM_StopLatencyInPause)->UseManualTime()->Iterations(100)->Unit(benchmark::kMicrosecond);

}  // namespace
