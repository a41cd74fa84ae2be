// Tests of a configuration machine's inputs and switches: on and off, zombie, replaced, absent, and the end.
#include <gmock/gmock.h>

#include <functional>

#include "support/trace_capture.h"
#include "support/world.h"
#include "support/write_log.h"

namespace SwitchConfigSmInputsTest {
namespace {

using namespace Controllerdb;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using testing::ElementsAre;
using testing::IsEmpty;

unsigned watchers(Nox::Entity const& input) {
  unsigned count = 0;
  for (auto* r = input.noxNotifiees().first(); r != nullptr; r = Nox::NotifieeList::next(*r)) ++count;
  return count;
}

/// The inputs of one machine that is ready.
struct Inputs {
  Inputs() {
    config->systemIdIs(systemId(1));
    config->enabledIs(true);
    peers->peerIs(systemId(1));
  }
  SwitchConfigSm::ConfigPtr const& constConfig() {
    readOnly = config;
    return readOnly;
  }
  Nox::ValidPtr<SwitchConfigSm> make() const {
    return Nox::make<SwitchConfigSm>(SwitchConfigSm::ConfigPtr(config),
                                     status,
                                     SwitchConfigSm::PeerTablePtr(peers),
                                     controllerStatus,
                                     SwitchConfigSm::ServiceConfigDirPtr(serviceConfigDir),
                                     SwitchConfigSm::OverrideDirPtr(overrides),
                                     "uuid-1",
                                     serviceStatusDir,
                                     "leaf-1",
                                     SwitchConfigSm::MountsTablePtr(mounts),
                                     nullptr);
  }
  std::vector<Nox::Ptr<Nox::Entity>> watched() const { return {config, peers, serviceConfigDir, overrides, mounts}; }
  void expectWatchers(unsigned count, char const* when) const {
    for (auto const& input : watched()) EXPECT_EQ(watchers(*input), count) << input->name() << ' ' << when;
  }
  bool registered() const { return controllerStatus->registeredSwitch(systemId(1)); }

  Nox::Ptr<SwitchConfig> config = Nox::make<SwitchConfig>("leaf-1");
  Nox::Ptr<SwitchStatus> status = Nox::make<SwitchStatus>("leaf-1");
  Nox::Ptr<Controller::PeerTable> peers = Nox::make<Controller::PeerTable>("peers");
  SwitchConfigSm::ControllerStatusPtr controllerStatus =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  Nox::Ptr<Controller::ServiceConfigDir> serviceConfigDir = Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  Nox::Ptr<Controller::OverrideServiceConfigDir> overrides =
      Nox::make<Controller::OverrideServiceConfigDir>("overrides");
  SwitchConfigSm::ServiceStatusDirPtr serviceStatusDir = Nox::make<Controller::ServiceStatusDir>("leaf-1");
  Nox::Ptr<Controller::PublishedMountsTable> mounts = Nox::make<Controller::PublishedMountsTable>("mounts");
  SwitchConfigSm::ConfigPtr readOnly;
};

TEST(SwitchConfigSmInputs, AreAnsweredAsGiven) {
  Inputs in;
  auto const sm = in.make();
  EXPECT_EQ(sm->config(), in.config);
  EXPECT_EQ(sm->status(), in.status);
  EXPECT_EQ(sm->heartbeatPeerTable(), in.peers);
  EXPECT_EQ(sm->controllerStatus(), in.controllerStatus);
  EXPECT_EQ(sm->serviceConfigDir(), in.serviceConfigDir);
  EXPECT_EQ(sm->overrideServiceConfigDir(), in.overrides);
  EXPECT_EQ(sm->controllerUUID(), "uuid-1");
  EXPECT_EQ(sm->serviceStatusDir(), in.serviceStatusDir);
  EXPECT_EQ(sm->switchId(), "leaf-1");
  EXPECT_EQ(sm->publishedMountsTable(), in.mounts);
  EXPECT_EQ(sm->switchRegistrySm(), nullptr);
}

TEST(SwitchConfigSmSwitches, StartsOffWithItsReactorsOn) {
  Inputs in;
  auto const sm = in.make();
  EXPECT_FALSE(sm->hasNotificationActive());
  in.expectWatchers(1, "at first");
  in.config->enabledIs(false);
  EXPECT_FALSE(in.registered());
  sm->hasNotificationActiveIs(true);
  in.expectWatchers(1, "switched on");
}

TEST(SwitchConfigSmSwitches, HearsNothingWhileOffAndMakesUpForNothing) {
  Inputs in;
  auto const sm = in.make();
  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(false);
  in.expectWatchers(0, "switched off");
  in.config->enabledIs(false);
  in.peers->peerDel(systemId(1));
  EXPECT_TRUE(in.registered());
  sm->hasNotificationActiveIs(true);
  in.expectWatchers(1, "switched on again");
  EXPECT_TRUE(in.registered());
  in.config->registrationGenIdIs(1);
  EXPECT_FALSE(in.registered());
}

TEST(SwitchConfigSmSwitches, ZombieHearsNothingUntilItIsBroughtBack) {
  Inputs in;
  auto const sm = in.make();
  sm->hasNotificationActiveIs(true);
  sm->noxDoZombieReactors(true);
  in.expectWatchers(0, "zombie");
  in.config->enabledIs(false);
  EXPECT_TRUE(in.registered());
  sm->noxDoZombieReactors(false);
  in.expectWatchers(1, "back");
  in.config->registrationGenIdIs(1);
  EXPECT_FALSE(in.registered());
}

// Mutators of the watched inputs: each retires the old reactor and makes a fresh one, without a pass.

template <class In>
struct Mutators {
  Nox::Ptr<In const> (SwitchConfigSm::*read)() const;
  void (SwitchConfigSm::*is)(Nox::Ptr<In const> const&);
  void (SwitchConfigSm::*del)();
};

template <class In>
void expectReplaced(Nox::Ptr<In> Inputs::*slot, Mutators<In> const& m) {
  Inputs in;
  auto const sm = in.make();
  Nox::Ptr<In const> const old = in.*slot;
  Nox::Ptr<In const> const fresh = Nox::make<In>("fresh");
  auto* const reactor = old->noxNotifiees().first();
  WriteLog log;
  TraceCapture text({1, 3, 5, 8});
  (*sm.*m.is)(old);
  EXPECT_EQ(old->noxNotifiees().first(), reactor) << "the same input again changes nothing";
  (*sm.*m.is)(fresh);
  EXPECT_EQ((*sm.*m.read)(), fresh);
  EXPECT_EQ(watchers(*old), 0U);
  EXPECT_EQ(watchers(*fresh), 1U);
  (*sm.*m.is)(nullptr);
  EXPECT_FALSE((*sm.*m.read)());
  EXPECT_EQ(watchers(*fresh), 0U);
  (*sm.*m.is)(fresh);
  EXPECT_EQ(watchers(*fresh), 1U);
  (*sm.*m.del)();
  (*sm.*m.del)();
  EXPECT_FALSE((*sm.*m.read)());
  EXPECT_EQ(watchers(*fresh), 0U);
  EXPECT_THAT(log.lines(), IsEmpty()) << "a replaced input runs no pass";
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(SwitchConfigSmInputs, AreReplacedWithoutAPass) {
  using Sm = SwitchConfigSm;
  expectReplaced<SwitchConfig>(&Inputs::config, {&Sm::config, &Sm::configIs, &Sm::configDel});
  expectReplaced<Controller::PeerTable>(
      &Inputs::peers, {&Sm::heartbeatPeerTable, &Sm::heartbeatPeerTableIs, &Sm::heartbeatPeerTableDel});
  expectReplaced<Controller::ServiceConfigDir>(
      &Inputs::serviceConfigDir, {&Sm::serviceConfigDir, &Sm::serviceConfigDirIs, &Sm::serviceConfigDirDel});
  expectReplaced<Controller::OverrideServiceConfigDir>(
      &Inputs::overrides,
      {&Sm::overrideServiceConfigDir, &Sm::overrideServiceConfigDirIs, &Sm::overrideServiceConfigDirDel});
  expectReplaced<Controller::PublishedMountsTable>(
      &Inputs::mounts, {&Sm::publishedMountsTable, &Sm::publishedMountsTableIs, &Sm::publishedMountsTableDel});
}

TEST(SwitchConfigSmInputs, NewConfigIsHeardAndTheOldOneNoLonger) {
  Inputs in;
  auto const sm = in.make();
  auto const other = Nox::make<SwitchConfig>("other");
  other->systemIdIs(systemId(1));
  sm->configIs(other);
  in.config->enabledIs(false);
  EXPECT_TRUE(in.registered());
  other->registrationGenIdIs(1);
  EXPECT_FALSE(in.registered()) << "the other record is not enabled";
}

// A reactor that is pointed elsewhere runs a pass, but for the same input, for none, and for one of another class.
TEST(SwitchConfigSmReactors, RunAPassOverAnotherInputOnly) {
  Inputs in;
  auto const sm = in.make();
  TraceCapture text({5});
  auto const reactor = sm->newConfig(in.constConfig());
  EXPECT_EQ(reactor->input(), in.config);
  reactor->notifierIs(in.config);
  EXPECT_THAT(text.lines(), IsEmpty());
  reactor->notifierIs(Nox::make<SwitchConfig>("other"));
  EXPECT_EQ(text.lines().size(), 4U);
  text.clear();
  reactor->notifierIs(Nox::make<SwitchStatus>("of another class"));
  EXPECT_FALSE(reactor->input());
  EXPECT_TRUE(reactor->isRegisteredNotifiee());
  EXPECT_THAT(text.lines(), IsEmpty());
  reactor->notifierIs(in.config);
  EXPECT_EQ(text.lines().size(), 4U);
  text.clear();
  reactor->noxDoZombieReactors(true);
  reactor->notifierIs(Nox::make<SwitchConfig>("another"));
  EXPECT_THAT(text.lines(), IsEmpty());
}

TEST(SwitchConfigSmReactors, WithoutTheirMachineDoNothing) {
  Inputs in;
  auto const sm = in.make();
  auto const reactor = sm->newConfig(in.constConfig());
  reactor->switchConfigSmIs(nullptr);
  sm->hasNotificationActiveIs(true);
  sm->hasNotificationActiveIs(false);
  WriteLog log;
  in.config->enabledIs(false);
  EXPECT_THAT(log.lines(), ElementsAre("leaf-1.enabled = 0"));
  EXPECT_EQ(watchers(*in.config), 1U);
}

TEST(SwitchConfigSmReactors, OfAZombieAreZombies) {
  Inputs in;
  auto const sm = in.make();
  sm->noxDoZombieReactors(true);
  EXPECT_TRUE(sm->newConfig(in.constConfig())->noxMarkedForDeletion());
  sm->configIs(Nox::make<SwitchConfig>("other"));
  EXPECT_EQ(watchers(*sm->config()), 0U);
}

// Absent inputs: bit i of the mask says whether input i is given. Every handler is called, in every combination.
TEST(SwitchConfigSmInputs, MayAllBeAbsent) {
  for (unsigned mask = 0; mask < 256; ++mask) {
    Inputs in;
    SwitchConfigSm::ConfigPtr const config = (mask & 1) != 0 ? in.config : nullptr;
    SwitchConfigSm::StatusPtr const status = (mask & 2) != 0 ? in.status : nullptr;
    SwitchConfigSm::PeerTablePtr const peers = (mask & 4) != 0 ? in.peers : nullptr;
    SwitchConfigSm::ControllerStatusPtr const table = (mask & 8) != 0 ? in.controllerStatus : nullptr;
    {
      auto const sm = switchConfigSmFactory(config,
                                            status,
                                            peers,
                                            table,
                                            (mask & 16) != 0 ? in.serviceConfigDir : nullptr,
                                            (mask & 32) != 0 ? in.overrides : nullptr,
                                            "uuid-1",
                                            (mask & 64) != 0 ? in.serviceStatusDir : nullptr,
                                            "leaf-1",
                                            (mask & 128) != 0 ? in.mounts : nullptr,
                                            nullptr);
      bool const ready = config && peers;
      EXPECT_EQ(sm->switchReady(), ready) << mask;
      EXPECT_EQ(in.registered(), ready && table) << mask;
      EXPECT_EQ(in.status->controllerUUID(), ready && status ? "uuid-1" : "") << mask;
      EXPECT_EQ(in.status->clientShutdownAck(), !ready && status) << mask;
      sm->handleInitialized();
      sm->handleHeartbeat(systemId(1));
      sm->handleHeartbeat(systemId(2));
      in.config->enabledIs(false);
      sm->handleSwitchConfig();
      sm->doCleanup();
      EXPECT_FALSE(in.registered()) << mask;
      in.config->enabledIs(true);
      sm->hasNotificationActiveIs(false);
      sm->hasNotificationActiveIs(true);
      sm->noxDoZombieReactors(true);
      sm->noxDoZombieReactors(false);
    }
    EXPECT_FALSE(in.registered()) << mask;
    in.expectWatchers(0, "after the end");
  }
}

// The end.

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

TEST(SwitchConfigSmEnd, RemovesTheRowsWhileItsReactorsAreStillThere) {
  Inputs in;
  Nox::Ptr<SwitchConfigSm> sm = in.make();
  unsigned removals = 0;
  AtRemoval const observer([&] {
    ++removals;
    in.expectWatchers(1, "while the rows go");
  });
  sm = nullptr;
  EXPECT_EQ(removals, 3U);
  in.expectWatchers(0, "after the end");
}

TEST(SwitchConfigSmEnd, WritesAndTracesItsCleanUpOnly) {
  Inputs in;
  Nox::Ptr<SwitchConfigSm> sm = in.make();
  TraceCapture text({1, 3, 5, 8});
  RingCapture ring;
  WriteLog log;
  sm = nullptr;
  EXPECT_THAT(log.lines(),
              ElementsAre("controllerStatus.registeredSwitch[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchConfig[02:00:00:00:00:01] deleted",
                          "controllerStatus.switchStatus[02:00:00:00:00:01] deleted"));
  EXPECT_THAT(text.lines(), ElementsAre("8 362 void Controllerdb::SwitchConfigSm::doCleanup() leaf-1"));
  EXPECT_THAT(ring.messages(), IsEmpty());
}

TEST(SwitchConfigSmEnd, LeavesAReactorThatSomebodyHoldsWithoutAMachine) {
  Inputs in;
  Nox::Ptr<SwitchConfigSm> sm = in.make();
  Nox::Ptr<Nox::PtrInterface::NotifieeConst> const reactor(in.config->noxNotifiees().first());
  sm = nullptr;
  EXPECT_TRUE(reactor->noxMarkedForDeletion());
  EXPECT_FALSE(reactor->hasNotificationActive());
  reactor->noxMarkedForDeletionIs(false);
  reactor->hasNotificationActiveIs(true);
  TraceCapture text({5});
  in.config->enabledIs(false);  // heard, and no machine to tell
  EXPECT_EQ(watchers(*in.config), 1U);
  EXPECT_THAT(text.lines(), IsEmpty());
}

}  // namespace

}  // namespace SwitchConfigSmInputsTest
