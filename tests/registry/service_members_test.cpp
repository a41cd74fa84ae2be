// Tests of the members that stand for services: how they leave, when they are zombies, how they follow their side.
#include <gmock/gmock.h>

#include "service_steps.h"

namespace ServiceMembersTest {
namespace {

using namespace ServiceTest;
using Controller::ServiceConfigDir;
using Controllerdb::SwitchConfigSm;
using ControllerRegistration::SwitchConfig;
using Nox::Name;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// One side's collection of members under the names of its own.
struct Side {
  char const* name;
  void (*add)(OneSwitch&, char const* service);
  void (*remove)(OneSwitch&, char const* service);
  void (*is)(SwitchConfigSm&, SwitchConfigSm::RecordPtr const&);
  void (*del)(SwitchConfigSm&, Name const&);
  void (*delAll)(SwitchConfigSm&);
  Lines (*members)(OneSwitch const&);
  void (*announce)(OneSwitch const&);
};
Side const kSides[] = {
    {"switch",
     [](OneSwitch& one, char const* service) { one.configure(service, kOne); },
     [](OneSwitch& one, char const* service) { one.config->serviceConfigDel(service); },
     [](SwitchConfigSm& sm, SwitchConfigSm::RecordPtr const& record) { sm.serviceConfigIs(record); },
     [](SwitchConfigSm& sm, Name const& service) { sm.serviceConfigDel(service); },
     [](SwitchConfigSm& sm) { sm.serviceConfigDelAll(); },
     &switchMembers,
     [](OneSwitch const& one) {
       one.config->announce<Nox::unkeyed(&SwitchConfig::NotifieeConst::onServiceConfignoxImmediate)>();
     }},
    {"controller",
     [](OneSwitch& one, char const* service) { one.configureController(service, kOne); },
     [](OneSwitch& one, char const* service) { one.serviceConfigDir->serviceDel(service); },
     [](SwitchConfigSm& sm, SwitchConfigSm::RecordPtr const& record) { sm.localServiceConfigIs(record); },
     [](SwitchConfigSm& sm, Name const& service) { sm.localServiceConfigDel(service); },
     [](SwitchConfigSm& sm) { sm.localServiceConfigDelAll(); },
     &controllerMembers,
     [](OneSwitch const& one) {
       one.serviceConfigDir->announce<Nox::unkeyed(&ServiceConfigDir::NotifieeConst::onServicenoxImmediate)>();
     }},
};
class ServiceMembers : public testing::TestWithParam<Side> {
 protected:
  ServiceMembers() {
    for (char const* service : {"a", "b", "c"}) side.add(one, service);
    one.start();
    steps.take();
  }
  /// A step of each service, in the members' order.
  Lines ofEach(char const* tail = "") const {
    Lines all;
    for (std::string const& service : side.members(one)) all.push_back(side.name + (" " + service) + tail);
    return all;
  }

  Side const& side = GetParam();
  OneSwitch one;
  Steps steps;
};
INSTANTIATE_TEST_SUITE_P(Of, ServiceMembers, testing::ValuesIn(kSides),
                         [](auto const& side) { return std::string(side.param.name); });

TEST_P(ServiceMembers, LeaveWithOneTraceWhicheverWayTheyAreRemoved) {
  side.remove(one, "a");
  EXPECT_THAT(steps.take(), ElementsAre(side.name + std::string(" a leaves")));
  side.del(*one.sm, "b");
  EXPECT_THAT(steps.take(), ElementsAre(side.name + std::string(" b leaves")));
  EXPECT_THAT(side.members(one), ElementsAre("c"));
  side.delAll(*one.sm);
  EXPECT_THAT(steps.take(), ElementsAre(side.name + std::string(" c leaves")));
  EXPECT_THAT(side.members(one), IsEmpty());
}

TEST_P(ServiceMembers, RemovalOfAnAbsentNameDoesNothing) {
  side.del(*one.sm, "d");
  side.remove(one, "d");
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_EQ(side.members(one).size(), 3U);
}

TEST_P(ServiceMembers, AllLeaveInOrder) {
  Lines const expected = ofEach(" leaves");
  side.delAll(*one.sm);
  EXPECT_EQ(steps.take(), expected);
}

TEST_P(ServiceMembers, EachTracesOnceWhenTheMachineGoes) {
  Lines const expected = ofEach(" leaves");
  one.sm = nullptr;
  EXPECT_EQ(steps.take(), expected);
}

TEST_P(ServiceMembers, TraceEveryChangeOfTheirZombieStateAndNoOther) {
  Lines const expected = ofEach(" leaves");
  one.sm->noxDoZombieReactors(true);
  EXPECT_EQ(steps.take(), expected);
  one.sm->noxDoZombieReactors(true);
  EXPECT_THAT(steps.take(), IsEmpty());
  one.sm->noxDoZombieReactors(false);
  EXPECT_EQ(steps.take(), expected);
  one.sm->noxDoZombieReactors(true);
  steps.take();
  side.delAll(*one.sm);  // they are zombies: no change is left
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_THAT(side.members(one), IsEmpty());
}

TEST_P(ServiceMembers, OfAZombieMachineAreZombiesWhateverTheyWatch) {
  one.sm->noxDoZombieReactors(true);
  steps.take();
  auto const other = makeService("a", kTwo);
  auto const fresh = makeService("d", kTwo);
  side.is(*one.sm, other);
  EXPECT_THAT(steps.take(), IsEmpty());
  side.is(*one.sm, fresh);
  EXPECT_EQ(side.members(one).size(), 4U);
  steps.take();
  other->enabledIs(false);
  fresh->enabledIs(false);
  EXPECT_THAT(steps.take(), IsEmpty());
  one.sm->noxDoZombieReactors(false);
  steps.take();
  other->enabledIs(true);
  fresh->enabledIs(true);
  EXPECT_THAT(
      steps.take(),
      ElementsAre(side.name + std::string(" a"), "negotiated a", side.name + std::string(" d"), "negotiated d"));
}

TEST_P(ServiceMembers, WatchTheSameRecordUnmoved) {
  auto const record = makeService("d", kOne);
  side.is(*one.sm, record);
  side.is(*one.sm, record);
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_EQ(side.members(one).size(), 4U);
}

TEST_P(ServiceMembers, RefuseANullRecordAndStay) {
  std::string const attribute = side.name == std::string("switch") ? "serviceConfig" : "localServiceConfig";
  try {
    side.is(*one.sm, nullptr);
    FAIL() << "accepted";
  } catch (Nox::RangeException const& exception) {
    EXPECT_EQ(exception.message(),
              "null _" + attribute + " parameter to mutator for Controllerdb::SwitchConfigSm::" + attribute +
                  " not allowed\"");
  }
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_EQ(side.members(one).size(), 3U);
}

TEST_P(ServiceMembers, AreBroughtIntoLineAtOnceWithTheWholeOfTheirSide) {
  one.sm->hasNotificationActiveIs(false);
  side.remove(one, "b");
  side.add(one, "d");
  side.add(one, "a");  // another record
  one.sm->hasNotificationActiveIs(true);
  EXPECT_THAT(steps.take(), IsEmpty());
  side.announce(one);
  std::string const name = side.name;
  EXPECT_THAT(steps.take(), ElementsAre(name + " a", "negotiated a", name + " b leaves"));
  EXPECT_THAT(side.members(one), UnorderedElementsAre("a", "c", "d"));
  side.announce(one);
  EXPECT_THAT(steps.take(), IsEmpty());
}

TEST_P(ServiceMembers, AllLeaveWhenTheirSideIsFoundEmpty) {
  one.sm->hasNotificationActiveIs(false);
  for (char const* service : {"a", "b", "c"}) side.remove(one, service);
  one.sm->hasNotificationActiveIs(true);
  Lines const expected = ofEach(" leaves");
  side.announce(one);
  EXPECT_EQ(steps.take(), expected);
  EXPECT_THAT(side.members(one), IsEmpty());
}

TEST(ServiceMember, ZombieMemberComesBackWithAnotherRecordWithoutANegotiation) {
  ReadySwitch one;
  one.sm->serviceConfig("a")->noxDoZombieReactors(true);
  one.sm->localServiceConfig("b")->noxDoZombieReactors(true);
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a leaves", "controller b leaves"));
  auto const a = one.configure("a", kTwo);
  auto const b = one.configureController("b", kTwo);
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a leaves", "controller b leaves"));
  a->enabledIs(false);
  b->enabledIs(false);
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a", "negotiated a", "controller b", "negotiated b"));
}

TEST(ServiceMember, MemberThatIsKeptKnowsNoMachineAnyMore) {
  ReadySwitch one;
  auto const removed = one.sm->serviceConfig("a");
  auto const removedLocal = one.sm->localServiceConfig("a");
  auto const left = one.sm->serviceConfig("b");
  auto const leftLocal = one.sm->localServiceConfig("b");
  one.sm->serviceConfigDel("a");
  one.sm->localServiceConfigDel("a");
  one.sm = nullptr;
  one.steps.take();
  auto const touch = [](auto const& member) {
    member->handleEnabled();
    member->doCleanup();
    member->noxDoZombieReactors(false);
    member->onEnabled();
  };
  touch(removed);
  touch(removedLocal);
  touch(left);
  touch(leftLocal);
  EXPECT_THAT(one.steps.take(), IsEmpty());
}

}  // namespace

}  // namespace ServiceMembersTest
