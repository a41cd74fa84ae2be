// What the registry keeps in memory, by kind of object.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <typeindex>

#include "framework/memory/pool.h"

namespace Agent {

/// What this thread has made in the pool, and what of it lives.
struct MemoryCounts {
  std::map<std::type_index, Nox::AllocationCount> liveObjects;  ///< By class; what was made is not known by class.
  Nox::AllocationCount objectsMade;                             ///< Of all classes; what lives is not counted here.
  Nox::AllocationCount internal;                                ///< Texts and function tables.
};

/// Counts. No other thread makes or deletes objects meanwhile.
MemoryCounts countMemory();

/// A table for people: bytes and allocations of the live objects that have come since `before`, by class and largest
/// first, with all kinds of less than a hundredth of the live bytes as one; then those of texts and function tables,
/// and for these sums also what was made, what has gone since included. These numbers are divided by `switches`;
/// without a switch they are not. The last row is never divided: what of `before` lives still, as many of each class as
/// there are, and what was made until then. No other thread makes or deletes objects meanwhile.
std::string memoryUsageTable(MemoryCounts before, std::size_t switches);

}  // namespace Agent
