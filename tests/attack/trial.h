// One attack on a server of its own, and what came of it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/attack/attacks.h"

namespace Attack {

struct TrialOptions {
  std::filesystem::path folder;
  std::size_t switches = 1'000;
  double seconds = 20;
  std::uint32_t seed = 1;
  bool isSmall = false;
};

struct Result {
  /// A cell of the table for each column behind the attack's.
  std::vector<std::string> cells;
  /// What must not happen, and what should not.
  std::vector<std::string> failures;
  std::vector<std::string> missed;
};

/// The columns behind the attack's.
std::vector<std::string> columns();

Result run(Plan const& plan, TrialOptions const& options);

}  // namespace Attack
