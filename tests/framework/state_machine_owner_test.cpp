// What owners do with state machines: instantiate, replace, remove, and refuse other arguments.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "support/link_sm.h"

namespace StateMachineOwnerTest {

using Nox::Dir;
using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;
using Sample::Device;
using Sample::heard;
using Sample::LinkSm;
using testing::ElementsAre;
using testing::IsEmpty;

using StateMachineOwner = Sample::LinkSmTest;

/// Owns one machine, and others in a collection, as a root does.
class Owner {
 public:
  bool smIs(Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    return Nox::instantiateSm(*this, sm, &Owner::newSm, device, dir);
  }
  ValidPtr<LinkSm> activeSmIs(Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    return Nox::instantiateSwitchedOn(*this, sm, &Owner::newSm, device, dir);
  }
  /// The member of that name, made if there is none.
  ValidPtr<LinkSm> otherIs(char const* name, Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    Ptr<LinkSm> member = others.member(name);
    if (member) {
      Nox::checkConstructorArgs(member->constructorArgs(), std::tie(device, dir), {"switchDir", "serviceStatusDir"});
    } else {
      member = Nox::make<LinkSm>(name, device, dir);
      others.newMember(member);
    }
    return member;
  }
  void othersNotify(Name const& key, Ptr<LinkSm> const& member) {
    EXPECT_EQ(member->fwkKey(), key);
    EXPECT_FALSE(others.has(key));
    Sample::theLog.push_back("notified " + member->name());
    ++notified;
  }
  using Others = Nox::HashMap<LinkSm, Name>;
  using OthersIterator = Nox::OwnedIterator<Others, &Owner::othersNotify>;

  Ptr<LinkSm> sm;
  Others others;
  int made = 0;
  int notified = 0;
  bool fails = false;

 private:
  ValidPtr<LinkSm> newSm(Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    if (fails) return Ptr<LinkSm>();
    return Nox::make<LinkSm>("sm" + std::to_string(++made), device, dir);
  }
};

namespace {

TEST_F(StateMachineOwner, InstantiatingWithTheSameArgumentsKeepsTheMachineAndWithOthersReplacesIt) {
  Owner owner;
  EXPECT_TRUE(owner.smIs(device, dir));
  Ptr<LinkSm> const first = owner.sm;
  first->hasNotificationActiveIs(true);
  EXPECT_FALSE(owner.smIs(device, dir));
  EXPECT_EQ(owner.sm, first);
  heard();
  EXPECT_TRUE(owner.smIs(device, nullptr)) << "one changed argument is enough";
  EXPECT_NE(owner.sm, first);
  EXPECT_TRUE(first->hasNotificationActive()) << "the old one is only released";
  EXPECT_THAT(heard(), ElementsAre("sm2 device", "sm2 device done"));
}

TEST_F(StateMachineOwner, AReplacedMachineGoesAfterTheNewOneHasRunItsFirstPass) {
  Owner owner;
  owner.smIs(device, nullptr);
  heard();
  owner.smIs(other, nullptr);
  EXPECT_THAT(heard(), ElementsAre("sm2 device", "sm2 device done", "sm1 gone"));
}

TEST_F(StateMachineOwner, AFactoryThatYieldsNothingFailsAndLeavesTheMachineThere) {
  Owner owner;
  owner.smIs(device, nullptr);
  Ptr<LinkSm> const first = owner.sm;
  owner.fails = true;
  EXPECT_THROW(owner.smIs(other, nullptr), Nox::RangeException);
  EXPECT_EQ(owner.sm, first);
}

TEST_F(StateMachineOwner, AnOwnerSwitchesAMachineOnWhenItIsInPlaceAndOffWhenItIsTakenOut) {
  Owner owner;
  heard();
  auto const first = owner.activeSmIs(device, nullptr);
  EXPECT_THAT(heard(), ElementsAre("sm1 device", "sm1 device done", "sm1.device on"));
  EXPECT_EQ(owner.activeSmIs(device, nullptr), first);
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_EQ(Nox::switchedOff(owner.sm), first);
  EXPECT_EQ(owner.sm, nullptr);
  EXPECT_FALSE(first->hasNotificationActive());
  EXPECT_THAT(heard(), ElementsAre("sm1.device off"));
  EXPECT_EQ(Nox::switchedOff(owner.sm), nullptr);
}

TEST_F(StateMachineOwner, AnOwnerHearsOfEachMemberThatItRemoves) {
  Owner owner;
  for (char const* name : {"x", "y", "z"}) owner.others.newMember(Nox::make<LinkSm>(name, nullptr, nullptr));
  std::vector<std::string> order;
  for (auto const& member : owner.others) order.push_back(member.name());
  heard();
  owner.others.deleteMember(Owner::OthersIterator(owner, owner.others, Name(order[1])));
  EXPECT_THAT(heard(), ElementsAre("notified " + order[1], order[1] + " gone"));
  owner.others.deleteAll(Owner::OthersIterator(owner, owner.others));
  EXPECT_EQ(owner.notified, 3);
  EXPECT_THAT(heard(),
              ElementsAre("notified " + order[0], order[0] + " gone", "notified " + order[2], order[2] + " gone"));
}

// The list of a machine's inputs.

/// Holds one input and watches another.
class HoldsAndWatches : public Nox::StateMachine<HoldsAndWatches> {
 public:
  static Nox::NoxType noxType;
  class NoxDevice : public Nox::Reactor<HoldsAndWatches, Device const> {
   public:
    using Reactor::Reactor;
  };
  ~HoldsAndWatches() override { orphanReactors(); }

  std::string held_;
  Nox::Input<NoxDevice> watched_;
  using Inputs = Nox::Inputs<&HoldsAndWatches::watched_, &HoldsAndWatches::held_>;
};
constinit Nox::NoxType HoldsAndWatches::noxType{"Sample::HoldsAndWatches", nullptr, nullptr};

TEST_F(StateMachineOwner, InputsAreNamedFilledAndReadInTheOrderOfTheirList) {
  using Inputs = HoldsAndWatches::Inputs;
  static_assert(std::is_same_v<Inputs::Function<int, bool>, int(Ptr<Device const> const&, std::string const&, bool)>);
  EXPECT_THAT(Inputs::names, ElementsAre("watched", "held"));
  auto const machine = Nox::make<HoldsAndWatches>();
  EXPECT_EQ(machine->constructorArgs(), std::tuple(Ptr<Device const>(), std::string()));
  Inputs::start(*machine, device, "text");
  EXPECT_EQ(machine->constructorArgs(), std::tuple(Ptr<Device const>(device), std::string("text")));
  machine->watched_.repoint(*machine, other);
  EXPECT_EQ(machine->constructorArgs(), std::tuple(Ptr<Device const>(other), std::string("text"))) << "as they are now";
  machine->noxDoZombieReactors(true);
  EXPECT_TRUE(machine->watched_.reactor()->noxMarkedForDeletion()) << "what is watched is a reactor of the machine";
}

std::string nameInUseText(std::tuple<Ptr<Device>, Ptr<Dir>> const& held, Ptr<Device> const& device,
                          Ptr<Dir> const& dir) {
  try {
    Nox::checkConstructorArgs(held, std::tie(device, dir), {"switchDir", "serviceStatusDir"});
  } catch (Nox::NameInUseException const& e) {
    return e.what();
  }
  return "";
}

TEST_F(StateMachineOwner, ADifferingConstructorArgumentIsNamedWithBothValues) {
  std::tuple<Ptr<Device>, Ptr<Dir>> const held{device, nullptr};
  auto const text = [](char const* name, void const* is, void const* was) {
    return std::string("Reinstantiating the pointer interface where constructor parameter attribute _") + name +
           " has a different value of " + Nox::valueToStrepOfRawPtr(is).charPtr() + " than the current value of " +
           Nox::valueToStrepOfRawPtr(was).charPtr() + " not allowed";
  };
  EXPECT_EQ(nameInUseText(held, device, nullptr), "");
  EXPECT_EQ(nameInUseText(held, other, nullptr), text("switchDir", other.get(), device.get()));
  EXPECT_EQ(nameInUseText(held, nullptr, nullptr), text("switchDir", nullptr, device.get()));
  EXPECT_EQ(nameInUseText(held, device, dir), text("serviceStatusDir", dir.get(), nullptr));
  EXPECT_EQ(nameInUseText(held, other, dir), text("switchDir", other.get(), device.get())) << "the first that differs";
}

TEST_F(StateMachineOwner, TheSameKeyGivesTheSameMemberWithTheSameArgumentsAndThrowsWithOthers) {
  Owner owner;
  auto const member = owner.otherIs("x", device, dir);
  EXPECT_EQ(owner.otherIs("x", device, dir), member);
  EXPECT_THROW(owner.otherIs("x", device, nullptr), Nox::NameInUseException);
  EXPECT_THROW(owner.otherIs("x", other, dir), Nox::NameInUseException);
  EXPECT_EQ(owner.others.member("x"), member) << "the old member stays in place";
  EXPECT_EQ(owner.others.members(), 1U);
  EXPECT_EQ(member->constructorArgs(), std::tie(device, dir));
}

}  // namespace

}  // namespace StateMachineOwnerTest
