// Tests of the registry root's inputs and switches: pointed elsewhere, absent, on and off, and the end.
#include <gmock/gmock.h>

#include <functional>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace RegistryRootSmInputsTest {
namespace {

using namespace Controllerdb;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(RegistryRootSmInputs, AnotherConfigurationIsFollowedAtOnce) {
  World w(1);
  auto const other = Nox::make<Config>("other");
  auto const sm = w.registryRootSm();
  auto* const reactor = w.config->noxNotifiees().first();
  sm->controllerdbConfigIs(w.config);
  EXPECT_TRUE(w.registrySm("leaf-1"));
  sm->controllerdbConfigIs(other);
  EXPECT_EQ(other->noxNotifiees().first(), reactor) << "the same reactor, pointed elsewhere";
  EXPECT_FALSE(w.registrySm("leaf-1"));
  EXPECT_FALSE(w.status->enabled());
  w.disable();
  EXPECT_FALSE(w.registrySm("leaf-1"));
  other->enabledIs(true);
  EXPECT_TRUE(w.registrySm("leaf-1"));
  sm->controllerdbConfigIs(nullptr);
  other->enabledIs(false);
  EXPECT_TRUE(w.registrySm("leaf-1"));
  sm->controllerdbConfigDel();
  EXPECT_FALSE(sm->controllerdbConfig());
  sm->controllerdbConfigIs(w.config);  // makes a fresh reactor, which runs no pass
  EXPECT_TRUE(w.registrySm("leaf-1"));
  w.enable();
  w.disable();
  EXPECT_FALSE(w.registrySm("leaf-1"));
}

TEST(RegistryRootSmInputs, AnotherRegistrationRootIsPassedOverAtOnce) {
  World w(1);
  Nox::Ptr<Nox::Dir> const other = Nox::make<Nox::Dir>("other");
  other->entityIs("spine-1", Nox::make<Nox::Dir>("spine-1"));
  w.registryRootSm()->registrationRootDirIs(other);
  EXPECT_TRUE(w.registrySm("spine-1"));
  EXPECT_TRUE(w.registrySm("leaf-1")) << "what was served goes with the next clean-up only";
  w.leave("leaf-1");
  EXPECT_TRUE(w.registrySm("leaf-1"));
  other->entityDel("spine-1");
  EXPECT_FALSE(w.registrySm("spine-1"));
  w.registryRootSm()->registrationRootDirDel();
  other->entityIs("spine-1", Nox::make<Nox::Dir>("spine-1"));
  EXPECT_FALSE(w.registrySm("spine-1"));
}

TEST(RegistryRootSmInputs, AnotherControllerStatusRunsNoPassAndServesThoseWhoComeLater) {
  World w(1);
  RegistryRootSm::ControllerStatusPtr const other = Nox::make<ControllerRegistration::ControllerStatus>("other");
  TraceCapture text({1, 3, 5, 8});
  w.registryRootSm()->controllerStatusIs(other);
  EXPECT_THAT(text.lines(), IsEmpty());
  EXPECT_EQ(w.configSm("leaf-1")->controllerStatus(), w.controllerStatus);
  w.heartbeat(systemId(2));
  w.enrol("leaf-2", systemId(2));
  EXPECT_TRUE(other->registeredSwitch(systemId(2)));
  EXPECT_FALSE(w.controllerStatus->registeredSwitch(systemId(2)));
  w.registryRootSm()->controllerStatusDel();
  EXPECT_FALSE(w.registryRootSm()->controllerStatus());
}

// Rows of the controller's table may be announced in every form: the registry root hears them and does nothing.
TEST(RegistryRootSmInputs, NothingInTheControllersTableIsReactedTo) {
  using N = ControllerRegistration::ControllerStatus::NotifieeConst;
  World w(1);
  WriteLog log;
  TraceCapture text({1, 3, 5, 8});
  w.controllerStatus->announce<Nox::keyed(&N::onSwitchConfig)>(systemId(1));
  w.controllerStatus->announce<&N::onSwitchStatusnoxImmediate>();
  w.controllerStatus->announce<Nox::unkeyed(&N::onRegisteredSwitch)>();
  w.config->portIs(443);
  w.config->isNondestructingIs(true);
  EXPECT_THAT(log.lines(), ElementsAre("config.port = 443"));
  EXPECT_THAT(text.lines(), IsEmpty());
}

// Bit i of the mask says whether input i is given. Every handler is called, in every combination.
TEST(RegistryRootSmInputs, MayAllBeAbsent) {
  for (unsigned mask = 0; mask < 512; ++mask) {
    World w(2);
    w.root->registryRootSmDel();
    w.allClientsServiceStatusDir->entityIs("stale", Nox::make<Nox::Dir>("stale"));
    w.heartbeat(systemId(1));
    auto const given = [mask](unsigned i, auto const& p) { return (mask >> i & 1U) != 0 ? p : nullptr; };
    {
      auto const sm = registryRootSmFactory(given(0, RegistryRootSm::ConfigPtr(w.config)),
                                            given(1, RegistryRootSm::StatusPtr(w.status)),
                                            given(2, RegistryRootSm::DirPtr(w.registrationRootDir)),
                                            given(3, RegistryRootSm::ControllerStatusPtr(w.controllerStatus)),
                                            given(4, RegistryRootSm::PeerTablePtr(w.peers)),
                                            given(5, RegistryRootSm::ServiceConfigDirPtr(w.serviceConfigDir)),
                                            given(6, RegistryRootSm::OverrideDirPtr(w.overrideServiceConfigDir)),
                                            given(7, RegistryRootSm::DirPtr(w.allClientsServiceStatusDir)),
                                            given(8, RegistryRootSm::MountsTablePtr(w.publishedMountsTable)));
      EXPECT_EQ(static_cast<bool>(sm->controllerdbConfig()), (mask & 1) != 0);
      EXPECT_EQ(static_cast<bool>(sm->registrationRootDir()), (mask & 4) != 0);
      EXPECT_EQ(static_cast<bool>(sm->controllerStatus()), (mask & 8) != 0);
      EXPECT_EQ(sm->registrySm().members(), (mask & 5) == 5 ? 2U : 0U) << mask;
      EXPECT_EQ(w.controllerStatus->registeredSwitch(systemId(1)), (mask & 29) == 29) << mask;
      EXPECT_EQ(static_cast<bool>(w.allClientsServiceStatusDir->entry("stale")), (mask & 128) == 0) << mask;
      sm->handleInitialized();
      sm->handleEnabled();
      sm->handleRegistration();
      sm->handleRegistration("leaf-1");
      sm->handleRegistration("nobody");
      w.putStatus("leaf-3");
      w.putConfig("leaf-3", systemId(3));
      w.heartbeat(systemId(3));
      w.leave("leaf-2");
      sm->hasNotificationActiveIs(false);
      sm->hasNotificationActiveIs(true);
      w.disable();
      w.enable();
      sm->doCleanup();
      sm->handleRegistration();
      sm->noxDoZombieReactors(true);
    }
    EXPECT_TRUE(w.controllerStatus->registeredSwitch().empty()) << mask;
  }
}

TEST(RegistryRootSmSwitches, StartsOffWithItsReactorsOn) {
  Controllerdb::AgentTables records;
  auto const sm = Nox::make<RegistryRootSm>(RegistryRootSm::ConfigPtr(records.config),
                                            records.status,
                                            records.registrationRootDir,
                                            records.controllerStatus,
                                            nullptr,
                                            nullptr,
                                            nullptr,
                                            records.allClientsServiceStatusDir,
                                            nullptr);
  EXPECT_FALSE(sm->hasNotificationActive());
  EXPECT_FALSE(sm->initialized());
  EXPECT_FALSE(records.config->noxNotifiees().empty());
  EXPECT_FALSE(records.registrationRootDir->noxNotifiees().empty());
  EXPECT_FALSE(records.controllerStatus->noxNotifiees().empty());
  WriteLog log;
  records.config->enabledIs(true);
  EXPECT_THAT(log.lines(), ElementsAre("config.enabled = 1")) << "nothing is done before the first pass";
  sm->handleInitialized();
  EXPECT_FALSE(sm->hasNotificationActive());
  records.registrationRootDir->entityIs("leaf-1", Nox::make<Nox::Dir>("leaf-1"));
  EXPECT_TRUE(sm->registrySm("leaf-1"));
}

TEST(RegistryRootSmSwitches, SwitchTheSwitchRegistriesToo) {
  World w(2);
  auto const sm = w.registryRootSm();
  sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(w.registrySm("leaf-1")->hasNotificationActive());
  EXPECT_FALSE(w.configSm("leaf-2")->hasNotificationActive());
  w.disable();
  w.leave("leaf-2");
  w.silence(systemId(1));
  EXPECT_TRUE(w.configSm("leaf-2"));
  EXPECT_EQ(w.rows(systemId(1)), "leaf-1 leaf-1 1");
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(w.configSm("leaf-2")->hasNotificationActive());
}

TEST(RegistryRootSmSwitches, ZombieReachesItsOwnReactorsOnly) {
  World w(1);
  auto const sm = w.registryRootSm();
  sm->noxDoZombieReactors(true);
  EXPECT_FALSE(w.registrySm("leaf-1")->noxMarkedForDeletion());
  w.disable();
  EXPECT_TRUE(w.registrySm("leaf-1"));
  w.silence(systemId(1));
  EXPECT_EQ(w.rows(systemId(1)), "- - -");
  sm->noxDoZombieReactors(false);
  w.leave("leaf-1");
  EXPECT_FALSE(w.registrySm("leaf-1"));
}

/// Calls `then` at every removal.
struct AtRemoval final : Nox::WriteObserver {
  explicit AtRemoval(std::function<void()> f) : then(std::move(f)) { Nox::writeObserver_ = this; }
  AtRemoval(AtRemoval const&) = delete;
  AtRemoval& operator=(AtRemoval const&) = delete;
  ~AtRemoval() { Nox::writeObserver_ = nullptr; }
  void written(Nox::Entity const&, std::string_view, bool, Nox::WriteText, Nox::WriteText) override {}
  void removed(Nox::Entity const&, std::string_view, bool, Nox::WriteText) override { then(); }
  std::function<void()> then;
};

TEST(RegistryRootSmSwitches, CleansUpBeforeItCountsAsInitialized) {
  Controllerdb::AgentTables records;
  records.allClientsServiceStatusDir->entityIs("stale", Nox::make<Nox::Entity>("stale"));
  auto const sm = Nox::make<RegistryRootSm>(
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, records.allClientsServiceStatusDir, nullptr);
  unsigned removals = 0;
  AtRemoval const observer([&] {
    ++removals;
    EXPECT_FALSE(sm->initialized());
  });
  sm->handleInitialized();
  EXPECT_GT(removals, 0U);
  EXPECT_TRUE(sm->initialized());
}

// The end removes the switch registries, and does not clean up.
TEST(RegistryRootSmEnd, TakesTheMachinesAndLeavesTheServiceStatusDirectories) {
  World w(2);
  TraceCapture text({8});
  w.root->registryRootSmDel();
  EXPECT_TRUE(w.controllerStatus->switchConfig().empty());
  EXPECT_TRUE(w.controllerStatus->switchStatus().empty());
  EXPECT_TRUE(w.controllerStatus->registeredSwitch().empty());
  EXPECT_EQ(w.allClientsServiceStatusDir->entries().members(), 2U);
  EXPECT_TRUE(w.serviceStatusDir("leaf-1"));
  EXPECT_TRUE(w.status->enabled());
  EXPECT_THAT(text.lines(),
              testing::UnorderedElementsAre("8 362 void Controllerdb::SwitchConfigSm::doCleanup() leaf-1",
                                            "8 362 void Controllerdb::SwitchConfigSm::doCleanup() leaf-2"));
  EXPECT_TRUE(w.config->noxNotifiees().empty());
  EXPECT_TRUE(w.registrationRootDir->noxNotifiees().empty());
  EXPECT_TRUE(w.controllerStatus->noxNotifiees().empty());
  EXPECT_TRUE(w.peers->noxNotifiees().empty());
}

TEST(RegistryRootSmEnd, LeavesReactorsThatSomebodyHoldsWithoutAMachine) {
  World w;
  for (Nox::Ptr<Nox::Entity> const& input : std::vector<Nox::Ptr<Nox::Entity>>{w.config, w.registrationRootDir}) {
    w.newRegistryRootSm();
    Nox::Ptr<Nox::PtrInterface::NotifieeConst> const reactor(input->noxNotifiees().first());
    w.root->registryRootSmDel();
    EXPECT_TRUE(reactor->noxMarkedForDeletion());
    EXPECT_TRUE(input->noxNotifiees().empty());
    reactor->noxMarkedForDeletionIs(false);
    reactor->hasNotificationActiveIs(true);
    EXPECT_FALSE(input->noxNotifiees().empty());
    TraceCapture text({8});
    w.config->enabledIs(!w.config->enabled());  // heard by the one, and no machine to tell
    w.registrationRootDir->entityIs(input->name(), Nox::make<Nox::Dir>(input->name()));
    EXPECT_THAT(text.lines(), IsEmpty());
  }
}

TEST(RegistryRootSmEnd, LeavesASwitchRegistryThatSomebodyHoldsOffAndWithoutARoot) {
  World w(1);
  auto const held = w.registrySm("leaf-1");
  w.root->registryRootSmDel();
  EXPECT_FALSE(held->hasNotificationActive());
  EXPECT_EQ(held->registryRootSm(), nullptr);
  w.enter("leaf-1", "note", Nox::make<Nox::Entity>("note"));
  held->handleEntry();
}

}  // namespace

}  // namespace RegistryRootSmInputsTest
