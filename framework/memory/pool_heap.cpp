// How heaps get, hand out, take back and give up memory.
#include "framework/memory/pool_heap.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "framework/memory/assertion.h"

namespace Nox::pool {
namespace {

/// How much memory of slots that were never used is touched at a time.
constexpr std::size_t kFreshBytes = 1024;

/// The slot that the lowest bit of a word of SlotBits stands for.
std::byte* slotOf(Chunk const& chunk, std::size_t word, std::uint64_t bits) {
  return chunk.base + (word * 64 + static_cast<std::size_t>(std::countr_zero(bits))) * kGranule;
}

/// Empty chunks keep their memory until they are a part of those in use: a program that breathes faults nothing in
/// again, and where few objects remain of many, their chunks are what remains.
constexpr std::size_t kUsedPerWarm = 8;

std::size_t warmOf(Region const& region) {
  return static_cast<std::size_t>(std::popcount(region.empty & ~region.cold));
}

/// Gives the memory of empty chunks back: of one, or of all.
void giveBack(Region& region, std::uint32_t chunks) {
  bool const isAll = chunks == ~std::uint32_t{0};
  auto const first = isAll ? 0 : static_cast<std::size_t>(std::countr_zero(chunks));
  madvise(region.base + first * kChunkBytes, isAll ? kRegionBytes : kChunkBytes, MADV_DONTNEED);
  region.cold |= chunks;
}

template <std::size_t... I>
std::array<Chunk, kRegionChunks> chunksOf(Region& region, std::byte* base, std::index_sequence<I...> /*all*/) {
  return {Chunk(base + I * kChunkBytes, region)...};
}

}  // namespace

std::byte* mapChunks(std::size_t bytes, std::size_t alignment) {
  auto* p = static_cast<std::byte*>(mapPages(bytes));
  if (addressOf(p) % alignment == 0) return p;
  // More than is wanted, and both ends cut off. The system maps downwards, so the next mapping is likely to be aligned.
  munmap(p, bytes);
  p = static_cast<std::byte*>(mapPages(bytes + alignment));
  std::size_t const before = (alignment - addressOf(p) % alignment) % alignment;
  if (before != 0) munmap(p, before);
  munmap(p + before + bytes, alignment - before);
  return p + before;
}

Region::Region(std::byte* memory, Heap& heap)
    : base(memory), owner(heap), chunks(chunksOf(*this, memory, std::make_index_sequence<kRegionChunks>())) {}

constinit std::atomic<Heap*> Heap::all{nullptr};

Heap& Heap::claim() {
  for (Heap* heap = all.load(std::memory_order_acquire); heap != nullptr; heap = heap->nextHeap_)
    if (heap->tryClaim()) return *heap;
  Heap* heap = new (mapPages(sizeof(Heap))) Heap;
  heap->nextHeap_ = all.load(std::memory_order_relaxed);
  while (!all.compare_exchange_weak(heap->nextHeap_, heap, std::memory_order_acq_rel)) {
  }
  return *heap;
}

void Heap::abandon() {
  // A thread that announces a chunk looks at the claim afterwards, and here it is the other way round: one of the two
  // collects.
  do {
    collect();
    claimed_.store(false);
  } while (announced_.load() != nullptr && tryClaim());
}

void Heap::giveFromOutside(Chunk& chunk, void const* p) {
  SlotBit const bit(p);
  // Read in this order: once marked as returned, the slot may be collected and free.
  std::uint64_t const taken = chunk.taken[bit.word].load(std::memory_order_acquire);
  std::uint64_t const returned = chunk.returned[bit.word].fetch_or(bit.mask, std::memory_order_acq_rel);
  NOX_ASSERT((taken & ~returned & bit.mask) != 0, notTaken(chunk, p));
  // The last touch of the chunk, unless it is ours to announce: it cannot count as empty before.
  if (chunk.returns.fetch_add(1, std::memory_order_acq_rel) == 0) {
    chunk.nextAnnounced = announced_.load(std::memory_order_relaxed);
    while (!announced_.compare_exchange_weak(chunk.nextAnnounced, &chunk)) {
    }
  }
  if (tryClaim()) abandon();
}

/// A chunk with a free slot, when none is open: one with returns, an empty one, or one of a new region.
Chunk& Heap::openChunk(Shape shape) {
  collect();
  if (open_[shape] != nullptr) return *open_[shape];
  Region& region = regionWithEmptyChunk();
  std::uint32_t const warm = region.empty & ~region.cold;
  std::uint32_t const bit = warm != 0 ? warm & -warm : region.empty & -region.empty;
  Chunk& chunk = region.chunks[static_cast<std::size_t>(std::countr_zero(bit))];
  ++usedChunks_;
  if (warm != 0) --warmChunks_;
  region.empty &= ~bit;
  region.cold &= ~bit;
  if (region.empty == 0) unlink(region);

  chunk.shape.store(shape, std::memory_order_release);
  chunk.freeSlots = nullptr;
  chunk.fresh = 0;
  listFresh(chunk);
  link(chunk);
  return chunk;
}

/// Puts the next slots that have not been used on the list. Few at a time, as this touches their memory.
void Heap::listFresh(Chunk& chunk) {
  std::size_t const bytes = slotBytes(chunk.shape.load(std::memory_order_relaxed));
  std::size_t const count =
      std::min(std::max<std::size_t>(kFreshBytes / bytes, 1), (kChunkBytes - chunk.fresh) / bytes);
  for (std::byte* p = chunk.base + chunk.fresh + count * bytes; p != chunk.base + chunk.fresh;) {
    p -= bytes;
    chunk.freeSlots = new (p) FreeSlot{chunk.freeSlots};
  }
  chunk.fresh += static_cast<std::uint32_t>(count * bytes);
}

/// Returns the slot, which was the last on the list.
void* Heap::tookLast(Chunk& chunk, void* last) {
  listFresh(chunk);
  if (chunk.freeSlots == nullptr) unlink(chunk);
  return last;
}

/// The region from which the next chunk comes; it is one of those that are partly empty.
Region& Heap::regionWithEmptyChunk() {
  if (partlyEmpty_ != nullptr) return *partlyEmpty_;
  Region*& from = warm_ != nullptr ? warm_ : cold_;
  Region& region = from != nullptr ? *from : mapRegion();
  if (from != nullptr) from = region.next;
  link(region);
  warmChunks_ += warmOf(region);
  return region;
}

Region& Heap::mapRegion() {
  void* const descriptor = mapPages(sizeof(Region));  // first: without it the region's addresses would be lost
  std::byte* const base = mapChunks(kRegionBytes, kRegionBytes);
  // A whole region is one page where the system has such: without, a network of ten thousand switches took a quarter
  // more time, most of it in faults. What needs one region only may need little of it.
  if (usedChunks_ != 0) madvise(base, kRegionBytes, MADV_HUGEPAGE);
  Region& region = *new (descriptor) Region(base, *this);
  for (Chunk const& chunk : region.chunks) pageMap.word(chunk.base).store(addressOf(&chunk), std::memory_order_release);
  return region;
}

void Heap::collect() {
  if (announced_.load(std::memory_order_relaxed) == nullptr) return;
  for (Chunk* chunk = announced_.exchange(nullptr, std::memory_order_acq_rel); chunk != nullptr;) {
    Chunk* const next = chunk->nextAnnounced;  // read first: once its count is taken, the chunk may be announced again
    chunk->gives += chunk->returns.exchange(0, std::memory_order_acq_rel);
    bool wasFull = false;
    for (std::size_t word = 0; word < kWords; ++word) {
      std::uint64_t const bits = chunk->returned[word].load(std::memory_order_acquire);
      if (bits == 0) continue;
      // Free before no longer returned: a slot that was deleted looks taken at no moment.
      for (std::uint64_t left = bits; left != 0; left &= left - 1) wasFull |= freed(*chunk, slotOf(*chunk, word, left));
      chunk->returned[word].fetch_and(~bits, std::memory_order_acq_rel);
    }
    // Bits that are not counted yet may have come along; the thread that set them is still to touch the chunk, so it
    // stays in use.
    settle(*chunk, wasFull);
    chunk = next;
  }
}

/// Puts the chunk in the list that it belongs to now.
void Heap::settle(Chunk& chunk, bool wasFull) {
  if (wasFull) link(chunk);
  if (chunk.gives == chunk.takes) emptied(chunk);
}

/// Withdraws an empty chunk from its shape, unless it is the last open one.
void Heap::emptied(Chunk& chunk) {
  if (chunk.previous == nullptr && chunk.next == nullptr) return;
  unlink(chunk);
  takenBefore_[chunk.shape.load(std::memory_order_relaxed)] += chunk.takes;
  chunk.takes = chunk.gives = 0;
  chunk.shape.store(0, std::memory_order_release);
  Region& region = chunk.region;
  std::uint32_t const bit = std::uint32_t{1} << (&chunk - region.chunks.data());
  if (region.empty == 0) link(region);
  region.empty |= bit;
  --usedChunks_;
  ++warmChunks_;
  if (region.empty == ~std::uint32_t{0}) {
    unlink(region);
    warmChunks_ -= warmOf(region);
    if (warm_ != nullptr) giveBack(region, region.empty);
    Region*& to = warm_ == nullptr ? warm_ : cold_;
    region.next = std::exchange(to, &region);
  } else if (warmChunks_ > std::max(kRegionChunks, usedChunks_ / kUsedPerWarm)) {
    giveBack(region, bit);
    --warmChunks_;
  }
}

void Heap::link(Chunk& chunk) {
  Chunk*& first = open_[chunk.shape.load(std::memory_order_relaxed)];
  chunk.previous = nullptr;
  chunk.next = std::exchange(first, &chunk);
  if (chunk.next != nullptr) chunk.next->previous = &chunk;
}

void Heap::unlink(Chunk& chunk) {
  (chunk.previous != nullptr ? chunk.previous->next : open_[chunk.shape.load(std::memory_order_relaxed)]) = chunk.next;
  if (chunk.next != nullptr) chunk.next->previous = chunk.previous;
}

void Heap::link(Region& region) {
  region.previous = nullptr;
  region.next = std::exchange(partlyEmpty_, &region);
  if (region.next != nullptr) region.next->previous = &region;
}

void Heap::unlink(Region& region) {
  (region.previous != nullptr ? region.previous->next : partlyEmpty_) = region.next;
  if (region.next != nullptr) region.next->previous = region.previous;
}

/// Calls `visit` for every chunk that has slots, and their shape.
template <class Visitor>
void Heap::forEachChunk(Visitor const& visit) {
  collect();
  pageMap.forEach([&](std::uintptr_t /*begin*/, std::uintptr_t word) {
    if ((word & 1) != 0) return;
    auto const& chunk = *reinterpret_cast<Chunk const*>(word);
    if (&chunk.owner != this) return;
    Shape const shape = chunk.shape.load(std::memory_order_relaxed);
    if (shape != 0) visit(chunk, shape);
  });
}

AllocationCount Heap::count(Shape kind) {
  AllocationCount sum;
  auto const add = [&](Shape shape, std::uint64_t takes, std::uint64_t gives) {
    if ((shape & kObject) != kind) return;
    sum.made += takes;
    sum.madeBytes += takes * slotBytes(shape);
    sum.live += takes - gives;
    sum.liveBytes += (takes - gives) * slotBytes(shape);
  };
  forEachChunk([&](Chunk const& chunk, Shape shape) { add(shape, chunk.takes, chunk.gives); });
  for (Shape shape = 0; shape < kShapes; ++shape) add(shape, takenBefore_[shape], takenBefore_[shape]);
  return sum;
}

void Heap::forEachObject(std::function<void(void const*, std::size_t)> const& visit) {
  forEachChunk([&](Chunk const& chunk, Shape shape) {
    if ((shape & kObject) == 0) return;
    for (std::size_t word = 0; word < kWords; ++word)
      for (std::uint64_t bits = chunk.taken[word].load(std::memory_order_relaxed); bits != 0; bits &= bits - 1)
        visit(slotOf(chunk, word, bits), slotBytes(shape));
  });
}

}  // namespace Nox::pool
