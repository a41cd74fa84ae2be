// The tables that an agent owns and shares with the registry.
#pragma once

#include <tuple>

#include "framework/core/dir.h"
#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"

namespace Controllerdb {

/// All that the outside shares with one registry, as it is at the start: the agent disabled, every table empty. The
/// agent owns the tables, passes them to the registry when it builds the root, and writes them on the registry's
/// thread.
struct AgentTables {
  Nox::ValidPtr<Config> config = Nox::make<Config>("config");
  Nox::ValidPtr<Status> status = Nox::make<Status>("status");
  /// One directory a switch.
  Nox::ValidPtr<Nox::Dir> registrationRootDir = Nox::make<Nox::Dir>("registration");
  /// The table of switches, which the registry alone writes.
  Nox::ValidPtr<ControllerRegistration::ControllerStatus> controllerStatus =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  /// The switches whose heartbeat is heard.
  Nox::ValidPtr<Controller::PeerTable> peers = Nox::make<Controller::PeerTable>("peers");
  Nox::ValidPtr<Controller::ServiceConfigDir> serviceConfigDir =
      Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  Nox::ValidPtr<Controller::OverrideServiceConfigDir> overrideServiceConfigDir =
      Nox::make<Controller::OverrideServiceConfigDir>("overrideServiceConfig");
  /// One `Controller::ServiceStatusDir` a switch, which the registry alone writes.
  Nox::ValidPtr<Nox::Dir> allClientsServiceStatusDir = Nox::make<Nox::Dir>("serviceStatus");
  /// A registry's root makes one of its own by name; an agent that uses that one puts it here.
  Nox::ValidPtr<Controller::PublishedMountsTable> publishedMountsTable =
      Nox::make<Controller::PublishedMountsTable>("publishedMounts");

  /// What a root makes its `registryRootSm` of, in the order of that attribute's arguments. As long as this lives.
  auto registryRootInputs() const {
    return std::tie(config,
                    status,
                    registrationRootDir,
                    controllerStatus,
                    peers,
                    serviceConfigDir,
                    overrideServiceConfigDir,
                    allClientsServiceStatusDir,
                    publishedMountsTable);
  }
};

}  // namespace Controllerdb
