// Turns: what may go while changes wait or are delivered, and what is kept until then.
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

namespace TurnLifetimesTest {
namespace {

using Nox::Ptr;
using Nox::Turn;
using Sample::Counted;
using Sample::Device;
using Sample::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

class TurnLifetimes : public Test::TurnWorld {};

TEST_F(TurnLifetimes, AHandlerMayReleaseItsOwnReactor) {
  a->then = [&](std::string const&) {
    a = nullptr;
    EXPECT_EQ(Counted::alive, 3) << "it stays until its handler has ended";
    log.push_back("a still here");
  };
  device->speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed", "a still here", "b speed"));
  EXPECT_EQ(Counted::alive, 2);
}

TEST_F(TurnLifetimes, AHandlerMayReleaseAnotherReactorWhichGoesAtOnceAndHearsNothingOfWhatWaited) {
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

TEST_F(TurnLifetimes, AHandlerMayReleaseTheNotifierAndEveryReactor) {
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

TEST_F(TurnLifetimes, AHandlerMayReleaseTheNotifierOfAChangeThatIsWrittenOnItsOwn) {
  a->then = [&](std::string const&) {
    device = nullptr;
    a = b = nullptr;
  };
  Device& d = *device;
  d.speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed"));
  EXPECT_EQ(Counted::alive, 0);
}

TEST_F(TurnLifetimes, TheKeyOfAChangeThatIsQueuedHalfwayIsLetGoOnce) {
  Nox::Name const key("eth0");
  a->then = [&](std::string const&) { b = nullptr; };
  device->portIs(key, 1);
  device->portDel(key);
  EXPECT_THAT(log, ElementsAre("a port[eth0]", "a port[eth0]"));
  EXPECT_FALSE(key.isShared());
}

TEST_F(TurnLifetimes, AQueuedChangeKeepsItsNotifierAliveAndOfItsReactorsTheMemoryAlone) {
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

TEST_F(TurnLifetimes, TheMemoryOfReactorsThatWereNamedIsGivenBackWhenTheTurnCloses) {
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
TEST_F(TurnLifetimes, AReactorThatIsDestroyedByOtherMeansIsNoLongerCalledEither) {
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

TEST_F(TurnLifetimes, AReactorWithAHandlersLastReferenceMayBeTakenUpAgain) {
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

TEST_F(TurnLifetimes, WhatAReactorWritesInItsDestructorDoesNotWaitForItself) {
  { Nox::make<Parting>(device); }
  EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
  {
    Turn turn;
    Nox::make<Parting>(device);
  }
  EXPECT_EQ(log.size(), 4U);
}

}  // namespace
}  // namespace TurnLifetimesTest
