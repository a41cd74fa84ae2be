// The pool: what it hands out, takes back and gives up, and what of it is live.
//
// The pool reserves a range of addresses and never gives it up. A heap takes regions of it and cuts them into chunks. A
// chunk holds slots of one size and kind, for ever. A heap belongs to one thread, which alone takes slots from it: so
// taking a slot, and giving it back, needs neither a lock nor an atomic read-modify-write. What another thread deletes
// goes onto one list, which the heap's thread empties when it next needs a chunk. A chunk begins with a byte for each
// slot, which says whether it is live; the chunks' descriptors stand apart, and memory that was given back reads as
// zeros. So any thread can tell at any time whether an address is a live object.
#include "framework/memory/pool.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <utility>

#include "framework/memory/assertion.h"
// Under the address sanitizer, what is no live slot may not be touched; what a live one points to is no leak.
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(begin, bytes)
#define ASAN_UNPOISON_MEMORY_REGION(begin, bytes)
#define __lsan_register_root_region(begin, bytes)
#endif

namespace Nox {
namespace {

constexpr std::size_t kGranule = 16;
constexpr std::size_t kChunkBytes = std::size_t{1} << 16;
constexpr std::size_t kRegionBytes = std::size_t{1} << 21;  // a page, where the system has large ones
constexpr std::ptrdiff_t kRegionChunks = kRegionBytes / kChunkBytes;
constexpr std::size_t kRangeBytes = std::size_t{1} << 36;
constexpr std::size_t kFreshBytes = 1024;  // of slots that were never used, what is touched at a time
std::uintptr_t addressOf(void const* p) { return reinterpret_cast<std::uintptr_t>(p); }
constexpr std::size_t roundUp(std::size_t size, std::size_t to) { return (size + to - 1) / to * to; }

/// The size of a chunk's slots, in granules up to 1024 bytes and then doubled; and the bit that says they are objects.
using Shape = std::uint16_t;
enum : Shape { kSteps = 64, kInternal = 0, kObject = 128, kShapes = 256 };
[[gnu::always_inline]] inline Shape shapeOf(Shape kind, std::size_t size) {
  if (size - 1 < kSteps * kGranule) [[likely]]
    return static_cast<Shape>(kind + (size + kGranule - 1) / kGranule);
  return static_cast<Shape>(kind + (size == 0 ? 1 : kSteps + std::bit_width((size - 1) / (kSteps * kGranule))));
}
constexpr std::size_t slotBytes(Shape shape) {
  std::size_t const steps = shape % kObject;
  return steps <= kSteps ? steps * kGranule : kSteps * kGranule << (steps - kSteps);
}

/// The reserved addresses, behind their chunks' descriptors; how many there are, and how many heaps have taken.
constinit std::atomic<std::byte*> rangeBegin{nullptr};
constinit std::atomic<std::size_t> rangeBytes{0};
constinit std::atomic<std::size_t> rangeUsed{0};
/// A free slot begins with the address of the next one on its list.
[[gnu::no_sanitize_address]] inline void* nextOf(void const* slot) { return *static_cast<void* const*>(slot); }
[[gnu::no_sanitize_address]] inline void* withNext(void* slot, void* next) { return new (slot) void*(next); }

/// The descriptor of a chunk, which is 64 KiB, or as many of them as one slot needs; all zeros where none begins.
struct alignas(64) Chunk {
  // Written once, the size last.
  class Heap* owner;
  std::uint32_t inverse;             // 2^32 divided by the size: finds the number of a slot without dividing
  std::atomic<std::uint32_t> bytes;  // of a slot
  Shape shape;
  std::uint16_t count;  // of slots
  std::uint16_t first;  // where they begin
  // The owner's alone.
  std::uint16_t fresh;  // how many slots have been on the list: 0 for a chunk without memory
  std::uint64_t takes;
  std::uint64_t gives;
  void* freeSlots;
  Chunk* previous;  // neighbours among those of its shape that have free slots
  Chunk* next;

  std::size_t size() const { return bytes.load(std::memory_order_relaxed); }
  bool holdsObjects() const { return shape >= kObject; }
  std::byte* begin() const;
  std::byte* slot(std::size_t number) const { return begin() + first + number * size(); }
  /// The number of the slot at an address of the chunk, whether it begins there, and whether it is live.
  std::uint32_t numberOf(void const* p) const {
    return static_cast<std::uint32_t>(std::uint64_t{offsetOf(p)} * inverse >> 32);
  }
  bool isSlot(void const* p) const { return numberOf(p) < count && numberOf(p) * size() == offsetOf(p); }
  std::atomic<std::uint8_t>& live(void const* p) const {
    return reinterpret_cast<std::atomic<std::uint8_t>*>(addressOf(p) / kChunkBytes * kChunkBytes)[numberOf(p)];
  }
  std::uint32_t offsetOf(void const* p) const { return static_cast<std::uint32_t>(addressOf(p) % kChunkBytes - first); }
};

constexpr std::size_t kDescriptorBytes = kRangeBytes / kChunkBytes * sizeof(Chunk);
Chunk* chunks() { return reinterpret_cast<Chunk*>(rangeBegin.load(std::memory_order_relaxed) - kDescriptorBytes); }
/// The descriptor of the 64 KiB around an address; null outside the range.
[[gnu::always_inline]] inline Chunk* chunkAround(void const* p) {
  std::size_t const bytes = rangeBytes.load(std::memory_order_acquire);
  std::uintptr_t const at = addressOf(p) - addressOf(rangeBegin.load(std::memory_order_relaxed));
  return at < bytes ? chunks() + at / kChunkBytes : nullptr;
}
std::byte* Chunk::begin() const { return rangeBegin + static_cast<std::size_t>(this - chunks()) * kChunkBytes; }
/// Less than the whole range where the system limits what a program may reserve.
bool reserveRange() {
  for (std::size_t bytes = kRangeBytes; bytes >= kRegionBytes; bytes /= 2) {
    std::size_t const all = kDescriptorBytes + bytes + kRegionBytes;
    void* const p = mmap(nullptr, all, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) continue;
    rangeBegin = reinterpret_cast<std::byte*>(roundUp(addressOf(p) + kDescriptorBytes, kRegionBytes));
    if (mprotect(rangeBegin - kDescriptorBytes, kDescriptorBytes, PROT_READ | PROT_WRITE) != 0) return false;
    rangeBytes = bytes;
    return true;
  }
  return false;
}
/// A thread's chunks. Heaps are never destroyed: when a thread ends, its heap waits for the next thread.
class Heap {
 public:
  std::atomic<bool> isClaimed{true};
  Heap* next = nullptr;
  /// For the heap's thread: takes a slot, and gives one back. Taking throws std::bad_alloc.
  [[gnu::always_inline]] void* take(Shape shape) {
    Chunk* const chunk = open_[shape];
    if (chunk == nullptr) [[unlikely]]
      return takeFromAnother(shape);
    void* const p = std::exchange(chunk->freeSlots, nextOf(chunk->freeSlots));
    chunk->live(p).store(1, std::memory_order_release);
    ++chunk->takes;
    return chunk->freeSlots != nullptr ? p : tookLast(*chunk, p);
  }
  void give(Chunk& chunk, void* p) {
    bool const wasFull = chunk.freeSlots == nullptr;
    chunk.freeSlots = withNext(p, chunk.freeSlots);
    if (++chunk.gives == chunk.takes || wasFull) [[unlikely]]
      settle(chunk, wasFull);
  }
  /// For every other thread.
  [[gnu::noinline]] void giveFromOutside(void* p) {
    void* before = returned_;
    while (!returned_.compare_exchange_weak(before, withNext(p, before))) {
    }
    if (!isClaimed && !isClaimed.exchange(true)) abandon();  // its thread has ended
  }
  /// For the thread that has the heap, at its end. A thread that deletes puts the slot onto the list and then looks at
  /// the claim, and here it is the other way round, so that one of the two collects it.
  void abandon() {
    do {
      collect();
      isClaimed = false;
    } while (returned_ != nullptr && !isClaimed.exchange(true));
  }
  /// For the heap's thread: what other threads deleted is free.
  void collect() {
    for (void *p = returned_.exchange(nullptr), *after = nullptr; p != nullptr; p = after) {
      after = nextOf(p);
      give(*chunkAround(p), p);
    }
  }
  template <class Visitor>
  void forEachChunk(Visitor const& visit) const {
    for (Chunk *chunk = chunks(), *end = chunk + rangeUsed / kChunkBytes; chunk != end; ++chunk)
      if (chunk->bytes.load(std::memory_order_acquire) != 0 && chunk->owner == this) visit(*chunk);
  }

 private:
  /// From a chunk with slots that others deleted, an empty one, or a new one.
  [[gnu::noinline]] void* takeFromAnother(Shape shape) {
    collect();
    if (open_[shape] == nullptr) {
      Chunk* const cold = cold_[shape];
      if (cold != nullptr) cold_[shape] = cold->next;
      Chunk& chunk = cold != nullptr ? *cold : newChunk(shape);
      listFresh(chunk);
      link(chunk);
    }
    return take(shape);
  }
  Chunk& newChunk(Shape shape) {
    std::size_t const bytes = slotBytes(shape);
    if (bytes - 1 >= kRangeBytes / kSteps) throw std::bad_alloc();
    std::size_t const count = std::max<std::size_t>((kChunkBytes - kGranule) / (bytes + 1), 1);
    std::size_t const first = roundUp(count, kGranule);
    std::size_t const length = roundUp(first + count * bytes, kChunkBytes);
    if (length > bytesLeft_) {  // what is left of the region that was being cut is not used any more
      std::size_t const taken = roundUp(length, kRegionBytes);
      std::size_t at = rangeUsed;
      do {
        if (taken > rangeBytes - at) throw std::bad_alloc();
      } while (!rangeUsed.compare_exchange_weak(at, at + taken));
      std::byte* const region = rangeBegin + at;
      if (mprotect(region, taken, PROT_READ | PROT_WRITE) != 0) {
        std::size_t end = at + taken;
        rangeUsed.compare_exchange_strong(end, at);  // unless another heap has taken what follows
        throw std::bad_alloc();
      }
      // Without large pages, ten thousand switches take a quarter more time; what needs one region may need few pages.
      if (nextChunk_ != nullptr) madvise(region, taken, MADV_HUGEPAGE);
      ASAN_POISON_MEMORY_REGION(region, taken);
      __lsan_register_root_region(region, taken);
      nextChunk_ = chunkAround(region);
      bytesLeft_ = taken;
    }
    bytesLeft_ -= length;
    Chunk& chunk = *std::exchange(nextChunk_, nextChunk_ + length / kChunkBytes);
    ASAN_UNPOISON_MEMORY_REGION(chunk.begin(), first);
    chunk.owner = this;
    chunk.inverse = static_cast<std::uint32_t>((std::uint64_t{1} << 32) / bytes + 1);
    chunk.shape = shape;
    chunk.count = static_cast<std::uint16_t>(count);
    chunk.first = static_cast<std::uint16_t>(first);
    chunk.bytes.store(static_cast<std::uint32_t>(bytes), std::memory_order_release);
    return chunk;
  }
  /// Puts the next slots that have not been used on the list. Few at a time, as this touches their memory.
  static void listFresh(Chunk& chunk) {
    std::size_t const few = std::max<std::size_t>(kFreshBytes / chunk.size(), 1);
    std::size_t const count = std::min<std::size_t>(few, chunk.count - chunk.fresh);
    std::byte* p = chunk.slot(chunk.fresh + count);
    for (std::size_t i = 0; i < count; ++i) chunk.freeSlots = withNext(p -= chunk.size(), chunk.freeSlots);
    chunk.fresh = static_cast<std::uint16_t>(chunk.fresh + count);
  }
  /// Returns the slot, which was the last on the list.
  [[gnu::noinline]] void* tookLast(Chunk& chunk, void* last) {
    listFresh(chunk);
    if (chunk.freeSlots == nullptr) unlink(chunk);
    return last;
  }
  /// Puts a chunk in its list. An empty one gives its memory back, unless it alone of its shape has free slots.
  [[gnu::noinline]] void settle(Chunk& chunk, bool wasFull) {
    if (wasFull) link(chunk);
    bool const isAlone = chunk.previous == nullptr && chunk.next == nullptr;
    if (chunk.gives != chunk.takes || (isAlone && chunk.count != 1)) return;
    unlink(chunk);
    // With the empty ones beside it, whose memory comes back where the system makes a large page of what is left.
    Chunk *from = &chunk, *to = &chunk + roundUp(chunk.first + chunk.count * chunk.size(), kChunkBytes) / kChunkBytes;
    while ((from - chunks()) % kRegionChunks != 0 && from[-1].owner == this && from[-1].fresh == 0) --from;
    while ((to - chunks()) % kRegionChunks != 0 && to->owner == this && to->fresh == 0) ++to;
    madvise(from->begin(), static_cast<std::size_t>(to - from) * kChunkBytes, MADV_DONTNEED);
    chunk.fresh = 0;
    chunk.freeSlots = nullptr;
    chunk.next = std::exchange(cold_[chunk.shape], &chunk);
  }
  void link(Chunk& chunk) {
    chunk.previous = nullptr;
    chunk.next = std::exchange(open_[chunk.shape], &chunk);
    if (chunk.next != nullptr) chunk.next->previous = &chunk;
  }
  void unlink(Chunk& chunk) {
    (chunk.previous != nullptr ? chunk.previous->next : open_[chunk.shape]) = chunk.next;
    if (chunk.next != nullptr) chunk.next->previous = chunk.previous;
  }

  std::array<Chunk*, kShapes> open_{};  // by shape, the chunks that have a free slot
  std::array<Chunk*, kShapes> cold_{};  // and the empty ones that gave their memory back
  Chunk* nextChunk_ = nullptr;          // of the region that is being cut
  std::size_t bytesLeft_ = 0;
  std::atomic<void*> returned_{nullptr};  // the list of what other threads deleted
};

constinit std::atomic<Heap*> allHeaps{nullptr};
constinit thread_local Heap* threadHeap = nullptr;
void endThread(void* heap) {
  threadHeap = nullptr;
  static_cast<Heap*>(heap)->abandon();
}
/// Gives the calling thread a heap that no thread has, or a new one, until its end as the system tells it: behind the
/// destructors of thread-local objects, which may use the pool. Throws std::bad_alloc.
Heap& claimHeap() {
  static pthread_key_t threadEnd;
  static bool const isReserved = reserveRange() && pthread_key_create(&threadEnd, &endThread) == 0;
  if (!isReserved) throw std::bad_alloc();
  Heap* heap = allHeaps;
  while (heap != nullptr && heap->isClaimed.exchange(true)) heap = heap->next;
  if (heap == nullptr) {
    heap = new Heap;
    heap->next = allHeaps;
    while (!allHeaps.compare_exchange_weak(heap->next, heap)) {
    }
  }
  pthread_setspecific(threadEnd, heap);
  return *(threadHeap = heap);
}

[[gnu::noinline]] void* takeFirst(Shape shape) { return claimHeap().take(shape); }
[[gnu::always_inline]] inline void* take(Shape kind, std::size_t size) {
  void* const p = threadHeap != nullptr ? threadHeap->take(shapeOf(kind, size)) : takeFirst(shapeOf(kind, size));
  ASAN_UNPOISON_MEMORY_REGION(p, size);
  return p;
}
[[gnu::always_inline]] inline void give(void* p, Shape kind, std::size_t size) {
  if (p == nullptr) return;
  Chunk* const chunk = chunkAround(p);
  NOX_ASSERT(chunk != nullptr, "deleted memory is not the pool's");
  NOX_ASSERT(chunk->shape == shapeOf(kind, size), "deleted memory is of another size or kind");
  NOX_ASSERT(chunk->isSlot(p), "deleted memory is not a whole object");
  NOX_ASSERT(chunk->live(p).load(std::memory_order_relaxed) != 0, "memory deleted twice");
  chunk->live(p).store(0, std::memory_order_release);
  ASAN_POISON_MEMORY_REGION(p, chunk->size());
  if (chunk->owner == threadHeap) [[likely]]
    return chunk->owner->give(*chunk, p);
  chunk->owner->giveFromOutside(p);
}

}  // namespace

void* VFPtrInterface::operator new(std::size_t size) { return take(kObject, size); }
void VFPtrInterface::operator delete(void* p, std::size_t size) noexcept { give(p, kObject, size); }
void* NoxMemPool::operator new(std::size_t size) { return take(kInternal, size); }
void NoxMemPool::operator delete(void* p, std::size_t size) noexcept { give(p, kInternal, size); }

std::size_t VFPtrInterface::sizeOfLive(void const* p) noexcept {
  Chunk const* const chunk = chunkAround(p);
  if (chunk == nullptr || chunk->bytes.load(std::memory_order_acquire) == 0 || !chunk->holdsObjects()) return 0;
  return chunk->isSlot(p) && chunk->live(p).load(std::memory_order_acquire) != 0 ? chunk->size() : 0;
}

PoolCounts poolCounts() {
  PoolCounts counts;
  if (threadHeap == nullptr) return counts;
  threadHeap->collect();
  threadHeap->forEachChunk([&](Chunk const& chunk) {
    AllocationCount& sum = chunk.holdsObjects() ? counts.objects : counts.internal;
    sum.made += chunk.takes;
    sum.madeBytes += chunk.takes * chunk.size();
    sum.live += chunk.takes - chunk.gives;
    sum.liveBytes += (chunk.takes - chunk.gives) * chunk.size();
  });
  return counts;
}

void forEachLiveObject(std::function<void(void const* object, std::size_t bytes)> const& visit) {
  if (threadHeap == nullptr) return;
  threadHeap->forEachChunk([&](Chunk const& chunk) {
    for (std::size_t i = 0; chunk.holdsObjects() && i < chunk.count; ++i)
      if (chunk.live(chunk.slot(i)).load(std::memory_order_relaxed) != 0) visit(chunk.slot(i), chunk.size());
  });
}

}  // namespace Nox
