#include <gtest/gtest.h>

#include <cstdio>
#include <deque>

#include "Platform/Platform.h"
#include "Platform/Queues.h"
#include "host/ConsoleAlerts.h"

using namespace tactora;

namespace {

struct HeldQueues final : Queues {
    std::deque<std::function<void()>> main;
    void runOnMain(std::function<void()> work) override { main.push_back(std::move(work)); }
};

}  // namespace

TEST(ConsoleAlerts, ReportsShownThenDismissedWithTheCancelButtonOnTheMainQueue) {
    ScopedPlatform scope;
    HeldQueues queues;
    platform().queues = &queues;
    std::vector<std::string> calls;
    std::FILE* out = std::tmpfile();
    {
        host::ConsoleAlerts alerts(out);
        AlertRequest alert;
        alert.cancelButton = "Cancel";
        alert.secureTextInput = true;
        alert.didPresent = [&] { calls.push_back("present"); };
        alert.clickedButtonAtIndex = [&](int index, const std::string&) { calls.push_back("click " + std::to_string(index)); };
        alert.didDismissWithButtonIndex = [&](int index) { calls.push_back("dismiss " + std::to_string(index)); };
        alerts.showAlert(std::move(alert));
        AlertRequest plain;  // no delegate
        plain.cancelButton = "OK";
        alerts.showAlert(std::move(plain));
    }
    std::fclose(out);
    EXPECT_TRUE(calls.empty()) << "nothing may be reported before the caller returns to the main loop";
    ASSERT_EQ(queues.main.size(), 1u);
    queues.main.front()();
    EXPECT_EQ(calls, (std::vector<std::string>{"present", "dismiss 0"}));
}
