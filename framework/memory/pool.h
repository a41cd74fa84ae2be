// Where framework objects live: their allocation, whether an address is one of them, and how many there are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>

#include "framework/memory/export.h"

namespace Nox {

/// Base that gives framework objects their allocation: a pool of sizes in steps of 16 bytes up to 1024, then doubled up
/// to 1 GiB; 64 GiB in all. Every thread makes objects without a lock; any thread may delete what another one made.
/// Memory is aligned to 16 bytes, and a type that asks for more does not compile.
class NOX_EXPORT VFPtrInterface {
 public:
  /// Memory for an object of `size` bytes, the caller's until it is deleted. Throws std::bad_alloc.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, std::align_val_t alignment) = delete;
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  /// Takes back what operator new gave; `size` is the size that was asked for. Null is ignored; an address that is no
  /// object of such a size, or no longer one, is an assertion; that two threads delete the same object may go
  /// unnoticed.
  static void operator delete(void* p, std::size_t size) noexcept;
  static void operator delete(void*, void*) noexcept {}
  /// True if `p` is the first byte of memory that came from this operator new and has not been deleted; true also while
  /// the object is under construction or destruction. Reads nothing at `p`, so any value is allowed. May be asked by
  /// any thread at any time; of memory that another thread makes or deletes meanwhile, the answer is that of one
  /// moment.
  static bool isLive(void const* p) noexcept { return sizeOfLive(p) != 0; }
  /// The size by which the live object at `p` may be deleted; 0 for every address that is not live.
  static std::size_t sizeOfLive(void const* p) noexcept;

 protected:
  VFPtrInterface() = default;
  ~VFPtrInterface() = default;
};

/// The same allocation for what is the framework's own and no object, such as function tables and characters; it is
/// never reported live.
class NOX_EXPORT NoxMemPool {
 public:
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, std::align_val_t alignment) = delete;
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* p, std::size_t size) noexcept;
  static void operator delete(void*, void*) noexcept {}
};

/// Allocations and their bytes: those that were taken for an allocation, so multiples of 16.
struct AllocationCount {
  std::uint64_t made = 0;       ///< In all.
  std::uint64_t madeBytes = 0;  ///< In all.
  std::uint64_t live = 0;       ///< Not deleted yet.
  std::uint64_t liveBytes = 0;  ///< Not deleted yet.
};
/// What lives in the pool, and what was made there.
struct PoolCounts {
  AllocationCount objects;   ///< What came from VFPtrInterface.
  AllocationCount internal;  ///< What came from NoxMemPool: texts and function tables.
};
/// Counts what this thread made, whichever thread deleted it, since the pool began, and before it the ended thread
/// whose memory it goes on with. To ask takes longer with every gigabyte that lives.
NOX_EXPORT PoolCounts poolCounts();

/// Calls `visit` for every live object that this thread made, with its first byte and the bytes taken for it, in no
/// order; also for one under construction or destruction. Nothing may be made in the pool or deleted meanwhile, by no
/// thread what this one made; `visit` may use other memory, and throw.
NOX_EXPORT void forEachLiveObject(std::function<void(void const* object, std::size_t bytes)> const& visit);

}  // namespace Nox
