// What holds for the machines' handlers one and all: each is a turn, and each is the function of its messages.
#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "registry/version_negotiation.h"
#include "support/trace_capture.h"
#include "support/world.h"

namespace HandlersTest {
namespace {

using namespace Controllerdb;
using Controller::ServiceConfigV1;

/// Throws at the first change that it hears.
class Thrower final : public Config::NotifieeConst {
 public:
  void onEnabled() override { throw std::runtime_error("kept"); }
};

/// Leaves an exception behind that the next turn throws.
void keepAnException() {
  struct LastWriter final : Nox::PtrInterface {
    explicit LastWriter(Nox::Ptr<Config> c) : config(std::move(c)) {}
    ~LastWriter() override { config->enabledIs(!config->enabled()); }
    Nox::Ptr<Config> config;
  };
  Nox::Ptr<Config> const config = Nox::make<Config>("config");
  auto const thrower = Nox::make<Thrower>();
  thrower->notifierIs(config);
  Nox::make<LastWriter>(config);
}

// Machines without inputs: their handlers write nothing, so that no turn but their own can be the one that throws.
TEST(Handlers, AreATurnEach) {
  auto const root =
      Nox::make<RegistryRootSm>(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  auto const registry = Nox::make<SwitchRegistrySm>("leaf-1", nullptr, nullptr, nullptr, nullptr, nullptr);
  auto const sm = Nox::make<SwitchConfigSm>(
      nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "", nullptr, "leaf-1", nullptr, nullptr);
  auto const publish = Nox::make<SystemPublishSm>(nullptr, nullptr, nullptr);
  auto const mounts = Nox::make<Controller::MountsRegistrySm>(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  auto const services = Nox::make<Controller::ServiceConfigDirSm>(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  auto const initial = Nox::make<Controller::InitialMountSm>(nullptr, nullptr, nullptr, nullptr, nullptr);
  Nox::Ptr<ServiceConfigV1> const record = Nox::make<ServiceConfigV1>("routing");
  sm->serviceConfigIs(record);
  sm->localServiceConfigIs(record);
  struct {
    char const* name;
    std::function<void()> call;
  } const handlers[] = {
      {"RegistryRootSm::handleInitialized", [&] { root->handleInitialized(); }},
      {"RegistryRootSm::handleEnabled", [&] { root->handleEnabled(); }},
      {"RegistryRootSm::handleRegistration", [&] { root->handleRegistration(); }},
      {"RegistryRootSm::handleRegistration(name)", [&] { root->handleRegistration("leaf-1"); }},
      {"RegistryRootSm::doCleanup", [&] { root->doCleanup(); }},
      {"SwitchRegistrySm::handleInitialized", [&] { registry->handleInitialized(); }},
      {"SwitchRegistrySm::handleEntry", [&] { registry->handleEntry(); }},
      {"SwitchRegistrySm::handleEntry(name)", [&] { registry->handleEntry("config"); }},
      {"SwitchConfigSm::handleInitialized", [&] { sm->handleInitialized(); }},
      {"SwitchConfigSm::handleSwitchConfig", [&] { sm->handleSwitchConfig(); }},
      {"SwitchConfigSm::handleHeartbeat", [&] { sm->handleHeartbeat(systemId(1)); }},
      {"SwitchConfigSm::handleServiceConfig", [&] { sm->handleServiceConfig(); }},
      {"SwitchConfigSm::handleServiceConfig(name)", [&] { sm->handleServiceConfig("routing"); }},
      {"SwitchConfigSm::handleLocalServiceConfig", [&] { sm->handleLocalServiceConfig(); }},
      {"SwitchConfigSm::handleLocalServiceConfig(name)", [&] { sm->handleLocalServiceConfig("routing"); }},
      {"SwitchConfigSm::doVersionNegotiation", [&] { sm->doVersionNegotiation("routing"); }},
      {"SwitchConfigSm::handleSystemPublish", [&] { sm->handleSystemPublish(); }},
      {"SwitchConfigSm::handleSystemPublish(id)", [&] { sm->handleSystemPublish(systemId(1)); }},
      {"SwitchConfigSm::handleServicePublishReady", [&] { sm->handleServicePublishReady("routing"); }},
      {"SwitchConfigSm::doCleanup", [&] { sm->doCleanup(); }},
      {"NoxServiceConfig::handleEnabled", [&] { sm->serviceConfig("routing")->handleEnabled(); }},
      {"NoxLocalServiceConfig::handleEnabled", [&] { sm->localServiceConfig("routing")->handleEnabled(); }},
      {"SystemPublishSm::handleInitialized", [&] { publish->handleInitialized(); }},
      {"SystemPublishSm::handlePublishedMount", [&] { publish->handlePublishedMount(); }},
      {"SystemPublishSm::handlePublishedMount(path)", [&] { publish->handlePublishedMount("/a"); }},
      {"MountsRegistrySm::handleMountEntry", [&] { mounts->handleMountEntry(); }},
      {"MountsRegistrySm::handlePublishEntry", [&] { mounts->handlePublishEntry(); }},
      {"MountsRegistrySm::handleClientStatus", [&] { mounts->handleClientStatus(); }},
      {"MountsRegistrySm::handleInitialized", [&] { mounts->handleInitialized(); }},
      {"ServiceConfigDirSm::handleInitialized", [&] { services->handleInitialized(); }},
      {"InitialMountSm::handleInitialized", [&] { initial->handleInitialized(); }},
  };
  for (auto const& [name, call] : handlers) {
    keepAnException();
    EXPECT_THROW(call(), std::runtime_error) << name;
    EXPECT_NO_THROW(call()) << name;
  }
}

Controller::MountDesc offered(char const* path) {
  Controller::MountDesc mount;
  mount.path = path;
  mount.service = "routing";
  return mount;
}

/// A switch that is ready, with a service of both sides and an offer.
World busyWorld() {
  World w(1);
  auto const service = [](std::initializer_list<unsigned> versions) {
    auto record = Nox::make<ServiceConfigV1>("routing");
    record->enabledIs(true);
    for (unsigned const version : versions) record->versionConfig()->versionIs(Controller::ServiceVersionV1(version));
    return record;
  };
  w.serviceConfigDir->serviceIs(service({2, 3, 4}));
  w.switchConfig("leaf-1")->serviceConfigIs(service({1, 2, 3}));
  w.publishedMountsTable->systemIs(systemId(1))->publishedMountIs(offered("/a"));
  return w;
}

TEST(Handlers, AreTheFunctionOfEveryMessageOfTheirs) {
  World const w = busyWorld();
  std::map<int, std::string> functions;
  TraceCapture const levels({1, 3, 4, 5, 7, 8});
  auto const before = Nox::traceSinkIs([&](Nox::TraceMessage const& m) { functions[m.line] = m.function; });
  w.switchConfig("leaf-1")->registrationGenIdIs(7);
  w.publishedMountsTable->system(systemId(1))->publishedMountDel("/a");
  w.publishedMountsTable->system(systemId(1))->publishedMountIs(offered("/b"));
  w.switchConfig("leaf-1")->enabledIs(false);
  Nox::traceSinkIs(before);
  for (auto const& [line, function] : std::map<int, std::string>{{89, "handleSwitchConfig"},
                                                                 {103, "handleSwitchConfig"},
                                                                 {117, "handleSwitchConfig"},
                                                                 {128, "handleSwitchConfig"},
                                                                 {133, "handleSwitchConfig"},
                                                                 {82, "switchReady"},
                                                                 {17, "handlePublishedMount"},
                                                                 {23, "handlePublishedMount"},
                                                                 {39, "handlePublishedMount"},
                                                                 {169, "doVersionNegotiation"},
                                                                 {249, "doVersionNegotiation"},
                                                                 {253, "doVersionNegotiation"},
                                                                 {270, "doVersionNegotiation"},
                                                                 {159, "updateVersionStatus"}})
    EXPECT_EQ(functions[line], function) << line;
}

TEST(Handlers, AFirstPassThatThrowsLeavesNoRowsBehind) {
  for (int const last : {103, 117, 128}) {
    World const w(1);
    ASSERT_EQ(w.rows(systemId(2)), "- - -");
    w.peers->peerIs(systemId(2));
    auto const config = Nox::make<ControllerRegistration::SwitchConfig>("leaf-2");
    config->systemIdIs(systemId(2));
    config->enabledIs(true);
    auto const status = Nox::make<ControllerRegistration::SwitchStatus>("leaf-2");
    auto const make = [&] {
      return switchConfigSmFactory(
          config, status, w.peers, w.controllerStatus, nullptr, nullptr, "uuid", nullptr, "leaf-2", nullptr, nullptr);
    };
    TraceCapture const levels({1, 3, 5});
    auto const before = Nox::traceSinkIs([&](Nox::TraceMessage const& m) {
      if (m.line == last) throw std::runtime_error("told");
    });
    EXPECT_THROW(make(), std::runtime_error) << last;
    Nox::traceSinkIs(before);
    EXPECT_EQ(w.rows(systemId(2)), "- - -") << last;
    EXPECT_TRUE(config->noxNotifiees().empty()) << last;
    make();
  }
}

TEST(Handlers, FactoriesAndListsOfNothingAreRefused) {
  World const w = busyWorld();
  auto const sm = w.configSm("leaf-1");
  std::vector<Controller::ServiceVersionV1> versions;
  for (auto const& attempt : std::vector<std::function<void()>>{[&] { sm->newServiceConfig(nullptr); },
                                                                [&] { sm->newLocalServiceConfig(nullptr); },
                                                                [&] { sortVersions(nullptr, versions, "client"); }})
    try {
      attempt();
      ADD_FAILURE() << "accepted";
    } catch (Nox::RangeException const& refused) {
      EXPECT_STREQ(refused.what(), "null ValidPtr");
    }
  EXPECT_EQ(sm->serviceConfig().members(), 1U);
  EXPECT_EQ(sm->localServiceConfig().members(), 1U);
}

}  // namespace

}  // namespace HandlersTest
