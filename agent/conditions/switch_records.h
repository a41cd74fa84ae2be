// The records of a switch and its services, gathered from the tables, and what a negotiation would make of them.
#pragma once

#include <cstddef>
#include <map>

#include "records/tables.h"

namespace Agent {

/// The two records of one switch; null where there is none.
struct SwitchRecords {
  SwitchRecords(Controllerdb::AgentTables const& of, Nox::Name const& switchName);

  Controllerdb::AgentTables const& tables;
  Nox::Name name;
  Nox::Ptr<ControllerRegistration::SwitchConfig const> config;
  Nox::Ptr<ControllerRegistration::SwitchStatus const> status;
};

/// What both sides have of one service; null where there is none.
struct ServiceRecords {
  Nox::Ptr<Controller::ServiceConfigV1 const> own;
  /// The override or, without one, the controller's configuration.
  Nox::Ptr<Controller::ServiceConfigV1 const> controller;
  bool isOverridden = false;
  Nox::Ptr<Controller::ServiceStatusV1 const> status;
  Nox::Ptr<ControllerRegistration::ServicePublishedInfo const> info;
  /// Mounts that are offered for it, those of them that are not published, and those that are published and not offered
  /// for it.
  std::size_t offered = 0;
  std::size_t missing = 0;
  std::size_t left = 0;
};

/// What a negotiation writes.
struct NegotiationOutcome {
  bool isEnabled = false;
  bool isComplete = false;
  bool isCompatible = false;
  Controller::ServiceVersionV1 version;
  friend bool operator==(NegotiationOutcome const&, NegotiationOutcome const&) = default;
};

/// Whether an outcome is recorded.
bool isRecorded(ServiceRecords const& of);
/// The recorded one; `isRecorded()` holds.
NegotiationOutcome recordedOutcome(ServiceRecords const& of);
/// What a negotiation of today would leave in its place; the switch configures the service.
NegotiationOutcome outcomeOfToday(ServiceRecords const& of);

/// All services that the switch configures, has a status of, is published or offers mounts for; none unless it has both
/// of its records. In byte order of their names.
std::map<Nox::Name, ServiceRecords> servicesOf(SwitchRecords const& of);

}  // namespace Agent
