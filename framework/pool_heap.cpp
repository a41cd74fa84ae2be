// How heaps get, hand out, take back and give up memory.
#include "framework/pool_heap.h"

#include <bit>
#include <utility>

#include "framework/assertion.h"

namespace Nox::pool {
namespace {

constexpr std::size_t kRegionChunks = 32;
/// Empty chunks that a heap keeps with their memory, so that a program that breathes does not fault its pages in again.
constexpr unsigned kWarmChunks = 16;

static_assert(kRegionChunks * sizeof(Chunk) <= kChunkBytes, "the descriptors of a region fit into one chunk");

}  // namespace

std::byte* mapChunks(std::size_t bytes) {
  auto* p = static_cast<std::byte*>(mapPages(bytes));
  if (addressOf(p) % kChunkBytes == 0) return p;
  // One chunk more, and both ends cut off. The system maps downwards, so the next mapping is likely to be aligned.
  munmap(p, bytes);
  p = static_cast<std::byte*>(mapPages(bytes + kChunkBytes));
  std::size_t const before = (kChunkBytes - addressOf(p) % kChunkBytes) % kChunkBytes;
  if (before != 0) munmap(p, before);
  munmap(p + before + bytes, kChunkBytes - before);
  return p + before;
}

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
  // Who announces a chunk looks at the claim afterwards, and here it is the other way round: one of the two collects.
  do {
    collect();
    claimed_.store(false);
  } while (announced_.load() != nullptr && tryClaim());
}

void Heap::giveFromOutside(Chunk& chunk, SlotBit bit) {
  // Read in this order: once marked as returned, the slot may be collected and free.
  std::uint64_t const free = chunk.free[bit.word].load(std::memory_order_acquire);
  std::uint64_t const returned = chunk.returned[bit.word].fetch_or(bit.mask, std::memory_order_acq_rel);
  NOX_ASSERT(((free | returned) & bit.mask) == 0, "memory deleted twice");
  // The last touch of the chunk, unless it is ours to announce: it cannot count as empty before.
  if (chunk.returns.fetch_add(1, std::memory_order_acq_rel) == 0) {
    chunk.nextAnnounced = announced_.load(std::memory_order_relaxed);
    while (!announced_.compare_exchange_weak(chunk.nextAnnounced, &chunk)) {
    }
  }
  if (tryClaim()) abandon();
}

/// The lowest open word has no free slot left.
void Heap::wordFull(Chunk& chunk) {
  chunk.openWords &= chunk.openWords - 1;
  if (chunk.openWords == 0) unlink(chunk);
}

/// A chunk with a free slot, when none is open: one with returns, an empty one, or one of a new region.
Chunk& Heap::openChunk(Shape shape) {
  collect();
  if (open_[shape] != nullptr) return *open_[shape];
  if (warm_ == nullptr && cold_ == nullptr) mapRegion();
  Chunk*& from = warm_ != nullptr ? warm_ : cold_;
  if (warm_ != nullptr) --warmCount_;
  Chunk& chunk = *from;
  from = chunk.next;

  chunk.shape.store(shape, std::memory_order_release);
  chunk.openWords = 0;
  std::size_t slots = kChunkBytes / slotBytes(shape);
  for (unsigned word = 0; word < chunk.free.size(); ++word) {
    std::size_t const here = std::min(slots, std::size_t{64});
    chunk.free[word].store(here == 0 ? 0 : ~std::uint64_t{0} >> (64 - here), std::memory_order_release);
    if (here != 0) chunk.openWords |= std::uint64_t{1} << word;
    slots -= here;
  }
  link(chunk);
  return chunk;
}

void Heap::mapRegion() {
  std::byte* const region = mapChunks((kRegionChunks + 1) * kChunkBytes);
  auto* place = region + kRegionChunks * kChunkBytes;
  for (std::size_t i = kRegionChunks; i-- > 0; place += sizeof(Chunk)) {
    std::byte* const base = region + i * kChunkBytes;
    Chunk* chunk = new (place) Chunk(base, *this);
    pageMap.word(base).store(addressOf(chunk), std::memory_order_release);
    chunk->next = std::exchange(cold_, chunk);
  }
}

void Heap::collect() {
  if (announced_.load(std::memory_order_relaxed) == nullptr) return;
  for (Chunk* chunk = announced_.exchange(nullptr, std::memory_order_acq_rel); chunk != nullptr;) {
    Chunk* const next = chunk->nextAnnounced;  // read first: once its count is taken, the chunk may be announced again
    std::uint32_t const count = chunk->returns.exchange(0, std::memory_order_acq_rel);
    for (unsigned word = 0; word < chunk->returned.size(); ++word) {
      std::uint64_t const bits = chunk->returned[word].load(std::memory_order_acquire);
      if (bits == 0) continue;
      NOX_ASSERT((chunk->free[word].load(std::memory_order_relaxed) & bits) == 0, "memory deleted twice");
      // Free before no longer returned: a slot that was deleted looks taken at no moment.
      freed(*chunk, word, bits);
      chunk->returned[word].fetch_and(~bits, std::memory_order_acq_rel);
    }
    // Bits that are not counted yet may have come along; who set them is still to touch the chunk, so it stays in use.
    settle(*chunk, count);
    chunk = next;
  }
}

/// Withdraws an empty chunk from its shape, unless it is the last open one.
void Heap::emptied(Chunk& chunk) {
  if (chunk.previous == nullptr && chunk.next == nullptr) return;
  unlink(chunk);
  chunk.shape.store(0, std::memory_order_release);
  if (warmCount_ < kWarmChunks) {
    ++warmCount_;
    chunk.next = std::exchange(warm_, &chunk);
  } else {
    madvise(chunk.base, kChunkBytes, MADV_DONTNEED);
    chunk.next = std::exchange(cold_, &chunk);
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

}  // namespace Nox::pool
