// The commands on a state file that no agent has in use.
#pragma once

#include <ostream>
#include <string>

#include "agent/program/command_line.h"

namespace Agent {

/// `enrolix check`: examines a state and changes nothing.
struct CheckOptions {
  std::string file;
};

/// `enrolix restore`: makes a state of a backup.
struct RestoreOptions {
  std::string backup;
  /// Where the state shall be; nothing may be there.
  std::string state;
};

void describe(CommandLine& line, CheckOptions& options);
void describe(CommandLine& line, RestoreOptions& options);

/// Each says on `out` in one line what it found or made, and returns 0. Throws a StoreError or a FileError, whose
/// what() is one line.
int checkStateFile(CheckOptions const& options, std::ostream& out);
int restoreState(RestoreOptions const& options, std::ostream& out);

}  // namespace Agent
