// Reactors that state a key: which of them a change reaches, in which order, whatever happens to keys and registrations
// while it waits.
#include <gmock/gmock.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "framework/core/entity.h"
#include "framework/core/key_interest.h"

namespace KeyInterestTest {
namespace {

using Nox::keyed;
using Nox::KeyInterest;
using Nox::KeySource;
using testing::ElementsAre;
using testing::IsEmpty;

struct PortId {
  unsigned value;
  std::uint64_t keyWord() const noexcept { return value; }
};

/// A notifier with one operation that reactors may choose by its key, one whose key they may not, and one without.
class Panel : public Nox::Typed<Panel, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<Panel, Nox::Entity> {
   public:
    virtual void onPort(PortId /*port*/) {}
    virtual void onLabel(Nox::Name /*label*/) {}
    virtual void onPower() {}
  };
  static Nox::NoxType noxType;
  using Typed::Typed;
  void port(unsigned id) const { announce<keyed(&NotifieeConst::onPort)>(PortId{id}); }
};
constinit Nox::NoxType Panel::noxType{"Test::Panel", &Nox::Entity::noxType};

enum class Mode { kOrdinary, kByKey, kIgnoredShow };

/// Does something about its own port alone, like every reactor that states a key.
class Listener : public Panel::NotifieeConst {
 public:
  Listener(std::string name, std::vector<std::string>& log, bool states) : name_(std::move(name)), log_(log) {
    if (states) interest_.emplace(*this);
  }
  void follow(KeySource const* source) {
    source_ = source;
    if (interest_) interest_->sourceIs(source);
  }
  void onPort(PortId port) override {
    ++calls;
    if (source_ != nullptr && source_->key() != port.value) return;
    if (!hearsAll && source_ == nullptr) return;
    log_.push_back(name_ + " port " + std::to_string(port.value));
    if (then) then();
  }
  void onLabel(Nox::Name label) override { log_.push_back(name_ + " label " + std::string(label.view())); }
  void onPower() override {
    log_.push_back(name_ + " power");
    if (then) then();
  }

  bool hearsAll = false;
  unsigned calls = 0;
  std::function<void()> then;

 private:
  std::string name_;
  std::vector<std::string>& log_;
  KeySource const* source_ = nullptr;
  std::optional<KeyInterest> interest_;
};

struct Fixture {
  Nox::Ptr<Listener> listener(std::string const& name, KeySource const* source) {
    Nox::Ptr<Listener> l = Nox::make<Listener>(name, log, true);
    l->follow(source);
    l->notifierIs(panel);
    return l;
  }
  std::vector<std::string> log;
  Nox::Ptr<Panel> panel = Nox::make<Panel>("panel");
};

TEST(KeyInterest, AChangeReachesThoseThatStateItsKeyInTheOrderOfRegistration) {
  Fixture f;
  KeySource one(1);
  KeySource alsoOne(1);
  KeySource two(2);
  auto const a = f.listener("a", &one);
  auto const b = f.listener("b", &two);
  auto const all = Nox::make<Listener>("all", f.log, false);
  all->hearsAll = true;
  all->notifierIs(f.panel);
  auto const c = f.listener("c", &alsoOne);
  auto const none = f.listener("none", nullptr);
  f.panel->port(1);
  EXPECT_THAT(f.log, ElementsAre("a port 1", "all port 1", "c port 1"));
  EXPECT_EQ(b->calls, 0U);
  EXPECT_EQ(none->calls, 0U);
  f.log.clear();
  f.panel->port(3);
  EXPECT_THAT(f.log, ElementsAre("all port 3"));
}

TEST(KeyInterest, ChangesWithoutAChoosableKeyReachEveryoneInTheOrderOfRegistration) {
  Fixture f;
  KeySource one(1);
  auto const a = f.listener("a", &one);
  auto const all = Nox::make<Listener>("all", f.log, false);
  all->notifierIs(f.panel);
  auto const none = f.listener("none", nullptr);
  f.panel->announce<Nox::unkeyed(&Panel::NotifieeConst::onPower)>();
  f.panel->announce<keyed(&Panel::NotifieeConst::onLabel)>("x");
  EXPECT_THAT(f.log, ElementsAre("a power", "all power", "none power", "a label x", "all label x", "none label x"));
}

TEST(KeyInterest, TheKeyThatIsStatedAtDeliveryDecides) {
  Fixture f;
  KeySource source(1);
  auto const a = f.listener("a", &source);
  {
    Nox::Turn turn;
    f.panel->port(1);
    f.panel->port(2);
    source.keyIs(2);
  }
  EXPECT_THAT(f.log, ElementsAre("a port 2"));
}

TEST(KeyInterest, AReactorThatComesToTheKeyDuringTheDeliveryIsReachedIfItsTurnIsStillToCome) {
  Fixture f;
  KeySource one(1);
  KeySource early(7);
  KeySource late(7);
  auto const before = f.listener("before", &early);
  auto const a = f.listener("a", &one);
  auto const behind = f.listener("behind", &late);
  auto const last = f.listener("last", &one);
  a->then = [&] {
    early.keyIs(1);
    late.keyIs(1);
  };
  f.panel->port(1);
  EXPECT_THAT(f.log, ElementsAre("a port 1", "behind port 1", "last port 1"));
}

TEST(KeyInterest, ASourceThatGoesLeavesItsFollowersWithoutAKey) {
  Fixture f;
  auto source = std::make_unique<KeySource>(1);
  auto const a = f.listener("a", source.get());
  auto const b = f.listener("b", source.get());
  f.panel->port(1);
  EXPECT_THAT(f.log, ElementsAre("a port 1", "b port 1"));
  source.reset();
  f.panel->port(1);
  EXPECT_EQ(a->calls + b->calls, 2U);
}

TEST(KeyInterest, AReleasedReactorThatStatesAKeyIsNotCalledAnyMore) {
  Fixture f;
  KeySource source(1);
  auto a = f.listener("a", &source);
  {
    Nox::Turn turn;
    f.panel->port(1);
    a = nullptr;
  }
  EXPECT_THAT(f.log, IsEmpty());
}

TEST(KeyInterest, AHandlerThatReleasesTheNextReactorKeepsItFromBeingCalled) {
  Fixture f;
  KeySource source(1);
  auto const a = f.listener("a", &source);
  auto b = f.listener("b", &source);
  a->then = [&] { b->isRegisteredNotifieeIs(false), b = nullptr; };
  f.panel->port(1);
  EXPECT_THAT(f.log, ElementsAre("a port 1"));
}

TEST(KeyInterest, AReactorOfAnotherInterfaceIsPassedByWhateverItStates) {
  struct Other : Nox::Entity::NotifieeConst {
    void onParent() override { ++calls; }
    void onVersion() override { ++calls; }
    void onIsNondestructing() override { ++calls; }
    KeyInterest interest{*this};
    unsigned calls = 0;
  };
  Fixture f;
  KeySource one(1);
  auto const other = Nox::make<Other>();
  other->interest.sourceIs(&one);
  other->notifierIs(f.panel);
  f.panel->port(1);
  EXPECT_EQ(other->calls, 0U);
}

TEST(KeyInterest, WhatIsIgnoredShowsFromTheReactorOnThatAsksForIt) {
  static bool isShown = false;
  Nox::IgnoredChangesShow const shown(Panel::noxType, [] { return isShown; });
  Fixture f;
  KeySource one(1);
  KeySource two(2);
  auto const before = f.listener("before", &two);
  auto const a = f.listener("a", &one);
  auto const behind = f.listener("behind", &two);
  a->then = [] { isShown = true; };
  f.panel->port(1);
  EXPECT_EQ(before->calls, 0U);
  EXPECT_EQ(behind->calls, 1U);
  EXPECT_THAT(f.log, ElementsAre("a port 1"));
}

/// A random story of a few listeners, sources and panels, told the same way in every mode.
std::vector<std::string> story(unsigned seed, Mode mode) {
  constexpr unsigned kListeners = 6;
  constexpr unsigned kSources = 4;
  constexpr unsigned kKeys = 3;
  Nox::IgnoredChangesShow const shown(
      Panel::noxType, mode == Mode::kIgnoredShow ? [] { return true; } : [] { return false; });
  std::mt19937 random(seed);
  auto const pick = [&](unsigned n) { return static_cast<unsigned>(random()) % n; };
  std::vector<std::string> log;
  std::deque<KeySource> sources(kSources);
  std::vector<Nox::Ptr<Panel>> const panels{Nox::make<Panel>("p"), Nox::make<Panel>("q")};
  std::vector<Nox::Ptr<Listener>> listeners;
  auto const listener = [&](unsigned i) {
    bool const hearsAll = i % 3 == 2;
    Nox::Ptr<Listener> l = Nox::make<Listener>("l" + std::to_string(i), log, !hearsAll && mode != Mode::kOrdinary);
    l->hearsAll = hearsAll;
    if (!hearsAll) l->follow(&sources[i % kSources]);
    l->notifierIs(panels[0]);
    return l;
  };
  for (unsigned i = 0; i < kListeners; ++i) listeners.push_back(listener(i));
  unsigned depth = 0;
  std::function<void()> step;
  std::function<void()> sometimes;
  auto const steps = [&](unsigned n) {
    for (unsigned i = 0; i < n; ++i) step();
  };
  step = [&] {
    unsigned const chosen = pick(kListeners);
    Listener& l = *listeners[chosen];
    switch (pick(10)) {
      case 0:
        sources[pick(kSources)].keyIs(pick(kKeys));
        break;
      case 1:
        if (!l.hearsAll) l.follow(pick(4) == 0 ? nullptr : &sources[pick(kSources)]);
        break;
      case 2:
        l.isRegisteredNotifieeIs(pick(2) != 0);
        break;
      case 3:
        l.hasNotificationActiveIs(!l.hasNotificationActive());
        break;
      case 4:
        l.notifierIs(panels[pick(2)]);
        break;
      case 6:  // another one in its place, perhaps at its very address
        l.isRegisteredNotifieeIs(false);
        listeners[chosen] = nullptr;
        listeners[chosen] = listener(chosen);
        listeners[chosen]->then = sometimes;
        break;
      case 7:
        panels[pick(2)]->announce<Nox::unkeyed(&Panel::NotifieeConst::onPower)>();
        break;
      case 5: {
        if (depth == 2) break;
        ++depth;
        Nox::Turn turn;
        steps(pick(8));
        --depth;
        break;
      }
      default:
        panels[pick(4) == 0 ? 1 : 0]->port(pick(kKeys));
    }
  };
  sometimes = [&] {
    if (log.size() < 2000 && pick(3) == 0) steps(1 + pick(2));
  };
  for (auto const& l : listeners) l->then = sometimes;
  for (unsigned i = 0; i < 60; ++i) {
    log.emplace_back("--");
    step();
  }
  for (auto const& l : listeners) l->then = nullptr;
  return log;
}

TEST(KeyInterest, WhatIsDoneIsTheSameWithAndWithoutTheIndex) {
  for (unsigned seed = 0; seed < 1000; ++seed) {
    std::vector<std::string> const expected = story(seed, Mode::kOrdinary);
    ASSERT_EQ(story(seed, Mode::kByKey), expected) << "seed " << seed;
    ASSERT_EQ(story(seed, Mode::kIgnoredShow), expected) << "seed " << seed;
  }
}

}  // namespace

}  // namespace KeyInterestTest
