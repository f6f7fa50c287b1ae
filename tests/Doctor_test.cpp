// tactora doctor as a user runs it: each broken setup fails its own check with a cause, the rest still run.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "Control/SelfTest.h"
#include "InjectFakes.h"
#include "Kernel/EventSimulate.h"
#include "Kernel/TouchInjector.h"
#include "Platform/HIDSource.h"
#include "Platform/Installation.h"
#include "Platform/MessagePorts.h"
#include "ScreenFakes.h"
#include "ToolProcess.h"

namespace fs = std::filesystem;
using namespace tactora;
using namespace tactora::testing;

TEST(Doctor, AFreshRootPassesEveryCheckAndEachBrokenSetupFailsItsOwnWithItsCauseWhileTheOthersStillRun) {
    const std::string store = "var/mobile/Library/Tactora/Library/data.sqlite3";
    const std::string damaged(4096, 'x');
    const std::vector<std::string> everyCheck = {"receiver", "capture", "template", "scripts", "store", "activator", "system"};
    // The text report has a line of `verdict` for `check` that holds `words`.
    auto hasLine = [](const std::string& report, const std::string& verdict, const std::string& check, const char* words) {
        return std::regex_search(report, std::regex("(^|\n)" + verdict + " " + check + " .*" + words));
    };
    // A file (or, without text, a directory) where the check's own file or directory belongs, and a
    // phrase of the cause the user reads.
    const struct { std::string path; const char *text, *failingCheck, *causeWords; } setups[] = {
        {"", nullptr, "", "nothing broken"},
        // The JSON stays alone on standard output when a receiver that cannot start says why.
        {"run", "not a directory", "receiver", "could not start for this root"},
        {"hid-trace.jsonl", nullptr, "receiver", "the receiver exited"},
        {store, damaged.c_str(), "store", "the store file is damaged"},
        {store, "", "store", "made by something else or was cut short"},
        {"var/mobile/Library/Tactora/Scripts", "a file", "scripts", "a file stands where the scripts directory"},
    };
    for (const auto& setup : setups) {
        SCOPED_TRACE(setup.causeWords);
        const bool broken = !setup.path.empty();
        ScratchDirectory root;
        if (setup.text) writeFile(root.path() / setup.path, setup.text);
        else fs::create_directories(root.path() / setup.path);
        if (&setup - setups < 2) {
            // The text report: a line a check, a failure's cause on its line, and the count.
            ToolRun text = runTool("--root '" + root.path().string() + "' doctor");
            EXPECT_EQ(text.exitCode, int(broken)) << text.err;
            for (const std::string& check : everyCheck) {
                const bool failing = check == setup.failingCheck;
                EXPECT_TRUE(hasLine(text.out, failing ? "FAIL" : "PASS", check, failing ? setup.causeWords : ""))
                    << check << "\n" << text.out;
            }
            EXPECT_TRUE(broken || (hasLine(text.out, "PASS", "receiver", "answered a sync in") &&
                                   hasLine(text.out, "PASS", "capture", "640 x 1136 pixels"))) << text.out;
            EXPECT_NE(text.out.find(broken ? "\n1 of 7 checks failed\n" : "\nall 7 checks passed\n"), std::string::npos)
                << text.out;
        }
        // A second run finds the receiver and the store the first one left.
        ToolRun run = runTool("--root '" + root.path().string() + "' doctor --json");
        EXPECT_EQ(run.exitCode, int(broken)) << run.err;
        auto report = nlohmann::json::parse(run.out, nullptr, false);
        ASSERT_FALSE(report.is_discarded()) << run.err;
        EXPECT_EQ(std::pair(report["passed"].get<bool>(), report["checks"].size()), std::pair(!broken, everyCheck.size()));
        int failedWithCause = 0;
        for (std::size_t i = 0; i < report["checks"].size(); ++i) {
            const auto& c = report["checks"][i];
            const SelfTestCheck check{c["name"].get<std::string>(), c["passed"].get<bool>(), c["value"].get<std::string>(),
                                      c["cause"].get<std::string>()};
            EXPECT_EQ(check.name, everyCheck.at(i));
            // Checks that do not depend on what was broken still run and pass.
            const bool independent = check.name == "capture" || check.name == "template" || check.name == "system";
            EXPECT_TRUE((broken && !independent) || (check.passed && !check.value.empty() && check.cause.empty()))
                << check.name << ": " << check.cause;
            failedWithCause += check.name == setup.failingCheck && !check.passed &&
                               check.cause.find(setup.causeWords) != std::string::npos;
        }
        EXPECT_EQ(failedWithCause, int(broken));
        // A store that was there is left as it was found, damaged or not.
        if (store == setup.path) { EXPECT_EQ(readFile(root.path() / store), setup.text); }
    }
}

TEST(Doctor, TheReportCrossesTheSelfTestPortIntact) {
    SelfTestReport report;
    report.add(SelfTestCheck::pass("capture", "640 x 1136\tpixels"));
    report.add(SelfTestCheck::fail("store", "a\\b", "line one\nline two"));
    const auto decoded = SelfTestReport::decode(report.encode() + "garbage without fields\n");
    auto fields = [](const SelfTestCheck& c) { return std::make_tuple(c.name, c.passed, c.value, c.cause); };
    ASSERT_EQ(decoded.checks().size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(fields(decoded.checks()[i]), fields(report.checks()[i]));
    EXPECT_FALSE(decoded.passed());
    EXPECT_FALSE(SelfTestReport().passed()) << "an empty report proves nothing";
}

namespace {

// backboardd's half in this process: requests go straight to a real receiver, HID events to its client.
struct BackboarddInProcess final : MessagePorts, Installation, HIDSource {
    std::unique_ptr<RemoteMessagePort> createRemote(const std::string& name) override {
        return name == injectionPortName && served ? std::make_unique<Remote>(*this) : nullptr;
    }
    std::string loadedSlice() const override { return "arm64e"; }
    bool dispatchHookInstalled() const override { return hooked; }
    void* startDelivering(HIDEventCallback callback) override {
        deliver = std::move(callback);
        return this;
    }
    void stopDelivering(void*) override { deliver = nullptr; }
    bool served = true, hooked = true;
    std::mutex mutex;  // the tap sends from a background thread
    TouchInjector injector;
    HIDEventCallback deliver;

    struct Remote final : RemoteMessagePort {
        explicit Remote(BackboarddInProcess& ports) : ports(ports) {}
        bool isValid() const override { return ports.served; }
        SendStatus sendRequest(std::int32_t id, std::span<const std::uint8_t> data, double, double,
                               std::vector<std::uint8_t>* reply) override {
            std::lock_guard lock(ports.mutex);
            if (auto answer = ports.injector.messageCallBack(id, data); reply) *reply = std::move(answer);
            return SendStatus::success;
        }
        BackboarddInProcess& ports;
    };
};

}  // namespace

TEST(Doctor, BackboarddsHalfIsCheckedThroughTheInjectionPortAndATapIsSeenWhereItWasSentOnEveryScale) {
    // The digitizer spans the portrait screen in pixels: the tap is seen where it lands, at any scale.
    for (const char* profile : {"320x568@2", "414x736@3"}) {
        SCOPED_TRACE(profile);
        screentest::ScopedScreen screen(profile);
        BackboarddInProcess ports;
        RecordingHIDDispatch hid;
        const auto scale = static_cast<float>(screen.display().scale());
        const auto points = screen.display().bounds();
        hid.screen = {static_cast<float>(points.width) * scale, static_cast<float>(points.height) * scale, true, scale};
        platform().messagePorts = &ports;
        platform().installation = &ports;
        platform().hidSource = &ports;
        platform().hidDispatch = &hid;
        EventSimulate::resetConnection();

        TapRoundTrip tap;
        tap.start(100, 200, 5);
        EXPECT_FALSE(tap.result()) << "nothing seen yet";
        // Delivered outside the recorder's lock: delivering may send, and senders take the port lock first.
        std::vector<HandEventDescription> hands;
        for (int i = 0; i < 500 && hands.size() < 2; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            std::lock_guard lock(hid.mutex);
            hands = hid.hands;
        }
        ASSERT_EQ(hands.size(), 2u);
        ASSERT_TRUE(ports.deliver);
        for (const auto& hand : hands) {
            HIDEvent event;
            event.type = kIOHIDEventTypeDigitizer;
            for (const auto& finger : hand.fingers)
                event.children.push_back({finger.index, finger.touch ? 1u : 0u, finger.eventMask, finger.x, finger.y});
            ports.deliver(event);
        }
        auto check = tap.result();
        ASSERT_TRUE(check);
        EXPECT_TRUE(check->passed) << check->value << ": " << check->cause;

        EXPECT_TRUE(checkReceiver(1).passed);
        auto hook = checkDispatchHook(1);
        EXPECT_TRUE(hook.passed && hook.value.find("arm64e") != std::string::npos) << hook.value;
        ports.hooked = false;
        hook = checkDispatchHook(1);
        EXPECT_TRUE(!hook.passed && hook.cause.find("real touch will not cancel") != std::string::npos) << hook.cause;
        ports.served = false;
        for (const auto& unserved : {checkReceiver(1), checkDispatchHook(1)})
            EXPECT_TRUE(!unserved.passed && unserved.cause.find("killall backboardd") != std::string::npos)
                << unserved.cause;
        EventSimulate::resetConnection();
    }
}
