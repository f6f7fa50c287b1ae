#pragma once

namespace tactora {

class ImageCodec {
public:
    virtual ~ImageCodec() = default;
};

}  // namespace tactora
