#pragma once

namespace tactora::ios {

class CFMessagePorts;

// Installs every iOS port into the core, once per process, and keeps them for the life of the
// process (a tweak is never unloaded, so nothing is torn down).
void installPorts();

// The message ports in force (the start-ups open their local ports with iOS-only options).
CFMessagePorts& messagePorts();

}  // namespace tactora::ios
