#pragma once

#include "Platform/Feedback.h"

namespace tactora::ios {

// The vibrate system sound and the package's bundled sound.
class SystemFeedback final : public Feedback {
public:
    void vibrate() override;
    void playBundledSound() override;
};

}  // namespace tactora::ios
