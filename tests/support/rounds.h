// How long tests of random sequences run, and where they begin: both may be told from outside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace Test {

/// `count`, times the environment variable ENROLIX_TEST_ROUNDS if there is one: a long run is 20 or more.
inline std::size_t rounds(std::size_t count) {
  char const* const factor = std::getenv("ENROLIX_TEST_ROUNDS");
  return factor ? count * std::stoul(factor) : count;
}

/// The environment variable ENROLIX_TEST_SEED, or 1: the seed of the first round; each further one has the next.
inline std::uint32_t firstSeed() {
  char const* const seed = std::getenv("ENROLIX_TEST_SEED");
  return seed ? static_cast<std::uint32_t>(std::stoul(seed)) : 1;
}

/// For SCOPED_TRACE: how a round is repeated.
inline std::string repeats(std::uint32_t seed) { return "ENROLIX_TEST_SEED=" + std::to_string(seed) + " repeats it"; }

}  // namespace Test
