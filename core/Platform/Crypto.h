#pragma once

namespace tactora {

class Crypto {
public:
    virtual ~Crypto() = default;
};

}  // namespace tactora
