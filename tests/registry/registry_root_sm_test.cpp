// Tests of the registry root: how registration directories come and go, and what the agent's `enabled` does.
#include <gmock/gmock.h>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace RegistryRootSmTest {
namespace {

using namespace Controllerdb;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Nox::ValidPtr<Nox::Entity> something() { return Nox::make<Nox::Entity>("something"); }

// Enabled and disabled.

TEST(RegistryRootSm, EnablingServesEveryInstantiatedDirectory) {
  World w;
  w.registrationRootDir->entityIs("a", Nox::make<Nox::Dir>("a"));
  w.registrationRootDir->entityIs("b", Nox::make<Nox::Dir>("b"));
  w.registrationRootDir->entityPtrIs("c", Nox::make<Nox::Dir>("c"));
  w.registryRootSm()->doCleanup();
  TraceCapture text({8});
  w.enable();
  EXPECT_EQ(w.registryRootSm()->registrySm().members(), 2U);
  EXPECT_TRUE(w.registrySm("a"));
  EXPECT_TRUE(w.registrySm("b"));
  EXPECT_EQ(w.allClientsServiceStatusDir->entries().members(), 2U);
  EXPECT_TRUE(w.serviceStatusDir("a"));
  EXPECT_TRUE(w.serviceStatusDir("b"));
  EXPECT_THAT(text.lines(), testing::Contains("8 91 entry subdir added - not instantiated c").Times(1));
}

TEST(RegistryRootSm, DisablingRemovesAllAndEnablingBuildsItAgain) {
  World w(3);
  w.disable();
  EXPECT_TRUE(w.registryRootSm()->registrySm().empty());
  EXPECT_TRUE(w.allClientsServiceStatusDir->entries().empty());
  EXPECT_TRUE(w.allClientsServiceStatusDir->entityPtrs().empty());
  EXPECT_FALSE(w.status->enabled());
  EXPECT_EQ(w.rows(systemId(1)), "- - -");
  EXPECT_EQ(w.answer("leaf-1"), "0 uuid-1 0") << "no switch's status is touched";
  w.enable();
  EXPECT_EQ(w.registryRootSm()->registrySm().members(), 3U);
  EXPECT_EQ(w.allClientsServiceStatusDir->entries().members(), 3U);
  EXPECT_TRUE(w.status->enabled());
  EXPECT_EQ(w.rows(systemId(1)), "leaf-1 leaf-1 1");
}

TEST(RegistryRootSm, MirrorsEnabledAfterTheWorkAndOnEveryCall) {
  World w;
  w.putStatus("leaf-1");
  WriteLog log;
  w.disable();
  EXPECT_THAT(log.lines(), ElementsAre("config.enabled = 0 (equal)"));
  log.clear();
  w.registryRootSm()->handleEnabled();
  EXPECT_EQ(log.lines().back(), "status.enabled = 0 (equal)");
  log.clear();
  w.enable();
  EXPECT_THAT(log.lines(),
              ElementsAre("config.enabled = 1",
                          "serviceStatus.entry[leaf-1] = {}",
                          "serviceStatus.entry[leaf-1] = {} (equal)",
                          "serviceStatus.entityRef[leaf-1] = leaf-1",
                          "serviceStatus.entityPtr[leaf-1] = serviceStatus/leaf-1",
                          "status.enabled = 1"));
}

TEST(RegistryRootSm, ServesADirectoryThatIsAddedWhileDisabledUntilTheNextCleanUp) {
  World w;
  w.heartbeat(systemId(1));
  w.enrol("leaf-1", systemId(1));
  EXPECT_TRUE(w.configSm("leaf-1"));
  EXPECT_EQ(w.rows(systemId(1)), "leaf-1 leaf-1 1");
  w.registryRootSm()->handleEnabled();
  EXPECT_FALSE(w.registrySm("leaf-1"));
  EXPECT_EQ(w.rows(systemId(1)), "- - -");
}

TEST(RegistryRootSm, EmptiesTheServiceStatusDirectoriesBeforeItsFirstPass) {
  Controllerdb::AgentTables records;
  records.config->enabledIs(true);
  records.allClientsServiceStatusDir->entityIs("stale", something());
  records.registrationRootDir->entityIs("leaf-1", Nox::make<Nox::Dir>("leaf-1"));
  TraceCapture text({8});
  RingCapture ring;
  auto const sm = registryRootSmFactory(records.config,
                                        records.status,
                                        records.registrationRootDir,
                                        records.controllerStatus,
                                        records.peers,
                                        records.serviceConfigDir,
                                        records.overrideServiceConfigDir,
                                        records.allClientsServiceStatusDir,
                                        records.publishedMountsTable);
  EXPECT_TRUE(sm->initialized());
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_FALSE(records.allClientsServiceStatusDir->entry("stale"));
  EXPECT_FALSE(records.allClientsServiceStatusDir->entityPtr("stale"));
  EXPECT_TRUE(records.allClientsServiceStatusDir->entry("leaf-1"));
  EXPECT_THAT(text.lines(),
              ElementsAre("8 41 void Controllerdb::RegistryRootSm::handleInitialized()",
                          "8 109 void Controllerdb::RegistryRootSm::doCleanup()",
                          "8 49 void Controllerdb::RegistryRootSm::handleEnabled()",
                          "8 62 void Controllerdb::RegistryRootSm::handleRegistration()",
                          "8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 94 entry added in registry leaf-1",
                          "8 151 void Controllerdb::SwitchRegistrySm::handleEntry()"));
  EXPECT_THAT(ring.messages(),
              ElementsAre("8 109 void Controllerdb::RegistryRootSm::doCleanup()",
                          "8 49 void Controllerdb::RegistryRootSm::handleEnabled()",
                          "8 62 void Controllerdb::RegistryRootSm::handleRegistration()",
                          "8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
                          "8 94 entry added in registry leaf-1"));
}

TEST(RegistryRootSm, CleansUpByThreeRemovalsForEachEntry) {
  World w;
  w.putStatus("leaf-1");
  WriteLog log;
  w.registryRootSm()->doCleanup();
  EXPECT_THAT(log.lines(),
              ElementsAre("serviceStatus.entityPtr[leaf-1] deleted",
                          "serviceStatus.entityRef[leaf-1] deleted",
                          "serviceStatus.entityRef[leaf-1] deleted (absent)",
                          "serviceStatus.entry[leaf-1] deleted"));
}

// Single registrations.

TEST(RegistryRootSm, RemovalOfANameThatNeverWasStillTakesItsSteps) {
  World w;
  TraceCapture text({8});
  RingCapture ring;
  WriteLog log;
  w.registryRootSm()->handleRegistration("nobody");
  EXPECT_THAT(log.lines(),
              ElementsAre("serviceStatus.entityPtr[nobody] deleted (absent)",
                          "serviceStatus.entityRef[nobody] deleted (absent)",
                          "serviceStatus.entry[nobody] deleted (absent)"));
  std::vector<std::string> const expected = {
      "8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) nobody",
      "8 82 entry deleted from registry nobody"};
  EXPECT_EQ(text.lines(), expected);
  EXPECT_EQ(ring.messages(), expected);
}

TEST(RegistryRootSm, SecondRegistrationOfANameFindsTheSameObjects) {
  World w(1);
  auto const sm = w.registrySm("leaf-1");
  auto const configSm = w.configSm("leaf-1");
  auto const dir = w.serviceStatusDir("leaf-1");
  auto const entry = w.allClientsServiceStatusDir->entry("leaf-1");
  WriteLog log;
  w.registryRootSm()->handleRegistration("leaf-1");
  w.registryRootSm()->handleRegistration();
  w.registrationRootDir->announce<&Nox::Dir::NotifieeConst::onEntityPtrnoxImmediate>();
  EXPECT_EQ(w.registrySm("leaf-1"), sm);
  EXPECT_EQ(w.configSm("leaf-1"), configSm);
  EXPECT_EQ(w.serviceStatusDir("leaf-1"), dir);
  EXPECT_EQ(w.allClientsServiceStatusDir->entry("leaf-1"), entry);
  EXPECT_THAT(log.changes(), IsEmpty());
}

TEST(RegistryRootSm, BuildsTheSwitchRegistryFromItsDirectories) {
  World w;
  w.putStatus("leaf-1");
  auto const sm = w.registrySm("leaf-1");
  EXPECT_EQ(sm->name(), "leaf-1");
  EXPECT_EQ(sm->switchDir(), w.dir("leaf-1"));
  EXPECT_TRUE(sm->serviceStatusDir());
  EXPECT_EQ(sm->serviceStatusDir(), w.serviceStatusDir("leaf-1"));
  EXPECT_EQ(sm->publishedMountsTable(), w.publishedMountsTable);
  EXPECT_EQ(sm->heartbeatPeerTable(), w.peers);
  EXPECT_EQ(sm->registryRootSm(), w.registryRootSm().get());
  EXPECT_TRUE(sm->hasNotificationActive());
}

TEST(RegistryRootSm, ServesWithoutAServiceStatusDirectoryWhereTheNameIsTakenByAnotherType) {
  World w;
  w.allClientsServiceStatusDir->entityIs("leaf-1", something());
  w.putStatus("leaf-1");
  ASSERT_TRUE(w.registrySm("leaf-1"));
  EXPECT_FALSE(w.registrySm("leaf-1")->serviceStatusDir());
}

TEST(RegistryRootSm, LeavingRemovesTheMachineAndItsServiceStatusDirectory) {
  World w(2);
  auto const sm = w.registrySm("leaf-1");
  w.leave("leaf-1");
  EXPECT_FALSE(w.registrySm("leaf-1"));
  EXPECT_FALSE(w.allClientsServiceStatusDir->entry("leaf-1"));
  EXPECT_FALSE(w.allClientsServiceStatusDir->entityPtr("leaf-1"));
  EXPECT_TRUE(w.registrySm("leaf-2"));
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_EQ(sm->registryRootSm(), nullptr);
  EXPECT_EQ(w.rows(systemId(1)), "leaf-1 leaf-1 1") << "as long as somebody holds its machine";
}

TEST(RegistryRootSm, SaysThatItIsUninitializedAndDoesNothing) {
  World w;
  w.registryRootSm()->initializedIs(false);
  TraceCapture text({8});
  RingCapture ring;
  WriteLog log;
  w.registryRootSm()->handleEnabled();
  EXPECT_THAT(text.lines(), IsEmpty());
  w.registryRootSm()->handleRegistration();
  w.registryRootSm()->handleRegistration("leaf-1");
  std::vector<std::string> const expected = {
      "8 62 void Controllerdb::RegistryRootSm::handleRegistration()",
      "8 64 registryRootSm uninitialized",
      "8 74 void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name) leaf-1",
      "8 76 registryRootSm uninitialized"};
  EXPECT_EQ(text.lines(), expected);
  EXPECT_EQ(ring.messages(), expected);
  EXPECT_THAT(log.lines(), IsEmpty());
}

// The collection of switch registries.

TEST(RegistryRootSm, RefusesAnotherSwitchRegistryUnderATakenName) {
  World w(1);
  auto const member = w.registrySm("leaf-1");
  Nox::Ptr<Nox::Dir> const dir = Nox::make<Nox::Dir>("other");
  Nox::Ptr<Controller::ServiceStatusDir> const statusDir = Nox::make<Controller::ServiceStatusDir>("other");
  RegistryRootSm::MountsTablePtr const mounts = Nox::make<Controller::PublishedMountsTable>("other");
  RegistryRootSm::PeerTablePtr const peers = Nox::make<Controller::PeerTable>("other");
  auto const refusal = [](char const* argument, void const* given, void const* held) {
    return std::string("Reinstantiating the pointer interface where constructor parameter attribute ") + argument +
           " has a different value of " + Nox::valueToStrepOfRawPtr(given).charPtr() + " than the current value of " +
           Nox::valueToStrepOfRawPtr(held).charPtr() + " not allowed";
  };
  auto const attempt = [&](auto const&... args) -> std::string {
    try {
      w.registryRootSm()->registrySmIs("leaf-1", args...);
    } catch (Nox::NameInUseException const& e) {
      return e.what();
    }
    return "";
  };
  auto const& m = *member;
  // The first argument that differs is the one that is named.
  EXPECT_EQ(attempt(dir, statusDir, mounts, peers), refusal("_switchDir", dir.get(), m.switchDir().get()));
  EXPECT_EQ(attempt(m.switchDir(), statusDir, mounts, peers),
            refusal("_serviceStatusDir", statusDir.get(), m.serviceStatusDir().get()));
  EXPECT_EQ(attempt(m.switchDir(), m.serviceStatusDir(), mounts, peers),
            refusal("_publishedMountsTable", mounts.get(), m.publishedMountsTable().get()));
  EXPECT_EQ(attempt(m.switchDir(), m.serviceStatusDir(), m.publishedMountsTable(), peers),
            refusal("_heartbeatPeerTable", peers.get(), m.heartbeatPeerTable().get()));
  EXPECT_EQ(attempt(Nox::Ptr<Nox::Dir>(), statusDir, mounts, peers),
            refusal("_switchDir", nullptr, m.switchDir().get()));
  EXPECT_EQ(attempt(m.switchDir(), m.serviceStatusDir(), m.publishedMountsTable(), m.heartbeatPeerTable()), "");
  EXPECT_EQ(w.registrySm("leaf-1"), member);
  EXPECT_TRUE(member->hasNotificationActive());
}

// Its directory was replaced in place: the member that serves the old one stays, and the writer hears of it.
TEST(RegistryRootSm, RefusesADirectoryThatReplacesAnotherInPlace) {
  World w(1);
  auto const member = w.registrySm("leaf-1");
  try {
    w.registrationRootDir->entityIs("leaf-1", Nox::make<Nox::Dir>("leaf-1"));
    ADD_FAILURE() << "nothing was thrown";
  } catch (Nox::NameInUseException const& e) {
    EXPECT_THAT(e.what(), HasSubstr("attribute _switchDir has a different value"));
  }
  EXPECT_EQ(w.registrySm("leaf-1"), member);
}

TEST(RegistryRootSm, SwitchesOffTheMemberThatItRemovesAndForgetsIt) {
  World w(2);
  auto const first = w.registrySm("leaf-1");
  auto const second = w.registrySm("leaf-2");
  w.registryRootSm()->registrySmDel("leaf-1");
  w.registryRootSm()->registrySmDel("leaf-1");
  EXPECT_FALSE(first->hasNotificationActive());
  EXPECT_EQ(first->registryRootSm(), nullptr);
  EXPECT_TRUE(second->hasNotificationActive());
  EXPECT_EQ(second->registryRootSm(), w.registryRootSm().get());
  w.registryRootSm()->registrySmDelAll();
  EXPECT_FALSE(second->hasNotificationActive());
  EXPECT_EQ(second->registryRootSm(), nullptr);
  EXPECT_TRUE(w.registryRootSm()->registrySm().empty());
  second->handleEntry("config");  // finds no root any more
}

TEST(RegistryRootSmDeathTest, RegistrationMustBeADirectory) {
  World w;
  EXPECT_DEATH(w.registrationRootDir->entityIs("leaf-1", something()),
               "switch leaf-1\n.*assertion failed: registrationDir\n");
  w.registrationRootDir->entryIs("leaf-2");
  EXPECT_DEATH(w.registrationRootDir->entityPtrIs("leaf-2", Nox::make<Nox::Dir>("leaf-2")),
               "assertion failed: registrationDir\n");
}

}  // namespace

}  // namespace RegistryRootSmTest
