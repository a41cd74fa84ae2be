// Says why a condition of a switch is what it is: the sentence of its reason, with the values that decided.
#pragma once

#include <span>
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

/// Explains what `judge()` found of the switch in tables like these, one by one. Names in it are printable; in the
/// command they are quoted for a shell where they need be.
std::vector<Explanation> explain(SwitchRecords const& records, std::span<Judgement const> judgements,
                                 SwitchNeighbours const& neighbours);

}  // namespace Agent
