// Decides whether a command prints in colours.
#include "agent/program/client_surroundings.h"

namespace Agent {

bool isColoured(ClientCommonOptions const& options, ClientSurroundings const& surroundings) {
  if (options.colour != ColourChoice::kAuto) return options.colour == ColourChoice::kAlways;
  return surroundings.isTerminal && surroundings.areColoursWelcome;
}

}  // namespace Agent
