#pragma once

namespace tactora {

class Feedback {
public:
    virtual ~Feedback() = default;

    // The vibrate system sound (4095). Default: nothing.
    virtual void vibrate() {}
    // Plays the application's bundled sound "test.m4a" in an endless loop. Default: nothing.
    virtual void playBundledSound() {}
};

}  // namespace tactora
