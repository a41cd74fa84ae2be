// State machines: switching on and off, zombies, inputs, and machines that go while they run.
#include "framework/state_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "framework/dir.h"
#include "support/sample.h"

namespace {

using Nox::Dir;
using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;
using Sample::Counted;
using Sample::Device;
using Sample::Log;
using testing::ElementsAre;
using testing::IsEmpty;

Log theLog;
Log heard() { return std::exchange(theLog, {}); }

/// A machine that watches a device, a directory, and in a collection any number of further devices; with child machines
/// of its own class. All of them write down what is done to them.
class LinkSm : public Nox::StateMachine<LinkSm>, public Nox::HashMapLink, Counted {
 public:
  static Nox::NoxType const noxType;

  /// A reactor that writes down how it is switched.
  template <class In>
  class Switched : public Nox::Reactor<LinkSm, In> {
   public:
    Switched(Ptr<In> const& input, LinkSm* sm, std::string name = {})
        : Nox::Reactor<LinkSm, In>(input, sm), name_(sm->name() + name) {}
    void hasNotificationActiveIs(bool on) override {
      theLog.push_back(name_ + (on ? " on" : " off"));
      Nox::Reactor<LinkSm, In>::hasNotificationActiveIs(on);
      if (on && then) then();
    }
    void noxDoZombieReactors(bool zombie) override {
      if (zombie) theLog.push_back(name_ + " zombie");
      Nox::Reactor<LinkSm, In>::noxDoZombieReactors(zombie);
    }
    std::function<void()> then;  // what happens when it is switched on

   protected:
    std::string name_;
  };
  class NoxDevice : public Switched<Device const> {
   public:
    NoxDevice(Ptr<Device const> const& input, LinkSm* sm) : Switched(input, sm, ".device") {}
    void onSpeed() override {
      if (auto sm = live()) sm->handleDevice();
    }

   protected:
    void handleNotifier(LinkSm& sm) override { sm.handleDevice(); }
  };
  class NoxDir : public Switched<Dir> {
   public:
    NoxDir(Ptr<Dir> const& input, LinkSm* sm) : Switched(input, sm, ".dir") {}
    void onEntry(Name name) override {
      if (auto sm = live()) sm->handleDir(name);
    }
    using LinkOfMachine = LinkSm;
    void linkSmIs(LinkSm* sm) { smIs(sm); }
  };
  class NoxPort : public Switched<Device const>, public Nox::HashMapLink {
   public:
    NoxPort(Ptr<Device const> const& input, LinkSm* sm)
        : Switched(input, sm, "." + std::string(input->name().view())), key_(input->name()) {}
    Name const& fwkKey() const { return key_; }
    void onSpeed() override {
      if (auto sm = live()) sm->handlePort(key_);
    }

   private:
    Name key_;
  };

  LinkSm(std::string name, Ptr<Device const> const& deviceInput, Ptr<Dir> const& dirInput)
      : name_(std::move(name)), key_(name_), args_(deviceInput, dirInput) {
    device_.start(*this, &LinkSm::newDevice, deviceInput);
    dir_.start(*this, &LinkSm::newDir, dirInput);
    handleInitialized();
  }
  ~LinkSm() override {
    hasNotificationActiveIs(false);
    orphanReactors();
    theLog.push_back(name_ + " gone");
  }

  std::string const& name() const { return name_; }
  Name const& fwkKey() const { return key_; }
  std::tuple<Ptr<Device const>, Ptr<Dir>> const& constructorArgs() const { return args_; }

  void handleInitialized() {
    if (initialized()) return;
    initializedIs(true);
    handleDevice();
  }
  void handleDevice() { handled(" device"); }
  void handleDir(Name const& entry) { handled(" dir " + std::string(entry.view())); }
  void handlePort(Name const& port) { handled(" port " + std::string(port.view())); }

  Nox::Input<NoxDevice>& device() { return device_; }
  Nox::Input<NoxDir>& dir() { return dir_; }
  void replaceDevice(Ptr<Device const> const& input) { device_.replace(*this, &LinkSm::newDevice, input); }
  void repointDevice(Ptr<Device const> const& input) { device_.repoint(*this, &LinkSm::newDevice, input); }
  void portIs(Ptr<Device const> const& input) { port_.newMember(newReactor<NoxPort>(input)); }
  Nox::HashMap<NoxPort, Name>& ports() { return port_; }
  ValidPtr<LinkSm> childIs(std::string const& name, Ptr<Device const> const& input) {
    ValidPtr<LinkSm> const child = Nox::make<LinkSm>(name, input, nullptr);
    child_.newMember(child);
    return child;
  }
  Nox::HashMap<LinkSm, Name>& children() { return child_; }

  std::function<void()> then;

 private:
  friend class Nox::StateMachine<LinkSm>;
  auto reactors() { return std::tie(device_, dir_, port_); }
  auto childSms() { return std::tie(child_); }

  ValidPtr<NoxDevice> newDevice(Ptr<Device const> const& input) { return newReactor<NoxDevice>(input); }
  ValidPtr<NoxDir> newDir(Ptr<Dir> const& input) { return newReactor<NoxDir>(input); }
  void handled(std::string const& what) {
    theLog.push_back(name_ + what);
    if (then) then();
    theLog.push_back(name_ + what + " done");
  }

  std::string name_;
  Name key_;
  std::tuple<Ptr<Device const>, Ptr<Dir>> args_;
  Nox::Input<NoxDevice> device_;
  Nox::Input<NoxDir> dir_;
  Nox::HashMap<NoxPort, Name> port_;
  Nox::HashMap<LinkSm, Name> child_;
};
constinit Nox::NoxType const LinkSm::noxType{"Sample::LinkSm", nullptr, nullptr};

class StateMachineTest : public testing::Test {
 protected:
  StateMachineTest() { heard(); }
  ~StateMachineTest() override {
    sm = nullptr;
    device = other = nullptr;
    EXPECT_EQ(Counted::alive, 0);
  }
  void write(Ptr<Device> const& d) { d->speedIs(d->speed() + 1); }

  Ptr<Device> device = Nox::make<Device>("device");
  Ptr<Device> other = Nox::make<Device>("other");
  Ptr<Dir> dir = Nox::make<Dir>("dir");
  Ptr<LinkSm> sm = Nox::make<LinkSm>("sm", device, dir);
};

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

TEST_F(StateMachineTest, AReactorWithAnotherNotifierRunsTheFullPass) {
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

TEST_F(StateMachineTest, AReactorWithTheSameNotifierRunsNoHandler) {
  auto const& reactor = sm->device().reactor();
  reactor->isRegisteredNotifieeIs(false);
  heard();
  reactor->notifierIs(device);
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_FALSE(reactor->isRegisteredNotifiee()) << "nothing at all happens";
}

TEST_F(StateMachineTest, AReactorWithANullNotifierRunsNoHandlerAndStaysRegistered) {
  auto const& reactor = sm->device().reactor();
  heard();
  reactor->notifierIs(nullptr);
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  EXPECT_EQ(sm->device().get(), nullptr);
  write(device);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, ANotifierOfAnotherClassCountsAsNull) {
  auto const& reactor = sm->device().reactor();
  heard();
  reactor->notifierIs(dir);
  EXPECT_EQ(reactor->notifier(), nullptr);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, ANewNotifierRegistersAReactorThatWasWithdrawn) {
  auto const& reactor = sm->device().reactor();
  reactor->isRegisteredNotifieeIs(false);
  reactor->notifierIs(other);
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  heard();
  write(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done"));
}

TEST_F(StateMachineTest, AZombieReactorTakesANewNotifierWithoutAPass) {
  auto const& reactor = sm->device().reactor();
  reactor->noxDoZombieReactors(true);
  heard();
  reactor->notifierIs(other);
  EXPECT_EQ(reactor->notifier(), other);
  write(other);
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(StateMachineTest, ReplacingAnInputRetiresTheReactorAndMakesAFreshOneWithoutAPass) {
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

TEST_F(StateMachineTest, RepointingAnInputKeepsItsReactorAndRunsThePass) {
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

TEST_F(StateMachineTest, AMachineReleasedInThePassOfANewInputStaysUntilThePassHasEnded) {
  LinkSm& machine = *sm;
  machine.then = [&] { sm = nullptr; };
  heard();
  machine.repointDevice(other);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm device done", "sm gone"));
}

TEST_F(StateMachineTest, APassMayRetireTheInputThatItRunsFor) {
  sm->then = [&] { sm->replaceDevice(nullptr); };
  heard();
  sm->repointDevice(other);
  EXPECT_EQ(sm->device().reactor(), nullptr);
  EXPECT_THAT(heard(), ElementsAre("sm device", "sm.device zombie", "sm.device off", "sm device done"));
  write(device);
  write(other);
  EXPECT_THAT(heard(), IsEmpty());
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

/// Owns one machine, and others in a collection, as a root does.
class Owner {
 public:
  bool smIs(Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    return Nox::instantiateSm(*this, sm, &Owner::newSm, device, dir);
  }
  ValidPtr<LinkSm> activeSmIs(Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    return Nox::instantiateSwitchedOn(*this, sm, &Owner::newSm, device, dir);
  }
  void othersNotify(Name const& key, Ptr<LinkSm> const& member) {
    EXPECT_EQ(member->fwkKey(), key);
    EXPECT_FALSE(others.has(key));
    theLog.push_back("notified " + member->name());
  }
  using Others = Nox::HashMap<LinkSm, Name>;
  using OthersIterator = Nox::OwnedIterator<Others, &Owner::othersNotify>;

  Ptr<LinkSm> sm;
  Others others;
  int made = 0;
  bool fails = false;

 private:
  ValidPtr<LinkSm> newSm(Ptr<Device const> const& device, Ptr<Dir> const& dir) {
    if (fails) return Ptr<LinkSm>();
    return Nox::make<LinkSm>("sm" + std::to_string(++made), device, dir);
  }
};

TEST_F(StateMachineTest, InstantiatingWithTheSameArgumentsKeepsTheMachineAndWithOthersReplacesIt) {
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

TEST_F(StateMachineTest, AReplacedMachineGoesAfterTheNewOneHasRunItsFirstPass) {
  Owner owner;
  owner.smIs(device, nullptr);
  heard();
  owner.smIs(other, nullptr);
  EXPECT_THAT(heard(), ElementsAre("sm2 device", "sm2 device done", "sm1 gone"));
}

TEST_F(StateMachineTest, AFactoryThatYieldsNothingFailsAndLeavesTheMachineThere) {
  Owner owner;
  owner.smIs(device, nullptr);
  Ptr<LinkSm> const first = owner.sm;
  owner.fails = true;
  EXPECT_THROW(owner.smIs(other, nullptr), Nox::RangeException);
  EXPECT_EQ(owner.sm, first);
}

TEST_F(StateMachineTest, AnOwnerSwitchesAMachineOnWhenItIsInPlaceAndOffWhenItIsTakenOut) {
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

TEST_F(StateMachineTest, AnOwnerHearsOfEachMemberThatItRemoves) {
  Owner owner;
  for (char const* name : {"x", "y", "z"}) owner.others.newMember(Nox::make<LinkSm>(name, nullptr, nullptr));
  std::vector<std::string> order;
  for (auto const& member : owner.others) order.push_back(member.name());
  heard();
  owner.others.deleteMember(Owner::OthersIterator(owner, owner.others, Name(order[1])));
  EXPECT_THAT(heard(), ElementsAre("notified " + order[1], order[1] + " gone"));
  owner.others.deleteAll(Owner::OthersIterator(owner, owner.others));
  EXPECT_THAT(heard(),
              ElementsAre("notified " + order[0], order[0] + " gone", "notified " + order[2], order[2] + " gone"));
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

TEST_F(StateMachineTest, ADifferingConstructorArgumentIsNamedWithBothValues) {
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

}  // namespace
