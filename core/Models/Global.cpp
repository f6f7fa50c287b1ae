#include "Models/Global.h"

namespace tactora {

Global& Global::sharedInstance() {
    static Global* instance = new Global();  // lives as long as the process
    return *instance;
}

void Global::reset() {
    setCurrentPlaySettings(nullptr);
    setIsRecording(false);
    setIsPlaying(false);
    setIsReadyToPlay(false);
    eventArray_.clear();
    setLuaBridge(nullptr);
    setIoHIDEventSystem(nullptr);
}

}  // namespace tactora
