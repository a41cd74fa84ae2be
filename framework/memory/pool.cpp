// Allocation through the pool: which heap serves a thread, what is large, and what is live.
#include "framework/memory/pool.h"

#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include "framework/memory/assertion.h"
#include "framework/memory/pool_counts.h"
#include "framework/memory/pool_heap.h"

namespace Nox {

using namespace pool;

namespace {

/// Counts what the system gives one by one, by any thread.
class SystemCount {
 public:
  void made(std::size_t bytes) noexcept {
    ++made_;
    madeBytes_ += bytes;
  }
  void deleted(std::size_t bytes) noexcept {
    ++deleted_;
    deletedBytes_ += bytes;
  }
  void addTo(AllocationCount& sum) const noexcept {
    sum.made += made_;
    sum.madeBytes += madeBytes_;
    sum.live += made_ - deleted_;
    sum.liveBytes += madeBytes_ - deletedBytes_;
  }

 private:
  std::atomic<std::uint64_t> made_{0};
  std::atomic<std::uint64_t> madeBytes_{0};
  std::atomic<std::uint64_t> deleted_{0};
  std::atomic<std::uint64_t> deletedBytes_{0};
};

constinit SystemCount systemObjects;
constinit SystemCount systemInternal;

std::size_t wholeGranules(std::size_t size) { return (size + kGranule - 1) / kGranule * kGranule; }

void* takeInternal(std::size_t size) {
  void* p = ::operator new(size);
  systemInternal.made(wholeGranules(size));
  return p;
}

}  // namespace

#ifdef __SANITIZE_ADDRESS__

// Here every object is a block of the sanitizer's own, which is the sharpest that it can watch: overruns, use after
// deletion, wrong sizes and leaks are reported as for any other memory. The map leads to the live ones, a bit a
// granule.
namespace {

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

bool isLiveIn(SlotBits const& live, void const* p) {
  SlotBit const bit(p);
  return (live[bit.word].load() & bit.mask) != 0;
}

}  // namespace

void* VFPtrInterface::operator new(std::size_t size) {
  void* p = ::operator new(size);
  SlotBit const bit(p);
  liveAround(p)[bit.word].fetch_or(bit.mask);
  systemObjects.made(wholeGranules(size));
  return p;
}

void VFPtrInterface::operator delete(void* p, std::size_t size) noexcept {
  SlotBit const bit(p);
  if (isLive(p)) {
    liveAround(p)[bit.word].fetch_and(~bit.mask);
    systemObjects.deleted(wholeGranules(size));
  }
  ::operator delete(p, size);  // reports what is wrong with `p` or `size`
}

bool VFPtrInterface::isLive(void const* p) noexcept {
  std::uintptr_t const live = pageMap.find(p);
  return live != 0 && addressOf(p) % kGranule == 0 && isLiveIn(*reinterpret_cast<SlotBits const*>(live), p);
}

std::size_t VFPtrInterface::sizeOfLive(void const* p) noexcept {
  return isLive(p) ? malloc_usable_size(const_cast<void*>(p)) : 0;
}

void* NoxMemPool::operator new(std::size_t size) { return takeInternal(size); }
void NoxMemPool::operator delete(void* p, std::size_t size) noexcept {
  if (p != nullptr) systemInternal.deleted(wholeGranules(size));
  ::operator delete(p, size);
}

PoolCounts poolCounts() {
  PoolCounts counts;
  systemObjects.addTo(counts.objects);
  systemInternal.addTo(counts.internal);
  return counts;
}

void forEachLiveObject(std::function<void(void const* object, std::size_t bytes)> const& visit) {
  pageMap.forEach([&](std::uintptr_t begin, std::uintptr_t word) {
    auto const& live = *reinterpret_cast<SlotBits const*>(word);
    for (std::size_t granule = 0; granule < kWords * 64; ++granule) {
      auto const* p = reinterpret_cast<void const*>(begin + granule * kGranule);
      if (isLiveIn(live, p)) visit(p, wholeGranules(malloc_usable_size(const_cast<void*>(p))));
    }
  });
}

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

/// Gives a slot back to a heap that is not this thread's; one that no thread has is claimed for the purpose.
[[gnu::noinline]] void giveToOther(Chunk& chunk, void* p) {
  if (!chunk.owner.tryClaim()) return chunk.owner.giveFromOutside(chunk, p);
  chunk.owner.give(chunk, p);
  chunk.owner.abandon();
}

[[gnu::always_inline]] inline void giveSlot(void* p, Shape shape) {
  auto* chunk = reinterpret_cast<Chunk*>(pageMap.find(p));
  if (chunk == nullptr || (addressOf(chunk) & 1) != 0) [[unlikely]] {
    NOX_ASSERT(p == nullptr, "deleted memory is not the pool's");
    return;
  }
  NOX_ASSERT(chunk->shape.load(std::memory_order_relaxed) == shape, "deleted memory is of another size or kind");
  NOX_ASSERT(addressOf(p) % kGranule == 0, "deleted memory is not a whole object");
  if (&chunk->owner == threadHeap) [[likely]]
    return chunk->owner.give(*chunk, p);
  giveToOther(*chunk, p);
}

/// Whether an allocation is a slot. None of 0 bytes is, so that this is one comparison.
bool isSlot(std::size_t size) { return size - 1 < kLargestSlot; }

/// What the map holds of an object with memory of its own: its size, and a bit that no descriptor's address has.
std::uintptr_t largeMark(std::size_t size) { return size << 1 | 1; }
std::size_t largeBytes(std::size_t size) { return (size + kChunkBytes - 1) / kChunkBytes * kChunkBytes; }

[[gnu::noinline]] void* takeLarge(std::size_t size) {
  if (size == 0) return VFPtrInterface::operator new(1);
  if (size > PTRDIFF_MAX) throw std::bad_alloc();
  std::byte* const p = mapChunks(largeBytes(size));
  try {
    pageMap.word(p).store(largeMark(size), std::memory_order_release);
  } catch (...) {
    munmap(p, largeBytes(size));
    throw;
  }
  systemObjects.made(wholeGranules(size));
  return p;
}

[[gnu::noinline]] void giveLarge(void* p, std::size_t size) {
  if (p == nullptr) return;
  if (size == 0) return VFPtrInterface::operator delete(p, 1);
  bool const begins = addressOf(p) % kChunkBytes == 0 && pageMap.find(p) == largeMark(size);
  // Off the map before it is unmapped: afterwards the system may give the address to another thread.
  NOX_ASSERT(begins && pageMap.word(p).exchange(0) == largeMark(size), "deleted memory is no object of its size");
  systemObjects.deleted(wholeGranules(size));
  munmap(p, largeBytes(size));
}

}  // namespace

void* VFPtrInterface::operator new(std::size_t size) {
  return isSlot(size) ? takeSlot(shapeOf(kObject, size)) : takeLarge(size);
}

void VFPtrInterface::operator delete(void* p, std::size_t size) noexcept {
  if (isSlot(size))
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
  if (addressOf(p) % kGranule != 0) return false;
  SlotBit const bit(p);
  // In this order, since collecting marks a slot free before it takes the other mark away.
  bool const returned = (chunk.returned[bit.word].load(std::memory_order_acquire) & bit.mask) != 0;
  bool const taken = (chunk.taken[bit.word].load(std::memory_order_acquire) & bit.mask) != 0;
  // A chunk that changed its shape meanwhile was empty meanwhile.
  return !returned && taken && chunk.shape.load(std::memory_order_relaxed) == shape;
}

std::size_t VFPtrInterface::sizeOfLive(void const* p) noexcept {
  std::uintptr_t const found = pageMap.find(p);
  if (found == 0 || !isLive(p)) return 0;
  if ((found & 1) != 0) return found >> 1;
  return slotBytes(reinterpret_cast<Chunk const*>(found)->shape.load(std::memory_order_relaxed));
}

void* NoxMemPool::operator new(std::size_t size) {
  return isSlot(size) ? takeSlot(shapeOf(0, size)) : takeInternal(size);
}

void NoxMemPool::operator delete(void* p, std::size_t size) noexcept {
  if (isSlot(size)) return giveSlot(p, shapeOf(0, size));
  if (p != nullptr) systemInternal.deleted(wholeGranules(size));
  ::operator delete(p);
}

PoolCounts poolCounts() {
  PoolCounts counts;
  if (threadHeap != nullptr) counts = {threadHeap->count(kObject), threadHeap->count(0)};
  systemObjects.addTo(counts.objects);
  systemInternal.addTo(counts.internal);
  return counts;
}

void forEachLiveObject(std::function<void(void const* object, std::size_t bytes)> const& visit) {
  if (threadHeap != nullptr) threadHeap->forEachObject(visit);
  pageMap.forEach([&](std::uintptr_t begin, std::uintptr_t word) {
    if ((word & 1) != 0) visit(reinterpret_cast<void const*>(begin), wholeGranules(word >> 1));
  });
}

#endif

}  // namespace Nox
