// Paths of the state tree: every place where a document can lie, as one type each.
#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "agent/document/input_error.h"
#include "records/ids.h"

namespace Agent {

using Controller::SystemId;

/// Throws an InputError about `field` unless `name` can be the name of a switch, a service or an entry: 1 to 255 bytes
/// of valid UTF-8 without "/" and without control characters. `what` says what it names: "a service name".
void requireName(std::string_view name, std::string_view what, std::string const& field);

/// The places of the tree, named after what lies there.
namespace At {

struct ControllerConfig {
  bool operator==(ControllerConfig const&) const = default;
};
struct ControllerStatus {
  bool operator==(ControllerStatus const&) const = default;
};
struct ControllerSwitch {
  SystemId systemId;
  bool operator==(ControllerSwitch const&) const = default;
};
/// `registration/<switch>`: the whole directory, which can be deleted and nothing else.
struct Registration {
  std::string switchName;
  bool operator==(Registration const&) const = default;
};
struct SwitchConfig {
  std::string switchName;
  bool operator==(SwitchConfig const&) const = default;
};
struct SwitchStatus {
  std::string switchName;
  bool operator==(SwitchStatus const&) const = default;
};
/// Any entry of a registration directory but "config" and "status".
struct OtherEntry {
  std::string switchName;
  std::string entry;
  bool operator==(OtherEntry const&) const = default;
};
struct Heartbeat {
  SystemId systemId;
  bool operator==(Heartbeat const&) const = default;
};
struct ServiceConfig {
  std::string service;
  bool operator==(ServiceConfig const&) const = default;
};
struct ServiceOverride {
  std::string service;
  bool operator==(ServiceOverride const&) const = default;
};
struct ServiceStatus {
  std::string switchName;
  std::string service;
  bool operator==(ServiceStatus const&) const = default;
};
struct MountOffer {
  SystemId systemId;
  bool operator==(MountOffer const&) const = default;
};
struct MountReady {
  std::string service;
  bool operator==(MountReady const&) const = default;
};

}  // namespace At

using Path = std::variant<At::ControllerConfig, At::ControllerStatus, At::ControllerSwitch, At::Registration,
                          At::SwitchConfig, At::SwitchStatus, At::OtherEntry, At::Heartbeat, At::ServiceConfig,
                          At::ServiceOverride, At::ServiceStatus, At::MountOffer, At::MountReady>;

/// The place that `text` names. Throws an InputError without path and field if no such place can exist. What may be put
/// or deleted there is not decided here.
Path parsePath(std::string_view text);

/// The path as it is written out: system ids in lower case, otherwise as it was read.
std::string toText(Path const& path);

}  // namespace Agent
