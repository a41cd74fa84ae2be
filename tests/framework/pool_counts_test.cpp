// What the pool tells of itself: how much it has handed out, and what of it lives.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "framework/memory/pool.h"

namespace PoolCountsTest {
namespace {

using Nox::NoxMemPool;
using Nox::VFPtrInterface;

void expectSame(Nox::AllocationCount const& a, Nox::AllocationCount const& b) {
  EXPECT_EQ(a.made, b.made);
  EXPECT_EQ(a.madeBytes, b.madeBytes);
  EXPECT_EQ(a.live, b.live);
  EXPECT_EQ(a.liveBytes, b.liveBytes);
}

/// `before`, and then `n` more of `bytes` each, which live or have gone again.
Nox::AllocationCount with(Nox::AllocationCount before, std::uint64_t n, std::uint64_t bytes, bool live) {
  before.made += n;
  before.madeBytes += n * bytes;
  if (live) before.live += n;
  if (live) before.liveBytes += n * bytes;
  return before;
}

TEST(Pool, CountsWhatItHandsOut) {
  struct {
    std::size_t size;
    std::uint64_t taken;
  } const cases[] = {
      {1, 16}, {16, 16}, {17, 32}, {80, 80}, {1'000, 1'008}, {1'024, 1'024}, {1'025, 2'048}, {4'097, 8'192}};
  for (auto const& [size, taken] : cases) {
    // Enough to fill chunks, and to empty them again.
    std::vector<void*> all(3'000);
    Nox::PoolCounts const before = Nox::poolCounts();
    for (void*& p : all) p = VFPtrInterface::operator new(size);
    expectSame(Nox::poolCounts().objects, with(before.objects, all.size(), taken, true));
    for (void* p : all) VFPtrInterface::operator delete(p, size);
    expectSame(Nox::poolCounts().objects, with(before.objects, all.size(), taken, false));
    expectSame(Nox::poolCounts().internal, before.internal);
    for (void*& p : all) p = NoxMemPool::operator new(size);
    expectSame(Nox::poolCounts().internal, with(before.internal, all.size(), taken, true));
    for (void* p : all) NoxMemPool::operator delete(p, size);
    expectSame(Nox::poolCounts().internal, with(before.internal, all.size(), taken, false));
  }
}

TEST(Pool, VisitsEveryLiveObjectOnce) {
  std::mt19937 random(3);
  std::map<void const*, std::size_t> expected;
  std::multiset<void const*> visited;
  auto const visit = [&](void const* p, std::size_t bytes) {
    auto const found = expected.find(p);
    EXPECT_GE(bytes, found != expected.end() ? found->second : 1);
    EXPECT_TRUE(VFPtrInterface::isLive(p));
    visited.insert(p);
  };
  Nox::forEachLiveObject(visit);
  std::size_t const others = visited.size();
  visited.clear();
  for (int i = 0; i < 20'000; ++i) {
    std::size_t const size = 1 + random() % (i % 1'000 == 0 ? 100'000 : 300);
    void* p = VFPtrInterface::operator new(size);
    if (random() % 3 == 0)
      VFPtrInterface::operator delete(p, size);
    else
      expected.emplace(p, size);
  }
  std::array const internal{NoxMemPool::operator new(64), NoxMemPool::operator new(6'400)};
  Nox::forEachLiveObject(visit);
  EXPECT_EQ(visited.size(), expected.size() + others);
  EXPECT_EQ(visited.size(), Nox::poolCounts().objects.live);
  for (auto const& [p, size] : expected) EXPECT_EQ(visited.count(p), 1U);
  for (auto const& [p, size] : expected) VFPtrInterface::operator delete(const_cast<void*>(p), size);
  NoxMemPool::operator delete(internal[0], 64);
  NoxMemPool::operator delete(internal[1], 6'400);
}

}  // namespace

}  // namespace PoolCountsTest
