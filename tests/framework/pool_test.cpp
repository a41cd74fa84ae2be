// The pool: what it hands out, and what it calls live.
#include "framework/memory/pool.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/pool_objects.h"
namespace PoolTest {
namespace {

using Nox::NoxMemPool;
using Nox::VFPtrInterface;
using Test::BigObject;
using Test::Bytes;
using Test::kPlainBuild;
using Test::liveOnlyAtItsFirstByte;
using Test::made;
using Test::Object;
using Test::residentBytes;
using Test::unitOf;
using Test::unmade;
using Test::WideObject;

TEST(Pool, AgreesWithAModelOverRandomMakingAndDeleting) {
  std::mt19937_64 random(20240611);
  std::map<std::uintptr_t, Bytes> live;
  std::vector<std::uintptr_t> order;  // the keys of `live`, to choose from
  std::set<std::uintptr_t> freed;
  std::array const limits{16U, 100U, 1'024U, 1'100U, 200'000U};
  for (int step = 0; step < 60'000; ++step) {
    // Phases of growing and of shrinking, so that chunks fill up and empty.
    bool const grow = random() % 100 < (step / 7'000 % 2 == 0 ? 70U : 30U);
    if (grow || live.empty()) {
      unsigned const limit = limits[random() % (random() % 50 == 0 ? 5 : 3)];
      Bytes const bytes = made(1 + random() % limit, static_cast<unsigned char>(random()));
      auto const at = reinterpret_cast<std::uintptr_t>(bytes.p);
      ASSERT_EQ(at % 16, 0U);
      auto const [place, fresh] = live.emplace(at, bytes);
      ASSERT_TRUE(fresh);
      auto const next = std::next(place);
      ASSERT_TRUE(next == live.end() || at + bytes.size <= next->first);
      ASSERT_TRUE(place == live.begin() || std::prev(place)->first + std::prev(place)->second.size <= at);
      order.push_back(at);
      freed.erase(at);
    } else {
      std::swap(order[random() % order.size()], order.back());
      auto const place = live.find(order.back());
      unmade(place->second);
      freed.insert(place->first);
      live.erase(place);
      order.pop_back();
    }
    if (step % 500 != 0) continue;
    for (auto const& [at, bytes] : live) ASSERT_TRUE(liveOnlyAtItsFirstByte(bytes)) << bytes.size << " bytes";
    for (std::uintptr_t const at : freed) ASSERT_FALSE(VFPtrInterface::isLive(reinterpret_cast<void*>(at)));
  }
  for (auto const& [at, bytes] : live) unmade(bytes);
  for (auto const& [at, bytes] : live) ASSERT_FALSE(VFPtrInterface::isLive(bytes.p));
}

TEST(Pool, CallsNoForeignAddressLive) {
  Object const onStack(1);
  auto const onHeap = std::make_unique<std::array<char, 64>>();
  static Object const inData(2);
  for (void const* p : {static_cast<void const*>(nullptr),
                        static_cast<void const*>(&onStack),
                        static_cast<void const*>(onHeap.get()),
                        static_cast<void const*>(&inData),
                        reinterpret_cast<void const*>(&residentBytes)})
    EXPECT_FALSE(VFPtrInterface::isLive(p)) << p;

  // Every kind of number that a text may claim to be a pointer, near a live object too (of a size that no other object
  // has).
  Bytes const object = made(976, 3);
  auto const at = reinterpret_cast<std::uintptr_t>(object.p);
  std::mt19937_64 random(5);
  for (int i = 0; i < 200'000; ++i) {
    std::uintptr_t const number = i % 2 == 0 ? random() >> random() % 64 : at ^ (std::uintptr_t{1} << random() % 64);
    if (number == at) continue;
    ASSERT_FALSE(VFPtrInterface::isLive(reinterpret_cast<void*>(number))) << std::hex << number;
  }
  EXPECT_TRUE(VFPtrInterface::isLive(object.p));
  unmade(object);
}

TEST(Pool, CallsAsManyAddressesLiveAsThereAreObjects) {
  // Every address of the 64 KiB around each object; 1008 bytes leave room behind the last slot of a chunk.
  std::vector<Bytes> all;
  std::set<std::uintptr_t> units;
  for (int i = 0; i < 200; ++i) {
    all.push_back(made(1'008, 7));
    units.insert(unitOf(all.back().p));
  }
  auto const liveAddresses = [&] {
    std::size_t live = 0;
    for (std::uintptr_t const unit : units)
      for (std::uintptr_t at = unit << 16; at < (unit + 1) << 16; ++at)
        live += VFPtrInterface::isLive(reinterpret_cast<void*>(at)) ? 1 : 0;
    return live;
  };
  std::size_t const before = liveAddresses();
  for (Bytes const& bytes : all) unmade(bytes);
  EXPECT_EQ(before - liveAddresses(), all.size());
}

TEST(Pool, MakesAndDeletesLargeObjects) {
  for (std::size_t const size :
       {std::size_t{1025}, std::size_t{65'535}, std::size_t{65'536}, std::size_t{65'537}, std::size_t{5'000'000}}) {
    Bytes const one = made(size, 1);
    Bytes const two = made(size, 2);
    EXPECT_TRUE(VFPtrInterface::isLive(one.p));
    for (std::size_t const inside : {std::size_t{1}, std::size_t{16}, std::size_t{1024}, size - 1})
      EXPECT_FALSE(VFPtrInterface::isLive(one.p + inside));
    unmade(one);
    EXPECT_FALSE(VFPtrInterface::isLive(one.p));
    EXPECT_TRUE(VFPtrInterface::isLive(two.p));
    unmade(two);
  }
}

TEST(Pool, ThrowsWhenTheSystemHasNoMemory) {
  for (std::size_t const size : {std::numeric_limits<std::size_t>::max(), std::size_t{1} << 62, std::size_t{1} << 47})
    EXPECT_THROW(VFPtrInterface::operator new(size), std::bad_alloc) << size;
}

TEST(Pool, DeletesThroughTheBaseWithTheSizeOfTheDerivedClass) {
  std::unique_ptr<Object> small = std::make_unique<Object>(1);
  std::unique_ptr<Object> big = std::make_unique<BigObject>(2);
  Object const* const p = big.get();
  EXPECT_TRUE(VFPtrInterface::isLive(p));
  big.reset();
  EXPECT_FALSE(VFPtrInterface::isLive(p));
  EXPECT_TRUE(VFPtrInterface::isLive(small.get()));
}

TEST(Pool, IgnoresNullAndObjectsMadeInPlace) {
  VFPtrInterface::operator delete(nullptr, 64);
  VFPtrInterface::operator delete(nullptr, 6400);
  NoxMemPool::operator delete(nullptr, 64);
  alignas(Object) std::array<unsigned char, sizeof(Object)> place;
  Object* object = new (place.data()) Object(4);
  EXPECT_FALSE(VFPtrInterface::isLive(object));
  object->~Object();
}

TEST(Pool, NeverCallsInternalMemoryLive) {
  std::vector<std::pair<void*, std::size_t>> all;
  for (std::size_t size = 1; size < 3'000; size += 13) {
    all.emplace_back(NoxMemPool::operator new(size), size);
    std::memset(all.back().first, 0xAB, size);
    EXPECT_FALSE(VFPtrInterface::isLive(all.back().first));
  }
  for (auto const& [p, size] : all) NoxMemPool::operator delete(p, size);
}

/// Many objects, and the memory of the process before and after they were made.
template <class T>
struct Crowd {
  explicit Crowd(std::size_t count) : objects(count), before(residentBytes()) {
    for (std::size_t i = 0; i < count; ++i) objects[i] = std::make_unique<T>(i);
    full = residentBytes();
  }
  std::vector<std::unique_ptr<T>> objects;
  std::size_t before;
  std::size_t full = 0;
};

TEST(Pool, GivesTheMemoryOfAMillionObjectsBack) {
  if (!kPlainBuild) GTEST_SKIP() << "sanitizers keep memory of their own";
  Crowd<Object> crowd(1'000'000);
  auto& [objects, before, full] = crowd;
  for (auto& object : objects) object.reset();
  std::size_t const after = residentBytes();
  constexpr std::size_t kKept = std::size_t{2} * 2 * 1024 * 1024;  // a warm region, and one with the last open chunk
  EXPECT_GT(full - before + kKept, std::size_t{32'000'000});
  EXPECT_LT(after, before + kKept + (full - before) / 10);
}

TEST(Pool, GivesMemoryBackThoughOneObjectInAThousandStays) {
  if (!kPlainBuild) GTEST_SKIP() << "sanitizers keep memory of their own";
  Crowd<WideObject> crowd(60'000);
  auto& [objects, before, full] = crowd;
  for (std::size_t i = 0; i < objects.size(); ++i)
    if (i % 1'000 != 0) objects[i].reset();
  EXPECT_LT(residentBytes(), before + (full - before) / 3);
}

/// A delete that the compiler cannot see through, as the wrong ones below must be.
void deleteAt(std::uintptr_t at, std::size_t size) {
  std::uintptr_t const volatile opaque = at;
  VFPtrInterface::operator delete(reinterpret_cast<void*>(opaque), size);
}
std::uintptr_t newAt(std::size_t size) { return reinterpret_cast<std::uintptr_t>(VFPtrInterface::operator new(size)); }

TEST(PoolDeathTest, ReportsWrongDeletes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::uintptr_t const small = newAt(64);
  std::uintptr_t const large = newAt(6'400);
  alignas(16) std::array<unsigned char, 64> foreign{};
  struct Wrong {
    std::uintptr_t at;
    std::size_t size;
  };
  for (auto const [at, size] : {Wrong{small, 32},
                                Wrong{small, 6'400},
                                Wrong{large, 64},
                                Wrong{large, 3'200},
                                Wrong{small + 16, 64},
                                Wrong{large + 16, 6'400},
                                Wrong{reinterpret_cast<std::uintptr_t>(foreign.data()), 64},
                                Wrong{reinterpret_cast<std::uintptr_t>(foreign.data()), 6'400}})
    EXPECT_DEATH(deleteAt(at, size), "deleted memory is") << size;
  deleteAt(small, 64);
  deleteAt(large, 6'400);
}

TEST(PoolDeathTest, ReportsASecondDelete) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto const twice = [](std::size_t size) {
    std::uintptr_t const at = newAt(size);
    deleteAt(at, size);
    deleteAt(at, size);
  };
  auto const twiceByOthers = [] {
    std::uintptr_t const at = newAt(64);
    for (int i = 0; i < 2; ++i) std::thread([&] { deleteAt(at, 64); }).join();
  };
  EXPECT_DEATH(twice(64), "memory deleted twice");
  EXPECT_DEATH(twice(6'400), "memory deleted twice");
  EXPECT_DEATH(twiceByOthers(), "memory deleted twice");
}

TEST(PoolDeathTest, ReportsTheUseOfWhatIsNoObjectUnderTheAddressSanitizer) {
#ifndef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "only the sanitizer sees every use";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto const read = [](std::uintptr_t at) { return *reinterpret_cast<unsigned char const volatile*>(at); };
  for (std::size_t const size : {std::size_t{40}, std::size_t{1'000}, std::size_t{6'400}}) {
    std::uintptr_t const at = newAt(size);
    EXPECT_EQ(read(at + size - 1), read(at + size - 1));
    EXPECT_DEATH(read(at + size), "use-after-poison") << "behind an object of " << size << " bytes";
    deleteAt(at, size);
    for (std::size_t const inside : {std::size_t{0}, size - 1})
      EXPECT_DEATH(read(at + inside), "use-after-poison") << "in a deleted object of " << size << " bytes";
  }
}

}  // namespace
}  // namespace PoolTest
