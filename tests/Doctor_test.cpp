// tactora doctor, run as a user runs it: a fresh root passes every check; each broken setup fails
// the check it breaks, with a cause a user can act on, while the other checks still run.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Control/SelfTest.h"
#include "FoundationFakes.h"
#include "InjectFakes.h"
#include "Kernel/EventSimulate.h"
#include "Kernel/TouchInjector.h"
#include "Platform/HIDSource.h"
#include "Platform/Installation.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "ToolProcess.h"

namespace fs = std::filesystem;
using tactora::testing::readFile;
using tactora::testing::runTool;
using tactora::testing::writeFile;

namespace {

const std::vector<std::string> everyCheck = {"receiver", "capture", "template", "scripts",
                                             "store",    "activator", "system"};

// The line of the text report that starts with `verdict` and the check's name.
std::string lineOf(const std::string& report, const std::string& verdict, const std::string& check) {
    std::istringstream in(report);
    for (std::string line; std::getline(in, line);)
        if (line.rfind(verdict + " " + check + " ", 0) == 0) return line;
    return {};
}

// A file (or, without text, a directory) put where the check's own file or directory belongs.
struct BrokenSetup {
    const char* path;
    const char* text;
    const char* failingCheck;
    const char* causeWords;  // a phrase of the cause the user reads
};

}  // namespace

TEST(Doctor, AFreshRootPassesEveryCheckInTextAndJson) {
    tactora::testing::ScratchDirectory root;
    const std::string rootArgument = "--root '" + root.path().string() + "' doctor";
    auto text = runTool(rootArgument);
    EXPECT_EQ(text.exitCode, 0) << text.output;
    for (const auto& check : everyCheck) EXPECT_NE(lineOf(text.output, "PASS", check), "") << check << "\n" << text.output;
    EXPECT_NE(text.output.find("all 7 checks passed"), std::string::npos) << text.output;
    EXPECT_NE(lineOf(text.output, "PASS", "receiver").find("answered a sync in"), std::string::npos);
    EXPECT_NE(lineOf(text.output, "PASS", "capture").find("640 x 1136 pixels"), std::string::npos) << text.output;

    // A second run finds the receiver and the store the first one left, and answers in JSON.
    auto json = runTool(rootArgument + " --json");
    EXPECT_EQ(json.exitCode, 0) << json.output;
    auto parsed = nlohmann::json::parse(json.output, nullptr, false);
    ASSERT_FALSE(parsed.is_discarded()) << json.output;
    EXPECT_TRUE(parsed["passed"].get<bool>());
    std::vector<std::string> names;
    for (const auto& check : parsed["checks"]) {
        names.push_back(check["name"].get<std::string>());
        EXPECT_TRUE(check["passed"].get<bool>()) << check.dump();
        EXPECT_FALSE(check["value"].get<std::string>().empty()) << check.dump();
        EXPECT_EQ(check["cause"].get<std::string>(), "") << check.dump();
    }
    EXPECT_EQ(names, everyCheck);
}

TEST(Doctor, EachBrokenSetupFailsItsOwnCheckWithItsCauseAndTheOthersStillRun) {
    const std::string store = "var/mobile/Library/Tactora/Library/data.sqlite3";
    const std::string damaged(4096, 'x');
    const BrokenSetup setups[] = {
        {"run", "not a directory", "receiver", "could not start for this root"},
        {"hid-trace.jsonl", nullptr, "receiver", "the receiver exited"},
        {store.c_str(), damaged.c_str(), "store", "the store file is damaged"},
        {store.c_str(), "", "store", "made by something else or was cut short"},
        {"var/mobile/Library/Tactora/Scripts", "a file", "scripts", "a file stands where the scripts directory belongs"},
    };
    for (const auto& setup : setups) {
        SCOPED_TRACE(setup.causeWords);
        tactora::testing::ScratchDirectory root;
        if (setup.text) writeFile(root.path() / setup.path, setup.text);
        else fs::create_directories(root.path() / setup.path);
        const std::string rootArgument = "--root '" + root.path().string() + "' doctor";

        auto text = runTool(rootArgument);
        EXPECT_EQ(text.exitCode, 1) << text.output;
        const std::string failed = lineOf(text.output, "FAIL", setup.failingCheck);
        EXPECT_NE(failed.find(setup.causeWords), std::string::npos) << text.output;
        // Checks that do not depend on what was broken still run and pass.
        for (const char* independent : {"capture", "template", "system"}) {
            EXPECT_NE(lineOf(text.output, "PASS", independent), "") << independent << "\n" << text.output;
        }
        EXPECT_NE(text.output.find(" checks failed"), std::string::npos);

        auto json = runTool(rootArgument + " --json");
        EXPECT_EQ(json.exitCode, 1);
        // The report is standard output; a receiver that cannot start says why on standard error.
        const auto report = json.output.find("{\"passed\"");
        ASSERT_NE(report, std::string::npos) << json.output;
        auto parsed = nlohmann::json::parse(json.output.substr(report), nullptr, false);
        ASSERT_FALSE(parsed.is_discarded()) << json.output;
        EXPECT_FALSE(parsed["passed"].get<bool>());
        int failedWithCause = 0;
        for (const auto& check : parsed["checks"])
            failedWithCause += check["name"] == setup.failingCheck && !check["passed"].get<bool>() &&
                               check["cause"].get<std::string>().find(setup.causeWords) != std::string::npos;
        EXPECT_EQ(failedWithCause, 1) << json.output;
        // A store that was there is left as it was found, damaged or not.
        if (store == setup.path) {
            EXPECT_EQ(readFile(root.path() / store), setup.text);
        }
    }
}

TEST(Doctor, TheReportCrossesTheSelfTestPortIntact) {
    tactora::SelfTestReport report;
    report.add(tactora::SelfTestCheck::pass("capture", "640 x 1136\tpixels"));
    report.add(tactora::SelfTestCheck::fail("store", "a\\b", "line one\nline two"));
    const auto decoded = tactora::SelfTestReport::decode(report.encode() + "garbage without fields\n");
    auto fields = [](const tactora::SelfTestCheck& c) { return std::make_tuple(c.name, c.passed, c.value, c.cause); };
    ASSERT_EQ(decoded.checks().size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(fields(decoded.checks()[i]), fields(report.checks()[i]));
    EXPECT_FALSE(decoded.passed());
    EXPECT_FALSE(tactora::SelfTestReport().passed()) << "an empty report proves nothing";
}

namespace {

// backboardd's half in this process: each request goes straight to a real receiver.
class ReceiverInProcess final : public tactora::MessagePorts {
public:
    std::unique_ptr<tactora::RemoteMessagePort> createRemote(const std::string& name) override {
        if (name != tactora::injectionPortName || !served) return nullptr;
        return std::make_unique<Remote>(*this);
    }
    bool served = true;
    std::mutex mutex;  // the tap sends from a background thread
    tactora::TouchInjector injector;

private:
    struct Remote final : tactora::RemoteMessagePort {
        explicit Remote(ReceiverInProcess& ports) : ports(ports) {}
        bool isValid() const override { return ports.served; }
        tactora::SendStatus sendRequest(std::int32_t id, std::span<const std::uint8_t> data, double, double,
                                        std::vector<std::uint8_t>* reply) override {
            std::lock_guard lock(ports.mutex);
            auto answer = ports.injector.messageCallBack(id, data);
            if (reply) *reply = answer;
            return tactora::SendStatus::success;
        }
        ReceiverInProcess& ports;
    };
};

struct BackboarddInstallation final : tactora::Installation {
    std::string loadedSlice() const override { return "arm64e"; }
    bool dispatchHookInstalled() const override { return hooked; }
    bool hooked = true;
};

struct OneClientHIDSource final : tactora::HIDSource {
    void* startDelivering(tactora::HIDEventCallback callback) override {
        deliver = std::move(callback);
        return this;
    }
    void stopDelivering(void*) override { deliver = nullptr; }
    tactora::HIDEventCallback deliver;
};

struct PortraitDisplay final : tactora::Display {
    Size bounds() const override { return {width, height}; }
    double scale() const override { return screenScale; }
    double width = 320, height = 568, screenScale = 2;
};

}  // namespace

TEST(Doctor, BackboarddsHalfIsCheckedThroughTheInjectionPort) {
    tactora::ScopedPlatform scoped;
    ReceiverInProcess ports;
    BackboarddInstallation installation;
    tactora::platform().messagePorts = &ports;
    tactora::platform().installation = &installation;

    EXPECT_TRUE(tactora::checkReceiver(1).passed);
    auto hook = tactora::checkDispatchHook(1);
    EXPECT_TRUE(hook.passed) << hook.value;
    EXPECT_NE(hook.value.find("arm64e"), std::string::npos) << hook.value;

    installation.hooked = false;
    hook = tactora::checkDispatchHook(1);
    EXPECT_FALSE(hook.passed);
    EXPECT_NE(hook.cause.find("real touch will not cancel"), std::string::npos) << hook.cause;

    ports.served = false;
    for (const auto& check : {tactora::checkReceiver(1), tactora::checkDispatchHook(1)}) {
        EXPECT_FALSE(check.passed) << check.name;
        EXPECT_NE(check.cause.find("killall backboardd"), std::string::npos) << check.cause;
    }
}

TEST(Doctor, ATapIsSeenWhereItWasSentOnEveryScale) {
    // The receiver's digitizer spans the portrait screen in pixels; the tap must be recognised
    // where the receiver really puts it, on 2x screens and on the others alike.
    const struct {
        double width, height, scale;
    } screens[] = {{320, 568, 2}, {414, 736, 3}};
    for (const auto& screen : screens) {
        SCOPED_TRACE(screen.scale);
        tactora::ScopedPlatform scoped;
        ReceiverInProcess ports;
        tactora::testing::RecordingHIDDispatch hid;
        hid.screen = {static_cast<float>(screen.width * screen.scale), static_cast<float>(screen.height * screen.scale),
                      true, static_cast<float>(screen.scale)};
        OneClientHIDSource source;
        PortraitDisplay display;
        display.width = screen.width, display.height = screen.height, display.screenScale = screen.scale;
        tactora::platform().messagePorts = &ports;
        tactora::platform().hidDispatch = &hid;
        tactora::platform().hidSource = &source;
        tactora::platform().display = &display;
        tactora::EventSimulate::resetConnection();

        tactora::TapRoundTrip tap;
        tap.start(100, 200, 5);
        EXPECT_FALSE(tap.result()) << "nothing seen yet";
        // Wait for the down and the up, then hand them to the client as the HID system would.
        for (int i = 0; i < 500; ++i) {
            std::lock_guard lock(hid.mutex);
            if (hid.hands.size() >= 2) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        // Delivered without the recorder's lock: delivering may send to the receiver, whose port
        // lock is taken before the recorder's on the sending thread.
        std::vector<tactora::HandEventDescription> hands;
        {
            std::lock_guard lock(hid.mutex);
            hands = hid.hands;
        }
        ASSERT_EQ(hands.size(), 2u);
        ASSERT_TRUE(source.deliver);
        for (const auto& hand : hands) {
            tactora::HIDEvent event;
            event.type = tactora::kIOHIDEventTypeDigitizer;
            for (const auto& finger : hand.fingers) {
                event.children.push_back({finger.index, finger.touch ? 1u : 0u, finger.eventMask, finger.x, finger.y});
            }
            source.deliver(event);
        }
        auto check = tap.result();
        ASSERT_TRUE(check);
        EXPECT_TRUE(check->passed) << check->value << ": " << check->cause;
        tactora::EventSimulate::resetConnection();
    }
}
