// The pool's heaps: chunks of equal slots, each heap the property of one thread. For the pool's own sources.
//
// Memory comes from the system in regions, which are cut into chunks of 64 KiB. A chunk holds slots of one size and one
// kind, and belongs for ever to one heap. A heap belongs to one thread, which alone takes slots from it; so taking a
// slot, and giving one back to the thread's own heap, needs neither a lock nor an atomic read-modify-write. What
// another thread frees is marked in the chunk as returned, and the chunk is announced to its heap, which collects it
// when it next runs out of free slots.
//
// Which slots are free is a bitmap in the chunk's descriptor. Descriptors stand apart from the memory that they
// describe, and neither they nor a chunk's addresses are ever given up. So whether an address is a live object is read
// from the map and a descriptor alone, at any time and from any thread, and an empty chunk's memory can go back to the
// system at once.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "framework/assertion.h"
#include "framework/page_map.h"

namespace Nox::pool {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kLargestSlot = 1024;

/// What a chunk's slots are: their size in granules, and whether objects live there. 0 is a chunk without slots.
using Shape = std::uint32_t;
constexpr Shape kObject = 0x80;
constexpr Shape kGranules = 0x7F;
constexpr std::size_t kShapes = 2 * kObject;
static_assert(kLargestSlot / kGranule <= kGranules);

constexpr Shape shapeOf(Shape kind, std::size_t size) {
  return kind | static_cast<Shape>((std::max(size, std::size_t{1}) + kGranule - 1) / kGranule);
}
constexpr std::size_t slotBytes(Shape shape) { return (shape & kGranules) * kGranule; }

/// 2^32 / n, rounded up: dividing the 4096 granules of a chunk by multiplication is exact.
constexpr auto kReciprocal = [] {
  std::array<std::uint64_t, kLargestSlot / kGranule + 1> table{};
  for (std::uint64_t n = 1; n < table.size(); ++n) table[n] = ((std::uint64_t{1} << 32) + n - 1) / n;
  return table;
}();

/// Number of the slot that begins at `p`, or -1 if none does.
inline int slotAt(void const* p, Shape shape) {
  std::size_t const offset = addressOf(p) % kChunkBytes;
  auto const slot = static_cast<std::size_t>(offset / kGranule * kReciprocal[shape & kGranules] >> 32);
  bool const begins = slot * slotBytes(shape) == offset && offset + slotBytes(shape) <= kChunkBytes;
  return begins ? static_cast<int>(slot) : -1;
}

class Heap;

/// A bit for every slot of a chunk.
using SlotBits = std::array<std::atomic<std::uint64_t>, kChunkBytes / kGranule / 64>;

/// A slot's place in SlotBits.
struct SlotBit {
  explicit SlotBit(int slot) : word(static_cast<unsigned>(slot) / 64), mask(std::uint64_t{1} << slot % 64) {}
  unsigned word;
  std::uint64_t mask;
};

/// The descriptor of a chunk.
struct alignas(64) Chunk {
  Chunk(std::byte* memory, Heap& heap) : base(memory), owner(heap) {}

  std::byte* const base;
  Heap& owner;
  std::atomic<Shape> shape{0};

  // The owner's alone: slots taken less returns counted; the words of `free` that are not 0; neighbours in their list.
  std::uint32_t used = 0;
  std::uint64_t openWords = 0;
  Chunk* previous = nullptr;
  Chunk* next = nullptr;

  /// Slots that can be taken. Written by the owner, read by all.
  alignas(64) SlotBits free{};
  /// Slots that other threads freed and the owner has not collected.
  alignas(64) SlotBits returned{};
  /// Returns not yet counted by the owner. Who raises it from 0 announces the chunk.
  std::atomic<std::uint32_t> returns{0};
  Chunk* nextAnnounced = nullptr;
};

/// Zeroed memory of whole chunks, aligned to them. Throws std::bad_alloc.
std::byte* mapChunks(std::size_t bytes);

/// A thread's chunks. Heaps are never destroyed: when a thread ends, its heap waits for the next thread to adopt it.
class Heap {
 public:
  /// A heap that nobody has, or a new one; it is the caller's until abandoned. Throws std::bad_alloc.
  static Heap& claim();
  bool tryClaim() { return !claimed_.load() && !claimed_.exchange(true); }
  /// Collects what others returned, and leaves the heap to whoever claims it next.
  void abandon();

  /// For who has claimed the heap: takes a slot, and gives one back. Taking throws std::bad_alloc.
  void* take(Shape shape);
  void give(Chunk& chunk, SlotBit bit);
  /// For every other thread.
  void giveFromOutside(Chunk& chunk, SlotBit bit);

 private:
  void* takeFrom(Chunk& chunk, Shape shape);
  void wordFull(Chunk& chunk);
  Chunk& openChunk(Shape shape);
  void mapRegion();
  void collect();
  void freed(Chunk& chunk, unsigned word, std::uint64_t bits);
  void settle(Chunk& chunk, std::uint32_t count);
  void emptied(Chunk& chunk);
  void link(Chunk& chunk);
  void unlink(Chunk& chunk);

  static constinit std::atomic<Heap*> all;

  Heap* nextHeap_ = nullptr;
  std::atomic<bool> claimed_{true};
  /// Chunks with returns to collect.
  std::atomic<Chunk*> announced_{nullptr};
  /// The chunks of each shape that have a free slot.
  std::array<Chunk*, kShapes> open_{};
  /// Empty chunks, without a shape: those that kept their memory, and those that gave it back or never had any.
  Chunk* warm_ = nullptr;
  unsigned warmCount_ = 0;
  Chunk* cold_ = nullptr;
};

inline void* Heap::take(Shape shape) {
  Chunk* const chunk = open_[shape];
  return chunk != nullptr ? takeFrom(*chunk, shape) : takeFrom(openChunk(shape), shape);
}

inline void* Heap::takeFrom(Chunk& chunk, Shape shape) {
  auto const word = static_cast<unsigned>(std::countr_zero(chunk.openWords));
  std::uint64_t const bits = chunk.free[word].load(std::memory_order_relaxed);
  std::size_t const slot = word * 64 + static_cast<unsigned>(std::countr_zero(bits));
  std::uint64_t const left = bits & (bits - 1);
  chunk.free[word].store(left, std::memory_order_release);
  ++chunk.used;
  void* const p = chunk.base + slot * slotBytes(shape);
  if (left == 0) [[unlikely]]
    wordFull(chunk);
  return p;
}

inline void Heap::give(Chunk& chunk, SlotBit bit) {
  NOX_ASSERT((chunk.free[bit.word].load(std::memory_order_relaxed) & bit.mask) == 0, "memory deleted twice");
  freed(chunk, bit.word, bit.mask);
  settle(chunk, 1);
}

inline void Heap::freed(Chunk& chunk, unsigned word, std::uint64_t bits) {
  chunk.free[word].store(chunk.free[word].load(std::memory_order_relaxed) | bits, std::memory_order_release);
  if (chunk.openWords == 0) link(chunk);
  chunk.openWords |= std::uint64_t{1} << word;
}

/// Counts returned slots.
inline void Heap::settle(Chunk& chunk, std::uint32_t count) {
  chunk.used -= count;
  if (chunk.used == 0) emptied(chunk);
}

}  // namespace Nox::pool
