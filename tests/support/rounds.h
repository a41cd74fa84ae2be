// How long tests of random sequences run, and where they begin: both may be told from outside.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace Test {

/// Under the address sanitizer a round takes several times as long, and finds what it finds in a few of many. What is
/// sampled there runs a share of its rounds, drawn anew in each run; everywhere else all of them.
#ifdef __SANITIZE_ADDRESS__
inline constexpr std::size_t kSampleShare = 5;
#else
inline constexpr std::size_t kSampleShare = 1;
#endif

/// `count`, times the environment variable ENROLIX_TEST_ROUNDS if there is one: a long run is 20 or more.
inline std::size_t rounds(std::size_t count) {
  char const* const factor = std::getenv("ENROLIX_TEST_ROUNDS");
  return factor ? count * std::stoul(factor) : count;
}

/// The environment variable ENROLIX_TEST_SEED, or `otherwise`: the seed of the first round; each further one has the
/// next.
inline std::uint32_t firstSeed(std::uint32_t otherwise = 1) {
  char const* const seed = std::getenv("ENROLIX_TEST_SEED");
  return seed ? static_cast<std::uint32_t>(std::stoul(seed)) : otherwise;
}

/// For SCOPED_TRACE: how a round is repeated.
inline std::string repeats(std::uint32_t seed) { return "ENROLIX_TEST_SEED=" + std::to_string(seed) + " repeats it"; }

/// `count` of whatever a load consists of, or the share of it that is sampled; also for the least that must come of it.
inline constexpr std::size_t sampled(std::size_t count) { return (count + kSampleShare - 1) / kSampleShare; }

/// The seed of a load that is sampled: printed, and drawn anew in each run; or `otherwise` where nothing is sampled.
inline std::uint32_t sampleSeed(std::uint32_t otherwise) {
  if (kSampleShare == 1) return otherwise;
  std::uint32_t const seed = firstSeed(std::random_device()() % 1'000'000);
  std::cout << "sampled: " << repeats(seed) << '\n';
  return seed;
}

/// The numbers of the rounds to run, of `count` in all, in their order; at least `least` of them.
inline std::vector<std::uint32_t> sampledRounds(std::uint32_t count, std::size_t least = 1) {
  std::vector<std::uint32_t> all(count);
  std::iota(all.begin(), all.end(), 0U);
  if (kSampleShare == 1) return all;
  std::vector<std::uint32_t> drawn;
  std::mt19937 random(sampleSeed(0));
  std::sample(all.begin(), all.end(), std::back_inserter(drawn), std::max(sampled(count), least), random);
  return drawn;
}

}  // namespace Test
