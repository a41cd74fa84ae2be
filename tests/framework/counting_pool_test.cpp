// The pool under several threads: any may delete what another one made.
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

#include "framework/memory/pool.h"
#include "support/pool_objects.h"

namespace CountingPoolTest {
namespace {

using Nox::VFPtrInterface;
using Test::BigObject;
using Test::Bytes;
using Test::kPlainBuild;
using Test::made;
using Test::Object;
using Test::residentBytes;
using Test::unitOf;
using Test::unmade;
using Test::WideObject;

/// Places where threads leave objects for each other.
template <class T, std::size_t n>
struct Mailboxes {
  std::array<std::atomic<T*>, n> boxes{};

  T* swap(std::size_t box, T* object) { return boxes[box % n].exchange(object, std::memory_order_acq_rel); }
  ~Mailboxes() {
    for (auto& box : boxes) delete box.load();
  }
};

TEST(CountingPool, LetsThreadsDeleteEachOthersObjects) {
  Mailboxes<Object, 600> mail;
  std::atomic<std::uint64_t> wrong{0};
  auto const work = [&](unsigned seed) {
    std::mt19937 random(seed);
    for (std::uint64_t i = 0; i < 30'000; ++i) {
      auto* object = i % 500 == 0 ? new BigObject(i)
                     : i % 3 == 0 ? new Object(i)
                     : i % 3 == 1 ? new WideObject(i)
                                  : nullptr;
      wrong += object != nullptr && !VFPtrInterface::isLive(object) ? 1 : 0;
      if (Object* other = mail.swap(random(), object); other != nullptr) {
        wrong += VFPtrInterface::isLive(other) ? 0U : 1U;
        delete other;
      }
    }
  };
  // Threads come and go, so that heaps change hands while others return memory to them.
  for (unsigned round = 0; round < 4; ++round) {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 4; ++i) threads.emplace_back(work, round * 4 + i);
    work(100 + round);
  }
  EXPECT_EQ(wrong, 0U);
}

TEST(CountingPool, AnswersWhileOthersMakeAndDelete) {
  auto const pinned = std::make_unique<Object>(1);
  std::atomic<bool> done{false};
  std::atomic<void*> latest{nullptr};
  std::jthread worker([&] {
    // Small and larger objects by turns, in numbers that fill chunks, so that chunks change their slots' size.
    std::mt19937 random(9);
    for (int round = 0; round < 60; ++round) {
      std::vector<Bytes> all;
      for (int i = 0; i < 1'500; ++i) {
        all.push_back(made(round % 2 == 0 ? 32 : 208, 1));
        latest.store(all.back().p, std::memory_order_release);
      }
      for (Bytes const& bytes : all) unmade(bytes);
    }
    done = true;
  });
  std::uint64_t asked = 0;
  std::uint64_t live = 0;
  while (!done) {
    ++asked;
    live += VFPtrInterface::isLive(pinned.get()) ? 1 : 0;
    auto const p = reinterpret_cast<std::uintptr_t>(latest.load(std::memory_order_acquire));
    (void)VFPtrInterface::isLive(reinterpret_cast<void*>(p));  // either answer, no harm
    ASSERT_FALSE(VFPtrInterface::isLive(reinterpret_cast<void*>(p + 8)));
  }
  EXPECT_EQ(live, asked);
}

TEST(CountingPool, GivesTheMemoryOfAThreadThatHasEndedBackWhenItsObjectsGo) {
  if (!kPlainBuild) GTEST_SKIP() << "sanitizers keep memory of their own";
  std::vector<std::unique_ptr<Object>> objects(60'000);
  std::thread([&] {
    for (std::size_t i = 0; i < objects.size(); ++i) objects[i] = std::make_unique<WideObject>(i);
  }).join();
  std::size_t const bytes = objects.size() * sizeof(WideObject);
  std::size_t const before = residentBytes();
  objects.clear();
  EXPECT_LT(residentBytes() + bytes / 2, before);
}

TEST(CountingPool, CountsWhatOthersDelete) {
  std::vector<std::unique_ptr<Object>> objects(5'000);
  Nox::AllocationCount const before = Nox::poolCounts().objects;
  for (std::size_t i = 0; i < objects.size(); ++i) objects[i] = std::make_unique<Object>(i);
  std::thread([&] { objects.resize(1'000); }).join();
  EXPECT_EQ(Nox::poolCounts().objects.live, before.live + 1'000);
  EXPECT_EQ(Nox::poolCounts().objects.made, before.made + 5'000);
}

TEST(CountingPool, OutlivesTheThreadThatMadeAnObject) {
  std::vector<std::unique_ptr<Object>> objects(5'000);
  std::thread([&] {
    for (std::size_t i = 0; i < objects.size(); ++i) objects[i] = std::make_unique<Object>(i);
  }).join();
  for (std::size_t i = 0; i < objects.size(); i += 2) {
    Object const* p = objects[i].get();
    ASSERT_TRUE(VFPtrInterface::isLive(p));
    objects[i].reset();
    ASSERT_FALSE(VFPtrInterface::isLive(p));
  }
  std::set<void const*> taken;
  for (auto const& object : objects)
    if (object) taken.insert(object.get());
  // The next thread goes on where the first one stopped, between what is left.
  std::thread([&] {
    for (std::size_t i = 0; i < objects.size(); i += 2) {
      objects[i] = std::make_unique<Object>(i);
      ASSERT_TRUE(taken.insert(objects[i].get()).second);
    }
  }).join();
  for (std::size_t i = 0; i < objects.size(); ++i) ASSERT_EQ(objects[i]->value, i);
}

/// Deletes and makes objects when its thread's other thread-local data may have gone already.
struct LateUser {
  std::unique_ptr<Object> kept;
  std::unique_ptr<Object>* out = nullptr;
  ~LateUser() {
    if (out == nullptr) return;
    kept.reset();
    for (std::uint64_t i = 0; i < 100; ++i) std::make_unique<Object>(i);
    *out = std::make_unique<Object>(77);
  }
};
thread_local LateUser lateUser;

TEST(CountingPool, ServesTheDestructorsOfAThreadThatEnds) {
  for (int round = 0; round < 3; ++round) {
    std::unique_ptr<Object> left;
    std::thread([&] {
      lateUser.out =
          &left;  // constructed before the thread's first object, so destroyed after the thread's heap is given up
      lateUser.kept = std::make_unique<Object>(1);
    }).join();
    ASSERT_TRUE(VFPtrInterface::isLive(left.get()));
    EXPECT_EQ(left->value, 77U);
  }
}

/// The threads that make and those that delete in a round; a thread of its own each time, or the test's.
struct Alternation {
  char const* name;
  bool makerIsThread;
  bool deleterIsThread;
};

class CountingPoolRounds : public testing::TestWithParam<Alternation> {};

TEST_P(CountingPoolRounds, DoNotGrow) {
  auto const run = [](bool inThread, auto const& work) {
    if (inThread)
      std::thread(work).join();
    else
      work();
  };
  std::vector<std::unique_ptr<Object>> objects(8'000);
  std::set<std::uintptr_t> units;
  std::size_t settled = 0;
  for (int round = 0; round < 40; ++round) {
    run(GetParam().makerIsThread, [&] {
      for (std::size_t i = 0; i < objects.size(); ++i) {
        objects[i] = std::make_unique<Object>(i);
        units.insert(unitOf(objects[i].get()));
      }
    });
    run(GetParam().deleterIsThread, [&] {
      for (auto& object : objects) object.reset();
    });
    if (round == 5) settled = units.size();
  }
  EXPECT_EQ(units.size(), settled) << "later rounds live in the memory of the first ones";
}

INSTANTIATE_TEST_SUITE_P(Alternating, CountingPoolRounds,
                         testing::Values(Alternation{"OneThread", false, false},
                                         Alternation{"ThreadsMake", true, false},
                                         Alternation{"ThreadsDelete", false, true},
                                         Alternation{"ThreadsDoBoth", true, true}),
                         [](auto const& which) { return std::string(which.param.name); });

}  // namespace
}  // namespace CountingPoolTest
