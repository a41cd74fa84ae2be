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
#include "support/turn_world.h"

namespace TurnTest {
namespace {

using Nox::Ptr;
using Nox::Turn;
using Sample::Device;
using Sample::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

class TurnTest : public Test::TurnWorld {};

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
