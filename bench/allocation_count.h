// What the bench program allocates, and what it occupies.
#pragma once

#include <cstdint>

namespace Bench {

/// Counts every operator new of the program from now on; off, an allocation costs one test more than without. For one
/// thread.
void countAllocations(bool on);
/// How many there were since counting began.
std::int64_t allocationCount();

/// Bytes of the process that are in memory, once the C library has given back what it holds in reserve: whatever
/// allocated them.
std::int64_t residentBytes();

}  // namespace Bench
