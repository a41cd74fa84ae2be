// Decides the conditions of a switch from the records of both sides.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/conditions/reasons.h"
#include "agent/conditions/switch_records.h"

namespace Agent {

/// What the agent has seen of a heartbeat.
enum class HeartbeatSeen : std::uint8_t {
  kNever,      ///< It does not exist, and no end of one is known.
  kExpired,    ///< It does not exist, because it expired.
  kDeleted,    ///< It does not exist, because it was deleted.
  kPut,        ///< It exists, and was put since the agent's start.
  kUnrenewed,  ///< It exists, and was put before the agent's start.
};

/// What of a switch does not stand in its own records.
struct SwitchSurroundings {
  /// Whether the registry has a machine for the registration.
  bool isServed = false;
  HeartbeatSeen heartbeat = HeartbeatSeen::kNever;
  /// Whether another registration has the system id.
  bool isShared = false;
  /// Whether a row of another system id names the switch.
  bool hasGhost = false;
};

/// A condition of a switch, or of one of its services.
struct Judgement {
  Condition condition;
  Reason reason;
  /// Empty for a condition of the switch.
  Nox::Name service;

  friend bool operator==(Judgement const&, Judgement const&) = default;
  /// Whether it is about a condition that stands before the other's in what `judge()` returns.
  bool isBefore(Judgement const& other) const {
    if (condition.isOfService() != other.condition.isOfService()) return !condition.isOfService();
    return service == other.service ? condition < other.condition : service < other.service;
  }
};

/// All conditions of a switch: its own first, in the order of the table, then those of each service that
/// it configures, has a status of, is published or offers mounts for, in byte order of their names. On the registry's
/// thread, outside of its turns; it writes nothing.
std::vector<Judgement> judge(SwitchRecords const& records, SwitchSurroundings const& surroundings);

}  // namespace Agent
