#pragma once

namespace tactora {

class HIDSource {
public:
    virtual ~HIDSource() = default;
};

}  // namespace tactora
