// Feeds arbitrary HID events (keyboard and digitizer, any fields, coordinates up to 1e300 either way)
// to a recording and reads the script it wrote: after the two header lines, every line must be
// one the recorder writes (a touch line, a home-button line, a pause or the blank line before a
// touchDown), the file must end on a complete line, and it must hold exactly the text the events
// call for.
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>

#include "Kernel/Recorder.h"
#include "Models/Global.h"
#include "Platform/Clock.h"
#include "Platform/Display.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"

using namespace tactora;

namespace {

struct TempPaths : Paths {
    std::string root = [] {
        char pattern[] = "/tmp/tactora-fuzz-recorder-XXXXXX";
        if (!mkdtemp(pattern)) std::abort();
        return std::string(pattern);
    }();
    std::string map(std::string_view devicePath) const override { return root + std::string(devicePath); }
};

struct FixedClock : Clock {
    std::tm localNow() const override {
        std::tm now{};
        now.tm_year = 126, now.tm_mon = 10, now.tm_mday = 22;
        return now;
    }
    void sleepMicroseconds(std::uint32_t) override {}
    bool sleepMicrosecondsUnless(std::uint32_t, const std::function<bool()>& stopped) override { return !stopped(); }
};

struct SizedDisplay : Display {
    Size bounds() const override { return size; }
    Size size{320, 568};
};

bool isRecorderLine(const std::string& line) {
    static const std::regex forms(
        R"(|homeButtonDown\(\);|homeButtonUp\(\);|usleep\(-?[0-9]+\.[0-9]{2}\);|)"
        R"(touch(Down|Move|Up)\(-?[0-9]+, -?[0-9]+\.[0-9], -?[0-9]+\.[0-9]\);)");
    return std::regex_match(line, forms);
}

HIDEvent makeEvent(FuzzedDataProvider& input) {
    HIDEvent event;
    std::uint8_t kind = input.ConsumeIntegral<std::uint8_t>();
    event.type = kind < 0x60 ? kIOHIDEventTypeKeyboard : kind < 0xF0 ? kIOHIDEventTypeDigitizer : kind;
    event.timestamp = input.ConsumeIntegral<std::uint64_t>();
    if (event.type == kIOHIDEventTypeKeyboard) {
        bool home = input.ConsumeBool();
        event.usagePage = home ? 12 : input.ConsumeIntegral<std::uint32_t>();
        event.usage = home ? 64 : input.ConsumeIntegral<std::uint32_t>();
        event.down = input.ConsumeIntegralInRange<std::int64_t>(-1, 2);
    } else {
        std::size_t count = input.ConsumeIntegralInRange<std::size_t>(0, 6);
        for (std::size_t i = 0; i < count; ++i) {
            HIDDigitizerChild child;
            child.index = input.ConsumeIntegral<std::uint32_t>();
            child.touch = input.ConsumeIntegralInRange<std::uint32_t>(0, 2);
            child.eventMask = input.ConsumeIntegral<std::uint8_t>();
            bool wild = input.ConsumeBool();
            child.x = wild ? input.ConsumeFloatingPointInRange<double>(-1e300, 1e300) : input.ConsumeProbability<double>();
            child.y = wild ? input.ConsumeFloatingPointInRange<double>(-1e300, 1e300) : input.ConsumeProbability<double>();
            event.children.push_back(child);
        }
    }
    return event;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    ScopedPlatform scope;
    FixedClock clock;
    SizedDisplay display;
    display.size = {static_cast<double>(input.ConsumeIntegralInRange<int>(0, 2048)),
                    static_cast<double>(input.ConsumeIntegralInRange<int>(0, 2048))};
    static TempPaths paths;
    platform().paths = &paths;
    platform().clock = &clock;
    platform().display = &display;
    Global::sharedInstance().reset();

    startRecording();
    auto path = recordingFilePath();
    if (!path) std::abort();
    std::string expected;
    // The recorder takes a last time of 0 as "nothing written yet": an event stamped 0 is followed
    // by no pause. (Stamps of 0 are common here: the provider gives 0 once its bytes run out.)
    double lastTime = 0;
    while (input.remaining_bytes() > 0) {
        HIDEvent event = makeEvent(input);
        std::string lines = recordedLines(event, display.size.width, display.size.height);
        handle_events(event);
        if (lines.empty()) continue;
        if (lastTime > 0) expected += "usleep(";  // the pause's value is checked by its form only
        expected += lines;
        lastTime = convert_UnsignedWide_to_double({static_cast<std::uint32_t>(event.timestamp),
                                                   static_cast<std::uint32_t>(event.timestamp >> 32)});
    }
    stopRecording();

    std::ifstream in(*path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    std::filesystem::remove(*path);
    Global::sharedInstance().reset();

    if (!text.empty() && text.back() != '\n') __builtin_trap();  // a line was cut short
    std::istringstream lines(text);
    std::string line, touchText;
    int number = 0;
    while (std::getline(lines, line)) {
        if (++number <= 2) {
            if (line.rfind(number == 1 ? "CREATETIME=\"" : "SCREEN_RESOLUTION=\"", 0) != 0) __builtin_trap();
            continue;  // the header
        }
        if (!isRecorderLine(line)) {
            std::fprintf(stderr, "not a recorder line: %s\n", line.c_str());
            __builtin_trap();
        }
        touchText += line.rfind("usleep(", 0) == 0 ? std::string("usleep(") : line + "\n";
    }
    if (number < 2) __builtin_trap();
    if (touchText != expected) __builtin_trap();  // events were lost, doubled or reordered
    return 0;
}
