#include "Control/SettingsPort.h"

#include "Control/Helper.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"

namespace tactora {

std::unique_ptr<LocalMessagePort> openSettingsPort() {
    auto port = platform().messagePorts->createLocal(
        settingsPortName, [](std::int32_t messageId, std::span<const std::uint8_t> data) {
            myCallBack(messageId, data);
            return std::vector<std::uint8_t>{};
        });
    if (!port) TACTORA_DIAGNOSTIC("openSettingsPort", "cannot open the settings port");
    return port;
}

}  // namespace tactora
