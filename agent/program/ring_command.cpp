// Reads a file that `enrolix replay --ring` kept.
#include "agent/program/ring_command.h"

#include <sstream>
#include <system_error>

#include "agent/document/input_error.h"
#include "framework/trace/swiftlog_reader.h"

namespace Agent {

void describe(CommandLine& line, RingOptions& options) {
  line.require(line.option("FILE", &options.file, "The file that replay --ring kept", fileProblem));
}

std::string ringText(RingOptions const& options) {
  std::stringstream text;
  try {
    Swiftlog::printRingFile(options.file, text);
  } catch (std::system_error const& error) {
    throw FileError(options.file, error.code().message());
  }
  // A message has what a program wrote, in no encoding that is known.
  std::string shown;
  for (std::string line; std::getline(text, line);) shown += printable(line, line.size()) + "\n";
  return shown;
}

}  // namespace Agent
