#pragma once

#include "Platform/Apps.h"

namespace tactora::ios {

// Applications through SpringBoardServices and SpringBoard's application controller (inside
// SpringBoard only).
class SpringBoardApps final : public Apps {
public:
    void launch(const std::string& bundleId) override;
    void terminate(const std::string& bundleId) override;
    bool isForeground(const std::string& bundleId) const override;
};

}  // namespace tactora::ios
