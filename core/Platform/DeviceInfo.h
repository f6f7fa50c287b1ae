#pragma once

namespace tactora {

class DeviceInfo {
public:
    virtual ~DeviceInfo() = default;
};

}  // namespace tactora
