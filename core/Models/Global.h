#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "Models/PlaySettings.h"
#include "Models/Relaxed.h"
#include "Models/SharedReference.h"

namespace tactora {

class LuaBridge;

// The process-wide run-time state. The main thread and the script thread share it without locks:
// flags are relaxed atomics; the references are copied under a
// lock of their own (see SharedReference).
class Global {
public:
    static Global& sharedInstance();

    // The settings of the script chosen to play (kept while "ready to play").
    std::shared_ptr<PlaySettings> currentPlaySettings() const { return currentPlaySettings_.load(); }
    void setCurrentPlaySettings(std::shared_ptr<PlaySettings> settings) {
        currentPlaySettings_.store(std::move(settings));
    }

    bool isRecording() const { return isRecording_.get(); }
    void setIsRecording(bool value) { isRecording_.set(value); }

    // A run is under way; clearing it is also the stop request that the run loop polls.
    bool isPlaying() const { return isPlaying_.get(); }
    void setIsPlaying(bool value) { isPlaying_.set(value); }

    bool isReadyToPlay() const { return isReadyToPlay_.get(); }
    void setIsReadyToPlay(bool value) { isReadyToPlay_.set(value); }

    // Reserved; nothing reads or writes it.
    std::vector<int>& eventArray() { return eventArray_; }

    // The interpreter of the script now running.
    std::shared_ptr<LuaBridge> luaBridge() const { return luaBridge_.load(); }
    void setLuaBridge(std::shared_ptr<LuaBridge> bridge) { luaBridge_.store(std::move(bridge)); }

    // The HID event client that a recording registered with (opaque, not owned).
    void* ioHIDEventSystem() const { return ioHIDEventSystem_.load(std::memory_order_relaxed); }
    void setIoHIDEventSystem(void* client) { ioHIDEventSystem_.store(client, std::memory_order_relaxed); }

    // Back to the state of a fresh process (tests).
    void reset();

private:
    Global() = default;

    SharedReference<PlaySettings> currentPlaySettings_;
    Relaxed<bool> isRecording_{false};
    Relaxed<bool> isPlaying_{false};
    Relaxed<bool> isReadyToPlay_{false};
    std::vector<int> eventArray_;
    SharedReference<LuaBridge> luaBridge_;
    std::atomic<void*> ioHIDEventSystem_{nullptr};
};

}  // namespace tactora
