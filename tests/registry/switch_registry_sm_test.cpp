// Tests of one registration directory's machine: when its switch is registered, and when it no longer is.
#include <gmock/gmock.h>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace SwitchRegistrySmTest {
namespace {

using namespace Controllerdb;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using testing::ElementsAre;
using testing::IsEmpty;

Nox::ValidPtr<Nox::Entity> something() { return Nox::make<Nox::Entity>("something"); }

TEST(SwitchRegistrySm, RegistersTheSwitchWithTheSecondOfItsTwoEntries) {
  for (bool const configFirst : {true, false}) {
    World w;
    w.enable();
    configFirst ? w.putConfig("leaf-1", systemId(1)) : w.putStatus("leaf-1");
    ASSERT_TRUE(w.registrySm("leaf-1"));
    EXPECT_FALSE(w.configSm("leaf-1"));
    w.enter("leaf-1", "note", something());
    EXPECT_FALSE(w.configSm("leaf-1"));
    configFirst ? w.putStatus("leaf-1") : w.putConfig("leaf-1", systemId(1));
    EXPECT_TRUE(w.configSm("leaf-1"));
  }
}

TEST(SwitchRegistrySm, GivesTheConfigurationMachineItsInputs) {
  World w(1);
  auto const sm = w.configSm("leaf-1");
  EXPECT_EQ(sm->config(), w.switchConfig("leaf-1"));
  EXPECT_EQ(sm->status(), w.switchStatus("leaf-1"));
  EXPECT_EQ(sm->heartbeatPeerTable(), w.peers);
  EXPECT_EQ(sm->controllerStatus(), w.controllerStatus);
  EXPECT_EQ(sm->serviceConfigDir(), w.serviceConfigDir);
  EXPECT_EQ(sm->overrideServiceConfigDir(), w.overrideServiceConfigDir);
  EXPECT_EQ(sm->controllerUUID(), "uuid-1");
  EXPECT_TRUE(sm->serviceStatusDir());
  EXPECT_EQ(sm->serviceStatusDir(), w.serviceStatusDir("leaf-1"));
  EXPECT_EQ(sm->switchId(), "leaf-1");
  EXPECT_EQ(sm->publishedMountsTable(), w.publishedMountsTable);
  EXPECT_EQ(sm->switchRegistrySm(), w.registrySm("leaf-1").get());
  EXPECT_TRUE(sm->hasNotificationActive());
}

TEST(SwitchRegistrySm, UnregistersTheSwitchWhenAnyEntryGoesUntilTheNextNotification) {
  World w(1);
  w.enter("leaf-1", "note", something());
  auto const before = w.configSm("leaf-1");
  w.removeEntry("leaf-1", "note");
  EXPECT_FALSE(w.configSm("leaf-1"));
  EXPECT_FALSE(before->hasNotificationActive());
  EXPECT_TRUE(w.registrySm("leaf-1"));
  w.enter("leaf-1", "note", something());
  EXPECT_TRUE(w.configSm("leaf-1"));
  EXPECT_NE(w.configSm("leaf-1"), before);
}

TEST(SwitchRegistrySm, TracesTheLossOfAnEntryAlsoWithoutAConfigurationMachine) {
  World w;
  w.putStatus("leaf-1");
  TraceCapture text({1, 3, 5, 8});
  RingCapture ring;
  WriteLog log;
  w.registrySm("leaf-1")->handleEntry("gone");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(text.lines(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) gone",
                          "3 171 gone entry deleted"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) gone",
                          "3 172 handleEntry un-registered switch:leaf-1"));
}

TEST(SwitchRegistrySm, IgnoresAnEntityThatIsNotInstantiated) {
  World w;
  w.enrol("leaf-1", systemId(1));
  auto const before = w.configSm("leaf-1");
  TraceCapture text({1, 3, 5, 8});
  RingCapture ring;
  w.dir("leaf-1")->entityPtrIs("note", something());
  EXPECT_EQ(w.configSm("leaf-1"), before);
  EXPECT_THAT(text.lines(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) note",
                          "8 177 note subdir added but not instantiated"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) note",
                          "8 177 note subdir added but not instantiated"));
}

// The messages of a registration: the record first, then the text. They carry the machine's name, not the entry's.
TEST(SwitchRegistrySm, TracesARegistrationInOrder) {
  World w;
  w.putConfig("leaf-1", systemId(1));
  TraceCapture text({1, 3, 8});
  RingCapture ring;
  w.putStatus("leaf-1");
  EXPECT_THAT(text.lines(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) status",
                          "8 180 status entry added in registry ",
                          "3 187 handleEntry registered switch: leaf-1",
                          "1 133 handleSwitchConfig shutdown",
                          "8 362 void Controllerdb::SwitchConfigSm::doCleanup() leaf-1"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) status",
                          "8 180 status entry added in registry ",
                          "3 186 handleEntry registered switch: leaf-1",
                          "5 90 handleSwitchConfig",
                          "5 80 switchReady: enabled 1 peerTable 0",
                          "1 134 handleSwitchConfig shutdown"));
}

TEST(SwitchRegistrySm, KeepsTheConfigurationMachineWhileNothingChanges) {
  World w(1);
  auto const before = w.configSm("leaf-1");
  WriteLog log;
  w.registrySm("leaf-1")->handleEntry("config");
  w.registrySm("leaf-1")->handleEntry("status");
  w.registrySm("leaf-1")->handleEntry();
  w.dir("leaf-1")->announce<&Nox::Dir::NotifieeConst::onEntityPtrnoxImmediate>();
  EXPECT_EQ(w.configSm("leaf-1"), before);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(SwitchRegistrySm, ImmediateNotificationLooksAtEveryEntry) {
  World w;
  w.enrol("leaf-1", systemId(1));
  TraceCapture text({8});
  RingCapture ring;
  w.dir("leaf-1")->announce<&Nox::Dir::NotifieeConst::onEntityPtrnoxImmediate>();
  ASSERT_EQ(text.lines().size(), 5U);
  EXPECT_EQ(text.lines()[0], "8 151 void Controllerdb::SwitchRegistrySm::handleEntry()");
  EXPECT_EQ(ring.messages()[0], text.lines()[1]) << "the entry message goes to the text alone";
}

// Replacement: the new machine's pass runs before the old one's clean-up, and the old one is only released.

TEST(SwitchRegistrySm, ReplacedMachineTakesTheRowsAlongUntilTheNextPass) {
  World w(1);
  Nox::Name const name = "leaf-1";
  w.dir(name)->entityIs("status", Nox::make<SwitchStatus>("leaf-1"));  // one put over another, without a removal
  EXPECT_EQ(w.rows(systemId(1)), "- - -");
  EXPECT_EQ(w.answer(name), "0 uuid-1 0") << "the new status has its answer";
  w.switchConfig(name)->registrationGenIdIs(1);
  EXPECT_EQ(w.rows(systemId(1)), "leaf-1 leaf-1 1");
}

TEST(SwitchRegistrySm, ReplacedMachineIsNotSwitchedOff) {
  World w(1);
  auto const before = w.configSm("leaf-1");
  w.dir("leaf-1")->entityIs("status", Nox::make<SwitchStatus>("leaf-1"));
  EXPECT_NE(w.configSm("leaf-1"), before);
  EXPECT_TRUE(before->hasNotificationActive());
}

// Each of the ten arguments on its own makes another machine; all equal make none.
TEST(SwitchRegistrySm, KeepsTheMachineOfTheVeryArgumentsOnly) {
  World w(1);
  auto const sm = w.registrySm("leaf-1");
  auto const held = sm->configSm()->constructorArgs();
  auto const with = [&](auto const& args) {
    return std::apply([&](auto const&... a) { return sm->configSmIs(a...); }, args);
  };
  EXPECT_EQ(with(held), sm->configSm());
  auto const check = [&](auto change, char const* what) {
    auto args = sm->configSm()->constructorArgs();
    auto const before = sm->configSm();
    change(args);
    auto const made = with(args);
    EXPECT_NE(made, before) << what;
    EXPECT_EQ(sm->configSm(), made) << what;
    EXPECT_TRUE(made->hasNotificationActive()) << what;
    EXPECT_EQ(made->constructorArgs(), args) << what;
    EXPECT_EQ(with(args), made) << what;
  };
  check([](auto& a) { std::get<0>(a) = Nox::make<SwitchConfig>("other"); }, "config");
  check([](auto& a) { std::get<1>(a) = Nox::make<SwitchStatus>("other"); }, "status");
  check([](auto& a) { std::get<2>(a) = nullptr; }, "heartbeatPeerTable");
  check([](auto& a) { std::get<3>(a) = nullptr; }, "controllerStatus");
  check([](auto& a) { std::get<4>(a) = nullptr; }, "serviceConfigDir");
  check([](auto& a) { std::get<5>(a) = nullptr; }, "overrideServiceConfigDir");
  check([](auto& a) { std::get<6>(a) = "uuid-2"; }, "controllerUUID");
  check([](auto& a) { std::get<7>(a) = nullptr; }, "serviceStatusDir");
  check([](auto& a) { std::get<8>(a) = "other"; }, "switchId");
  check([](auto& a) { std::get<9>(a) = nullptr; }, "publishedMountsTable");
}

TEST(SwitchRegistrySm, ComparesTextsByValue) {
  World w(1);
  auto const before = w.configSm("leaf-1");
  w.status->controllerUUIDIs("uuid-2");
  EXPECT_EQ(w.configSm("leaf-1"), before) << "nobody reacts to another identity";
  w.registrySm("leaf-1")->handleEntry("config");
  EXPECT_NE(w.configSm("leaf-1"), before);
  EXPECT_EQ(w.answer("leaf-1"), "0 uuid-2 0");
  auto const second = w.configSm("leaf-1");
  w.status->controllerUUIDIs(std::string("uuid-") + "2");
  w.registrySm("leaf-1")->handleEntry("config");
  EXPECT_EQ(w.configSm("leaf-1"), second);
}

TEST(SwitchRegistrySm, SwitchesOffTheMachineThatItRemoves) {
  World w(1);
  auto const sm = w.configSm("leaf-1");
  w.registrySm("leaf-1")->configSmDel();
  EXPECT_FALSE(w.configSm("leaf-1"));
  EXPECT_FALSE(sm->hasNotificationActive());
  w.registrySm("leaf-1")->configSmDel();
}

// Switches and inputs.

TEST(SwitchRegistrySm, InitializesOnceAndSilently) {
  World w(1);
  auto const sm = w.registrySm("leaf-1");
  EXPECT_TRUE(sm->initialized());
  TraceCapture text({1, 3, 5, 8});
  sm->handleInitialized();
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(SwitchRegistrySm, SaysThatItIsUninitializedAndDoesNothing) {
  World w;
  w.putStatus("leaf-1");
  auto const sm = w.registrySm("leaf-1");
  sm->initializedIs(false);
  w.putConfig("leaf-1", systemId(1));
  EXPECT_FALSE(w.configSm("leaf-1"));
  TraceCapture text({1, 3, 5, 8});
  RingCapture ring;
  sm->handleEntry();
  sm->handleEntry("config");
  EXPECT_THAT(text.lines(),
              ElementsAre("8 151 void Controllerdb::SwitchRegistrySm::handleEntry()",
                          "8 153 registrySm uninitialized",
                          "8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) config",
                          "8 164 registrySm uninitialized"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 153 registrySm uninitialized",
                          "8 162 void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name) config",
                          "8 164 registrySm uninitialized"));
}

TEST(SwitchRegistrySm, SwitchesItsConfigurationMachineWithIt) {
  World w(1);
  w.enter("leaf-1", "note", something());
  auto const sm = w.registrySm("leaf-1");
  sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(w.configSm("leaf-1")->hasNotificationActive());
  w.removeEntry("leaf-1", "status");
  EXPECT_TRUE(w.configSm("leaf-1"));
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(w.configSm("leaf-1")->hasNotificationActive());
  sm->noxDoZombieReactors(true);
  EXPECT_FALSE(w.configSm("leaf-1")->noxMarkedForDeletion()) << "zombies end at the machine itself";
  w.removeEntry("leaf-1", "config");
  EXPECT_TRUE(w.configSm("leaf-1"));
}

TEST(SwitchRegistrySm, StartsSwitchedOffWithItsReactorOn) {
  World w;
  auto const dir = Nox::make<Nox::Dir>("leaf-1");
  auto const sm = Nox::make<SwitchRegistrySm>("leaf-1", Nox::Ptr<Nox::Dir>(dir), nullptr, nullptr, w.peers, nullptr);
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_FALSE(dir->noxNotifiees().empty());
  sm->hasNotificationActiveIs(true);
  EXPECT_FALSE(dir->noxNotifiees().empty());
}

/// A machine over that directory that is a member of nothing.
Nox::Ptr<SwitchRegistrySm> ownerless(World& w, Nox::Ptr<Nox::Dir> const& dir) {
  return SwitchRegistrySm::SwitchRegistrySmIs("leaf-1", dir, nullptr, nullptr, w.peers.get(), w.registryRootSm().get());
}

TEST(SwitchRegistrySm, SwitchesOffAtItsEndTheMachineThatSomebodyHolds) {
  World w(1);
  Nox::Ptr<SwitchRegistrySm> sm = ownerless(w, w.dir("leaf-1"));
  EXPECT_TRUE(sm->hasNotificationActive());
  Nox::Ptr<SwitchConfigSm> const held = sm->configSm();
  EXPECT_TRUE(held->hasNotificationActive());
  sm = nullptr;
  EXPECT_FALSE(held->hasNotificationActive());
}

TEST(SwitchRegistrySm, LeavesAtItsEndAReactorThatSomebodyHoldsWithoutAMachine) {
  World w;
  Nox::Ptr<Nox::Dir> const dir = Nox::make<Nox::Dir>("leaf-1");
  Nox::Ptr<SwitchRegistrySm> sm = ownerless(w, dir);
  Nox::Ptr<Nox::PtrInterface::NotifieeConst> const reactor(dir->noxNotifiees().first());
  sm = nullptr;
  EXPECT_TRUE(reactor->noxMarkedForDeletion());
  EXPECT_TRUE(dir->noxNotifiees().empty());
  reactor->noxMarkedForDeletionIs(false);
  reactor->hasNotificationActiveIs(true);
  TraceCapture text({8});
  dir->entityIs("note", something());  // heard, and no machine to tell
  EXPECT_FALSE(dir->noxNotifiees().empty());
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(SwitchRegistrySm, PassesOverAnotherDirectoryThatItIsPointedAt) {
  World w(1);
  auto const sm = w.registrySm("leaf-1");
  auto const before = w.configSm("leaf-1");
  Nox::Ptr<Nox::Dir> const other = Nox::make<Nox::Dir>("other");
  other->entityIs("config", Nox::make<SwitchConfig>("other"));
  other->entityIs("status", Nox::make<SwitchStatus>("other"));
  TraceCapture text({8});
  sm->switchDirIs(w.dir("leaf-1"));
  EXPECT_THAT(text.lines(), IsEmpty());
  sm->switchDirIs(other);
  EXPECT_EQ(text.lines().front(), "8 151 void Controllerdb::SwitchRegistrySm::handleEntry()");
  EXPECT_NE(w.configSm("leaf-1"), before);
  EXPECT_EQ(sm->configSm()->config()->name(), "other");
  text.clear();
  sm->switchDirIs(nullptr);
  sm->switchDirDel();
  EXPECT_THAT(text.lines(), IsEmpty());
  EXPECT_TRUE(sm->configSm());
}

// Bit i of the mask says whether input i is given. Every handler is called, in every combination.
TEST(SwitchRegistrySm, AcceptsAnyInputThatIsAbsent) {
  for (unsigned mask = 0; mask < 32; ++mask) {
    World w(1);
    Nox::Ptr<Nox::Dir> const dir = w.dir("leaf-1");
    SwitchRegistrySm::MountsTablePtr const mounts = w.publishedMountsTable;
    SwitchRegistrySm::PeerTablePtr const peers = w.peers;
    auto const sm = SwitchRegistrySm::SwitchRegistrySmIs("leaf-1",
                                                         (mask & 1) != 0 ? dir : nullptr,
                                                         (mask & 2) != 0 ? w.serviceStatusDir("leaf-1") : nullptr,
                                                         (mask & 4) != 0 ? mounts : nullptr,
                                                         (mask & 8) != 0 ? peers : nullptr,
                                                         (mask & 16) != 0 ? w.registryRootSm().get() : nullptr);
    EXPECT_EQ(static_cast<bool>(sm->configSm()), (mask & 17) == 17) << mask;
    sm->handleInitialized();
    sm->handleEntry();
    sm->handleEntry("config");
    sm->handleEntry("gone");
    // Without a directory nothing is looked at, so nothing goes.
    EXPECT_FALSE(sm->configSm()) << mask;
    sm->hasNotificationActiveIs(false);
    sm->hasNotificationActiveIs(true);
    sm->noxDoZombieReactors(true);
  }
}

// Broken invariants.

TEST(SwitchRegistrySmDeathTest, EntryConfigMustHoldASwitchsConfiguration) {
  World w;
  w.putStatus("leaf-1");
  EXPECT_DEATH(w.enter("leaf-1", "config", something()), "switch leaf-1\n.*assertion failed: config\n");
  w.dir("leaf-1")->entryIs("config");
  EXPECT_DEATH(w.registrySm("leaf-1")->handleEntry("status"), "assertion failed: config\n");
}

TEST(SwitchRegistrySmDeathTest, EntryStatusMustHoldASwitchsStatusAndIsTestedSecond) {
  World w;
  w.putConfig("leaf-1", systemId(1));
  EXPECT_DEATH(w.enter("leaf-1", "status", something()), "switch leaf-1\n.*assertion failed: status\n");
  World both;
  both.putStatus("leaf-1");
  both.registrySm("leaf-1")->hasNotificationActiveIs(false);
  both.dir("leaf-1")->entityIs("config", something());
  both.dir("leaf-1")->entityIs("status", something());
  EXPECT_DEATH(both.registrySm("leaf-1")->handleEntry(), "assertion failed: config\n");
}

}  // namespace

}  // namespace SwitchRegistrySmTest
