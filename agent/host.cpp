// Builds the root, attribute by attribute: the tables first, then the machines that take them.
#include "agent/host.h"

namespace Agent {
namespace {

Nox::Ptr<Nox::Dir> newDir(char const* name) { return Nox::make<Nox::Dir>(name); }

constexpr unsigned kReconnectRetries = 3;
constexpr Nox::Seconds kMountTimeout = 30;

}  // namespace

Host::Host()
    : root_(Controllerdb::rootFactory("enrolix")), tables_{.publishedMountsTable = root_->publishedMountsTableIs()} {
  Nox::Turn turn;
  root_->registrationRootDirIs(tables_.registrationRootDir);
  auto const registeredSwitchTable = root_->registeredSwitchTableIs();
  auto const mountsRegistry = root_->mountsRegistryIs(
      newDir("mounts"), "/mounts", newDir("mounted"), "/mounted", kReconnectRetries, kMountTimeout);
  auto const mountConfigDir = newDir("mountConfig");
  auto const mountStatusDir = newDir("mountStatus");
  root_->registryRootSmIs(tables_.config,
                          tables_.status,
                          tables_.registrationRootDir,
                          tables_.controllerStatus,
                          tables_.peerTable,
                          tables_.serviceConfigDir,
                          tables_.overrideServiceConfigDir,
                          tables_.allClientsServiceStatusDir,
                          tables_.publishedMountsTable);
  root_->mountsRegistrySmIs(mountsRegistry,
                            tables_.controllerStatus,
                            newDir("serviceMountStatus"),
                            tables_.publishedMountsTable,
                            registeredSwitchTable,
                            tables_.allClientsServiceStatusDir);
  root_->serviceConfigDirSmIs(mountConfigDir,
                              mountStatusDir,
                              newDir("publishConfig"),
                              newDir("publishStatus"),
                              tables_.publishedMountsTable,
                              mountsRegistry);
  root_->initialMountSmIs(mountConfigDir,
                          mountStatusDir,
                          Nox::make<Controller::Heartbeat::Config>("heartbeatConfig"),
                          registeredSwitchTable,
                          tables_.peerTable);
}

}  // namespace Agent
