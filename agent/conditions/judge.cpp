// The rules by which each condition has its reason.
#include "agent/conditions/judge.h"

#include "agent/document/breath.h"

namespace Agent {
namespace {

/// A switch whose conditions are decided.
struct Judged {
  SwitchRecords const& records;
  SwitchSurroundings const& surroundings;
};

Reason registered(Judged const& of) {
  if (!of.records.config) return "NoConfig";
  if (!of.records.status) return "NoStatus";
  if (of.surroundings.isServed) return "Served";
  return of.records.tables.config->enabled() ? Reason("EntryDeleted") : Reason("AgentDisabled");
}

Reason enabled(Judged const& of) {
  if (!of.records.config) return "ConfigUnknown";
  return of.records.config->enabled() ? Reason("EnabledBySwitch") : Reason("NotEnabled");
}

Reason heard(Judged const& of) {
  if (!of.records.config) return "ConfigUnknown";
  switch (of.surroundings.heartbeat) {
    case HeartbeatSeen::kNever:
      return "NeverHeard";
    case HeartbeatSeen::kExpired:
      return "HeartbeatExpired";
    case HeartbeatSeen::kDeleted:
      return "HeartbeatDeleted";
    case HeartbeatSeen::kPut:
      return "HeartbeatThere";
    case HeartbeatSeen::kUnrenewed:
      return "NotHeardSinceStart";
  }
  return "NeverHeard";
}

Reason agentEnabled(Judged const& of) {
  return of.records.tables.config->enabled() ? Reason("EnabledByOperator") : Reason("AgentDisabled");
}

Reason identityUnique(Judged const& of) {
  if (!of.records.config) return "ConfigUnknown";
  if (of.surroundings.isShared) return "SystemIdTaken";
  return of.surroundings.hasGhost ? Reason("SystemIdChanged") : Reason("IdentityOfItsOwn");
}

Reason answered(Judged const& of) {
  if (!of.records.config) return "ConfigUnknown";
  if (!of.records.status) return "NoStatus";
  if (of.records.status->registrationGenId() != of.records.config->registrationGenId()) return "GenerationBehind";
  if (of.records.status->controllerUUID() != of.records.tables.status->controllerUUID()) return "IdentityBehind";
  return "AsAskedFor";
}

Reason ready(Judged const& of) {
  if (of.records.config) {
    auto const* const row = of.records.tables.controllerStatus->switchStatus().find(of.records.config->systemId());
    if (row != nullptr && row->value() && row->value()->name() == of.records.name) return "RowThere";
  }
  // What comes first is why the rest is as it is.
  for (Reason const reason : {registered(of), enabled(of), heard(of), identityUnique(of)})
    if (reason->truth == Truth::kFalse && reason != Reason("SystemIdChanged")) return reason;
  return "RowsMissingAfterReplacement";
}

Reason negotiated(ServiceRecords const& of) {
  if (!of.own) return "NotConfigured";
  if (!isRecorded(of)) return "NotNegotiatedYet";
  NegotiationOutcome const found = recordedOutcome(of);
  if (found.isCompatible) return of.isOverridden ? Reason("OverrideInForce") : Reason("HighestCommonVersion");
  if (!(found == outcomeOfToday(of))) return "OutcomeOutdated";
  if (!of.own->enabled()) return "DisabledBySwitch";
  if (!of.controller) return "NotKnownToController";
  if (!of.controller->enabled()) return of.isOverridden ? Reason("DisabledByOverride") : Reason("DisabledByController");
  return "NoCommonVersion";
}

Reason current(ServiceRecords const& of) {
  if (!of.own || !isRecorded(of)) return "NothingRecorded";
  return recordedOutcome(of) == outcomeOfToday(of) ? Reason("SameToday") : Reason("InputsChangedSince");
}

Reason published(ServiceRecords const& of, bool isReadyToday) {
  if (of.missing > 0) return "OfferNotPublished";
  if (of.left > 0) return "MountsLeft";
  if (of.offered == 0) return "NothingOffered";
  if (of.info->ready() != isReadyToday) return "ReadinessBehind";
  return isReadyToday ? Reason("AllPublished") : Reason("MountsNotReady");
}

}  // namespace

std::vector<Judgement> judge(SwitchRecords const& records, SwitchSurroundings const& surroundings) {
  Judged const of{records, surroundings};
  std::vector<Judgement> all = {{"Registered", registered(of), {}},
                                {"Enabled", enabled(of), {}},
                                {"Heard", heard(of), {}},
                                {"AgentEnabled", agentEnabled(of), {}},
                                {"IdentityUnique", identityUnique(of), {}},
                                {"Answered", answered(of), {}},
                                {"Ready", ready(of), {}}};
  for (auto const& [service, found] : servicesOf(records)) {
    Breath::take();
    bool const isReady = records.tables.publishedMountsTable->servicePublishReady().value(Nox::String8(service));
    all.push_back({"Negotiated", negotiated(found), service});
    all.push_back({"Current", current(found), service});
    all.push_back({"Published", published(found, isReady), service});
  }
  return all;
}

}  // namespace Agent
