// Draws the ids of histories.
#include "agent/store.h"

#include <array>
#include <cstdio>
#include <random>

namespace Agent {

HistoryId newHistoryId() {
  std::random_device random;
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%08x%08x", random(), random());
  return digits.data();
}

}  // namespace Agent
