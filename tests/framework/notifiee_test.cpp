// Reactors: how they register with their notifier, leave it, and are switched on and off.
#include "framework/core/notifiee.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/sample.h"

namespace NotifieeTest {
namespace {

using Nox::Entity;
using Nox::Ptr;
using Sample::Counted;
using Sample::Device;
using Sample::Log;
using Sample::Recorder;
using Sample::Router;
using testing::ElementsAre;
using testing::IsEmpty;

/// A device, and reactors named a, b, ... that watch it.
struct Watched {
  explicit Watched(int n) {
    for (int i = 0; i < n; ++i)
      reactors.push_back(Nox::make<Recorder>(std::string(1, static_cast<char>('a' + i)), log, device));
  }
  /// The reactors that hear of a change, in order.
  std::string heard() {
    log.clear();
    device->speedIs(device->speed() + 1);
    std::string who;
    for (std::string const& line : log) who += line[0];
    return who;
  }
  Log log;
  Ptr<Device> device = Nox::make<Device>();
  std::vector<Ptr<Recorder>> reactors;
};

TEST(Notifiee, IsBornActiveAndRegisteredAndCallsNobody) {
  Log log;
  auto const reactor = Nox::make<Recorder>("r", log);
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  EXPECT_TRUE(reactor->hasNotificationActive());
  EXPECT_FALSE(reactor->noxMarkedForDeletion());
  EXPECT_EQ(reactor->noxWord(), 0x20000001U);
  EXPECT_EQ(reactor->notifier(), nullptr);
  auto const device = Nox::make<Device>();
  reactor->notifierIs(device);
  EXPECT_EQ(reactor->notifier(), device);
  EXPECT_THAT(log, IsEmpty());
}

TEST(Notifiee, HoldsItsNotifier) {
  Log log;
  auto const reactor = Nox::make<Recorder>("r", log, Nox::make<Device>());
  EXPECT_EQ(Counted::alive, 2);
  reactor->notifierIs(nullptr);
  EXPECT_EQ(Counted::alive, 1);
}

TEST(Notifiee, ReactorsHearInTheOrderOfRegistration) {
  Watched w(3);
  EXPECT_EQ(w.heard(), "abc");
  w.reactors[0]->isRegisteredNotifieeIs(false);
  EXPECT_EQ(w.heard(), "bc");
  w.reactors[0]->isRegisteredNotifieeIs(true);
  EXPECT_EQ(w.heard(), "bca") << "who registers again goes to the end";
  w.reactors[1] = nullptr;
  EXPECT_EQ(w.heard(), "ca");
}

TEST(Notifiee, RegisteringTwiceRegistersOnceAndKeepsThePlace) {
  Watched w(2);
  w.reactors[0]->isRegisteredNotifieeIs(true);
  EXPECT_EQ(w.heard(), "ab");
  w.reactors[0]->isRegisteredNotifieeIs(false);
  w.reactors[0]->isRegisteredNotifieeIs(false);
  EXPECT_EQ(w.heard(), "b");
}

TEST(Notifiee, ANullNotifierUnregistersNothingButTheOldOneNoLongerCalls) {
  Watched w(2);
  w.reactors[0]->notifierIs(nullptr);
  EXPECT_TRUE(w.reactors[0]->isRegisteredNotifiee());
  EXPECT_EQ(w.heard(), "b");
  w.reactors[0]->notifierIs(w.device);
  EXPECT_EQ(w.heard(), "ba");
}

TEST(Notifiee, AWithdrawnReactorThatIsPointedElsewhereStaysWithdrawn) {
  Watched w(1);
  w.reactors[0]->isRegisteredNotifieeIs(false);
  w.reactors[0]->notifierIs(nullptr);
  w.reactors[0]->notifierIs(w.device);
  EXPECT_FALSE(w.reactors[0]->isRegisteredNotifiee());
  EXPECT_EQ(w.heard(), "");
}

TEST(Notifiee, SwitchingOffWithdrawsAndSwitchingOnRegistersAgain) {
  Watched w(2);
  w.reactors[0]->hasNotificationActiveIs(false);
  EXPECT_FALSE(w.reactors[0]->isRegisteredNotifiee());
  EXPECT_EQ(w.heard(), "b");
  w.reactors[0]->hasNotificationActiveIs(false);
  w.reactors[0]->hasNotificationActiveIs(true);
  EXPECT_TRUE(w.reactors[0]->isRegisteredNotifiee());
  EXPECT_EQ(w.heard(), "ba");
  w.reactors[0]->hasNotificationActiveIs(true);
  EXPECT_EQ(w.heard(), "ba") << "switching on what is on does nothing";
}

TEST(Notifiee, WhoWasWithdrawnBeforeBeingSwitchedOffStaysWithdrawn) {
  Watched w(2);
  w.reactors[0]->isRegisteredNotifieeIs(false);
  w.reactors[0]->hasNotificationActiveIs(false);
  w.reactors[0]->hasNotificationActiveIs(true);
  EXPECT_FALSE(w.reactors[0]->isRegisteredNotifiee());
  EXPECT_EQ(w.heard(), "b");
  w.reactors[0]->isRegisteredNotifieeIs(true);
  w.reactors[0]->hasNotificationActiveIs(false);
  w.reactors[0]->hasNotificationActiveIs(true);
  EXPECT_EQ(w.heard(), "ba") << "what is remembered is the last time";
}

TEST(Notifiee, ARegisteredReactorThatIsSwitchedOffHearsNothing) {
  Watched w(1);
  w.reactors[0]->hasNotificationActiveIs(false);
  w.reactors[0]->isRegisteredNotifieeIs(true);
  EXPECT_EQ(w.heard(), "");
}

TEST(Notifiee, AZombieHearsNothing) {
  Watched w(2);
  w.reactors[0]->noxMarkedForDeletionIs(true);
  EXPECT_EQ(w.heard(), "b");
  w.reactors[0]->noxMarkedForDeletionIs(false);
  EXPECT_EQ(w.heard(), "ab");
}

TEST(Notifiee, ANotifierThatIsNoEntityIsHeldAndNeverCalls) {
  Log log;
  auto const reactor = Nox::make<Recorder>("r", log);
  Ptr<Sample::Object> object = Nox::make<Sample::Object>();
  reactor->notifierIs(object);
  EXPECT_EQ(reactor->notifier(), object);
  EXPECT_EQ(object->count(), 2U);
  reactor->isRegisteredNotifieeIs(false);
  reactor->isRegisteredNotifieeIs(true);
  reactor->notifierIs(nullptr);
  EXPECT_EQ(object->count(), 1U);
}

TEST(Notifiee, AReactorOfABaseInterfaceHearsWhatItsInterfaceDeclares) {
  Log log;
  auto const router = Nox::make<Router>();
  class ParentReactor : public Entity::NotifieeConst {
   public:
    explicit ParentReactor(Log& l) : log_(l) {}
    void onParent() override { log_.push_back("base parent"); }

   private:
    Log& log_;
  };
  auto const base = Nox::make<ParentReactor>(log);
  base->notifierIs(router);
  auto const middle = Nox::make<Recorder>("middle", log, router);
  class RoutesReactor : public Router::NotifieeConst {
   public:
    explicit RoutesReactor(Log& l) : log_(l) {}
    void onRoutes() override { log_.push_back("own routes"); }
    void onSpeed() override { log_.push_back("own speed"); }

   private:
    Log& log_;
  };
  auto const own = Nox::make<RoutesReactor>(log);
  own->notifierIs(router);
  auto const bare = Nox::make<Nox::PtrInterface::NotifieeConst>();
  bare->notifierIs(router);

  auto const parent = Nox::make<Entity>("p");
  router->parentIs(parent);
  router->speedIs(1);
  router->routesIs(1);
  EXPECT_THAT(log, ElementsAre("base parent", "middle parent", "middle speed", "own speed", "own routes"));
  base->notifierIs(nullptr);
}

TEST(Notifiee, TheNonConstVariantGivesItsNotifierForChange) {
  auto const device = Nox::make<Device>();
  auto const reactor = Nox::make<Nox::PtrInterface::Notifiee>(true);
  reactor->notifierIs(device);
  Ptr<Nox::PtrInterface> const notifier = reactor->notifier();
  Nox::ptrCast<Device>(notifier)->speedIs(3);
  EXPECT_EQ(device->speed(), 3U);
}

TEST(Notifiee, BaseOperationsDoNothing) {
  auto const n = Nox::make<Nox::PtrInterface::NotifieeConst>();
  EXPECT_EQ(n->noxReactor(), n.get());
  EXPECT_EQ(n->noxRawReactor(), n.get());
  EXPECT_FALSE(n->isStreamAdapter());
  n->nox_bitSetIs(3);
  EXPECT_EQ(n->name(), "");
  n->handleNotification(nullptr);
  n->handleDefault(nullptr, 256, true);
  n->onAttribute(256);
  n->onNotification();
  n->onCollectionNotification("key");
  n->onNotificationException();
  n->onNotificationException(256);
  n->handleNotificationException(256);
  n->handleNotificationException();
  n->onZeroReferences();
  EXPECT_EQ(n->activityPtr(), nullptr);
  EXPECT_EQ(n->noxFwkActivity(), nullptr);
  EXPECT_EQ(Ptr<Nox::PtrInterface::NotifieeConst const>(n)->noxFwkActivity(), nullptr);
  EXPECT_EQ(n->actsm(), nullptr);
}

TEST(NotifieeList, FollowsAVectorOverRandomComingAndGoing) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::mt19937 random(seed);
    Watched w(1 + static_cast<int>(seed));
    std::vector<Recorder*> model;
    for (auto const& r : w.reactors) model.push_back(r.get());
    for (int step = 0; step < 500; ++step) {
      Recorder* const r = w.reactors[random() % w.reactors.size()].get();
      auto const at = std::find(model.begin(), model.end(), r);
      if (random() % 2 != 0) {
        r->isRegisteredNotifieeIs(true);
        if (at == model.end()) model.push_back(r);
      } else {
        r->isRegisteredNotifieeIs(false);
        if (at != model.end()) model.erase(at);
      }
      std::vector<Recorder*> listed;
      for (auto* n = w.device->noxNotifiees().first(); n != nullptr; n = Nox::NotifieeList::next(*n)) {
        ASSERT_TRUE(Nox::NotifieeList::isLinked(*n));
        listed.push_back(static_cast<Recorder*>(n));
      }
      ASSERT_EQ(listed, model) << "seed " << seed << " step " << step;
      ASSERT_EQ(w.device->noxNotifiees().empty(), model.empty());
    }
  }
}

TEST(NotifieeList, AHundredThousandReactorsComeAndGoInAnyOrder) {
  Log log;
  auto const device = Nox::make<Device>();
  std::vector<Ptr<Recorder>> reactors;
  reactors.reserve(100000);
  for (int i = 0; i < 100000; ++i) reactors.push_back(Nox::make<Recorder>("", log, device));
  std::shuffle(reactors.begin(), reactors.end(), std::mt19937(1));
  reactors.clear();  // with a scan for each this would take minutes
  EXPECT_TRUE(device->noxNotifiees().empty());
}

}  // namespace

}  // namespace NotifieeTest
