// The 32-bit word that carries a reference count, with the rule for objects that are never counted.
#pragma once

#include <atomic>
#include <cstdint>

namespace Nox {

/// A reference count, and flags in the bits that the count's mask leaves out. Counting is atomic: other threads may
/// hold references. A word whose top byte is 0x1F marks a static object: it is never counted, never flagged and never
/// reaches zero.
class CountedWord {
 public:
  static constexpr std::uint32_t kStaticMarker = 0x1F;
  static constexpr std::uint32_t kStatic = kStaticMarker << 24;

  constexpr explicit CountedWord(std::uint32_t word = 1) noexcept : word_(word) {}

  std::uint32_t value() const noexcept { return word_.load(std::memory_order_relaxed); }
  bool isStatic() const noexcept { return value() >> 24 == kStaticMarker; }
  bool has(std::uint32_t flag) const noexcept { return (value() & flag) != 0; }

  void reference(std::uint32_t by = 1) noexcept {
    if (!isStatic()) word_.fetch_add(by, std::memory_order_relaxed);
  }
  /// Drops one reference; true if what remains under `countMask` is zero. Releases what this thread wrote to the thread
  /// that destroys. The last one takes a locked operation, too: a thread that only holds the object may count it
  /// meanwhile.
  bool release(std::uint32_t countMask = ~std::uint32_t{0}) noexcept {
    return !isStatic() && ((word_.fetch_sub(1, std::memory_order_acq_rel) - 1) & countMask) == 0;
  }
  /// Sets or clears a flag. On a static word it would destroy the marker, so there it does nothing.
  void flagIs(std::uint32_t flag, bool on) noexcept {
    if (isStatic() || has(flag) == on) return;
    if (on)
      word_.fetch_or(flag, std::memory_order_relaxed);
    else
      word_.fetch_and(~flag, std::memory_order_relaxed);
  }

 private:
  std::atomic<std::uint32_t> word_;
};

}  // namespace Nox
