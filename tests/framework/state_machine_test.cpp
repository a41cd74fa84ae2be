// State machines: switching on and off, zombies, and machines that go while they run.
#include "framework/core/state_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/link_sm.h"

namespace StateMachineTest {
namespace {

using Nox::Ptr;
using Sample::Device;
using Sample::heard;
using Sample::LinkSm;
using Sample::Log;
using testing::ElementsAre;
using testing::IsEmpty;

using StateMachineTest = Sample::LinkSmTest;

TEST_F(StateMachineTest, StartsSwitchedOffWithItsReactorsOn) {
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_TRUE(sm->device().reactor()->hasNotificationActive());
  EXPECT_TRUE(sm->device().reactor()->isRegisteredNotifiee());
  write(device);
  dir->entryIs("x");
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done", "sm dir x", "sm dir x done"));
  EXPECT_EQ(&sm->fwkType(), &LinkSm::_fwkType());
}

TEST_F(StateMachineTest, HandleInitializedRunsItsPassExactlyOnce) {
  Ptr<LinkSm> const fresh = Nox::make<LinkSm>("fresh", device, nullptr);
  EXPECT_THAT(heard(), ElementsAre("fresh device", "fresh device done"));
  EXPECT_TRUE(fresh->initialized());
  fresh->handleInitialized();
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, SwitchesItsReactorsInOrderThenItsChildMachines) {
  sm->portIs(Nox::make<Device>("p"));
  sm->childIs("child", other)->childIs("grandchild", nullptr);
  heard();
  sm->hasNotificationActiveIs(true);
  EXPECT_THAT(heard(), ElementsAre("sm.device on", "sm.dir on", "sm.p on", "child.device on"));
  EXPECT_TRUE(sm->children().member("child")->hasNotificationActive());
  EXPECT_TRUE(sm->children().member("child")->children().member("grandchild")->hasNotificationActive());
  sm->hasNotificationActiveIs(false);
  EXPECT_THAT(heard(), ElementsAre("sm.device off", "sm.dir off", "sm.p off", "child.device off"));
  write(device);
  write(other);
  EXPECT_THAT(heard(), IsEmpty());
  sm->hasNotificationActiveIs(true);
  heard();
  write(other);
  EXPECT_THAT(heard(), ElementsAre("child device", "child device done"));
}

TEST_F(StateMachineTest, CollectionsAreSwitchedInTheirOwnOrder) {
  Log expected;
  for (int i = 0; i < 20; ++i) sm->portIs(Nox::make<Device>("p" + std::to_string(i)));
  for (int i = 0; i < 20; ++i) sm->childIs("c" + std::to_string(i), device);
  expected.push_back("sm.device on");
  expected.push_back("sm.dir on");
  for (auto const& port : sm->ports()) expected.push_back("sm." + std::string(port.fwkKey().view()) + " on");
  for (auto const& child : sm->children()) expected.push_back(child.name() + ".device on");
  heard();
  sm->hasNotificationActiveIs(true);
  EXPECT_EQ(heard(), expected);
}

TEST_F(StateMachineTest, SwitchingOnWhatIsOnDoesNotTouchTheReactors) {
  sm->hasNotificationActiveIs(true);
  heard();
  sm->hasNotificationActiveIs(true);
  EXPECT_THAT(heard(), IsEmpty());
  sm->hasNotificationActiveIs(false);
  heard();
  sm->hasNotificationActiveIs(false);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, AReactorThatWasNotRegisteredStaysSoWhenTheMachineIsSwitchedOffAndOn) {
  sm->hasNotificationActiveIs(true);
  sm->device().reactor()->isRegisteredNotifieeIs(false);
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(true);
  EXPECT_FALSE(sm->device().reactor()->isRegisteredNotifiee());
  EXPECT_TRUE(sm->dir().reactor()->isRegisteredNotifiee());
  heard();
  write(device);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, AZombieMachineHearsNothingAndItsChildrenDo) {
  auto const child = sm->childIs("child", device);
  sm->hasNotificationActiveIs(true);
  heard();
  sm->noxDoZombieReactors(true);
  EXPECT_THAT(heard(), ElementsAre("sm.device zombie", "sm.device off", "sm.dir zombie", "sm.dir off"));
  EXPECT_TRUE(sm->noxMarkedForDeletion());
  EXPECT_TRUE(sm->device().reactor()->noxMarkedForDeletion());
  EXPECT_FALSE(child->noxMarkedForDeletion());
  EXPECT_TRUE(sm->hasNotificationActive()) << "a machine's own switch is another";
  write(device);
  EXPECT_THAT(heard(), ElementsAre("child device", "child device done"));
  sm->noxDoZombieReactors(true);
  EXPECT_THAT(heard(), IsEmpty());
  sm->noxDoZombieReactors(false);
  EXPECT_THAT(heard(), ElementsAre("sm.device on", "sm.dir on"));
  EXPECT_FALSE(sm->noxMarkedForDeletion());
  write(device);
  EXPECT_THAT(heard(), ElementsAre("child device", "child device done", "sm device", "sm device done"));
}

TEST_F(StateMachineTest, ANotificationThatReachesAZombieReactorIsIgnored) {
  auto const& reactor = sm->device().reactor();
  heard();
  reactor->onSpeed();
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
  reactor->noxDoZombieReactors(true);
  heard();
  reactor->onSpeed();
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, AZombieReactorWithoutANotifierIsNotSwitched) {
  auto const& reactor = sm->device().reactor();
  reactor->notifierIs(nullptr);
  heard();
  reactor->noxDoZombieReactors(true);
  EXPECT_THAT(heard(), ElementsAre("sm.device zombie"));
  EXPECT_TRUE(reactor->hasNotificationActive());
  EXPECT_TRUE(reactor->noxMarkedForDeletion());
}

TEST_F(StateMachineTest, AReactorMadeOnAZombieMachineIsAZombie) {
  sm->noxDoZombieReactors(true);
  heard();
  sm->portIs(device);
  sm->replaceDevice(other);
  EXPECT_TRUE(sm->ports().member("device")->noxMarkedForDeletion());
  EXPECT_FALSE(sm->ports().member("device")->hasNotificationActive());
  EXPECT_TRUE(sm->device().reactor()->noxMarkedForDeletion());
  heard();
  write(device);
  write(other);
  EXPECT_THAT(heard(), IsEmpty());
  sm->noxDoZombieReactors(false);
  heard();
  write(device);
  EXPECT_THAT(heard(), ElementsAre("sm port device", "sm port device done"));
}

TEST_F(StateMachineTest, AReactorThatOutlivesItsMachineCallsNobody) {
  Ptr<LinkSm::NoxDevice> const reactor = sm->device().reactor();
  sm = nullptr;
  reactor->noxDoZombieReactors(false);
  reactor->hasNotificationActiveIs(true);
  heard();
  write(device);
  reactor->notifierIs(other);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, AMachineReleasedInItsOwnHandlerStaysUntilTheHandlerHasEnded) {
  sm->then = [&] { sm = nullptr; };
  heard();
  write(device);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done", "sm gone"));
}

TEST_F(StateMachineTest, ReactorsMayGoWhileTheyAreSwitched) {
  for (int i = 0; i < 10; ++i) sm->portIs(Nox::make<Device>("p" + std::to_string(i)));
  for (auto& port : sm->ports()) port.then = [&] { sm->ports().deleteAll(); };
  sm->device().reactor()->then = [&] { sm->device().retire(); };
  heard();
  sm->hasNotificationActiveIs(true);
  EXPECT_EQ(sm->device().reactor(), nullptr);
  EXPECT_TRUE(sm->ports().empty());
}

}  // namespace

}  // namespace StateMachineTest
