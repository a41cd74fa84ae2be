// The inputs of state machines: what another notifier does, and the two policies of a changed input.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/link_sm.h"

namespace StateMachineInputTest {
namespace {

using Nox::Ptr;
using Sample::heard;
using Sample::LinkSm;
using testing::ElementsAre;
using testing::IsEmpty;

using StateMachineInput = Sample::LinkSmTest;

TEST_F(StateMachineInput, AReactorWithAnotherNotifierRunsTheFullPass) {
  auto const& reactor = sm->device().reactor();
  heard();
  reactor->notifierIs(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
  EXPECT_EQ(sm->device().get(), other);
  write(device);
  EXPECT_THAT(heard(), IsEmpty());
  write(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
}

TEST_F(StateMachineInput, AReactorWithTheSameNotifierRunsNoHandler) {
  auto const& reactor = sm->device().reactor();
  reactor->isRegisteredNotifieeIs(false);
  heard();
  reactor->notifierIs(device);
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_FALSE(reactor->isRegisteredNotifiee()) << "nothing at all happens";
}

TEST_F(StateMachineInput, AReactorWithANullNotifierRunsNoHandlerAndStaysRegistered) {
  auto const& reactor = sm->device().reactor();
  heard();
  reactor->notifierIs(nullptr);
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  EXPECT_EQ(sm->device().get(), nullptr);
  write(device);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineInput, ANotifierOfAnotherClassCountsAsNull) {
  auto const& reactor = sm->device().reactor();
  heard();
  reactor->notifierIs(dir);
  EXPECT_EQ(reactor->notifier(), nullptr);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineInput, ANewNotifierRegistersAReactorThatWasWithdrawn) {
  auto const& reactor = sm->device().reactor();
  reactor->isRegisteredNotifieeIs(false);
  reactor->notifierIs(other);
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  heard();
  write(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
}

TEST_F(StateMachineInput, AZombieReactorTakesANewNotifierWithoutAPass) {
  auto const& reactor = sm->device().reactor();
  reactor->noxDoZombieReactors(true);
  heard();
  reactor->notifierIs(other);
  EXPECT_EQ(reactor->notifier(), other);
  write(other);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineInput, ReplacingAnInputRetiresTheReactorAndMakesAFreshOneWithoutAPass) {
  Ptr<LinkSm::NoxDevice> const old = sm->device().reactor();
  heard();
  sm->replaceDevice(device);
  EXPECT_EQ(sm->device().reactor(), old) << "the same input changes nothing";
  sm->replaceDevice(other);
  EXPECT_THAT(heard(), ElementsAre("sm.device zombie", "sm.device off"));
  EXPECT_NE(sm->device().reactor(), old);
  EXPECT_EQ(sm->device().get(), other);
  EXPECT_TRUE(old->noxMarkedForDeletion());
  old->noxDoZombieReactors(false);
  heard();
  write(device);
  EXPECT_THAT(heard(), IsEmpty()) << "a retired reactor knows no machine";
  write(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
  sm->replaceDevice(nullptr);
  EXPECT_EQ(sm->device().reactor(), nullptr);
  sm->replaceDevice(nullptr);
  sm->replaceDevice(device);
  EXPECT_EQ(sm->device().get(), device);
}

TEST_F(StateMachineInput, RepointingAnInputKeepsItsReactorAndRunsThePass) {
  Ptr<LinkSm::NoxDevice> const reactor = sm->device().reactor();
  heard();
  sm->repointDevice(device);
  EXPECT_THAT(heard(), IsEmpty());
  sm->repointDevice(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
  sm->repointDevice(nullptr);
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_EQ(sm->device().reactor(), reactor);
  EXPECT_EQ(sm->device().get(), nullptr);
  sm->repointDevice(device);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));

  Ptr<LinkSm> const bare = Nox::make<LinkSm>("bare", nullptr, nullptr);
  heard();
  EXPECT_EQ(bare->device().reactor(), nullptr) << "no input, no reactor";
  bare->repointDevice(nullptr);
  EXPECT_EQ(bare->device().reactor(), nullptr);
  bare->repointDevice(device);
  EXPECT_THAT(heard(), IsEmpty()) << "a first reactor runs no pass";
  EXPECT_EQ(bare->device().get(), device);
}

TEST_F(StateMachineInput, AMachineReleasedInThePassOfANewInputStaysUntilThePassHasEnded) {
  LinkSm& machine = *sm;
  machine.then = [&] { sm = nullptr; };
  heard();
  machine.repointDevice(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done", "sm gone"));
}

TEST_F(StateMachineInput, APassMayRetireTheInputThatItRunsFor) {
  sm->then = [&] { sm->replaceDevice(nullptr); };
  heard();
  sm->repointDevice(other);
  EXPECT_EQ(sm->device().reactor(), nullptr);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm.device zombie", "sm.device off", "sm device done"));
  write(device);
  write(other);
  EXPECT_THAT(heard(), IsEmpty());
}

}  // namespace

}  // namespace StateMachineInputTest
