// Finds the switches that a turn concerns, and judges them again.
#include "agent/conditions/switch_conditions.h"

#include <algorithm>

#include "agent/conditions/switch_records.h"
#include "agent/document/breath.h"

namespace Agent {

using Nox::Name;

namespace {

SystemId const kLowest{};

constexpr Place kConfig("registration/<switch>/config");
constexpr std::string_view kConfigEnd = kConfig.pattern().substr(kConfig.pattern().rfind('/'));
constexpr Place kServiceStatus("service/status/<switch>/<service>");

/// The name in the row of that system id; nothing without a row.
std::optional<std::string> nameInRow(Controllerdb::AgentTables const& tables, SystemId const& id) {
  auto const* const row = tables.controllerStatus->switchStatus().find(id);
  if (row == nullptr || !row->value()) return std::nullopt;
  return std::string(row->value()->name().view());
}

}  // namespace

/// One turn on its way through the switches.
class SwitchConditions::Judging {
 public:
  Judging(SwitchConditions& conditions, Registry const& registry, Since const& now)
      : to_(conditions), registry_(registry), now_(now) {}

  void all() {
    for (auto const& [name, judged] : to_.switches_) concerned_.insert(name);
    for (auto const& entry : registry_.tables.registrationRootDir->entries())
      concerned_.insert(std::string(entry.fwkKey().view()));
  }
  void allAnew() {
    all();
    identities_ = concerned_;
  }

  void concern(DocumentChange const& change, bool isExpiry) {
    // Most documents are of these places.
    for (Place const place : {kConfig, kServiceStatus}) {
      if (!change.path.starts_with(place.prefix())) continue;
      std::size_t const begin = place.prefix().size();
      std::string const& name =
          *concerned_.insert(change.path.substr(begin, change.path.find('/', begin) - begin)).first;
      if (change.path.ends_with(kConfigEnd)) identities_.insert(name);
      return;
    }
    Path const path = parsePath(change.path);
    switch (path.place.source()) {
      case Source::kHeartbeats:
        return heartbeat(path.systemId, change.text != nullptr, isExpiry);
      case Source::kMounts:
      case Source::kOperator:
        if (path.place.hasSystemId()) return withId(path.systemId);
        if (path.names[0].empty()) return all();
        services_.insert(path.names[0]);
        return;
      case Source::kRegistry:
        return row(path.systemId);
      case Source::kSwitch:
        return;
    }
  }

  std::vector<Transition> judge() {
    if (!services_.empty()) withServices();
    // Identities first: they decide which other switches the turn concerns.
    for (std::string const& name : identities_) identify(name);
    for (std::string const& name : concerned_) {
      judge(name);
      for (int piece = 0; piece < kPieces; ++piece) Breath::take();
    }
    return std::move(transitions_);
  }

 private:
  void heartbeat(SystemId const& id, bool isThere, bool isExpiry) {
    to_.unrenewed_.erase(id);
    forEachWithId(id, [&](std::string const& name) {
      concerned_.insert(name);
      if (!isThere) ended_[name] = isExpiry ? HeartbeatSeen::kExpired : HeartbeatSeen::kDeleted;
    });
  }

  template <class Visit>
  void forEachWithId(SystemId const& id, Visit const& visit) const {
    for (auto at = to_.names_.lower_bound({id, ""}); at != to_.names_.end() && at->first == id; ++at) visit(at->second);
  }
  void withId(SystemId const& id) {
    forEachWithId(id, [&](std::string const& name) { concerned_.insert(name); });
  }

  void withServices() {
    for (auto const& [name, judged] : to_.switches_) {
      bool const isConcerned = std::any_of(judged.conditions.begin(), judged.conditions.end(), [&](auto const& one) {
        Breath::take();
        return one.judgement.condition == Condition("Negotiated") && services_.contains(one.judgement.service.view());
      });
      if (isConcerned) concerned_.insert(name);
    }
  }

  /// A row, or what it names, may have changed.
  void row(SystemId const& id) {
    std::erase_if(to_.ghosts_, [&](auto const& ghost) {
      if (ghost.second == id) concerned_.insert(ghost.first);
      return ghost.second == id;
    });
    withId(id);
    auto const name = nameInRow(registry_.tables, id);
    if (!name) return;
    concerned_.insert(*name);
    auto const& config = SwitchRecords(registry_.tables, Name(*name)).config;
    if (!config || config->systemId() != id) to_.ghosts_.insert({*name, id});
  }

  /// Notes the system id that the switch has now.
  void identify(std::string const& name) {
    auto const known = to_.switches_.find(name);
    std::optional<SystemId> before = known != to_.switches_.end() ? known->second.systemId : std::nullopt;
    // At a start none is noted.
    if (before && !to_.names_.contains({*before, name})) before = std::nullopt;
    auto const& config = SwitchRecords(registry_.tables, Name(name)).config;
    std::optional<SystemId> const now = config ? std::optional(config->systemId()) : std::nullopt;
    if (before == now) return;
    if (before) to_.names_.erase({*before, name});
    if (now) to_.names_.insert({*now, name});
    for (auto const& id : {before, now})
      if (id) row(*id);
  }

  HeartbeatSeen seen(SystemId const& id, HeartbeatSeen lastEnd) const {
    if (!registry_.tables.peers->peer().has(id)) return lastEnd;
    return to_.unrenewed_.contains(id) ? HeartbeatSeen::kUnrenewed : HeartbeatSeen::kPut;
  }

  void judge(std::string const& name) {
    Name const key(name);
    auto const known = to_.switches_.find(name);
    if (!registry_.tables.registrationRootDir->entries().has(key)) {
      if (known == to_.switches_.end()) return;
      transitions_.push_back({name, known->second.systemId, {"Ready", "RegistrationDeleted", {}}, now_});
      to_.put(name, std::nullopt, now_.revision);
      return;
    }
    JudgedSwitch judged;
    if (auto const end = ended_.find(name); end != ended_.end()) judged.lastEnd = end->second;
    SwitchSurroundings surroundings{.isServed = registry_.isServed(key)};
    SwitchRecords const records(registry_.tables, key);
    if (records.config) {
      SystemId const id = records.config->systemId();
      judged.systemId = id;
      // It is the end of the heartbeat of this system id.
      bool const isKnown = known != to_.switches_.end() && known->second.systemId == id && !ended_.contains(name);
      if (isKnown) judged.lastEnd = known->second.lastEnd;
      surroundings.heartbeat = seen(id, judged.lastEnd);
      auto const first = to_.names_.lower_bound({id, ""});
      surroundings.isShared =
          first->second != name || (std::next(first) != to_.names_.end() && std::next(first)->first == id);
      auto const ghost = to_.ghosts_.lower_bound({name, kLowest});
      surroundings.hasGhost = ghost != to_.ghosts_.end() && ghost->first == name;
    }
    bool isNew = known == to_.switches_.end() || known->second.systemId != judged.systemId;
    std::span<TimedJudgement const> before;
    if (known != to_.switches_.end()) before = known->second.conditions;
    // Both are in the same order.
    for (Judgement& judgement : Agent::judge(records, surroundings)) {
      Breath::take();
      while (!before.empty() && before.front().judgement.isBefore(judgement)) before = before.subspan(1);
      bool const isSame = !before.empty() && before.front().judgement == judgement;
      if (!isSame) transitions_.push_back({name, judged.systemId, judgement, now_});
      judged.conditions.push_back({std::move(judgement), isSame ? before.front().since : now_});
      isNew = isNew || !isSame;
    }
    isNew =
        isNew || judged.conditions.size() != known->second.conditions.size() || judged.lastEnd != known->second.lastEnd;
    if (isNew) to_.put(name, std::move(judged), now_.revision);
  }

  /// What judging a switch costs, in pieces of work of a microsecond.
  static constexpr int kPieces = 8;

  SwitchConditions& to_;
  Registry const& registry_;
  Since const now_;
  std::set<std::string> concerned_;
  /// Switches that may have another system id than before.
  std::set<std::string> identities_;
  /// Of the documents that have changed.
  std::set<std::string, std::less<>> services_;
  std::map<std::string, HeartbeatSeen> ended_;
  std::vector<Transition> transitions_;
};

bool JudgedSwitch::hasService(std::string_view service) const {
  auto const isLess = [](TimedJudgement const& one, std::string_view of) {
    return !one.judgement.condition.isOfService() || one.judgement.service.view() < of;
  };
  auto const found = std::lower_bound(conditions.begin(), conditions.end(), service, isLess);
  return found != conditions.end() && found->judgement.service.view() == service;
}

std::vector<Transition> SwitchConditions::begin(Registry const& registry, std::set<SystemId> unrenewed,
                                                Since const& now) {
  unrenewed_ = std::move(unrenewed);
  names_.clear();
  ghosts_.clear();
  Judging judging(*this, registry, now);
  judging.allAnew();
  return judging.judge();
}

std::vector<Transition> SwitchConditions::turn(Registry const& registry, std::span<DocumentChange const> changes,
                                               Since const& now, bool isExpiry) {
  Judging judging(*this, registry, now);
  for (DocumentChange const& change : changes) judging.concern(change, isExpiry);
  return judging.judge();
}

void SwitchConditions::put(std::string const& name, std::optional<JudgedSwitch> judged, Revision revision) {
  auto const known = switches_.find(name);
  std::optional<JudgedSwitch> before;
  if (known != switches_.end()) before = std::move(known->second);
  before_[name].push_back(std::move(before));
  unkept_.emplace_back(revision, name);
  if (judged)
    switches_[name] = *std::move(judged);
  else
    switches_.erase(name);
}

void SwitchConditions::keptIs(Revision revision) {
  for (; !unkept_.empty() && unkept_.front().first <= revision; unkept_.pop_front()) {
    auto const before = before_.find(unkept_.front().second);
    before->second.pop_front();
    if (before->second.empty()) before_.erase(before);
  }
}

void SwitchConditions::undo() {
  for (auto& [name, all] : before_) {
    if (auto& first = all.front())
      switches_[name] = *std::move(first);
    else
      switches_.erase(name);
  }
  before_.clear();
  unkept_.clear();
}

JudgedSwitch const* SwitchConditions::find(std::string_view name) const {
  if (auto const before = before_.find(name); before != before_.end()) {
    auto const& kept = before->second.front();
    return kept ? &*kept : nullptr;
  }
  auto const found = switches_.find(name);
  return found != switches_.end() ? &found->second : nullptr;
}

void SwitchConditions::forEach(
    std::string_view after,
    std::function<bool(std::string const& name, JudgedSwitch const& judged)> const& visit) const {
  auto now = switches_.upper_bound(after);
  auto before = before_.upper_bound(after);
  while (now != switches_.end() || before != before_.end()) {
    bool const isChanged = before != before_.end() && (now == switches_.end() || before->first <= now->first);
    std::string const& name = isChanged ? before->first : now->first;
    JudgedSwitch const* const judged = isChanged ? find(name) : &now->second;
    if (judged != nullptr && !visit(name, *judged)) return;
    if (now != switches_.end() && now->first == name) ++now;
    if (isChanged) ++before;
  }
}

SwitchNeighbours SwitchConditions::neighbours(std::string const& name) const {
  SwitchNeighbours neighbours;
  auto const known = switches_.find(name);
  if (known != switches_.end() && known->second.systemId) {
    SystemId const id = *known->second.systemId;
    for (auto at = names_.lower_bound({id, ""}); at != names_.end() && at->first == id; ++at)
      if (at->second != name) neighbours.sharers.push_back(at->second);
  }
  for (auto at = ghosts_.lower_bound({name, kLowest}); at != ghosts_.end() && at->first == name; ++at)
    neighbours.ghosts.emplace_back(at->second.stringValue().view());
  return neighbours;
}

}  // namespace Agent
