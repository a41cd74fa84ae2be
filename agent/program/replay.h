// `enrolix replay`: scenarios applied to a fresh registry, and the result printed.
#pragma once

#include <iosfwd>

#include "agent/program/options.h"

namespace Agent {

/// Applies the scenarios and prints the tree, or the table of switches, the memory and time used, or both. Errors, the
/// text trace and progress go to `problems`, where progress is shown only if standard error is a terminal. Returns the
/// exit status.
int replay(ReplayOptions const& options, std::ostream& problems);

}  // namespace Agent
