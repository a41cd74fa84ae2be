// What the table of switches says of the services of one switch.
#pragma once

#include <string>
#include <vector>

#include "agent/tables.h"
#include "records/registration.h"

namespace Agent {

/// One service of one switch: its name, the version that was negotiated or why there is none, and what is published to
/// the switch for it: the paths of the mounts and whether the service is ready; empty if nothing is.
struct ServiceLine {
  std::string service;
  std::string outcome;
  std::string published;
};

/// The services that the switch configures, has a status for or is published, in byte order of their names.
std::vector<ServiceLine> serviceLines(ControllerRegistration::SwitchConfig const& config,
                                      ControllerRegistration::SwitchStatus const& status, Tables const& tables);

}  // namespace Agent
