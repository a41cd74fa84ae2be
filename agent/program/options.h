// The command line: what the person asked for, as plain structures.
#pragma once

#include <bitset>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "agent/client/client_options.h"
#include "agent/program/serve_options.h"
#include "agent/program/state_commands.h"

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

/// `enrolix types`: prints what the library tells of its classes.
struct TypesOptions {
  /// The registry's library; where it belongs if absent.
  std::optional<std::string> library;
  /// The one type to print; all of them if absent.
  std::optional<std::string> type;
  bool isJson = false;
};

/// `enrolix ring`: prints a ring-buffer trace.
struct RingOptions {
  std::string file;
};

/// A command line that is answered with a text alone: help and version go to standard output and leave with 0, a wrong
/// command line goes to standard error and leaves with 2.
struct Answer {
  std::string text;
  int exitStatus = 0;
};

using Options = std::variant<ServeOptions, ReplayOptions, TypesOptions, RingOptions, CheckOptions, RestoreOptions,
                             ClientOptions, Answer>;

/// What the command line asks for. `arguments` are those behind the program's name, `version` is what `--version`
/// prints.
Options parseOptions(std::vector<std::string> arguments, std::string const& version);

}  // namespace Agent
