// `enrolix replay`: scenarios applied to a fresh registry, and the result printed.
#pragma once

#include <bitset>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "agent/program/command_line.h"

namespace Agent {

/// One bit for each trace level; levels 1 to 9 can be set, bit 0 never is.
using TraceLevels = std::bitset<10>;

/// `enrolix replay`: applies scenario files in order and prints the tree that results.
struct ReplayOptions {
  /// The registry's library; where it belongs if absent.
  std::optional<std::string> library;
  TraceLevels trace;
  /// The file that keeps the ring-buffer trace.
  std::optional<std::string> ring;
  /// The file that takes the tree; standard output if absent.
  std::optional<std::string> output;
  bool isKeptGoing = false;
  bool isTable = false;
  /// Whether the memory and time used are told, instead of the tree, behind the table.
  bool isStats = false;
  /// At least one; "-" is standard input and stands here at most once.
  std::vector<std::string> scenarios;
};

void describe(CommandLine& line, ReplayOptions& options);

/// Applies the scenarios and prints the tree, or the table of switches, the memory and time used, or both. Errors, the
/// text trace and progress go to `problems`, where progress is shown only if standard error is a terminal. Returns the
/// exit status.
int replay(ReplayOptions const& options, std::ostream& problems);

}  // namespace Agent
