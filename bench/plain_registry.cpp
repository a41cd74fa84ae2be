// What follows from each input of the plain registry.
#include "bench/plain_registry.h"

#include <utility>

namespace Plain {

/// Writes what differs, and says whether it did.
template <class T>
static bool assign(T& field, T const& value) {
  if (field == value) return false;
  field = value;
  return true;
}

// The operator.

void Registry::enableAgent(bool enabled) {
  if (!assign(agentEnabled_, enabled)) return;
  for (auto& [name, s] : switches_) {
    if (enabled) {
      if (std::exchange(s.served, true)) continue;
      registerIfComplete(s);
    } else {
      unregister(s);
      s.served = false;
      s.serviceStatus.clear();
    }
  }
  if (assign(controllerStatus_.enabled, enabled)) controllerStatus_.listeners.tell();
}

void Registry::putService(std::string const& service, ServiceConfig config) {
  auto const [at, isNew] = services_.try_emplace(service);
  bool const isSwitched = !isNew && at->second.enabled != config.enabled;
  at->second = std::move(config);
  if (!isSwitched) return;
  for (auto& [name, s] : switches_)
    if (s.registered) renegotiate(s, service);
}

void Registry::putReady(std::string const& service, bool ready) {
  auto const [at, isNew] = ready_.try_emplace(service, ready);
  if (!assign(at->second, ready) && !isNew) return;
  for (auto& [name, s] : switches_) {
    if (!s.registered || !isReady(s)) continue;
    auto const [info, isNewInfo] = s.status->published.try_emplace(service);
    if (assign(info->second.ready, ready) || isNewInfo) s.status->listeners.tell();
  }
}

// Heartbeats and offers.

void Registry::putHeartbeat(SystemId systemId) {
  if (heartbeats_.insert(systemId).second) decideById(systemId);
}

void Registry::removeHeartbeat(SystemId systemId) {
  if (heartbeats_.erase(systemId) != 0) decideById(systemId);
}

void Registry::decideById(SystemId systemId) {
  auto const [first, last] = switchesById_.equal_range(systemId);
  for (auto at = first; at != last; ++at)
    if (at->second->registered) decide(*at->second);
}

void Registry::putOffer(SystemId systemId, Mounts mounts) {
  std::shared_ptr<Offer>& offer = offers_[systemId];
  auto const [first, last] = switchesById_.equal_range(systemId);
  if (!offer) {
    offer = std::make_shared<Offer>(Offer{std::move(mounts)});
    for (auto at = first; at != last; ++at) {
      Switch& s = *at->second;
      if (s.registered && isReady(s) && followOffer(s)) s.status->listeners.tell();
    }
    return;
  }
  Mounts const old = std::exchange(offer->mounts, std::move(mounts));
  for (auto at = first; at != last; ++at) {
    Switch& s = *at->second;
    if (s.publishing != offer) continue;
    bool isChanged = false;
    for (auto const& [path, mount] : old)
      if (!offer->mounts.contains(path)) isChanged |= withdraw(s, path);
    for (auto const& [path, mount] : offer->mounts)
      if (auto const was = old.find(path); was == old.end() || was->second != mount) isChanged |= publish(s, mount);
    if (isChanged) s.status->listeners.tell();
  }
}

void Registry::removeOffer(SystemId systemId) {
  if (offers_.erase(systemId) == 0) return;
  auto const [first, last] = switchesById_.equal_range(systemId);
  for (auto at = first; at != last; ++at) {
    Switch& s = *at->second;
    if (s.registered && isReady(s) && followOffer(s)) s.status->listeners.tell();
  }
}

// Registrations.

/// The registration of that name, made for its first entry.
Registry::Switch& Registry::enter(std::string const& switchName) {
  auto const [at, isNew] = switches_.try_emplace(switchName);
  if (isNew) at->second.served = true;
  return at->second;
}

void Registry::putConfig(SwitchConfig config) {
  Switch& s = enter(config.name);
  if (!s.config) {
    s.config = std::make_shared<SwitchConfig>(std::move(config));
    switchesById_.emplace(s.config->systemId, &s);
    registerIfComplete(s);
    return;
  }
  SwitchConfig& present = *s.config;
  if (present.systemId != config.systemId) {
    leaveIndex(s);
    switchesById_.emplace(config.systemId, &s);
  }
  std::vector<std::string> switched;
  for (auto const& [name, service] : config.services)
    if (auto const was = present.services.find(name); was != present.services.end())
      if (was->second.enabled != service.enabled) switched.push_back(name);
  bool const isDue = present.enabled != config.enabled || present.generation != config.generation;
  present = std::move(config);
  if (!s.registered) return;
  for (std::string const& service : switched) renegotiate(s, service);
  if (isDue) decide(s);
}

void Registry::putGeneration(std::string const& switchName, unsigned generation) {
  auto const at = switches_.find(switchName);
  if (at == switches_.end() || !at->second.config) return;
  if (assign(at->second.config->generation, generation) && at->second.registered) decide(at->second);
}

void Registry::putStatus(std::string const& switchName) {
  Switch& s = enter(switchName);
  if (s.status) return;
  s.status = std::make_shared<SwitchStatus>();
  s.status->name = switchName;
  registerIfComplete(s);
}

void Registry::removeConfig(std::string const& switchName) {
  auto const at = switches_.find(switchName);
  if (at == switches_.end() || !at->second.config) return;
  unregister(at->second);
  leaveIndex(at->second);
  at->second.config.reset();
  removeIfEmpty(switchName, at->second);
}

void Registry::removeStatus(std::string const& switchName) {
  auto const at = switches_.find(switchName);
  if (at == switches_.end() || !at->second.status) return;
  unregister(at->second);
  at->second.status.reset();
  removeIfEmpty(switchName, at->second);
}

void Registry::removeRegistration(std::string const& switchName) {
  auto const at = switches_.find(switchName);
  if (at == switches_.end()) return;
  unregister(at->second);
  leaveIndex(at->second);
  switches_.erase(at);
}

void Registry::removeIfEmpty(std::string const& switchName, Switch const& s) {
  if (!s.config && !s.status) switches_.erase(switchName);
}

void Registry::leaveIndex(Switch& s) {
  if (!s.config) return;
  auto const [first, last] = switchesById_.equal_range(s.config->systemId);
  for (auto at = first; at != last; ++at) {
    if (at->second != &s) continue;
    switchesById_.erase(at);
    return;
  }
}

void Registry::registerIfComplete(Switch& s) {
  if (!s.served || !s.config || !s.status) return;
  s.registered = true;
  s.controllerUUID = controllerStatus_.controllerUUID;
  decide(s);
}

void Registry::unregister(Switch& s) {
  if (!std::exchange(s.registered, false)) return;
  dropRow(s.config->systemId);
  s.publishing.reset();
}

// Readiness and the answer.

bool Registry::isReady(Switch const& s) const { return s.config->enabled && heartbeats_.contains(s.config->systemId); }

void Registry::decide(Switch& s) {
  SwitchStatus& status = *s.status;
  if (!isReady(s)) {
    if (assign(status.shutdownAck, true)) status.listeners.tell();
    dropRow(s.config->systemId);
    return;
  }
  bool isChanged = false;
  for (auto const& [name, service] : s.config->services) isChanged |= negotiate(s, name, service);
  enterRow(s);
  isChanged |= followOffer(s);
  isChanged |= assign(status.shutdownAck, false);
  isChanged |= assign(status.controllerUUID, s.controllerUUID);
  isChanged |= assign(status.generation, s.config->generation);
  if (isChanged) status.listeners.tell();
}

void Registry::enterRow(Switch& s) {
  Row& row = rows_[s.config->systemId];
  if (row.config == s.config && row.status == s.status) return;
  row.config = s.config;
  row.status = s.status;
  row.listeners.tell();
}

void Registry::dropRow(SystemId systemId) {
  auto const node = rows_.extract(systemId);
  if (!node.empty()) node.mapped().listeners.tell();
}

// Services.

ServiceConfig const* Registry::controllersService(std::string const& service) const {
  if (auto const at = overrides_.find(service); at != overrides_.end()) return &at->second;
  if (auto const at = services_.find(service); at != services_.end()) return &at->second;
  return nullptr;
}

namespace {

struct Outcome {
  bool complete = false;
  bool compatible = false;
  unsigned version = 0;
  std::string const* description = nullptr;
};

/// The highest version that both offer.
Outcome highestCommon(ServiceConfig const& own, ServiceConfig const& controllers) {
  auto ours = own.versions.rbegin();
  auto theirs = controllers.versions.rbegin();
  while (ours != own.versions.rend() && theirs != controllers.versions.rend()) {
    if (ours->first == theirs->first) return {true, true, ours->first, &ours->second};
    ours->first > theirs->first ? ++ours : ++theirs;
  }
  return {.complete = true};
}

ServiceStatus& statusOf(std::map<std::string, ServiceStatus>& all, std::string const& service, bool& isChanged) {
  auto const [at, isNew] = all.try_emplace(service);
  if (isNew) at->second.name = "VersionStatus" + service;
  isChanged |= isNew;
  return at->second;
}

bool conclude(ServiceStatus& status, Outcome const& outcome) {
  bool isChanged = assign(status.version, outcome.version);
  static std::string const nothing;
  isChanged |= assign(status.description, outcome.description != nullptr ? *outcome.description : nothing);
  isChanged |= assign(status.compatible, outcome.compatible);
  isChanged |= assign(status.complete, outcome.complete);
  return isChanged;
}

}  // namespace

/// Says whether the switch's status has changed.
bool Registry::negotiate(Switch& s, std::string const& service, ServiceConfig const& own) {
  bool isChanged = false;
  ServiceStatus& switchSide = statusOf(s.status->services, service, isChanged);
  ServiceConfig const* const controllers = controllersService(service);
  if (controllers == nullptr) {
    if (own.enabled) isChanged |= conclude(switchSide, {.complete = true});
    return isChanged;
  }
  bool isCopyChanged = false;
  ServiceStatus& copy = statusOf(s.serviceStatus, service, isCopyChanged);
  bool const enabled = own.enabled && controllers->enabled;
  Outcome const outcome = enabled ? highestCommon(own, *controllers) : Outcome();
  isCopyChanged |= assign(copy.enabled, enabled);
  isCopyChanged |= conclude(copy, outcome);
  if (isCopyChanged) copy.listeners.tell();
  if (!enabled) isChanged |= s.status->published.erase(service) != 0;
  isChanged |= assign(switchSide.enabled, enabled);
  isChanged |= conclude(switchSide, outcome);
  return isChanged;
}

void Registry::renegotiate(Switch& s, std::string const& service) {
  auto const own = s.config->services.find(service);
  if (own != s.config->services.end() && negotiate(s, service, own->second)) s.status->listeners.tell();
}

// Mounts.

bool Registry::readyFlag(std::string const& service) const {
  auto const at = ready_.find(service);
  return at != ready_.end() && at->second;
}

/// Brings what is published to a ready switch into line with its offer, unless it follows that already. Says whether
/// its status has changed, as the others do.
bool Registry::followOffer(Switch& s) {
  auto const at = offers_.find(s.config->systemId);
  if (at == offers_.end()) {
    s.publishing.reset();
    bool const isChanged = !s.status->published.empty();
    s.status->published.clear();
    return isChanged;
  }
  if (s.publishing == at->second) return false;
  s.publishing = at->second;
  bool isChanged = false;
  Mounts const& offered = s.publishing->mounts;
  for (auto& [service, info] : s.status->published)
    isChanged |= std::erase_if(info.mounts, [&](auto const& mount) { return !offered.contains(mount.first); }) != 0;
  for (auto const& [path, mount] : offered) isChanged |= publish(s, mount);
  return isChanged;
}

bool Registry::publish(Switch& s, Mount const& offered) {
  auto const [info, isNew] = s.status->published.try_emplace(offered.service);
  bool isChanged = assign(info->second.ready, readyFlag(offered.service)) || isNew;
  auto const [at, isNewMount] = info->second.mounts.try_emplace(offered.path, offered);
  if (isNewMount) {
    at->second.mode = "rt";
    return true;
  }
  Mount published = offered;
  published.mode = "rt";
  isChanged |= assign(at->second, published);
  return isChanged;
}

/// From the first service that holds the path.
bool Registry::withdraw(Switch& s, std::string const& path) {
  for (auto& [service, info] : s.status->published)
    if (info.mounts.erase(path) != 0) return true;
  return false;
}

// Documents.

Row const* Registry::row(SystemId systemId) const {
  auto const at = rows_.find(systemId);
  return at != rows_.end() ? &at->second : nullptr;
}

SwitchStatus const* Registry::status(std::string const& switchName) const {
  auto const at = switches_.find(switchName);
  return at != switches_.end() ? at->second.status.get() : nullptr;
}

ServiceStatus const* Registry::serviceStatus(std::string const& switchName, std::string const& service) const {
  auto const at = switches_.find(switchName);
  if (at == switches_.end()) return nullptr;
  auto const found = at->second.serviceStatus.find(service);
  return found != at->second.serviceStatus.end() ? &found->second : nullptr;
}

std::vector<SystemId> Registry::systemIds() const {
  std::vector<SystemId> ids;
  for (auto const& [id, row] : rows_) ids.push_back(id);
  return ids;
}

std::vector<std::string> Registry::switchNames() const {
  std::vector<std::string> names;
  for (auto const& [name, s] : switches_) names.push_back(name);
  return names;
}

std::vector<std::string> Registry::servicesOf(std::string const& switchName) const {
  std::vector<std::string> names;
  if (auto const at = switches_.find(switchName); at != switches_.end())
    for (auto const& [name, status] : at->second.serviceStatus) names.push_back(name);
  return names;
}

}  // namespace Plain
