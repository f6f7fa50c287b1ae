#pragma once

namespace tactora {

class EventRegistry {
public:
    virtual ~EventRegistry() = default;
};

}  // namespace tactora
