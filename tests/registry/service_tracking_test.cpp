// Tests of the reactors that mirror both sides' services: what negotiates, and what does not.
#include <gmock/gmock.h>

#include "service_steps.h"

namespace ServiceTrackingTest {
namespace {

using namespace ServiceTest;
using Controller::ServiceConfigDir;
using ControllerRegistration::SwitchConfig;
using Nox::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

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
  one.controllerA->enabledIs(false);  // no reactor watches the old record any more
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
  WriteHook const hook([](std::string const& line) { EXPECT_EQ(line, "switch.serviceConfig[b] deleted"); });
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
  WriteHook const hook([](std::string const& line) { EXPECT_EQ(line, "a.enabled = 0"); });
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

}  // namespace

}  // namespace ServiceTrackingTest
