// What the registry keeps in memory, by kind of object.
#pragma once

#include <cstddef>
#include <string>

namespace Agent {

/// A table for people: bytes and allocations of all live objects that this thread made, by class and largest first,
/// then those of texts and tables, and for these sums also what was made in all, what has gone since included. The
/// numbers are divided by `switches`; without a switch they are not. No other thread makes or deletes objects
/// meanwhile.
std::string memoryTable(std::size_t switches);

}  // namespace Agent
