// Turns: what waits, in which order it is delivered, what is dropped, and what may go meanwhile.
#include "framework/core/turn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "framework/by_name/generic_if.h"
#include "framework/memory/pool.h"
#include "support/sample.h"

namespace TurnTest {
namespace {

using Nox::Ptr;
using Nox::Turn;
using Sample::Counted;
using Sample::Device;
using Sample::Log;
using Sample::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

/// A device with two reactors, "a" and "b".
class TurnTest : public testing::Test {
 protected:
  void TearDown() override {
    a = b = nullptr;
    device = nullptr;
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_FALSE(Turn::isOpen());
  }
  Ptr<Recorder> reactor(char const* name) { return Nox::make<Recorder>(name, log, device); }

  Log log;
  Ptr<Device> device = Nox::make<Device>();
  Ptr<Recorder> a = reactor("a");
  Ptr<Recorder> b = reactor("b");
};

TEST_F(TurnTest, WhatIsWrittenWaitsUntilTheOutermostTurnCloses) {
  EXPECT_FALSE(Turn::isOpen());
  {
    Turn outer;
    EXPECT_TRUE(Turn::isOpen());
    {
      Turn inner;
      device->speedIs(1);
    }
    EXPECT_TRUE(Turn::isOpen());
    EXPECT_EQ(device->speed(), 1U) << "the value itself is there at once";
    EXPECT_THAT(log, IsEmpty());
  }
  EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
}

TEST_F(TurnTest, AWriteOutsideAnyTurnIsDeliveredBeforeItReturns) {
  device->speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
}

TEST_F(TurnTest, NothingIsCoalescedAndTheOldestGoesFirst) {
  {
    Turn turn;
    device->speedIs(1);
    device->portIs("x", 1);
    device->speedIs(0);
    device->speedIs(1);
    device->portDel("x");
  }
  EXPECT_THAT(log,
              ElementsAre("a speed",
                          "b speed",
                          "a port[x]",
                          "b port[x]",
                          "a speed",
                          "b speed",
                          "a speed",
                          "b speed",
                          "a port[x]",
                          "b port[x]"));
}

TEST_F(TurnTest, WhatAHandlerWritesGoesBehindWhatWaits) {
  a->then = [&](std::string const& what) {
    if (what == "speed") device->MTUIs(9000);
    EXPECT_TRUE(Turn::isOpen());
  };
  {
    Turn turn;
    device->speedIs(1);
    device->labelIs("x");
  }
  EXPECT_THAT(log, ElementsAre("a speed", "b speed", "a label", "b label", "a MTU", "b MTU"));
}

TEST_F(TurnTest, AHandlerRunsToCompletionThoughItOpensATurnOfItsOwn) {
  a->then = [&](std::string const& what) {
    if (what != "speed") return;
    {
      Turn turn;
      device->labelIs("x");
    }
    log.push_back("a done");
  };
  device->speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed", "a done", "b speed", "a label", "b label"));
}

TEST_F(TurnTest, AKeyWaitsWithItsChange) {
  {
    Turn turn;
    for (int i = 0; i < 100; ++i) device->portIs("a port with a name of its own " + std::to_string(i), 1);
  }
  ASSERT_EQ(log.size(), 200U);
  EXPECT_EQ(log[199], "b port[a port with a name of its own 99]");
}

TEST_F(TurnTest, ATurnThatIsLeftByAnExceptionDelivers) {
  try {
    Turn turn;
    device->speedIs(1);
    throw std::runtime_error("left");
  } catch (std::runtime_error const& e) {
    EXPECT_STREQ(e.what(), "left");
    EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
  }
}

TEST_F(TurnTest, AHandlersExceptionEndsItsDeliveryAloneAndTheFirstLeavesWithTheTurn) {
  a->then = [](std::string const& what) { throw std::runtime_error("a " + what); };
  b->then = [](std::string const& what) { throw std::runtime_error("b " + what); };
  std::string caught;
  try {
    Turn turn;
    device->speedIs(1);
    device->labelIs("x");
    EXPECT_NO_THROW(Turn nested);
  } catch (std::runtime_error const& e) {
    caught = e.what();
  }
  EXPECT_EQ(caught, "a speed");
  EXPECT_THAT(
      log,
      ElementsAre(
          "a speed", "a exception", "b speed", "b exception", "a label", "a exception", "b label", "b exception"));
  a->then = b->then = nullptr;
  EXPECT_NO_THROW(device->speedIs(2)) << "an exception is reported once";
}

TEST_F(TurnTest, AnExceptionOfTheExceptionHandlerItselfIsSwallowed) {
  class Clumsy : public Device::NotifieeConst {
   public:
    void onSpeed() override { throw std::runtime_error("first"); }
    void onNotificationException() override { throw std::logic_error("second"); }
  };
  auto const clumsy = Nox::make<Clumsy>();
  clumsy->notifierIs(device);
  EXPECT_THROW(device->speedIs(1), std::runtime_error);
}

TEST_F(TurnTest, TheExceptionThatLeavesATurnIsNotReplacedByAHandlers) {
  a->then = [](std::string const&) { throw std::runtime_error("handler"); };
  EXPECT_THROW(
      {
        Turn turn;
        device->speedIs(1);
        throw std::logic_error("body");
      },
      std::logic_error);
  EXPECT_THAT(log, ElementsAre("a speed", "a exception", "b speed"));
  EXPECT_THROW(Turn(), std::runtime_error) << "what could not be reported then waits for the next turn";
  EXPECT_NO_THROW(Turn());
}

/// Writes to a device while it goes.
class LastWriter : public Nox::PtrInterface {
 public:
  explicit LastWriter(Ptr<Device> device) : device_(std::move(device)) {}
  ~LastWriter() override { device_->speedIs(device_->speed() + 1); }

 private:
  Ptr<Device> device_;
};

TEST_F(TurnTest, TheReleaseOfALastReferenceIsATurnWhoseExceptionWaitsForTheNext) {
  a->then = [](std::string const&) { throw std::runtime_error("handler"); };
  Nox::make<LastWriter>(device);  // released at once; a destructor must not throw
  EXPECT_THAT(log, ElementsAre("a speed", "a exception", "b speed"));
  EXPECT_THROW(Turn(), std::runtime_error);
  EXPECT_NO_THROW(Turn());
}

TEST_F(TurnTest, AChangeGoesToWhoWasRegisteredWhenItWasWritten) {
  Ptr<Recorder> late;
  {
    Turn turn;
    device->speedIs(1);
    late = reactor("late");
    device->labelIs("x");
  }
  EXPECT_THAT(log, ElementsAre("a speed", "b speed", "a label", "b label", "late label"));
}

struct Drop {
  char const* name;
  std::function<void(Recorder& r)> what;
  bool heard;
};

TEST_F(TurnTest, ADeliveryIsDroppedOnlyForAReactorThatDoesNotListenWhenItsTurnComes) {
  auto const other = Nox::make<Device>("other");
  Drop const table[] = {
      {"zombie", [](Recorder& r) { r.noxMarkedForDeletionIs(true); }, false},
      {"switched off", [](Recorder& r) { r.hasNotificationActiveIs(false); }, false},
      {"withdrawn", [](Recorder& r) { r.isRegisteredNotifieeIs(false); }, false},
      {"pointed elsewhere", [&](Recorder& r) { r.notifierIs(other); }, false},
      {"pointed nowhere", [](Recorder& r) { r.notifierIs(nullptr); }, false},
      {"zombie and back",
       [](Recorder& r) {
         r.noxMarkedForDeletionIs(true);
         r.noxMarkedForDeletionIs(false);
       },
       true},
      {"off and on",
       [](Recorder& r) {
         r.hasNotificationActiveIs(false);
         r.hasNotificationActiveIs(true);
       },
       true},
      {"withdrawn and registered again",
       [](Recorder& r) {
         r.isRegisteredNotifieeIs(false);
         r.isRegisteredNotifieeIs(true);
       },
       true},
      {"elsewhere and back",
       [&](Recorder& r) {
         r.notifierIs(other);
         r.notifierIs(device);
       },
       true},
      {"off, but registered by hand",
       [](Recorder& r) {
         r.hasNotificationActiveIs(false);
         r.isRegisteredNotifieeIs(true);
       },
       false},
  };
  for (Drop const& drop : table)
    for (bool const inHandler : {false, true}) {
      Ptr<Recorder> const first = reactor("first"), r = reactor("r");
      if (inHandler) first->then = [&](std::string const&) { drop.what(*r); };
      log.clear();
      {
        Turn turn;
        device->speedIs(device->speed() + 1);
        if (!inHandler) drop.what(*r);
      }
      EXPECT_EQ(std::count(log.begin(), log.end(), "r speed"), drop.heard ? 1 : 0)
          << drop.name << (inHandler ? " by an earlier handler" : " after the write");
    }
}

TEST_F(TurnTest, AHandlerMayReleaseItsOwnReactor) {
  a->then = [&](std::string const&) {
    a = nullptr;
    EXPECT_EQ(Counted::alive, 3) << "it stays until its handler has ended";
    log.push_back("a still here");
  };
  device->speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed", "a still here", "b speed"));
  EXPECT_EQ(Counted::alive, 2);
}

TEST_F(TurnTest, AHandlerMayReleaseAnotherReactorWhichGoesAtOnceAndHearsNothingOfWhatWaited) {
  for (bool const inTurn : {false, true}) {
    b = reactor("b");
    log.clear();
    a->then = [&](std::string const&) {
      b = nullptr;
      EXPECT_EQ(Counted::alive, 2) << "what waits keeps no reactor";
    };
    if (inTurn) {
      Turn turn;
      device->speedIs(device->speed() + 1);
    } else {
      device->speedIs(device->speed() + 1);
    }
    EXPECT_THAT(log, ElementsAre("a speed")) << inTurn;
  }
}

TEST_F(TurnTest, AHandlerMayReleaseTheNotifierAndEveryReactor) {
  a->then = [&](std::string const&) {
    device = nullptr;
    a = b = nullptr;
  };
  {
    Turn turn;
    Device& d = *device;
    d.speedIs(1);
    d.labelIs("x");
  }
  EXPECT_THAT(log, ElementsAre("a speed")) << "the rest waited for reactors that have gone";
  EXPECT_EQ(Counted::alive, 0);
}

TEST_F(TurnTest, AHandlerMayReleaseTheNotifierOfAChangeThatIsWrittenOnItsOwn) {
  a->then = [&](std::string const&) {
    device = nullptr;
    a = b = nullptr;
  };
  Device& d = *device;
  d.speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed"));
  EXPECT_EQ(Counted::alive, 0);
}

TEST_F(TurnTest, TheKeyOfAChangeThatIsQueuedHalfwayIsLetGoOnce) {
  Nox::Name const key("eth0");
  a->then = [&](std::string const&) { b = nullptr; };
  device->portIs(key, 1);
  device->portDel(key);
  EXPECT_THAT(log, ElementsAre("a port[eth0]", "a port[eth0]"));
  EXPECT_FALSE(key.isShared());
}

TEST_F(TurnTest, AQueuedChangeKeepsItsNotifierAliveAndOfItsReactorsTheMemoryAlone) {
  Ptr<Recorder> const other = Nox::make<Recorder>("other", log);
  {
    Turn turn;
    device->speedIs(1);
    void const* const memory = a.get();
    a = b = nullptr;
    device = nullptr;
    EXPECT_EQ(Counted::alive, 2) << "the device and the other reactor";
    std::vector<Ptr<Recorder>> later;
    for (int i = 0; i < 1000; ++i) {
      later.push_back(Nox::make<Recorder>("later", log));
      EXPECT_NE(later.back().get(), memory) << "a new reactor would stand where the old one is still named";
    }
    EXPECT_EQ(Nox::sequenceToValueOfPtr(Nox::valueToStrepOfRawPtr(memory).view()), nullptr) << "nor can it be had";
  }
  EXPECT_THAT(log, IsEmpty());
  EXPECT_EQ(Counted::alive, 1);
}

TEST_F(TurnTest, TheMemoryOfReactorsThatWereNamedIsGivenBackWhenTheTurnCloses) {
  auto const liveBytes = [] { return Nox::poolCounts().objects.liveBytes; };
  a = b = nullptr;
  std::uint64_t const before = liveBytes();
  for (int i = 0; i < 3; ++i) {
    Turn turn;
    std::vector<Ptr<Recorder>> reactors;
    for (int r = 0; r < 100; ++r) reactors.push_back(reactor("r"));
    device->speedIs(device->speed() + 1);
    reactors.clear();
    EXPECT_GT(liveBytes(), before);
  }
  EXPECT_EQ(liveBytes(), before);
  EXPECT_THAT(log, IsEmpty());
}

/// A reactor that is no memory of the pool's.
TEST_F(TurnTest, AReactorThatIsDestroyedByOtherMeansIsNoLongerCalledEither) {
  a = b = nullptr;
  for (bool const byHandler : {false, true}) {
    log.clear();
    auto onStack = std::make_unique<std::optional<Recorder>>();
    a = reactor("a");
    onStack->emplace("stack", log, device);
    auto const end = [&](std::string const&) { onStack->reset(); };
    if (byHandler) a->then = end;
    {
      Turn turn;
      device->speedIs(device->speed() + 1);
      if (!byHandler) end("");
    }
    EXPECT_THAT(log, ElementsAre("a speed"));
    a->then = nullptr;
    onStack->emplace("stack", log, device);
    a->then = end;
    device->speedIs(device->speed() + 1);
    EXPECT_THAT(log, ElementsAre("a speed", "a speed")) << "written outside any turn";
  }
}

TEST_F(TurnTest, AReactorWithAHandlersLastReferenceMayBeTakenUpAgain) {
  a->then = [&](std::string const& what) {
    Recorder* const me = a.get();
    if (what == "speed") a = nullptr;
    device->labelIs("x");
    a = Ptr<Recorder>(me);
  };
  device->speedIs(1);
  ASSERT_TRUE(a);
  EXPECT_EQ(a->count(), 1U);
  EXPECT_THAT(log, ElementsAre("a speed", "b speed", "a label", "b label"));
}

/// A reactor that changes what it watches while it is destroyed.
class Parting : public Device::NotifieeConst {
 public:
  explicit Parting(Ptr<Device> device) : device_(std::move(device)) { NotifieeConst::notifierIs(device_); }
  ~Parting() override { device_->speedIs(device_->speed() + 1); }
  void onSpeed() override { ADD_FAILURE() << "a destroyed reactor is called"; }

 private:
  Ptr<Device> device_;
};

TEST_F(TurnTest, WhatAReactorWritesInItsDestructorDoesNotWaitForItself) {
  { Nox::make<Parting>(device); }
  EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
  {
    Turn turn;
    Nox::make<Parting>(device);
  }
  EXPECT_EQ(log.size(), 4U);
}

TEST_F(TurnTest, ALongQueueIsDeliveredInOrderAndCostsNoMoreAtItsEnd) {
  constexpr unsigned kWrites = 20000;
  unsigned next = 0;
  a->then = [&](std::string const&) {
    if (device->speed() < kWrites) device->speedIs(device->speed() + 1);  // two for one, until all are written
    ++next;
  };
  b = nullptr;
  {
    Turn turn;
    for (unsigned i = 0; i < kWrites / 2; ++i) device->speedIs(i + 1);
  }
  EXPECT_EQ(next, kWrites);
  EXPECT_EQ(device->speed(), kWrites);
  EXPECT_EQ(a->count(), 1U);
}

}  // namespace

}  // namespace TurnTest
