// `enrolix ring`: the messages of a ring-buffer trace.
#pragma once

#include <string>

#include "agent/program/command_line.h"

namespace Agent {

struct RingOptions {
  std::string file;
};

void describe(CommandLine& line, RingOptions& options);

/// The messages as text. Throws a FileError.
std::string ringText(RingOptions const& options);

}  // namespace Agent
