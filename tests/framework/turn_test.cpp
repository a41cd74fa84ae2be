// Turns: what waits, in which order it is delivered, what is dropped, and what may go meanwhile.
#include "framework/turn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/sample.h"

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
  ~TurnTest() override {
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

TEST_F(TurnTest, AHandlerMayReleaseAnotherReactorWhichHearsWhatAlreadyWaitedForIt) {
  a->then = [&](std::string const&) { b = nullptr; };
  device->speedIs(1);
  EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
  EXPECT_EQ(Counted::alive, 2) << "and goes then";
  device->speedIs(2);
  EXPECT_THAT(log, ElementsAre("a speed", "b speed", "a speed"));
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
  EXPECT_THAT(log, ElementsAre("a speed", "b speed", "a label", "b label"));
  EXPECT_EQ(Counted::alive, 0);
}

TEST_F(TurnTest, AQueuedChangeKeepsItsReactorsAndItsNotifierAlive) {
  {
    Turn turn;
    device->speedIs(1);
    a = b = nullptr;
    device = nullptr;
    EXPECT_EQ(Counted::alive, 3);
    EXPECT_THAT(log, IsEmpty());
  }
  EXPECT_THAT(log, ElementsAre("a speed", "b speed"));
  EXPECT_EQ(Counted::alive, 0);
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

// Random scripts, against a model that knows nothing of lists, words or queues of the framework.

struct Action {
  enum Kind {
    kSpeed,
    kPort,
    kPortDel,
    kRegister,
    kWithdraw,
    kPoint,
    kOn,
    kOff,
    kZombie,
    kRelease,
    kThrow,
    kKinds
  } kind;
  unsigned reactor;
  unsigned device;
  unsigned value;
};
constexpr unsigned kReactors = 5, kDevices = 3;

/// The real thing.
class RealWorld {
 public:
  explicit RealWorld(std::deque<Action> script) : script_(std::move(script)) {
    for (unsigned i = 0; i < kDevices; ++i) devices_.push_back(Nox::make<Device>("d" + std::to_string(i)));
    for (unsigned i = 0; i < kReactors; ++i) {
      reactors_.push_back(Nox::make<Recorder>(std::to_string(i), log, devices_[i % kDevices]));
      reactors_[i]->then = [this](std::string const&) { step(); };
    }
  }
  void run() {
    while (!script_.empty()) {
      try {
        Turn turn;
        for (int i = 0; i < 3; ++i) step();
      } catch (std::runtime_error const& e) {
        log.push_back(std::string("left ") + e.what());
      }
    }
    for (auto const& r : reactors_) log.push_back(r ? std::to_string(r->count()) : "gone");
    try {
      Turn turn;  // takes what the last turn could not report, so that the next world starts afresh
    } catch (std::runtime_error const&) {
    }
  }
  Log log;

 private:
  void step() {
    if (script_.empty()) return;
    Action const action = script_.front();
    script_.pop_front();
    Device& device = *devices_[action.device];
    std::string const port = "p" + std::to_string(action.value % 2);
    Ptr<Recorder>& r = reactors_[action.reactor];
    if (action.kind == Action::kThrow) throw std::runtime_error(std::to_string(action.value));
    if (action.kind == Action::kSpeed) device.speedIs(action.value % 3);
    if (action.kind == Action::kPort) device.portIs(port, action.value % 3);
    if (action.kind == Action::kPortDel) device.portDel(port);
    if (!r) return;
    if (action.kind == Action::kRegister) r->isRegisteredNotifieeIs(true);
    if (action.kind == Action::kWithdraw) r->isRegisteredNotifieeIs(false);
    if (action.kind == Action::kPoint) r->notifierIs(action.value % 4 == 0 ? Ptr<Device>() : devices_[action.device]);
    if (action.kind == Action::kOn) r->hasNotificationActiveIs(true);
    if (action.kind == Action::kOff) r->hasNotificationActiveIs(false);
    if (action.kind == Action::kZombie) r->noxMarkedForDeletionIs(action.value % 2 != 0);
    if (action.kind == Action::kRelease && action.value % 4 == 0) r = nullptr;
  }

  std::deque<Action> script_;
  std::vector<Ptr<Device>> devices_;
  std::vector<Ptr<Recorder>> reactors_;
};

class ModelWorld {
 public:
  explicit ModelWorld(std::deque<Action> script) : script_(std::move(script)) {
    for (unsigned i = 0; i < kReactors; ++i) point(i, static_cast<int>(i % kDevices));
  }
  void run() {
    while (!script_.empty()) {
      first_.reset();
      try {
        for (int i = 0; i < 3; ++i) step();
      } catch (unsigned value) {
        // An exception that leaves the turn itself goes first; a handler's waits for the next turn.
        drain();
        log.push_back("left " + std::to_string(value));
        if (std::optional<unsigned> const waiting = std::exchange(first_, std::nullopt))
          kept_ = kept_ ? kept_ : waiting;
        continue;
      }
      drain();
      if (kept_) first_ = std::exchange(kept_, std::nullopt);
      if (first_) log.push_back("left " + std::to_string(*first_));
    }
    for (auto const& r : reactors_) log.push_back(r.owned ? "1" : "gone");
  }
  Log log;

 private:
  struct Reactor {
    int watches = -1;
    bool registered = true, active = true, remembered = false, zombie = false, owned = true, exists = true;
    int waiting = 0;
  };
  struct Change {
    unsigned device;
    std::string what;
    std::vector<unsigned> reactors;
  };

  void leave(unsigned r) {
    for (auto& list : lists_) list.erase(std::remove(list.begin(), list.end(), r), list.end());
  }
  bool listed(unsigned r) const {
    auto const& list = lists_[static_cast<unsigned>(reactors_[r].watches)];
    return std::find(list.begin(), list.end(), r) != list.end();
  }
  void enrol(unsigned r) {
    if (reactors_[r].watches >= 0 && !listed(r)) lists_[static_cast<unsigned>(reactors_[r].watches)].push_back(r);
  }
  void registered(unsigned r, bool on) {
    reactors_[r].registered = on;
    if (on)
      enrol(r);
    else
      leave(r);
  }
  void point(unsigned r, int device) {
    leave(r);
    reactors_[r].watches = device;
    if (reactors_[r].registered) enrol(r);
  }
  void active(unsigned r, bool on) {
    Reactor& reactor = reactors_[r];
    if (reactor.active == on) return;
    reactor.active = on;
    if (on) {
      if (reactor.remembered) registered(r, true);
    } else {
      reactor.remembered = reactor.registered;
      registered(r, false);
    }
  }
  void endIfForgotten(unsigned r) {
    Reactor& reactor = reactors_[r];
    if (reactor.owned || reactor.waiting != 0 || !reactor.exists) return;
    reactor.exists = false;
    leave(r);
  }
  void changed(unsigned device, std::string what) {
    for (unsigned const r : lists_[device]) ++reactors_[r].waiting;
    queue_.push_back({device, std::move(what), lists_[device]});
  }

  void step() {
    if (script_.empty()) return;
    Action const action = script_.front();
    script_.pop_front();
    unsigned const d = action.device, r = action.reactor;
    std::string const port = "p" + std::to_string(action.value % 2);
    if (action.kind == Action::kThrow) throw action.value;
    if (action.kind == Action::kSpeed && speed_[d] != action.value % 3) {
      speed_[d] = action.value % 3;
      changed(d, "speed");
    }
    if (action.kind == Action::kPort) {
      auto const [it, isNew] = ports_.try_emplace({d, port}, action.value % 3);
      if (isNew || it->second != action.value % 3) changed(d, "port[" + port + "]");
      it->second = action.value % 3;
    }
    if (action.kind == Action::kPortDel && ports_.erase({d, port}) != 0) changed(d, "port[" + port + "]");
    if (!reactors_[r].owned) return;
    if (action.kind == Action::kRegister) registered(r, true);
    if (action.kind == Action::kWithdraw) registered(r, false);
    if (action.kind == Action::kPoint) point(r, action.value % 4 == 0 ? -1 : static_cast<int>(d));
    if (action.kind == Action::kOn) active(r, true);
    if (action.kind == Action::kOff) active(r, false);
    if (action.kind == Action::kZombie) reactors_[r].zombie = action.value % 2 != 0;
    if (action.kind == Action::kRelease && action.value % 4 == 0) {
      reactors_[r].owned = false;
      endIfForgotten(r);
    }
  }
  void drain() {
    while (!queue_.empty()) {
      Change const change = queue_.front();
      queue_.pop_front();
      for (unsigned const r : change.reactors) {
        Reactor& reactor = reactors_[r];
        if (reactor.watches == static_cast<int>(change.device) && reactor.registered && reactor.active &&
            !reactor.zombie) {
          log.push_back(std::to_string(r) + " " + change.what);
          try {
            step();
          } catch (unsigned value) {
            if (!first_) first_ = value;
            log.push_back(std::to_string(r) + " exception");
          }
        }
        --reactor.waiting;
        endIfForgotten(r);
      }
    }
  }

  std::deque<Action> script_;
  std::deque<Change> queue_;
  std::vector<Reactor> reactors_{kReactors};
  std::vector<std::vector<unsigned>> lists_{kDevices};
  unsigned speed_[kDevices] = {};
  std::map<std::pair<unsigned, std::string>, unsigned> ports_;
  std::optional<unsigned> first_, kept_;
};

TEST(TurnModel, RandomScriptsRunAsInAPlainModel) {
  std::size_t delivered = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    std::mt19937 random(seed);
    std::deque<Action> script;
    for (int i = 0; i < 60; ++i) {
      unsigned const chance = static_cast<unsigned>(random() % 20);
      // Half of all actions write, so that there is something to deliver.
      unsigned const kind = chance < 10 ? chance % 3 : 3 + static_cast<unsigned>(random()) % (Action::kKinds - 3);
      script.push_back({static_cast<Action::Kind>(kind),
                        static_cast<unsigned>(random()) % kReactors,
                        static_cast<unsigned>(random()) % kDevices,
                        static_cast<unsigned>(random() % 1000)});
    }
    RealWorld real(script);
    ModelWorld model(script);
    real.run();
    model.run();
    ASSERT_EQ(real.log, model.log) << "seed " << seed;
    delivered += real.log.size();
  }
  EXPECT_GT(delivered, 3000U * 20) << "the scripts must deliver enough to tell";
  EXPECT_EQ(Counted::alive, 0);
}

}  // namespace
