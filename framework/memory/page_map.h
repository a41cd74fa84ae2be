// Pages from the system, and what is known of every 64 KiB of the address space. For the pool's own sources.
#pragma once

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "framework/memory/assertion.h"

namespace Nox::pool {

constexpr std::size_t kChunkBytes = std::size_t{64} * 1024;

inline std::uintptr_t addressOf(void const* p) { return reinterpret_cast<std::uintptr_t>(p); }

/// Zeroed pages. Throws std::bad_alloc.
inline void* mapPages(std::size_t bytes) {
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (p == MAP_FAILED) throw std::bad_alloc();
  return p;
}

/// A word for every 64 KiB of the address space, 0 where nothing is known. To look one up touches nothing at its
/// address.
class PageMap {
 public:
  std::uintptr_t find(void const* p) const noexcept {
    std::uintptr_t const unit = addressOf(p) / kChunkBytes;
    if (unit >= kFanOut * kFanOut) return 0;
    Leaf const* leaf = root_[unit / kFanOut].load(std::memory_order_acquire);
    return leaf != nullptr ? (*leaf)[unit % kFanOut].load(std::memory_order_acquire) : 0;
  }

  /// Calls `visit` for every word that is not 0, with the first address that it stands for, in their order.
  template <class Visitor>
  void forEach(Visitor const& visit) const {
    for (std::uintptr_t high = 0; high < kFanOut; ++high) {
      Leaf const* leaf = root_[high].load(std::memory_order_acquire);
      if (leaf == nullptr) continue;
      for (std::uintptr_t low = 0; low < kFanOut; ++low)
        if (std::uintptr_t const word = (*leaf)[low].load(std::memory_order_acquire); word != 0)
          visit((high * kFanOut + low) * kChunkBytes, word);
    }
  }

  /// The word itself, to write. Throws std::bad_alloc.
  std::atomic<std::uintptr_t>& word(void const* p) {
    std::uintptr_t const unit = addressOf(p) / kChunkBytes;
    NOX_ASSERT(unit < kFanOut * kFanOut, "address of more than 48 bits");
    std::atomic<Leaf*>& place = root_[unit / kFanOut];
    Leaf* leaf = place.load(std::memory_order_acquire);
    if (leaf == nullptr) {
      void* pages = mapPages(sizeof(Leaf));
      if (place.compare_exchange_strong(leaf, static_cast<Leaf*>(pages), std::memory_order_acq_rel))
        leaf = static_cast<Leaf*>(pages);  // zeroed pages are a leaf of zeros
      else
        munmap(pages, sizeof(Leaf));
    }
    return (*leaf)[unit % kFanOut];
  }

 private:
  static constexpr std::size_t kFanOut = std::size_t{1} << 16;
  using Leaf = std::array<std::atomic<std::uintptr_t>, kFanOut>;

  std::array<std::atomic<Leaf*>, kFanOut> root_{};
};

/// The one of this process.
inline constinit PageMap pageMap;

}  // namespace Nox::pool
