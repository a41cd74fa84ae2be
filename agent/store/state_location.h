// Where a state file is, or is to be.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "agent/store/store.h"

namespace Agent {

/// Where a state file is, or is to be.
struct Located {
  /// Absolute, because SQLite takes some relative paths for something else, and behind links, because SQLite looks for
  /// the other files there.
  std::filesystem::path file;
  bool isThere = false;
};

/// Finds the state file that is called `name`. Throws a StoreError for what can be no state file, and if it is missing
/// beside what is left of it.
Located locate(std::string const& name, std::optional<Revision> acceptedLoss);

/// The path of the file, which is there from now on.
std::string makeFile(std::string const& name, std::optional<Revision> acceptedLoss);

}  // namespace Agent
