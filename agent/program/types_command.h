// `enrolix types`: what the registry's library tells of its classes.
#pragma once

#include <optional>
#include <string>

#include "agent/program/command_line.h"

namespace Agent {

/// `enrolix types`: prints what the library tells of its classes.
struct TypesOptions {
  /// The registry's library; where it belongs if absent.
  std::optional<std::string> library;
  /// The one type to print; all of them if absent.
  std::optional<std::string> type;
  bool isJson = false;
};

void describe(CommandLine& line, TypesOptions& options);

/// The registered types with their attributes, as a table, or as JSON if the options say so: of all types, or of the
/// one that is named. Throws an InputError for a type that is not registered, and what loading the library throws.
std::string describeTypes(TypesOptions const& options);

}  // namespace Agent
