#pragma once

namespace tactora::ios {

// The SpringBoard half's load-time work: the orientation hook and the settings port. Does nothing
// in any other process.
void startSpringBoard();

}  // namespace tactora::ios
