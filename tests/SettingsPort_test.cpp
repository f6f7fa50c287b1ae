#include "Control/SettingsPort.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Control/Helper.h"
#include "FoundationFakes.h"
#include "InjectFakes.h"
#include "Platform/MessagePorts.h"
#include "host/UnixMessagePorts.h"

using namespace tactora;

TEST(SettingsPort, MessagesFromAnotherConnectionChangeTheOptions) {
    ScopedPlatform scope;
    tactora::testing::TempRoot root;
    tactora::testing::LoopThread main;
    tactora::testing::MemoryUserDefaults defaults;
    host::UnixMessagePorts ports(root.path(), &main.loop());
    platform().messagePorts = &ports;
    platform().userDefaults = &defaults;

    auto port = openSettingsPort();
    ASSERT_TRUE(port);
    auto remote = ports.createRemote(settingsPortName);
    ASSERT_TRUE(remote);
    auto set = [&](std::int32_t id, std::uint32_t value, std::size_t length = 4) {
        std::vector<std::uint8_t> data(length);
        std::memcpy(data.data(), &value, std::min<std::size_t>(length, 4));
        std::vector<std::uint8_t> reply{1};
        EXPECT_EQ(remote->sendRequest(id, data, 1.0, 1.0, &reply), SendStatus::success);
        EXPECT_TRUE(reply.empty());
    };
    set(4, 0);
    set(5, 0);
    set(6, 2);
    set(6, 0, 8);  // wrong length: ignored
    EXPECT_FALSE(Helper::ifShowPlayFinishedAlert());
    EXPECT_FALSE(Helper::ifShowErrorsByAlert());
    EXPECT_TRUE(Helper::ifLogErrors());

    EXPECT_EQ(openSettingsPort(), nullptr) << "SpringBoard opens it once";
}
