// What the pool has handed out, in numbers and object by object, for diagnosis.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "framework/memory/export.h"

namespace Nox {

/// Allocations and their bytes. Bytes are those that were taken for an allocation, so multiples of 16.
struct AllocationCount {
  std::uint64_t made = 0;       ///< In all.
  std::uint64_t madeBytes = 0;  ///< In all.
  std::uint64_t live = 0;       ///< Not deleted yet.
  std::uint64_t liveBytes = 0;  ///< Not deleted yet.
};

/// Everything that the pool has handed out.
struct PoolCounts {
  /// What came from VFPtrInterface.
  AllocationCount objects;
  /// What came from NoxMemPool: texts and function tables.
  AllocationCount internal;
};

/// Counts what this thread made, whichever thread deleted it, since the pool began; a thread goes on with the counts of
/// an ended one whose memory it adopts. What is larger than 1024 bytes is counted whichever thread made it. For
/// diagnosis: to ask takes about a millisecond, and more with every gigabyte that lives.
NOX_EXPORT PoolCounts poolCounts();

/// Calls `visit` for every live object that this thread made, and for every one of more than 1024 bytes, with its first
/// byte and the bytes taken for it, in no order that tells anything. For diagnosis, a report of what a program holds
/// for instance: an object that is under construction or destruction is visited like any other, and the pool does not
/// know what class an object has. Nothing may be made in the pool or deleted meanwhile, by no thread what this one
/// made; `visit` may use other memory, and throw.
NOX_EXPORT void forEachLiveObject(std::function<void(void const* object, std::size_t bytes)> const& visit);

}  // namespace Nox
