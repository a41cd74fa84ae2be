// The pool's heaps: chunks of equal slots, each heap the property of one thread. For the pool's own sources.
//
// Memory comes from the system in regions of 2 MiB, which are cut into chunks of 64 KiB. A chunk holds slots of one
// size and one kind, and belongs for ever to one heap. A heap belongs to one thread, which alone takes slots from it;
// so taking a slot, and giving one back to the thread's own heap, needs neither a lock nor an atomic read-modify-write.
// What another thread frees is marked in the chunk as returned, and the chunk is announced to its heap, which collects
// it when it next runs out of free slots.
//
// A chunk's free slots hold the list that they are taken from. Which slots are taken is also a bitmap in the chunk's
// descriptor, a bit for every 16 bytes. Descriptors stand apart from the memory that they describe, and neither they
// nor a chunk's addresses are ever given up. So whether an address is a live object is read from the map and a
// descriptor alone, at any time and from any thread, and what is empty can give its memory back to the system at once.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "framework/memory/assertion.h"
#include "framework/memory/page_map.h"
#include "framework/memory/pool_counts.h"

namespace Nox::pool {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kLargestSlot = 1024;

/// What a chunk's slots are: their size in granules, and whether objects live there. 0 is a chunk without slots.
using Shape = std::uint32_t;
constexpr Shape kObject = 0x80;
constexpr Shape kGranules = 0x7F;
constexpr std::size_t kShapes = 2 * kObject;
static_assert(kLargestSlot / kGranule <= kGranules);

/// `size` is not 0.
constexpr Shape shapeOf(Shape kind, std::size_t size) { return kind | static_cast<Shape>((size - 1) / kGranule + 1); }
constexpr std::size_t slotBytes(Shape shape) { return (shape & kGranules) * kGranule; }

constexpr std::size_t kWords = kChunkBytes / kGranule / 64;

/// A bit for every granule of a chunk: a slot's is that of its first granule, so that it is found without dividing by
/// the slot's size.
using SlotBits = std::array<std::atomic<std::uint64_t>, kWords>;

/// A slot's place in SlotBits.
struct SlotBit {
  explicit SlotBit(void const* p)
      : word(addressOf(p) / kGranule / 64 % kWords), mask(std::uint64_t{1} << addressOf(p) / kGranule % 64) {}
  std::size_t word;
  std::uint64_t mask;
};

class Heap;
struct Region;

/// What stands in a free slot.
struct FreeSlot {
  FreeSlot* next;
};

/// The descriptor of a chunk.
struct alignas(64) Chunk {
  Chunk(std::byte* memory, Region& partOf);

  std::byte* const base;
  Region& region;
  Heap& owner;
  std::atomic<Shape> shape{0};

  // The owner's alone.

  /// Where the slots begin that have not been on the list.
  std::uint32_t fresh = 0;
  /// Slots that were taken, and given back, since the chunk has its shape.
  std::uint64_t takes = 0;
  std::uint64_t gives = 0;
  /// A list rather than the lowest bit of a bitmap of free slots, whose last change each search had to wait for: with
  /// the bitmap of taken ones, which needs no division, a make takes 40 instructions instead of 50 and a delete 59
  /// instead of 81. Among a million live objects of mixed sizes a make went from 5.1 to 3.9 ns, a delete from 27 to 20.
  FreeSlot* freeSlots = nullptr;
  /// Neighbours among the chunks that have free slots.
  Chunk* previous = nullptr;
  Chunk* next = nullptr;

  /// Slots that are not free. Written by the owner, read by all.
  alignas(64) SlotBits taken{};
  /// Slots that other threads freed and the owner has not collected.
  alignas(64) SlotBits returned{};
  /// Returns not yet counted by the owner. The thread that raises it from 0 announces the chunk.
  std::atomic<std::uint32_t> returns{0};
  Chunk* nextAnnounced = nullptr;
};

constexpr std::size_t kRegionChunks = 32;
constexpr std::size_t kRegionBytes = kRegionChunks * kChunkBytes;

/// The descriptor of a region: its chunks' descriptors, and which of them are empty.
struct Region {
  Region(std::byte* memory, Heap& heap);

  std::byte* const base;
  Heap& owner;
  /// A bit for every chunk without a shape, and for those of them that have no memory, or none that was touched.
  std::uint32_t empty = ~std::uint32_t{0};
  std::uint32_t cold = ~std::uint32_t{0};
  static_assert(kRegionChunks == 32);
  /// Neighbours in the heap's list.
  Region* previous = nullptr;
  Region* next = nullptr;
  std::array<Chunk, kRegionChunks> chunks;
};

inline Chunk::Chunk(std::byte* memory, Region& partOf) : base(memory), region(partOf), owner(partOf.owner) {}

/// What is wrong with deleting what is not taken.
inline char const* notTaken(Chunk const& chunk, void const* p) {
  bool const begins = addressOf(p) % kChunkBytes % slotBytes(chunk.shape.load(std::memory_order_relaxed)) == 0;
  return begins ? "memory deleted twice" : "deleted memory is not a whole object";
}

/// Zeroed memory of whole chunks, aligned to `alignment`, which is theirs or a power of two above it. Throws
/// std::bad_alloc.
std::byte* mapChunks(std::size_t bytes, std::size_t alignment = kChunkBytes);

/// A thread's chunks. Heaps are never destroyed: when a thread ends, its heap waits for the next thread to adopt it.
class Heap {
 public:
  /// A heap that no thread has, or a new one; it is the caller's until abandoned. Throws std::bad_alloc.
  static Heap& claim();
  bool tryClaim() { return !claimed_.load() && !claimed_.exchange(true); }
  /// Collects what other threads returned, and leaves the heap to the thread that claims it next.
  void abandon();

  /// For the thread that has claimed the heap: takes a slot, and gives one back. Taking throws std::bad_alloc.
  void* take(Shape shape);
  void give(Chunk& chunk, void* p);
  /// For every other thread.
  void giveFromOutside(Chunk& chunk, void const* p);

  /// For the thread that has claimed the heap. What was taken in all, and what of it no thread has given back: objects,
  /// or what is none, as `kind` says.
  AllocationCount count(Shape kind);
  /// For the thread that has claimed the heap: calls `visit` for every object.
  void forEachObject(std::function<void(void const*, std::size_t)> const& visit);

 private:
  void* tookLast(Chunk& chunk, void* last);
  Chunk& openChunk(Shape shape);
  static void listFresh(Chunk& chunk);
  Region& mapRegion();
  Region& regionWithEmptyChunk();
  void collect();
  static bool freed(Chunk& chunk, void* p);
  void settle(Chunk& chunk, bool wasFull);
  template <class Visitor>
  void forEachChunk(Visitor const& visit);
  void emptied(Chunk& chunk);
  void link(Chunk& chunk);
  void unlink(Chunk& chunk);
  void link(Region& region);
  void unlink(Region& region);

  static constinit std::atomic<Heap*> all;

  Heap* nextHeap_ = nullptr;
  std::atomic<bool> claimed_{true};
  /// Chunks with returns to collect.
  std::atomic<Chunk*> announced_{nullptr};
  /// The chunks of each shape that have a free slot.
  std::array<Chunk*, kShapes> open_{};
  /// Regions with empty chunks: those with others as well; one without, which keeps its memory, so that a program that
  /// breathes does not fault its pages in again; and those that gave theirs back.
  Region* partlyEmpty_ = nullptr;
  Region* warm_ = nullptr;
  Region* cold_ = nullptr;
  /// Chunks that have a shape, and empty ones with memory in regions that are partly empty.
  std::size_t usedChunks_ = 0;
  std::size_t warmChunks_ = 0;
  /// Slots of each shape that were taken from chunks that have emptied since.
  std::array<std::uint64_t, kShapes> takenBefore_{};
};

inline void* Heap::take(Shape shape) {
  Chunk* chunk = open_[shape];
  if (chunk == nullptr) [[unlikely]]
    chunk = &openChunk(shape);
  FreeSlot* const p = chunk->freeSlots;
  SlotBit const bit(p);
  auto& taken = chunk->taken[bit.word];
  taken.store(taken.load(std::memory_order_relaxed) | bit.mask, std::memory_order_release);
  ++chunk->takes;
  chunk->freeSlots = p->next;
  if (p->next == nullptr) [[unlikely]]
    return tookLast(*chunk, p);
  return p;
}

inline void Heap::give(Chunk& chunk, void* p) {
  bool const wasFull = freed(chunk, p);
  ++chunk.gives;
  if (wasFull || chunk.gives == chunk.takes) [[unlikely]]
    settle(chunk, wasFull);
}

/// Puts a slot on the list. Returns whether the list was empty.
inline bool Heap::freed(Chunk& chunk, void* p) {
  SlotBit const bit(p);
  std::uint64_t const taken = chunk.taken[bit.word].load(std::memory_order_relaxed);
  NOX_ASSERT((taken & bit.mask) != 0, notTaken(chunk, p));
  chunk.taken[bit.word].store(taken & ~bit.mask, std::memory_order_release);
  FreeSlot* const before = chunk.freeSlots;
  chunk.freeSlots = new (p) FreeSlot{before};
  return before == nullptr;
}

}  // namespace Nox::pool
