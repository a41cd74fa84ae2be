// The service as a program.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "agent/document/input_error.h"
#include "agent/program/serve_options.h"

namespace Agent {

/// Runs until it is told to stop by SIGTERM or SIGINT. Says on `out`, in one line, where it listens. Returns the exit
/// status: 0, or 1 if it could not begin or go on, which `problems` says in one line.
int serve(ServeOptions const& options, std::ostream& out, std::ostream& problems);

/// The line about a state file that holds what no agent wrote there, without line break. Nothing of what it quotes acts
/// on a terminal.
std::string damagedLine(std::string_view state, InputError const& error);

}  // namespace Agent
