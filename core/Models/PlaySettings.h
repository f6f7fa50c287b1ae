#pragma once

#include <optional>
#include <string>

#include "Models/Relaxed.h"

namespace tactora {

// The settings of one script's play. The first five fields are stored (Managers/DataManager); the
// rest live only while the script is chosen or playing. The numbers are read by the script's
// thread while the main thread may set them, hence relaxed atomics.
class PlaySettings {
public:
    // Plays when chosen? No; once; one second apart; at normal speed.
    PlaySettings();

    const std::optional<std::string>& scriptTitle() const { return scriptTitle_; }
    void setScriptTitle(std::optional<std::string> title) { scriptTitle_ = std::move(title); }

    bool playDirectly() const { return playDirectly_.get(); }
    void setPlayDirectly(bool value) { playDirectly_.set(value); }

    // Times to play; 0 = until stopped.
    long repeatTime() const { return repeatTime_.get(); }
    void setRepeatTime(long value) { repeatTime_.set(value); }

    // Whole seconds between two passes.
    long repeatInterval() const { return repeatInterval_.get(); }
    void setRepeatInterval(long value) { repeatInterval_.set(value); }

    float playSpeed() const { return playSpeed_.get(); }
    void setPlaySpeed(float value) { playSpeed_.set(value); }

    const std::optional<std::string>& scriptPath() const { return scriptPath_; }
    void setScriptPath(std::optional<std::string> path) { scriptPath_ = std::move(path); }

    // The decrypted text of an encrypted script.
    const std::optional<std::string>& scriptContent() const { return scriptContent_; }
    void setScriptContent(std::optional<std::string> content) { scriptContent_ = std::move(content); }

    // 0 plain script file, 1 encrypted script.
    int playType() const { return playType_.get(); }
    void setPlayType(int value) { playType_.set(value); }

    // 0 play now, 1 play later.
    int playNowOrLater() const { return playNowOrLater_.get(); }
    void setPlayNowOrLater(int value) { playNowOrLater_.set(value); }

private:
    std::optional<std::string> scriptTitle_;
    Relaxed<bool> playDirectly_;
    Relaxed<long> repeatTime_;
    Relaxed<long> repeatInterval_;
    Relaxed<float> playSpeed_;
    std::optional<std::string> scriptPath_;
    std::optional<std::string> scriptContent_;
    Relaxed<int> playType_;
    Relaxed<int> playNowOrLater_;
};

}  // namespace tactora
