// Says why a condition of a switch is what it is: the sentence of its reason, with the values that decided.
#pragma once

#include <string>
#include <vector>

#include "agent/conditions/judge.h"

namespace Agent {

/// What stands in no record of the switch.
struct SwitchNeighbours {
  /// Other registrations with its system id, and other system ids whose rows name it; in byte order.
  std::vector<std::string> sharers;
  std::vector<std::string> ghosts;
};

/// A condition as it is told.
struct Explanation {
  std::string sentence;
  /// Empty where nothing need be done; without a command where there is none.
  std::string advice;
  std::string command;
};

/// Explains what `judge()` found in these tables. Names in it are printable; in the command they are quoted for a shell
/// where they need be.
Explanation explain(Controllerdb::AgentTables const& tables, Nox::Name const& name, Judgement const& judgement,
                    SwitchNeighbours const& neighbours);

}  // namespace Agent
