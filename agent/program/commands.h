// The commands of the program.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "agent/program/command_line.h"

namespace Agent {

/// The table of commands, in the order of the help.
std::span<Command const> commands();

/// Does what the command line asks for, and returns the exit status. May throw an exception whose what() is one line.
int runCommandLine(std::vector<std::string> arguments, std::string const& version);

}  // namespace Agent
