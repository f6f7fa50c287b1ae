#include <gtest/gtest.h>

#include <cstdio>
#include <deque>

#include "Platform/Platform.h"
#include "Platform/Queues.h"
#include "host/ConsoleAlerts.h"

using namespace tactora;

namespace {

class HeldQueues final : public Queues {
public:
    std::deque<std::function<void()>> main;
    void runOnMain(std::function<void()> work) override { main.push_back(std::move(work)); }
};

AlertRequest makeAlert(std::string title, std::string message, std::string cancel,
                       std::vector<std::string> others = {}) {
    AlertRequest alert;
    alert.title = std::move(title);
    alert.message = std::move(message);
    alert.cancelButton = std::move(cancel);
    alert.otherButtons = std::move(others);
    return alert;
}

std::string captured(const std::function<void(host::ConsoleAlerts&)>& show) {
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&buffer, &size);
    {
        host::ConsoleAlerts alerts(out);
        show(alerts);
    }
    std::fclose(out);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
}

}  // namespace

TEST(ConsoleAlerts, ReportsShownThenDismissedWithTheCancelButtonOnTheMainQueue) {
    ScopedPlatform scope;
    HeldQueues queues;
    platform().queues = &queues;
    std::vector<std::string> calls;
    captured([&](host::ConsoleAlerts& alerts) {
        AlertRequest alert = makeAlert("Tactora", "Dencrypt Password", "Cancel");
        alert.secureTextInput = true;
        alert.didPresent = [&] { calls.push_back("present"); };
        alert.clickedButtonAtIndex = [&](int index, const std::string&) { calls.push_back("click " + std::to_string(index)); };
        alert.didDismissWithButtonIndex = [&](int index) { calls.push_back("dismiss " + std::to_string(index)); };
        alerts.showAlert(std::move(alert));
        alerts.showAlert(makeAlert("", "no delegate", "OK"));
    });
    EXPECT_TRUE(calls.empty()) << "nothing may be reported before the caller returns to the main loop";
    ASSERT_EQ(queues.main.size(), 1u);
    queues.main.front()();
    EXPECT_EQ(calls, (std::vector<std::string>{"present", "dismiss 0"}));
}
