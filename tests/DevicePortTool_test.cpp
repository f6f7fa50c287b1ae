// The device-side port tool (scripts/device/port-message.py) must speak the wire format the core
// speaks: its dry run is compared with what EventSimulate sends and what the settings callback
// accepts.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "Control/Helper.h"
#include "RuntimeFakes.h"
#include "Kernel/EventSimulate.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"

namespace tactora {
namespace {

struct Message {
    std::string port;
    std::int32_t id = 0;
    std::string hex;
    bool operator==(const Message&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Message& m) { return out << m.port << " " << m.id << " " << m.hex; }

std::string hexOf(std::span<const std::uint8_t> bytes) {
    std::string hex;
    for (std::uint8_t byte : bytes) hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return hex;
}

// What the tool would send, one message a line.
std::vector<Message> toolDryRun(const std::string& arguments) {
    std::string command =
        "python3 " TACTORA_SOURCE_DIR "/scripts/device/port-message.py --dry-run " + arguments + " 2>&1";
    std::vector<Message> messages;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return messages;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        std::istringstream fields(line);
        Message m;
        fields >> m.port >> m.id >> m.hex;
        messages.push_back(m);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return messages;
}

class DevicePortTool : public ::testing::Test {
protected:
    void SetUp() override {
        platform().messagePorts = &ports;
        EventSimulate::resetConnection();
    }
    void TearDown() override { EventSimulate::resetConnection(); }

    // What EventSimulate sent, in the tool's terms.
    std::vector<Message> sent() const {
        std::vector<Message> messages;
        for (const auto& message : ports.messages())
            messages.push_back({injectionPortName, message.id, hexOf(message.data)});
        return messages;
    }

    ScopedPlatform scope;
    testing::RecordingPorts ports;
};

TEST_F(DevicePortTool, TapsSwipesAndHomePressesMatchTheSender) {
    EventSimulate::touchDown(3, 40, 60);
    EventSimulate::syncEvent();
    EventSimulate::touchUp(3, 40, 60);
    EventSimulate::syncEvent();
    EXPECT_EQ(toolDryRun("tap 40 60 3"), sent());

    ports.clear();
    EventSimulate::touchDown(1, -5, 300);
    EventSimulate::syncEvent();
    for (int step = 1; step <= 10; ++step) {
        EventSimulate::touchMove(1, -5 + 2 * step, 300);  // whole points, as scripts give them
        EventSimulate::syncEvent();
    }
    EventSimulate::touchUp(1, 15, 300);
    EventSimulate::syncEvent();
    EXPECT_EQ(toolDryRun("swipe -5 300 15 300"), sent());

    ports.clear();
    EventSimulate::keyDown(1);
    EventSimulate::keyUp(1);
    EXPECT_EQ(toolDryRun("home"), sent());
}

}  // namespace
}  // namespace tactora
