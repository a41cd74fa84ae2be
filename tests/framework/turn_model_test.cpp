// Turns under random scripts, against a model that knows nothing of the framework's lists, words and queues.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/turn.h"
#include "support/sample.h"

namespace TurnModelTest {
namespace {

using Nox::Ptr;
using Nox::Turn;
using Sample::Counted;
using Sample::Device;
using Sample::Log;
using Sample::Recorder;

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
    for (unsigned round = 0; !script_.empty(); ++round) {
      try {
        Turn turn;  // in every other round only reports what the last one could not
        if (round % 2 == 0)
          for (int i = 0; i < 3; ++i) step();
      } catch (std::runtime_error const& e) {
        log.push_back(std::string("left ") + e.what());
        continue;
      }
      if (round % 2 == 0) continue;
      try {
        step();
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
    for (unsigned round = 0; !script_.empty(); ++round) {
      bool const inTurn = round % 2 == 0;
      if (!inTurn && kept_) {
        log.push_back("left " + std::to_string(*std::exchange(kept_, std::nullopt)));
        continue;
      }
      first_.reset();
      try {
        for (int i = 0; i < (inTurn ? 3 : 1); ++i) step();
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
    int running = 0;
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
    if (reactor.owned || reactor.running != 0 || !reactor.exists) return;
    reactor.exists = false;
    leave(r);
  }
  void changed(unsigned device, std::string what) { queue_.push_back({device, std::move(what), lists_[device]}); }

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
        if (reactor.exists && reactor.watches == static_cast<int>(change.device) && reactor.registered &&
            reactor.active && !reactor.zombie) {
          ++reactor.running;
          log.push_back(std::to_string(r) + " " + change.what);
          try {
            step();
          } catch (unsigned value) {
            if (!first_) first_ = value;
            log.push_back(std::to_string(r) + " exception");
          }
          --reactor.running;
          endIfForgotten(r);
        }
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

}  // namespace TurnModelTest
