// The counted word: counting, flags beside the count, static objects, and the road to destruction.
#include "framework/memory/counted_word.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "framework/core/ptr.h"
#include "framework/text/name.h"
#include "support/sample.h"

namespace CountedWordTest {
namespace {

using Nox::CountedWord;
using Nox::Ptr;
using Nox::PtrInterface;
using Sample::Counted;
using Sample::Object;

constexpr std::uint32_t kMarked = PtrInterface::kMarkedForDeletion;
constexpr std::uint32_t kActive = PtrInterface::kNotificationActive;
constexpr std::uint32_t kMask = PtrInterface::kCountMask;

TEST(CountedWord, AStaticWordNeverChangesWhateverItsRemainder) {
  for (std::uint32_t const start : {0x1F000000U, 0x1F000001U, 0x1F123456U, 0x1FFFFFFFU}) {
    CountedWord word(start);
    for (int i = 0; i < 3; ++i) {
      word.reference();
      word.flagIs(kActive, true);
      word.flagIs(kMarked, true);
      EXPECT_FALSE(word.release(kMask));
      EXPECT_FALSE(word.release());
      word.flagIs(0x01000000, false);
    }
    EXPECT_EQ(word.value(), start);
    EXPECT_TRUE(word.isStatic());
  }
}

TEST(CountedWord, TheNeighboursOfTheStaticMarkerCount) {
  for (std::uint32_t const start : {0x1EFFFFFFU, 0x20000001U, 0x9F000001U, 0x3F000001U, 0x00000001U}) {
    CountedWord word(start);
    EXPECT_FALSE(word.isStatic());
    EXPECT_FALSE(CountedWord(start).release() && start != 1);
    word.release();
    EXPECT_EQ(word.value(), start - 1);
  }
}

TEST(CountedWord, RandomOperationsFollowACountAndTwoFlags) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::mt19937 random(seed);
    CountedWord word;
    std::uint32_t count = 1;
    bool marked = false, active = false;
    while (count != 0) {
      switch (random() % 5) {
        case 0:
          word.reference();
          ++count;
          break;
        case 1:
        case 2:
          ASSERT_EQ(word.release(kMask), --count == 0);
          break;
        case 3:
          word.flagIs(kMarked, marked = random() % 2 != 0);
          break;
        default:
          word.flagIs(kActive, active = random() % 2 != 0);
      }
      ASSERT_EQ(word.value(), count | (marked ? kMarked : 0) | (active ? kActive : 0));
      ASSERT_EQ(word.has(kMarked), marked);
      ASSERT_EQ(word.has(kActive), active);
    }
  }
}

class StaticObject : public PtrInterface {
 public:
  StaticObject() : PtrInterface(Static{}) {}
};

TEST(PtrInterface, AStaticObjectKeepsItsWordThroughCopiesReleasesAndFlags) {
  StaticObject object;
  std::uint32_t const word = object.noxWord();
  ASSERT_EQ(word >> 24, 0x1FU);
  {
    std::vector<Ptr<StaticObject>> copies(100, Ptr<StaticObject>(&object));
    EXPECT_EQ(object.noxWord(), word);
    copies.resize(50);
    object.noxMarkedForDeletionIs(true);
    object.hasNotificationActiveIs(true);
    EXPECT_EQ(object.noxWord(), word);
  }
  for (int i = 0; i < 10; ++i) object.release();
  object.hold();
  object.unhold();
  EXPECT_EQ(object.noxWord(), word);
  EXPECT_FALSE(object.noxMarkedForDeletion());
  EXPECT_FALSE(object.hasNotificationActive());
}

TEST(PtrInterface, TheLastReleaseDestroysWhateverTheFlags) {
  for (std::uint32_t const flags : {0U, kMarked, kActive, kMarked | kActive}) {
    Ptr<Object> a = Nox::make<Object>();
    Ptr<Object> b = a;
    a->noxMarkedForDeletionIs((flags & kMarked) != 0);
    a->hasNotificationActiveIs((flags & kActive) != 0);
    ASSERT_EQ(a->noxWord(), flags | 2U);
    a = nullptr;
    EXPECT_EQ(Counted::alive, 1);
    b = nullptr;
    EXPECT_EQ(Counted::alive, 0) << std::hex << flags;
  }
}

TEST(PtrInterface, ANewObjectHasItsMakersReferenceAndNoFlag) {
  auto* object = new Object;
  EXPECT_EQ(object->noxWord(), 1U);
  {
    Ptr<Object> const p(object);
    EXPECT_EQ(object->noxWord(), 2U);
    object->release();
    EXPECT_EQ(object->noxWord(), 1U);
    EXPECT_EQ(Counted::alive, 1);
  }
  EXPECT_EQ(Counted::alive, 0);
}

TEST(PtrInterface, FlagsAreToldApart) {
  Ptr<Object> const object = Nox::make<Object>();
  object->noxMarkedForDeletionIs(true);
  EXPECT_TRUE(object->noxMarkedForDeletion());
  EXPECT_FALSE(object->hasNotificationActive());
  object->hasNotificationActiveIs(true);
  object->noxMarkedForDeletionIs(false);
  EXPECT_FALSE(object->noxMarkedForDeletion());
  EXPECT_TRUE(object->hasNotificationActive());
  object->isNondestructingIs(true);
  EXPECT_TRUE(object->isNondestructing());
  EXPECT_EQ(object->noxWord(), kActive | 1U);
}

/// Counts itself up and down while it goes.
class Clinger : public PtrInterface {
 public:
  explicit Clinger(int& destroyed) : destroyed_(destroyed) {}
  ~Clinger() override {
    for (int i = 0; i < 3; ++i) Ptr<Clinger>(this)->noxMarkedForDeletionIs(true);
    ++destroyed_;
  }

 private:
  int& destroyed_;
};

TEST(PtrInterface, AnObjectThatIsBeingDestroyedCannotReachZeroASecondTime) {
  int destroyed = 0;
  Nox::make<Clinger>(destroyed);
  EXPECT_EQ(destroyed, 1);
  { Clinger const onTheStack(destroyed); }
  EXPECT_EQ(destroyed, 2);
}

/// Keeps the refusal of the destruction request visible.
class Keeper : public PtrInterface {
 public:
  void zeroReferencesIs(bool zero) override { requests += zero ? 1 : 0; }
  int requests = 0;
};

TEST(PtrInterface, TheLastReleaseAsksThroughZeroReferences) {
  Keeper keeper;
  keeper.release();
  EXPECT_EQ(keeper.requests, 1);
  keeper.reference();
}

TEST(PtrInterface, ZeroReferencesFalseDestroysNothing) {
  Ptr<Object> const object = Nox::make<Object>();
  object->zeroReferencesIs(false);
  EXPECT_EQ(Counted::alive, 1);
}

TEST(PtrInterface, AHeldObjectOutlivesItsLastReference) {
  Ptr<Object> p = Nox::make<Object>();
  Object* const object = p.get();
  object->hold();
  object->hold();
  p = nullptr;
  EXPECT_EQ(Counted::alive, 1);
  object->unhold();
  EXPECT_EQ(Counted::alive, 1);
  { Ptr<Object> const passing(object); }
  EXPECT_EQ(Counted::alive, 1);
  object->unhold();
  EXPECT_EQ(Counted::alive, 0);
}

TEST(PtrInterface, AHeldObjectThatFindsANewOwnerLives) {
  Ptr<Object> p = Nox::make<Object>();
  Object* const object = p.get();
  {
    Nox::Held<Object> const held(object);
    p = nullptr;
    p = Ptr<Object>(object);
  }
  EXPECT_EQ(Counted::alive, 1);
  p = nullptr;
  EXPECT_EQ(Counted::alive, 0);
}

TEST(PtrInterfaceDeathTest, AnObjectDoesNotGoWhileItIsReferencedOrHeld) {
  EXPECT_DEATH(
      {
        Object object;
        object.reference();
      },
      "destroyed while still referenced");
  EXPECT_DEATH(
      {
        Object object;
        object.hold();
      },
      "destroyed while still held");
}

/// Runs `work` on four threads at once.
void onThreads(std::function<void(unsigned thread)> const& work) {
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < 4; ++i) threads.emplace_back(work, i);
  for (std::thread& t : threads) t.join();
}

TEST(CountingObjects, CopiesOfSeveralThreadsAddUpWhileFlagsChange) {
  Ptr<Object> const object = Nox::make<Object>();
  onThreads([&](unsigned thread) {
    std::mt19937 random(thread);
    std::vector<Ptr<Object>> copies;
    for (int i = 0; i < 20000; ++i) {
      if (copies.empty() || random() % 2 != 0)
        copies.push_back(object);
      else
        copies.pop_back();
      if (thread == 0) object->noxMarkedForDeletionIs(i % 2 == 0);
      if (thread == 1) object->hasNotificationActiveIs(i % 2 == 0);
    }
  });
  EXPECT_EQ(object->noxWord(), 1U);
}

/// Reads in its destructor what others wrote before they let go.
class Shared : public PtrInterface {
 public:
  explicit Shared(unsigned& sum) : sum_(sum) {}
  ~Shared() override {
    for (unsigned const value : values) sum_ += value;
  }
  unsigned values[4] = {};

 private:
  unsigned& sum_;
};

TEST(CountingObjects, WhoeverReleasesLastDestroysOnceAndSeesEverything) {
  for (int round = 0; round < 200; ++round) {
    unsigned sum = 0;
    auto* const object = new Shared(sum);
    for (int i = 0; i < 3; ++i) object->reference();
    onThreads([object](unsigned thread) {
      object->values[thread] = thread + 1;
      object->release();
    });
    ASSERT_EQ(sum, 1U + 2U + 3U + 4U);
  }
}

TEST(CountingObjects, AStaticObjectIsNotTouched) {
  StaticObject object;
  std::uint32_t const word = object.noxWord();
  onThreads([&](unsigned) {
    for (int i = 0; i < 10000; ++i) Ptr<StaticObject>(&object)->noxMarkedForDeletionIs(true);
  });
  EXPECT_EQ(object.noxWord(), word);
}

TEST(CountingNames, ABufferSharedByThreadsIsFreedWhenTheLastNameGoes) {
  for (int round = 0; round < 50; ++round) {
    Nox::Name name("a name that several threads copy");
    std::uint32_t const hash = Nox::Name("a name that several threads copy").hash();
    onThreads([copy = name, hash](unsigned) {
      for (int i = 0; i < 500; ++i) {
        Nox::Name mine = copy;
        Nox::Name const moved = std::move(mine);
        ASSERT_EQ(moved.hash(), hash);
        ASSERT_TRUE(mine.empty());  // NOLINT(bugprone-use-after-move): a moved-from one is empty
      }
    });
    EXPECT_EQ(const_cast<Nox::Name::Data*>(name.data())->references().value(), 1U);
  }
}

}  // namespace

}  // namespace CountedWordTest
