// How long tests run that try many seeds: short by default, as long as the environment says otherwise.
#pragma once

#include <cstdlib>

namespace Test {

/// `count` rounds, times what ENROLIX_TEST_ROUNDS says.
inline unsigned rounds(unsigned count) {
  char const* const factor = std::getenv("ENROLIX_TEST_ROUNDS");
  return factor != nullptr ? count * static_cast<unsigned>(std::strtoul(factor, nullptr, 10)) : count;
}

/// The first seed: what ENROLIX_TEST_SEED says, or 1. A failure prints the seed that repeats it.
inline unsigned firstSeed() {
  char const* const seed = std::getenv("ENROLIX_TEST_SEED");
  return seed != nullptr ? static_cast<unsigned>(std::strtoul(seed, nullptr, 10)) : 1;
}

}  // namespace Test
