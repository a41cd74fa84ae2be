// Tests of the reactors that mirror both sides' services: what negotiates, what does not, and walks over what changes.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <set>

#include "negotiation_model.h"

namespace {

using Controller::ServiceConfigDir;
using Controller::ServiceConfigV1;
using Controllerdb::SwitchConfigSm;
using ControllerRegistration::SwitchConfig;
using Nox::Name;
using Nox::Ptr;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Lines = std::vector<std::string>;

/// What the machine did, of its text trace: "switch acl" and "controller acl" for a member's negotiation, "switch acl
/// leaves" and "controller acl leaves" for its clean-up, "negotiated acl" for a negotiation itself, and the ends of a
/// pass.
class Steps {
 public:
  Lines take() {
    Lines steps;
    for (std::string const& line : capture_.lines()) {
      std::string const service = line.substr(line.rfind(' ') + 1);
      std::string const tag = line.substr(0, line.find(' ', 2));
      if (tag == "8 284") steps.push_back("switch " + service);
      if (tag == "8 297") steps.push_back("controller " + service);
      if (tag == "8 290") steps.push_back("switch " + service + " leaves");
      if (tag == "8 303") steps.push_back("controller " + service + " leaves");
      if (tag == "8 169") steps.push_back("negotiated " + service);
      if (tag == "5 103") steps.emplace_back("ready");
      if (tag == "1 128") steps.emplace_back("answered");
      if (tag == "1 133") steps.emplace_back("shut down");
    }
    capture_.clear();
    return steps;
  }

 private:
  TraceCapture capture_{{1, 5, 8}};
};

template <class Members>
Lines namesOf(Members const& members) {
  Lines names;
  for (auto& member : members) names.emplace_back(member.name().view());
  return names;
}
Lines switchMembers(OneSwitch const& one) { return namesOf(one.sm->serviceConfig()); }
Lines controllerMembers(OneSwitch const& one) { return namesOf(one.sm->localServiceConfig()); }

Service const kOne{true, {{1, "s1"}}};
Service const kTwo{true, {{1, "s1"}, {2, "s2"}}};

/// A ready switch with the services "a" and "b", which the controller configures too, and negotiated.
struct ReadySwitch : OneSwitch {
  ReadySwitch() {
    a = configure("a", kOne);
    b = configure("b", kOne);
    controllerA = configureController("a", kTwo);
    controllerB = configureController("b", kTwo);
    hear();
    start();
    steps.take();
  }
  Ptr<ServiceConfigV1> a, b, controllerA, controllerB;
  Steps steps;
};

// Members, and what a ready pass does with them.

TEST(ServiceTracking, ReadyPassNegotiatesEachServiceOfTheSwitchBeforeItIsReady) {
  OneSwitch one;
  one.configure("a", kOne);
  one.configure("b", kOne);
  one.configureController("c", kOne);
  one.hear();
  Steps steps;
  one.start();
  EXPECT_THAT(switchMembers(one), UnorderedElementsAre("a", "b"));
  EXPECT_THAT(controllerMembers(one), ElementsAre("c"));
  Lines expected;
  for (std::string const& service : switchMembers(one)) {
    expected.push_back("switch " + service);
    expected.push_back("negotiated " + service);
  }
  expected.insert(expected.end(), {"ready", "answered"});
  EXPECT_EQ(steps.take(), expected);
  one.bump();
  EXPECT_EQ(steps.take(), expected);
}

TEST(ServiceTracking, NegotiationsOfAPassPrecedeTheSwitchsRows) {
  OneSwitch one;
  one.configure("a", kOne);
  one.configureController("a", kOne);
  one.hear();
  Lines entities;
  WriteHook const hook([&](std::string const& line) {
    std::string const entity = line.substr(0, line.find_first_of("./"));
    if (entities.empty() || entities.back() != entity) entities.push_back(entity);
  });
  one.start();
  EXPECT_THAT(entities,
              ElementsAre("switch", "controller", "switch", "controller", "switch", "controllerStatus", "switch"));
}

TEST(ServiceTracking, ShutdownPassNegotiatesNothing) {
  OneSwitch one;
  one.configure("a", kOne);
  one.configureController("a", kOne);
  Steps steps;
  one.start();
  one.bump();
  EXPECT_THAT(steps.take(), ElementsAre("shut down", "shut down"));
  EXPECT_EQ(one.ofSwitch("a"), "none");
  EXPECT_EQ(one.ofController("a"), "none");
}

TEST(ServiceTracking, MemberTracesItsOwnerAndItsServiceOnBothChannels) {
  OneSwitch one;
  auto const a = one.configure("a", kOne);
  auto const b = one.configureController("b", kOne);
  one.start();
  TraceCapture const text({8});
  RingCapture const ring;
  a->enabledIs(false);
  b->enabledIs(false);
  one.config->serviceConfigDel("a");
  one.serviceConfigDir->serviceDel("b");
  std::string const member = "void Controllerdb::SwitchConfigSm::";
  std::string const entry = member + "doVersionNegotiation(Nox::Name) ";
  EXPECT_THAT(text.lines(),
              ElementsAre("8 284 " + member + "NoxServiceConfig::handleEnabled() leaf-1 a",
                          "8 169 " + entry + "leaf-1 a",
                          "8 297 " + member + "NoxLocalServiceConfig::handleEnabled() leaf-1 b",
                          "8 169 " + entry + "leaf-1 b",
                          "8 290 " + member + "NoxServiceConfig::doCleanup() leaf-1 a",
                          "8 303 " + member + "NoxLocalServiceConfig::doCleanup() leaf-1 b"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 282 " + member + "NoxServiceConfig::handleEnabled() leaf-1 a",
                          "8 168 " + entry + "1 a",
                          "4 200 Controller doesn't support service a",
                          "8 295 " + member + "NoxLocalServiceConfig::handleEnabled() leaf-1 b",
                          "8 168 " + entry + "1 b"));
}

// What negotiates.

TEST(ServiceTracking, ReplacedRecordOfTheControllerIsNegotiatedOnceByTheSameMember) {
  ReadySwitch one;
  auto const member = one.sm->localServiceConfig("a");
  auto const record = one.configureController("a", {true, {{7, ""}}});
  EXPECT_THAT(one.steps.take(), ElementsAre("controller a", "negotiated a"));
  EXPECT_EQ(one.sm->localServiceConfig("a"), member);
  EXPECT_EQ(member->input(), record);
  EXPECT_EQ(one.ofSwitch("a"), "1 1 0 0");
  one.controllerA->enabledIs(false);  // nobody watches the old record any more
  EXPECT_THAT(one.steps.take(), IsEmpty());
}

TEST(ServiceTracking, ReplacedRecordOfTheSwitchIsNegotiatedOnceByTheSameMember) {
  ReadySwitch one;
  auto const member = one.sm->serviceConfig("a");
  auto const record = one.configure("a", {true, {{2, "new"}}});
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a", "negotiated a"));
  EXPECT_EQ(one.sm->serviceConfig("a"), member);
  EXPECT_EQ(member->input(), record);
  EXPECT_EQ(one.ofController("a"), "1 1 1 2 new");
  one.a->enabledIs(false);
  EXPECT_THAT(one.steps.take(), IsEmpty());
}

TEST(ServiceTracking, EnabledOfEitherSideNegotiates) {
  ReadySwitch one;
  one.a->enabledIs(false);
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a", "negotiated a"));
  EXPECT_EQ(one.ofSwitch("a"), "0 0 0 0");
  one.controllerB->enabledIs(false);
  EXPECT_THAT(one.steps.take(), ElementsAre("controller b", "negotiated b"));
  EXPECT_EQ(one.ofController("b"), "0 0 0 0");
  one.controllerB->enabledIs(false);  // no change
  EXPECT_THAT(one.steps.take(), IsEmpty());
}

TEST(ServiceTracking, EnabledOfTheControllersServiceNegotiatesWhileTheSwitchIsNotHeard) {
  OneSwitch one;
  one.configure("a", kOne);
  auto const record = one.configureController("a", {false, {{1, "c1"}}});
  one.start();
  EXPECT_EQ(one.ofSwitch("a"), "none");
  record->enabledIs(true);
  EXPECT_EQ(one.ofSwitch("a"), "1 1 1 1 s1");
  EXPECT_EQ(one.ofController("a"), "1 1 1 1 s1");
}

TEST(ServiceTracking, RecordOnBothSidesIsNegotiatedByEach) {
  OneSwitch one;
  auto const shared = one.configure("a", kOne);
  one.serviceConfigDir->serviceIs(shared);
  one.start();
  Steps steps;
  shared->enabledIs(false);
  EXPECT_THAT(steps.take(), ElementsAre("switch a", "negotiated a", "controller a", "negotiated a"));
}

// What does not.

TEST(ServiceTracking, FirstSightNegotiatesNothingUntilTheNextTrigger) {
  ReadySwitch one;
  one.configure("c", kOne);
  one.configureController("c", kTwo);
  EXPECT_THAT(one.steps.take(), IsEmpty());
  EXPECT_EQ(one.ofSwitch("c"), "none");
  EXPECT_EQ(one.ofController("c"), "none");
  one.bump();
  EXPECT_EQ(one.ofSwitch("c"), "1 1 1 1 s1");
  EXPECT_EQ(one.ofController("c"), "1 1 1 1 s1");
}

TEST(ServiceTracking, RemovedServiceOfTheSwitchKeepsItsStatusAndIsNegotiatedNoMore) {
  ReadySwitch one;
  WriteHook const hook([](std::string const& line) { EXPECT_EQ(line, "switch.onServiceConfig[b] deleted"); });
  one.config->serviceConfigDel("b");
  EXPECT_THAT(one.steps.take(), ElementsAre("switch b leaves"));
  EXPECT_THAT(switchMembers(one), ElementsAre("a"));
  EXPECT_EQ(one.ofSwitch("b"), "1 1 1 1 s1");
  EXPECT_EQ(one.ofController("b"), "1 1 1 1 s1");
}

TEST(ServiceTracking, RemovedServiceOfTheSwitchKeepsItsStatusThroughPassesAndTriggers) {
  ReadySwitch one;
  one.config->serviceConfigDel("b");
  one.steps.take();
  one.bump();
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a", "negotiated a", "ready", "answered"));
  one.controllerB->enabledIs(false);
  EXPECT_THAT(one.steps.take(), ElementsAre("controller b", "negotiated b"));
  EXPECT_EQ(one.ofSwitch("b"), "1 1 1 1 s1");
  EXPECT_EQ(one.ofController("b"), "1 1 1 1 s1");
}

TEST(ServiceTracking, RemovedServiceOfTheControllerIsNegotiatedAtTheNextTrigger) {
  ReadySwitch one;
  one.serviceConfigDir->serviceDel("a");
  EXPECT_THAT(one.steps.take(), ElementsAre("controller a leaves"));
  EXPECT_EQ(one.ofSwitch("a"), "1 1 1 1 s1");
  one.bump();
  EXPECT_EQ(one.ofSwitch("a"), "1 1 0 0");
  EXPECT_EQ(one.ofController("a"), "1 1 1 1 s1");  // kept for good
}

TEST(ServiceTracking, ChangedVersionsNegotiateNothingUntilTheNextTrigger) {
  ReadySwitch one;
  offer(*one.a, {{2, "new"}});
  offer(*one.controllerB, {{5, ""}});
  EXPECT_THAT(one.steps.take(), IsEmpty());
  EXPECT_EQ(one.ofSwitch("a"), "1 1 1 1 s1");
  EXPECT_EQ(one.ofSwitch("b"), "1 1 1 1 s1");
  one.bump();
  EXPECT_EQ(one.ofSwitch("a"), "1 1 1 2 new");
  EXPECT_EQ(one.ofSwitch("b"), "1 1 0 0");
}

TEST(ServiceTracking, ChangedOverrideNegotiatesNothingUntilTheNextTrigger) {
  ReadySwitch one;
  struct {
    char const* what;
    std::function<void()> change;
    char const* outcome;
  } const cases[] = {
      {"put",
       [&] {
         one.override("a", {false, {{1, ""}}});
       },
       "0 0 0 0"},
      {"changed", [&] { one.overrides->overrideService("a")->enabledIs(true); }, "1 1 1 1 s1"},
      {"other versions",
       [&] {
         offer(*one.overrides->overrideService("a"), {{9, ""}});
       },
       "1 1 0 0"},
      {"another record",
       [&] {
         one.override("a", {true, {{1, ""}}});
       },
       "1 1 1 1 s1"},
      {"disabled", [&] { one.overrides->overrideService("a")->enabledIs(false); }, "0 0 0 0"},
      {"removed", [&] { one.overrides->overrideServiceDel("a"); }, "1 1 1 1 s1"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.what);
    std::string const before = one.ofSwitch("a");
    c.change();
    EXPECT_THAT(one.steps.take(), IsEmpty());
    EXPECT_EQ(one.ofSwitch("a"), before);
    one.bump();
    EXPECT_EQ(one.ofSwitch("a"), c.outcome);
    one.steps.take();
  }
}

TEST(ServiceTracking, OverrideIsTracedBeforeTheServiceIsFoundMissingAtTheSwitch) {
  OneSwitch one;
  auto const record = one.configureController("a", kOne);
  one.override("a", kTwo);
  one.start();
  TraceCapture const text({4, 8});
  RingCapture const ring;
  WriteHook const hook([](std::string const& line) { EXPECT_EQ(line, "a.onEnabled = 0"); });
  record->enabledIs(false);
  std::string const member = "void Controllerdb::SwitchConfigSm::";
  EXPECT_THAT(text.lines(),
              ElementsAre("8 297 " + member + "NoxLocalServiceConfig::handleEnabled() leaf-1 a",
                          "8 169 " + member + "doVersionNegotiation(Nox::Name) leaf-1 a",
                          "4 177 using override versions for service: a"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 295 " + member + "NoxLocalServiceConfig::handleEnabled() leaf-1 a",
                          "8 168 " + member + "doVersionNegotiation(Nox::Name) 1 a"));
}

TEST(ServiceTracking, MemberThatIsGoneByThenHearsNothing) {
  ReadySwitch one;
  {
    Nox::Turn const turn;
    one.config->serviceConfigDel("a");
    one.a->enabledIs(false);
    one.serviceConfigDir->serviceDel("b");
    one.controllerB->enabledIs(false);
  }
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a leaves", "controller b leaves"));
}

TEST(ServiceTracking, MachineThatIsSwitchedOffHearsNothing) {
  ReadySwitch one;
  one.sm->hasNotificationActiveIs(false);
  one.a->enabledIs(false);
  one.controllerA->enabledIs(false);
  one.configure("c", kOne);
  one.serviceConfigDir->serviceDel("b");
  EXPECT_THAT(one.steps.take(), IsEmpty());
  one.sm->hasNotificationActiveIs(true);
  EXPECT_THAT(switchMembers(one), UnorderedElementsAre("a", "b"));
  one.a->enabledIs(true);
  EXPECT_THAT(one.steps.take(), ElementsAre("switch a", "negotiated a"));
}

// Removal, and zombies.

/// One side's collection of members under the names of its own.
struct Side {
  char const* name;
  void (*add)(OneSwitch&, char const* service);
  void (*remove)(OneSwitch&, char const* service);
  void (SwitchConfigSm::*is)(SwitchConfigSm::RecordPtr const&);
  void (SwitchConfigSm::*del)(Name const&);
  void (SwitchConfigSm::*delAll)();
  Lines (*members)(OneSwitch const&);
  void (*announce)(OneSwitch const&);
};
Side const kSides[] = {
    {"switch",
     [](OneSwitch& one, char const* service) { one.configure(service, kOne); },
     [](OneSwitch& one, char const* service) { one.config->serviceConfigDel(service); },
     &SwitchConfigSm::serviceConfigIs,
     &SwitchConfigSm::serviceConfigDel,
     &SwitchConfigSm::serviceConfigDelAll,
     &switchMembers,
     [](OneSwitch const& one) {
       one.config->announce<Nox::unkeyed(&SwitchConfig::NotifieeConst::onServiceConfignoxImmediate)>();
     }},
    {"controller",
     [](OneSwitch& one, char const* service) { one.configureController(service, kOne); },
     [](OneSwitch& one, char const* service) { one.serviceConfigDir->serviceDel(service); },
     &SwitchConfigSm::localServiceConfigIs,
     &SwitchConfigSm::localServiceConfigDel,
     &SwitchConfigSm::localServiceConfigDelAll,
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
  ((*one.sm).*side.del)("b");
  EXPECT_THAT(steps.take(), ElementsAre(side.name + std::string(" b leaves")));
  EXPECT_THAT(side.members(one), ElementsAre("c"));
  ((*one.sm).*side.delAll)();
  EXPECT_THAT(steps.take(), ElementsAre(side.name + std::string(" c leaves")));
  EXPECT_THAT(side.members(one), IsEmpty());
}

TEST_P(ServiceMembers, RemovalOfAnAbsentNameDoesNothing) {
  ((*one.sm).*side.del)("d");
  side.remove(one, "d");
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_EQ(side.members(one).size(), 3U);
}

TEST_P(ServiceMembers, AllLeaveInOrder) {
  Lines const expected = ofEach(" leaves");
  ((*one.sm).*side.delAll)();
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
  ((*one.sm).*side.delAll)();  // they are zombies: no change is left
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_THAT(side.members(one), IsEmpty());
}

TEST_P(ServiceMembers, OfAZombieMachineAreZombiesWhateverTheyWatch) {
  one.sm->noxDoZombieReactors(true);
  steps.take();
  auto const other = makeService("a", kTwo);
  auto const fresh = makeService("d", kTwo);
  ((*one.sm).*side.is)(other);
  EXPECT_THAT(steps.take(), IsEmpty());
  ((*one.sm).*side.is)(fresh);
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
  ((*one.sm).*side.is)(record);
  ((*one.sm).*side.is)(record);
  EXPECT_THAT(steps.take(), IsEmpty());
  EXPECT_EQ(side.members(one).size(), 4U);
}

TEST_P(ServiceMembers, RefuseANullRecordAndStay) {
  std::string const attribute = side.name == std::string("switch") ? "serviceConfig" : "localServiceConfig";
  try {
    ((*one.sm).*side.is)(nullptr);
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

TEST(ServiceTracking, ZombieMemberComesBackWithAnotherRecordWithoutANegotiation) {
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

// Another record, another directory.

/// Points the machine's reactor of an input at another one, as a host does that moves it.
template <class In>
void repoint(In const& from, Ptr<In> const& to) {
  from.noxNotifiees().first()->notifierIs(to);
}

TEST(ServiceTracking, AnotherRecordOfTheSwitchRunsThePassFirstAndBringsItsServicesIntoLineAfter) {
  ReadySwitch one;
  one.config->serviceConfigDel("b");
  one.configure("z", kOne);
  one.steps.take();
  Lines expected;
  for (std::string const& service : switchMembers(one)) {  // "a" and "z", in their order
    expected.push_back("switch " + service);
    expected.push_back("negotiated " + service);
  }
  expected.insert(expected.end(), {"ready", "answered", "switch a", "negotiated a", "switch z leaves"});

  auto const other = Nox::make<SwitchConfig>("switch");
  other->systemIdIs(systemId(1));
  other->enabledIs(true);
  other->serviceConfigIs(makeService("a", {true, {{2, "moved"}}}));
  other->serviceConfigIs(makeService("b", {true, {{2, "moved"}}}));
  repoint(*one.config, Ptr<SwitchConfig>(other));
  EXPECT_EQ(one.steps.take(), expected);
  EXPECT_THAT(switchMembers(one), UnorderedElementsAre("a", "b"));
  EXPECT_EQ(one.ofSwitch("a"), "1 1 1 2 moved");
  EXPECT_EQ(one.ofSwitch("b"), "1 1 1 1 s1");  // first seen after the pass
}

TEST(ServiceTracking, AnotherDirectoryOfTheControllerBringsItsServicesIntoLine) {
  ReadySwitch one;
  auto const other = Nox::make<ServiceConfigDir>("serviceConfig");
  other->serviceIs(makeService("a", {true, {{5, ""}}}));
  other->serviceIs(makeService("c", kOne));
  repoint(*one.serviceConfigDir, Ptr<ServiceConfigDir>(other));
  EXPECT_THAT(one.steps.take(), ElementsAre("controller a", "negotiated a", "controller b leaves"));
  EXPECT_THAT(controllerMembers(one), UnorderedElementsAre("a", "c"));
  EXPECT_EQ(one.ofSwitch("a"), "1 1 0 0");
}

TEST(ServiceTracking, ReplacedInputsRunNothing) {
  ReadySwitch one;
  auto const other = Nox::make<SwitchConfig>("switch");
  other->systemIdIs(systemId(1));
  one.sm->configIs(other);
  one.sm->serviceConfigDirIs(Nox::make<ServiceConfigDir>("serviceConfig"));
  one.sm->overrideServiceConfigDirIs(Nox::make<Controller::OverrideServiceConfigDir>("overrides"));
  EXPECT_THAT(one.steps.take(), IsEmpty());
  EXPECT_THAT(switchMembers(one), UnorderedElementsAre("a", "b"));
  EXPECT_THAT(controllerMembers(one), UnorderedElementsAre("a", "b"));
  other->serviceConfigIs(makeService("c", kOne));
  EXPECT_THAT(switchMembers(one), UnorderedElementsAre("a", "b", "c"));
}

// The ready pass's walk, while members go and come under it: a write of one negotiation removes them.

/// A ready switch with these services; `during(service)` runs inside the negotiation of each, once.
class Walk : public testing::Test {
 protected:
  void begin(unsigned services) {
    for (unsigned i = 0; i < services; ++i) one.configure("s" + std::to_string(i), kOne);
    one.hear();
    one.start();
    order = switchMembers(one);
  }
  /// The services that a pass negotiates, in order.
  Lines pass(std::function<void(std::string const& service)> const& during) {
    Lines negotiated;
    WriteHook const hook([&](std::string const& line) {
      std::string const begin = "switch/";
      std::string const end = ".onVersionNegotiationComplete = 1";
      if (line.size() < end.size() || line.compare(line.size() - end.size(), end.size(), end) != 0) return;
      negotiated.push_back(line.substr(begin.size(), line.find('/', begin.size()) - begin.size()));
      during(negotiated.back());
    });
    one.sm->handleSwitchConfig();
    return negotiated;
  }
  OneSwitch one;
  Lines order;
};

TEST_F(Walk, SurvivesTheRemovalOfTheMemberThatItStandsOn) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service == order[1]) one.sm->serviceConfigDel(service);
            }),
            order);
  EXPECT_EQ(switchMembers(one), (Lines{order[0], order[2], order[3], order[4]}));
}

TEST_F(Walk, PassesOverARemovedNextMember) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service == order[1]) one.sm->serviceConfigDel(order[2]);
            }),
            (Lines{order[0], order[1], order[3], order[4]}));
}

TEST_F(Walk, PassesOverARemovedNextMemberBehindARemovedCurrentOne) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service != order[1]) return;
              one.sm->serviceConfigDel(order[1]);
              one.sm->serviceConfigDel(order[2]);
            }),
            (Lines{order[0], order[1], order[3], order[4]}));
}

TEST_F(Walk, EndsWhenEveryMemberIsRemoved) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              if (service == order[1]) one.sm->serviceConfigDelAll();
            }),
            (Lines{order[0], order[1]}));
  EXPECT_THAT(switchMembers(one), IsEmpty());
  EXPECT_EQ(one.status->registrationGenId(), one.config->registrationGenId());
}

TEST_F(Walk, VisitsEveryMemberOfWhichEachRemovesItself) {
  begin(40);
  EXPECT_EQ(pass([&](std::string const& service) { one.sm->serviceConfigDel(service); }), order);
  EXPECT_THAT(switchMembers(one), IsEmpty());
}

TEST_F(Walk, DoesNotVisitAMemberAgainThatIsMadeAnew) {
  begin(5);
  EXPECT_EQ(pass([&](std::string const& service) {
              one.sm->serviceConfigDel(service);
              one.sm->serviceConfigIs(makeService(service, kOne));
            }),
            order);
  EXPECT_EQ(switchMembers(one), order);
}

TEST_F(Walk, VisitsWhatTheModelVisitsUnderRandomRemovalsAndReturns) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    one = OneSwitch();
    begin(1 + static_cast<unsigned>(random() % 24));
    // The model: positions in the order of all names, which of them are there, and where the walk stands.
    std::set<std::size_t> present;
    for (std::size_t i = 0; i < order.size(); ++i) present.insert(i);
    Lines expected;
    std::size_t at = 0;
    Lines const visited = pass([&](std::string const& service) {
      auto const next = present.lower_bound(at);
      if (next != present.end()) {
        expected.push_back(order[*next]);
        at = *next + 1;
      }
      EXPECT_EQ(service, expected.back());
      for (unsigned changes = static_cast<unsigned>(random() % 4); changes > 0; --changes) {
        std::size_t const which = random() % order.size();
        if (present.erase(which) != 0) {
          one.sm->serviceConfigDel(order[which]);
        } else {
          present.insert(which);
          one.sm->serviceConfigIs(makeService(order[which], kOne));
        }
      }
    });
    EXPECT_EQ(present.lower_bound(at), present.end()) << "the walk ended early";
    EXPECT_EQ(visited, expected);
    EXPECT_EQ(switchMembers(one).size(), present.size());
  }
}

}  // namespace
