#pragma once

namespace tactora::ios {

// Installs the installation port in this process and, inside SpringBoard, opens the self-test
// port that `tactora-doctor` asks. Call after the other ports are installed.
void startSelfTest();

}  // namespace tactora::ios
