// Derives from the documents of both sides how each switch and each of its services stands.
#include "agent/view/switch_rows.h"

#include <algorithm>

#include "agent/document/path.h"

namespace Agent {
namespace {

constexpr Place kSwitchEntry("registration/<switch>/<entry>");

/// The member of an object; null if the object, the member or its value is not there.
Json const* member(Json const* object, std::string_view key) {
  if (object == nullptr) return nullptr;
  auto const found = object->find(key);
  return found == object->end() || found->is_null() ? nullptr : &*found;
}

bool isSet(Json const* object, std::string_view key) {
  Json const* const value = member(object, key);
  return value != nullptr && value->get<bool>();
}

std::string text(Json const* object, std::string_view key) {
  Json const* const value = member(object, key);
  return value != nullptr ? value->get<std::string>() : std::string();
}

std::optional<std::uint64_t> number(Json const* object, std::string_view key) {
  Json const* const value = member(object, key);
  return value != nullptr ? std::optional(value->get_ref<Json::number_unsigned_t const&>()) : std::nullopt;
}

/// What is known of one switch; what is absent is null.
struct SwitchState {
  std::string name;
  Json const* config = nullptr;
  Json const* status = nullptr;
};

/// All that is known of one service of one switch; what is absent is null.
struct ServiceDocuments {
  Json const* own = nullptr;         // the switch's configuration
  Json const* controller = nullptr;  // the override, or else the controller's configuration
  bool isOverridden = false;
  Json const* status = nullptr;
  Json const* info = nullptr;
};

using Versions = std::map<std::uint64_t, std::string>;

/// What one side offers: descriptions by number.
Versions versionsOf(Json const* config) {
  Versions offered;
  if (Json const* const versions = member(member(config, "versionConfig"), "version"))
    for (auto const& [version, desc] : versions->items()) offered.emplace(std::stoul(version), desc.get<std::string>());
  return offered;
}

std::string listOf(Versions const& versions) {
  std::string list;
  for (auto const& [version, desc] : versions) list.append(list.empty() ? "" : ",").append(std::to_string(version));
  return list.empty() ? "none" : list;
}

/// What a negotiation writes.
struct Outcome {
  bool isEnabled = false;
  bool isComplete = false;
  bool isCompatible = false;
  std::uint64_t version = 0;
  std::string desc;
  friend bool operator==(Outcome const&, Outcome const&) = default;
};

Outcome recorded(Json const* status) {
  Json const* const versionStatus = member(status, "versionStatus");
  Json const* const version = member(versionStatus, "negotiatedVersion");
  return {.isEnabled = isSet(status, "enabled"),
          .isComplete = isSet(versionStatus, "versionNegotiationComplete"),
          .isCompatible = isSet(versionStatus, "versionCompatible"),
          .version = number(version, "version").value_or(0),
          .desc = text(version, "desc")};
}

/// What a negotiation of today would leave in the place of `before`, by the rules that docs/state-tree.md tells.
Outcome negotiated(ServiceDocuments const& of, Outcome before) {
  if (!of.own) return before;
  bool const ownEnabled = isSet(of.own, "enabled");
  // Of a service that the switch disables nothing is written then; no version was ever found with these two sides.
  if (!of.controller) return {before.isEnabled, ownEnabled || before.isComplete, false, 0, ""};
  if (!ownEnabled || !isSet(of.controller, "enabled")) return {};
  Versions const own = versionsOf(of.own);
  Versions const controller = versionsOf(of.controller);
  auto const common =
      std::find_if(own.rbegin(), own.rend(), [&](auto const& offer) { return controller.contains(offer.first); });
  if (common == own.rend()) return {true, true, false, 0, ""};
  return {true, true, true, common->first, common->second};
}

/// Why a negotiation of the configurations as they stand finds no version.
std::string reason(ServiceDocuments const& of) {
  if (!of.own) return "no longer offered by the switch";
  if (!of.controller) return "not known to the controller";
  if (!isSet(of.controller, "enabled"))
    return of.isOverridden ? "disabled by an override" : "disabled by the controller";
  if (!isSet(of.own, "enabled")) return "disabled by the switch";
  return "switch offers " + listOf(versionsOf(of.own)) + "; " + (of.isOverridden ? "override " : "controller ") +
         listOf(versionsOf(of.controller));
}

std::string outcome(ServiceDocuments const& of) {
  if (!member(of.status, "versionStatus")) return of.own ? "not negotiated yet" : "not configured by the switch";
  Outcome const found = recorded(of.status);
  // Another outcome than that of today's inputs is older than they are, and they do not explain it.
  bool const isOld = !(found == negotiated(of, found));
  if (!found.isCompatible) return isOld ? "not negotiated since its inputs changed" : reason(of);
  std::string line = "version " + std::to_string(found.version);
  if (!found.desc.empty()) line += " (" + found.desc + ")";
  if (!of.own) return line + ", no longer offered by the switch";
  return isOld ? line + ", not negotiated since its inputs changed" : line;
}

std::optional<PublishedService> published(ServiceDocuments const& of) {
  if (!of.info) return std::nullopt;
  PublishedService result;
  if (Json const* const mounts = member(of.info, "publishedMount"))
    for (auto const& [path, mount] : mounts->items()) result.mounts.push_back(path);
  std::sort(result.mounts.begin(), result.mounts.end());
  result.isReady = isSet(of.info, "ready");
  return result;
}

std::vector<ServiceRow> serviceRows(SwitchState const& of, SwitchDocuments const& documents) {
  std::map<std::string, ServiceDocuments> services;
  auto const collect = [&](Json const* members, Json const* ServiceDocuments::*part) {
    if (members == nullptr) return;
    for (auto const& [name, value] : members->items()) services[name].*part = &value;
  };
  collect(member(of.config, "serviceConfig"), &ServiceDocuments::own);
  collect(member(of.status, "serviceStatus"), &ServiceDocuments::status);
  collect(member(of.status, "servicePublishedInfo"), &ServiceDocuments::info);
  std::vector<ServiceRow> rows;
  for (auto& [name, service] : services) {
    service.controller = documents.find(textAt("service/override/<service>", {name}));
    service.isOverridden = service.controller != nullptr;
    if (!service.isOverridden) service.controller = documents.find(textAt("service/config/<service>", {name}));
    rows.push_back({name, outcome(service), published(service)});
  }
  return rows;
}

struct State {
  SwitchProgress progress;
  std::string text;
};

State stateOf(SwitchState const& of, SwitchDocuments const& documents) {
  if (!of.config) return {SwitchProgress::kLacking, "incomplete: no \"config\""};
  if (!of.status) return {SwitchProgress::kLacking, "incomplete: no \"status\""};
  std::string const systemId = text(of.config, "systemId");
  Json const* const holder = member(documents.find(textAt("controller/switch/<systemId>", {systemId})), "switchStatus");
  if (holder && holder->get<std::string>() == of.name) return {SwitchProgress::kReady, "ready"};
  if (!isSet(documents.find(textAt("controller/config", {})), "enabled"))
    return {SwitchProgress::kWaiting, "agent disabled"};
  if (!isSet(of.config, "enabled")) return {SwitchProgress::kWaiting, "not enabled"};
  if (!documents.find(textAt("heartbeat/<systemId>", {systemId}))) return {SwitchProgress::kLacking, "no heartbeat"};
  // Registrations with one system id share a row, which tells of one of them.
  if (holder) return {SwitchProgress::kWaiting, "system id taken by " + inQuotes(holder->get<std::string>())};
  return {SwitchProgress::kWaiting, "not decided anew"};
}

}  // namespace

bool SwitchDocuments::isWanted(std::string_view path) {
  constexpr Place kPlaces[] = {kSwitchEntry,
                               "heartbeat/<systemId>",
                               "controller/config",
                               "controller/switch/<systemId>",
                               "service/config/<service>",
                               "service/override/<service>"};
  return std::any_of(
      std::begin(kPlaces), std::end(kPlaces), [&](Place place) { return path.starts_with(place.prefix()); });
}

void SwitchDocuments::put(std::string const& path, Json document) {
  if (isWanted(path)) documents_.insert_or_assign(path, std::move(document));
}

Json const* SwitchDocuments::find(std::string const& path) const {
  auto const found = documents_.find(path);
  return found != documents_.end() ? &found->second : nullptr;
}

std::vector<SwitchRow> switchRows(SwitchDocuments const& documents) {
  // The slash behind a directory's name sorts otherwise than the name's end.
  std::map<std::string, SwitchState> switches;
  for (auto at = documents.all().lower_bound(kSwitchEntry.prefix()); at != documents.all().end(); ++at) {
    std::string_view const path = at->first;
    if (!path.starts_with(kSwitchEntry.prefix())) break;
    std::string_view const rest = path.substr(kSwitchEntry.prefix().size());
    std::size_t const slash = rest.find('/');
    if (slash == std::string_view::npos) continue;
    std::string const name(rest.substr(0, slash));
    std::string_view const entry = rest.substr(slash + 1);
    SwitchState& found = switches[name];
    found.name = name;
    if (entry == "config") found.config = &at->second;
    if (entry == "status") found.status = &at->second;
  }
  std::vector<SwitchRow> rows;
  for (auto const& [name, of] : switches) {
    SwitchRow& row = rows.emplace_back();
    row.name = name;
    if (of.config) row.systemId = text(of.config, "systemId");
    auto const [progress, state] = stateOf(of, documents);
    row.progress = progress;
    row.state = state;
    row.generationAsked = number(of.config, "registrationGenId");
    row.generationAnswered = number(of.status, "registrationGenId");
    if (of.config && of.status) row.services = serviceRows(of, documents);
  }
  return rows;
}

}  // namespace Agent
