// The service and the conditions of its switches.
#include <chrono>

#include "agent/document/json_reader.h"
#include "agent/server/service.h"
#include "agent/tree/state_tree.h"

namespace Agent {

SwitchConditions::Registry Service::registry() {
  return {tree_->tables(), [this](Nox::Name const& name) { return tree_->isServed(name); }};
}

Since Service::since(Revision revision) { return {revision, std::chrono::system_clock::now()}; }

// Until its heartbeat is put again or expires, it is not known whether a switch that was heard before the start is.
void Service::beginConditions(Revision revision) {
  std::set<SystemId> unrenewed;
  constexpr Place kHeartbeat("heartbeat/<systemId>");
  auto const [begin, end] = withPrefix(latest_.documents, kHeartbeat.prefix());
  for (auto at = begin; at != end; ++at)
    if (at->second.timeToLive) unrenewed.insert(parsePath(at->first).systemId);
  transitions_.add(conditions_.begin(registry(), std::move(unrenewed), since(revision)));
}

void Service::judge(CommittedTurn const& turn) {
  transitions_.add(conditions_.turn(registry(), turn.changes, since(turn.revision), isExpiring_));
}

void Service::conditionsKept(Revision revision) {
  conditions_.keptIs(revision);
  transitions_.keptIs(revision, loop_.now());
}

// The values that decided are those of the documents that are kept, as the conditions are. All of it is taken before
// anything is read: what runs in the middle of that may keep other documents.
std::optional<Service::ExplainedSwitch> Service::explain(std::string const& name) const {
  JudgedSwitch const* const found = conditions_.find(name);
  if (found == nullptr) return std::nullopt;
  ExplainedSwitch result{*found, {}};
  SwitchNeighbours const neighbours = conditions_.neighbours(name);
  std::vector<std::pair<std::string, DocumentText>> documents;
  auto const add = [&](std::string const& path) {
    auto const kept = kept_.documents.find(path);
    if (kept != kept_.documents.end()) documents.emplace_back(path, kept->second.text);
  };
  for (char const* const path : {"controller/config", "controller/status"}) add(path);
  auto const [begin, end] = withPrefix(kept_.documents, textAt("registration/<switch>", {name}) + "/");
  for (auto at = begin; at != end; ++at) add(at->first);
  if (result.judged.systemId) add(textAt("mount/offer/<systemId>", {result.judged.systemId->stringValue().view()}));
  std::vector<Judgement> judgements;
  for (auto const& [judgement, when] : result.judged.conditions) {
    judgements.push_back(judgement);
    if (judgement.condition != Condition("Negotiated")) continue;
    for (Place const place : {Place("service/config/<service>"), Place("service/override/<service>")})
      add(textAt(place, {judgement.service.view()}));
  }
  Controllerdb::AgentTables tables;
  StateTree tree(tables);
  Nox::Turn const turn;
  for (auto const& [path, text] : documents) tree.restore(parsePath(path), readJson(*text));
  result.explanations = Agent::explain(SwitchRecords(tables, Nox::Name(name)), judgements, neighbours);
  return result;
}

}  // namespace Agent
