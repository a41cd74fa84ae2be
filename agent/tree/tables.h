// The entities that the registry shares with the outside: everything that the state tree shows.
#pragma once

#include "framework/core/dir.h"
#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"

namespace Agent {

/// The tables, as they are at the start: disabled and empty.
struct Tables {
  Nox::ValidPtr<Controllerdb::Config> config = Nox::make<Controllerdb::Config>("config");
  Nox::ValidPtr<Controllerdb::Status> status = Nox::make<Controllerdb::Status>("status");
  Nox::ValidPtr<ControllerRegistration::ControllerStatus> controllerStatus =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  /// One directory a switch.
  Nox::ValidPtr<Nox::Dir> registrationRootDir = Nox::make<Nox::Dir>("registration");
  Nox::ValidPtr<Controller::PeerTable> peerTable = Nox::make<Controller::PeerTable>("peers");
  Nox::ValidPtr<Controller::ServiceConfigDir> serviceConfigDir =
      Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  Nox::ValidPtr<Controller::OverrideServiceConfigDir> overrideServiceConfigDir =
      Nox::make<Controller::OverrideServiceConfigDir>("overrideServiceConfig");
  /// One `Controller::ServiceStatusDir` a switch.
  Nox::ValidPtr<Nox::Dir> allClientsServiceStatusDir = Nox::make<Nox::Dir>("serviceStatus");
  Nox::ValidPtr<Controller::PublishedMountsTable> publishedMountsTable;
};

}  // namespace Agent
