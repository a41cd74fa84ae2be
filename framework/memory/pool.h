// Where framework objects live: their allocation, and the question whether an address is one of them.
#pragma once

#include <cstddef>
#include <new>

#include "framework/memory/export.h"

namespace Nox {

/// Base that gives framework objects their allocation: a pool of size classes in steps of 16 bytes up to 1024, above
/// which an object has memory of its own. Every thread makes objects without a lock; any thread may delete what another
/// one made. Memory is aligned to 16 bytes, and a type that asks for more does not compile.
class NOX_EXPORT VFPtrInterface {
 public:
  /// Memory for an object of `size` bytes, the caller's until it is deleted. Throws std::bad_alloc when the system has
  /// none.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, std::align_val_t alignment) = delete;
  static void* operator new(std::size_t, void* place) noexcept { return place; }

  /// Takes back what operator new gave; `size` is the size that was asked for. Null is ignored; an address that is no
  /// object of this size, or no longer one, is an assertion; that two threads delete the same object may go unnoticed.
  static void operator delete(void* p, std::size_t size) noexcept;
  static void operator delete(void*, void*) noexcept {}

  /// True if `p` is the first byte of memory that came from this operator new and has not been deleted; true also while
  /// the object is under construction or destruction. Reads nothing at `p`, so any value is allowed: unmapped,
  /// unaligned, interior, freed and foreign addresses answer false. May be asked by any thread at any time; of memory
  /// that another thread makes or deletes meanwhile, the answer is that of one moment during the call.
  static bool isLive(void const* p) noexcept;
  /// The size by which the live object at `p` may be deleted; 0 for every address that is not live.
  static std::size_t sizeOfLive(void const* p) noexcept;

 protected:
  VFPtrInterface() = default;
  ~VFPtrInterface() = default;
};

/// The same allocation for what is the framework's own and no object, such as function tables and characters; it is
/// never reported live. Above 1024 bytes it is the system's plain allocation.
class NOX_EXPORT NoxMemPool {
 public:
  /// As VFPtrInterface::operator new.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, std::align_val_t alignment) = delete;
  static void* operator new(std::size_t, void* place) noexcept { return place; }

  /// As VFPtrInterface::operator delete.
  static void operator delete(void* p, std::size_t size) noexcept;
  static void operator delete(void*, void*) noexcept {}
};

}  // namespace Nox
