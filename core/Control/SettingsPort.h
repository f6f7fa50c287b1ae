#pragma once

#include <memory>

namespace tactora {

class LocalMessagePort;

// Opens SpringBoard's settings port "tactora.tactoratweak.springboard": each message goes to
// myCallBack on the main loop and is answered with no data. Null when the port cannot be opened;
// the options then keep the values they have. Runs only in SpringBoard.
std::unique_ptr<LocalMessagePort> openSettingsPort();

}  // namespace tactora
