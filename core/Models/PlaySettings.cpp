#include "Models/PlaySettings.h"

namespace tactora {

PlaySettings::PlaySettings() {
    setPlayDirectly(false);
    setRepeatTime(1);
    setRepeatInterval(1);
    setPlaySpeed(1.0f);
}

}  // namespace tactora
