// Allocation through the pool: which heap serves a thread, what is large, and what is live.
#include "framework/pool.h"

#include <atomic>
#include <cstdint>
#include <utility>

#include "framework/assertion.h"
#include "framework/pool_heap.h"

namespace Nox {

using namespace pool;

#ifdef __SANITIZE_ADDRESS__

// Here every object is a block of the sanitizer's own, which is the sharpest that it can watch: overruns, use after
// deletion, wrong sizes and leaks are reported as for any other memory. The map leads to the live ones, a bit a
// granule.
namespace {

SlotBit granuleBit(void const* p) { return SlotBit(static_cast<int>(addressOf(p) % kChunkBytes / kGranule)); }

SlotBits& liveAround(void const* p) {
  std::atomic<std::uintptr_t>& word = pageMap.word(p);
  std::uintptr_t bits = word.load(std::memory_order_acquire);
  if (bits == 0) {
    void* pages = mapPages(sizeof(SlotBits));
    if (word.compare_exchange_strong(bits, addressOf(pages), std::memory_order_acq_rel))
      bits = addressOf(pages);
    else
      munmap(pages, sizeof(SlotBits));
  }
  return *reinterpret_cast<SlotBits*>(bits);
}

}  // namespace

void* VFPtrInterface::operator new(std::size_t size) {
  void* p = ::operator new(size);
  SlotBit const bit = granuleBit(p);
  liveAround(p)[bit.word].fetch_or(bit.mask);
  return p;
}

void VFPtrInterface::operator delete(void* p, std::size_t size) noexcept {
  SlotBit const bit = granuleBit(p);
  if (isLive(p)) liveAround(p)[bit.word].fetch_and(~bit.mask);
  ::operator delete(p, size);  // reports what is wrong with `p` or `size`
}

bool VFPtrInterface::isLive(void const* p) noexcept {
  std::uintptr_t const live = pageMap.find(p);
  if (live == 0 || addressOf(p) % kGranule != 0) return false;
  SlotBit const bit = granuleBit(p);
  return ((*reinterpret_cast<SlotBits const*>(live))[bit.word].load() & bit.mask) != 0;
}

void* NoxMemPool::operator new(std::size_t size) { return ::operator new(size); }
void NoxMemPool::operator delete(void* p, std::size_t size) noexcept { ::operator delete(p, size); }

#else

namespace {

// The thread's heap. Both words outlive the thread's destructors, some of which may still make and delete objects.
constinit thread_local Heap* threadHeap = nullptr;
constinit thread_local bool threadEnded = false;

/// Gives the heap up when the thread ends.
struct ThreadEnd {
  ~ThreadEnd() {
    threadEnded = true;
    std::exchange(threadHeap, nullptr)->abandon();
  }
  void arm() {}
};
thread_local ThreadEnd threadEnd;

/// The first slot of a thread, and each one after its end: that one comes from a heap claimed for the purpose.
[[gnu::noinline]] void* takeWithoutHeap(Shape shape) {
  Heap& heap = Heap::claim();
  if (!threadEnded) {
    threadHeap = &heap;
    threadEnd.arm();
    return heap.take(shape);
  }
  void* p = nullptr;
  try {
    p = heap.take(shape);
  } catch (...) {
    heap.abandon();
    throw;
  }
  heap.abandon();
  return p;
}

void* takeSlot(Shape shape) {
  Heap* heap = threadHeap;
  return heap != nullptr ? heap->take(shape) : takeWithoutHeap(shape);
}

/// Gives a slot back to a heap that is not this thread's; one that nobody has is claimed for the purpose.
[[gnu::noinline]] void giveToOther(Chunk& chunk, SlotBit bit) {
  if (!chunk.owner.tryClaim()) return chunk.owner.giveFromOutside(chunk, bit);
  chunk.owner.give(chunk, bit);
  chunk.owner.abandon();
}

void giveSlot(void* p, Shape shape) {
  auto* chunk = reinterpret_cast<Chunk*>(pageMap.find(p));
  NOX_ASSERT(chunk != nullptr && (addressOf(chunk) & 1) == 0, "deleted memory is not the pool's");
  NOX_ASSERT(chunk->shape.load(std::memory_order_relaxed) == shape, "deleted memory is of another size or kind");
  int const slot = slotAt(p, shape);
  NOX_ASSERT(slot >= 0, "deleted memory is not a whole object");
  if (&chunk->owner == threadHeap) [[likely]]
    return threadHeap->give(*chunk, SlotBit(slot));
  giveToOther(*chunk, SlotBit(slot));
}

/// What the map holds of an object with memory of its own: its size, and a bit that no descriptor's address has.
std::uintptr_t largeMark(std::size_t size) { return size << 1 | 1; }
std::size_t largeBytes(std::size_t size) { return (size + kChunkBytes - 1) / kChunkBytes * kChunkBytes; }

[[gnu::noinline]] void* takeLarge(std::size_t size) {
  if (size > PTRDIFF_MAX) throw std::bad_alloc();
  std::byte* const p = mapChunks(largeBytes(size));
  try {
    pageMap.word(p).store(largeMark(size), std::memory_order_release);
  } catch (...) {
    munmap(p, largeBytes(size));
    throw;
  }
  return p;
}

[[gnu::noinline]] void giveLarge(void* p, std::size_t size) {
  bool const begins = addressOf(p) % kChunkBytes == 0 && pageMap.find(p) == largeMark(size);
  // Off the map before it is unmapped: afterwards the address may be anybody's.
  NOX_ASSERT(begins && pageMap.word(p).exchange(0) == largeMark(size), "deleted memory is no object of its size");
  munmap(p, largeBytes(size));
}

}  // namespace

void* VFPtrInterface::operator new(std::size_t size) {
  return size <= kLargestSlot ? takeSlot(shapeOf(kObject, size)) : takeLarge(size);
}

void VFPtrInterface::operator delete(void* p, std::size_t size) noexcept {
  if (p == nullptr) return;
  if (size <= kLargestSlot)
    giveSlot(p, shapeOf(kObject, size));
  else
    giveLarge(p, size);
}

bool VFPtrInterface::isLive(void const* p) noexcept {
  std::uintptr_t const found = pageMap.find(p);
  if (found == 0) return false;
  if ((found & 1) != 0) return addressOf(p) % kChunkBytes == 0;
  auto const& chunk = *reinterpret_cast<Chunk const*>(found);
  Shape const shape = chunk.shape.load(std::memory_order_acquire);
  if ((shape & kObject) == 0) return false;
  int const slot = slotAt(p, shape);
  if (slot < 0) return false;
  SlotBit const bit(slot);
  // In this order, since collecting marks a slot free before it takes the other mark away.
  bool const returned = (chunk.returned[bit.word].load(std::memory_order_acquire) & bit.mask) != 0;
  bool const free = (chunk.free[bit.word].load(std::memory_order_acquire) & bit.mask) != 0;
  // A chunk that changed its shape meanwhile was empty meanwhile.
  return !returned && !free && chunk.shape.load(std::memory_order_relaxed) == shape;
}

void* NoxMemPool::operator new(std::size_t size) {
  return size <= kLargestSlot ? takeSlot(shapeOf(0, size)) : ::operator new(size);
}

void NoxMemPool::operator delete(void* p, std::size_t size) noexcept {
  if (p == nullptr) return;
  if (size <= kLargestSlot)
    giveSlot(p, shapeOf(0, size));
  else
    ::operator delete(p);
}

#endif

}  // namespace Nox
