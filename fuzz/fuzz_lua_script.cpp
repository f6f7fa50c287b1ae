// Arbitrary scripts through the real interpreter and its 24 script functions, against fake ports:
// nothing may crash, leak or touch memory it does not own, and every message sent must be one the
// receiver understands. Byte 0 below 0x80: the rest is Lua text; otherwise it is a list of calls,
// (function, argument count, arguments...), each under pcall so one error does not hide the next.
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

#include "Kernel/EventSimulate.h"
#include "Kernel/LuaBridge.h"
#include "Models/Global.h"
#include "Platform/Clock.h"
#include "Platform/Display.h"
#include "Platform/MessagePorts.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"

using namespace tactora;

namespace {

struct InstantClock : Clock {
    void sleepMicroseconds(std::uint32_t) override {}
    bool sleepMicrosecondsUnless(std::uint32_t, const std::function<bool()>& stopped) override { return !stopped(); }
};

// A sync carries nothing, a touch 24 bytes, a key 12.
struct CheckingRemote : RemoteMessagePort {
    bool isValid() const override { return true; }
    SendStatus sendRequest(std::int32_t id, std::span<const std::uint8_t> data, double, double, std::vector<std::uint8_t>*) override {
        const bool wellFormed = id == SimulateMessageSync    ? data.empty()
                                : id == SimulateMessageTouch ? data.size() == 24
                                                             : id == SimulateMessageKey && data.size() == 12;
        if (!wellFormed) __builtin_trap();
        return SendStatus::success;
    }
};

struct CheckingPorts : MessagePorts {
    std::unique_ptr<RemoteMessagePort> createRemote(const std::string&) override { return std::make_unique<CheckingRemote>(); }
};

struct PatternDisplay : Display {
    Size bounds() const override { return {32, 48}; }
    double scale() const override { return 2; }
    bool respondsToDisplayLink() const override { return true; }
    bool capture(std::uint8_t* pixels, std::int32_t width, std::int32_t height) override {
        for (std::int64_t i = 0; i < std::int64_t(width) * height * 4; ++i) pixels[i] = std::uint8_t(i * 7 / 3);
        return true;
    }
};

struct TempPaths : Paths {
    std::string root = [] {
        char pattern[] = "/tmp/tactora-fuzz-lua-XXXXXX";
        if (!mkdtemp(pattern)) std::abort();
        return std::string(pattern);
    }();
    std::string map(std::string_view devicePath) const override { return root + std::string(devicePath); }
};

const char* const functions[] = {
    "homeButtonDown", "homeButtonUp", "touchDown", "touchMove", "touchUp", "rootPathOfDocuments",
    "rootDir", "logging", "log", "usleep", "alert", "vibrate", "playAudio", "screenshot",
    "screenshotRegion", "getScreenSize", "getScreenResolution", "getScreenBitDepth", "getColor",
    "findColor", "findImage", "appRun", "appKill", "appIsActive",
};

// A Lua literal spelling `bytes` exactly.
std::string quoted(const std::string& bytes) {
    std::string text = "\"";
    char escape[8];
    for (unsigned char c : bytes) text.append(escape, std::snprintf(escape, sizeof escape, "\\%03u", c));
    return text + "\"";
}

std::string argument(FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange<int>(0, 7)) {
        case 0: return "nil";
        case 1: return input.ConsumeBool() ? "true" : "false";
        case 2: return std::to_string(input.ConsumeIntegral<std::int64_t>());
        case 3: return std::to_string(input.ConsumeIntegralInRange<int>(-3, 70));
        case 4: {
            char text[64];  // inf and nan come out as names Lua reads as nil globals
            return std::string(text, std::snprintf(text, sizeof text, "%.17g", input.ConsumeFloatingPoint<double>()));
        }
        case 5: return "(0/0)";
        case 6: return "{" + std::to_string(input.ConsumeIntegral<std::int8_t>()) + "}";
        default: return quoted(input.ConsumeRandomLengthString(64));
    }
}

std::string callList(FuzzedDataProvider& input) {
    std::string script;
    while (input.remaining_bytes() > 0) {
        script += "pcall(";
        script += functions[input.ConsumeIntegralInRange<std::size_t>(0, std::size(functions) - 1)];
        int count = input.ConsumeIntegralInRange<int>(0, 9);
        for (int i = 0; i < count; ++i) script += ", " + argument(input);
        script += ")\n";
    }
    return script;
}

}  // namespace

// A script may ask for any amount of memory; the device refuses big blocks, and so does this
// run, which Lua reports as "not enough memory".
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1:max_allocation_size_mb=64"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > 4096) return 0;
    static InstantClock clock;
    static CheckingPorts ports;
    static PatternDisplay display;
    static TempPaths paths;
    ScopedPlatform scope;
    platform().clock = &clock;
    platform().messagePorts = &ports;
    platform().display = &display;
    platform().paths = &paths;
    Global::sharedInstance().reset();

    FuzzedDataProvider input(data + 1, size - 1);
    std::string script = data[0] < 0x80 ? input.ConsumeRemainingBytesAsString() : callList(input);

    LuaBridge bridge;
    bridge.initEnv();
    if (!bridge.state()) return 0;
    // Nothing a fuzzed script does may reach outside the sandbox directory or end the process.
    luaL_dostring(bridge.state(),
                  "os.exit=nil os.execute=nil os.remove=nil os.rename=nil os.tmpname=nil os.getenv=nil "
                  "io=nil dofile=nil loadfile=nil require=nil package.loadlib=nil package=nil");
    // A watchdog stops a script still running after 200 ms, and keeps asking until it ends.
    std::mutex mutex;
    std::condition_variable_any wake;
    std::jthread watchdog([&](std::stop_token done) {
        std::unique_lock lock(mutex);
        for (auto wait = std::chrono::milliseconds(200);
             !wake.wait_for(lock, done, wait, [] { return false; }) && !done.stop_requested();
             wait = std::chrono::milliseconds(5))
            bridge.stopLuaRunning();
    });
    bridge.runLuaString(script);
    return 0;
}
