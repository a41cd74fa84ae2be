// What the table of switches says of the services of one switch.
#pragma once

#include <string>
#include <vector>

#include "agent/tables.h"
#include "records/registration.h"

namespace Agent {

/// One service of one switch: its name, and the version that was negotiated or why there is none.
struct ServiceLine {
  std::string service;
  std::string outcome;
};

/// The services that the switch configures or has a status for, in byte order of their names.
std::vector<ServiceLine> serviceLines(ControllerRegistration::SwitchConfig const& config,
                                      ControllerRegistration::SwitchStatus const& status, Tables const& tables);

}  // namespace Agent
