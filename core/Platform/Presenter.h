#pragma once

namespace tactora {

class Presenter {
public:
    virtual ~Presenter() = default;
};

}  // namespace tactora
