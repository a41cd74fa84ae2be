// The commands that ask a server: one call each.
#pragma once

#include "agent/program/client_surroundings.h"
#include "agent/program/exit_code.h"

namespace Agent {

/// Does what the command line asks for and returns the exit status. What went wrong has been noted in one line.
int runClient(ClientOptions const& options, ClientSurroundings const& surroundings);

/// The commands one by one. They throw what `runClient()` turns into an exit status: an HttpError, a ClientFailure, a
/// FileError, and a std::invalid_argument for a server that is none.
ExitCode runCommand(GetOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(PutOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(DeleteOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(WatchOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(ApplyOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(DumpOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(BackupOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(SwitchesOptions const& options, ClientSurroundings const& surroundings);
ExitCode runCommand(FleetOptions const& options, ClientSurroundings const& surroundings);

}  // namespace Agent
