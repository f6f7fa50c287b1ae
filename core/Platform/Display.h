#pragma once

namespace tactora {

class Display {
public:
    virtual ~Display() = default;
};

}  // namespace tactora
