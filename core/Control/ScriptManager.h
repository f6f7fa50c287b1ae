#pragma once

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
};

}  // namespace tactora
