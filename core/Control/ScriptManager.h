#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tactora {

// Plays the current play settings of Global on a background queue, as often as they ask.
class ScriptManager {
public:
    // Starts a run (main thread; the current play settings are filled in).
    static void runScript();
    // Plays the current script once on the calling thread.
    static void doRunNow();
    // Asks the run to stop; returns at once.
    static void stopPlaying();

    // Called on the main thread after every run's finishing step, once the flags are cleared
    // (the CLI waits for it; tests too). Empty: nobody is told. Replaces any earlier observer.
    static void setFinishedObserver(std::function<void()> observer);
    // Called on the run's thread just before each pass plays (1, 2, ...). Empty: nobody is told.
    static void setPassObserver(std::function<void(std::uint64_t pass)> observer);
    // Called on the run's thread when a pass ends in an error (a stop is not one), with Lua's
    // error text. Empty: nobody is told.
    static void setFailureObserver(std::function<void(const std::string& error)> observer);
};

}  // namespace tactora
