// What the client commands find around them when the program runs.
#pragma once

#include "agent/program/client_surroundings.h"

namespace Agent {

/// Real connections, the standard streams, and the system's clock.
ClientSurroundings systemSurroundings();

/// From now on SIGINT and SIGTERM end the program's waiting instead of the program; the second one ends it. To be
/// called before there are other threads.
void keepInterruptsForSleep();

}  // namespace Agent
