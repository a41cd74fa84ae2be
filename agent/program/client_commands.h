// The commands that ask a server: one call each.
#pragma once

#include <functional>

#include "agent/program/client_options.h"
#include "agent/program/client_surroundings.h"
#include "agent/program/exit_code.h"

namespace Agent {

/// They throw what `runClient()` turns into an exit status: an HttpError, a ClientFailure, a FileError, and a
/// std::invalid_argument for a server that is none.
ExitCode runCommand(GetOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(PutOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(DeleteOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(WatchOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(ApplyOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(DumpOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(BackupOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(SwitchesOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(ExplainOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(FleetOptions const& options, ClientSurroundings const& surroundings);

/// Runs a command and returns the exit status. What went wrong has been noted in one line.
int exitStatusOf(std::function<ExitCode()> const& command, ClientSurroundings const& surroundings);
template <class Options>
int runClient(Options const& options, ClientSurroundings const& surroundings) {
  return exitStatusOf([&] { return runCommand(options, surroundings); }, surroundings);
}

}  // namespace Agent
