// The conditions of all switches, turn by turn: what they are, since when, and which of it is kept.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "agent/conditions/judge.h"
#include "agent/conditions/words.h"
#include "agent/document/documents.h"
#include "agent/document/path.h"

namespace Agent {

/// When something became what it is.
struct Since {
  Revision revision = 0;
  /// By the clock of the machine, for people.
  std::chrono::system_clock::time_point time;
};

/// A condition, and since when it has its reason.
struct TimedJudgement {
  Judgement judgement;
  Since since;
};

/// A switch as it was judged last.
struct JudgedSwitch {
  /// Absent without a configuration.
  std::optional<SystemId> systemId;
  /// In the order of `judge()`.
  std::vector<TimedJudgement> conditions;
  /// How its heartbeat ended last.
  HeartbeatSeen lastEnd = HeartbeatSeen::kNever;

  /// Whether there are conditions of that service.
  bool hasService(std::string_view service) const;
  /// The reason of one of its own conditions.
  Reason reasonOf(Condition condition) const { return conditions[condition.row()].judgement.reason; }
};

/// A condition that has another reason than before. A registration that has gone is told as a `Ready` that is false.
struct Transition {
  std::string name;
  std::optional<SystemId> systemId;
  Judgement judgement;
  Since since;
};

/// All switches, judged anew as turns change what they depend on. The registry does not know of them. All on the
/// registry's thread.
class SwitchConditions {
 public:
  using Switches = std::map<std::string, JudgedSwitch, std::less<>>;

  /// What the judge needs of the registry that runs.
  struct Registry {
    Controllerdb::AgentTables const& tables;
    /// Whether it has a machine for the registration of that name.
    std::function<bool(Nox::Name const& name)> isServed;
  };

  /// Judges all switches of a registry that has just begun. What they were before keeps its time where it is the same.
  /// `unrenewed` are the heartbeats that may expire before they are put again.
  std::vector<Transition> begin(Registry const& registry, std::set<SystemId> unrenewed, Since const& now);

  /// Judges the switches again that a turn concerns. `isExpiry` says that it deletes heartbeats that expired.
  std::vector<Transition> turn(Registry const& registry, std::span<DocumentChange const> changes, Since const& now,
                               bool isExpiry);

  /// The turns up to this revision are kept.
  void keptIs(Revision revision);
  /// What is not kept has not happened.
  void undo();

  /// A switch as it is kept; null if there is none.
  JudgedSwitch const* find(std::string_view name) const;
  /// Calls `visit` with all switches behind that name as they are kept, in byte order, until it returns false.
  void forEach(std::string_view after,
               std::function<bool(std::string const& name, JudgedSwitch const& judged)> const& visit) const;

  SwitchNeighbours neighbours(std::string const& name) const;

 private:
  class Judging;

  void put(std::string const& name, std::optional<JudgedSwitch> judged, Revision revision);

  /// As they are after the last turn.
  Switches switches_;
  /// What switches were before each turn that changed them and is not kept, the oldest first.
  std::map<std::string, std::deque<std::optional<JudgedSwitch>>, std::less<>> before_;
  /// These turns, in order, and each switch that one changed.
  std::deque<std::pair<Revision, std::string>> unkept_;
  std::set<SystemId> unrenewed_;
  /// Which registrations have a system id, and which rows name a registration that has another.
  std::set<std::pair<SystemId, std::string>> names_;
  std::set<std::pair<std::string, SystemId>> ghosts_;
};

}  // namespace Agent
