#pragma once

namespace tactora {

class Feedback {
public:
    virtual ~Feedback() = default;

    // The vibrate system sound (4095). Default: nothing.
    virtual void vibrate() {}
    // Plays the application's bundled sound "test.m4a" in an endless loop. Default: nothing.
    virtual void playBundledSound() {}
    // Keeps the screen lit while a script plays (true) and lets it dim again afterwards (false),
    // on systems that need telling (before iOS 7). Default: nothing.
    virtual void resetIdleTimerAndUndim(bool playing) { (void)playing; }
};

}  // namespace tactora
