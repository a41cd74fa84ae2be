// Reads the state tree: one document, or all of them in order.
#include <algorithm>

#include "agent/tree/codec.h"
#include "agent/tree/kept_entry.h"
#include "agent/tree/key_order.h"
#include "agent/tree/state_tree.h"

namespace Agent {

using Controller::ServiceStatusDir;
using Nox::Dir;
using Nox::Name;
using Nox::Ptr;

namespace {

template <class R>
std::optional<Json> documentOf(Ptr<R> const& record) {
  if (!record) return std::nullopt;
  return readDocument(*record);
}

// The name of the record in a row of the controller's table; null where the row is absent.
template <class Row>
Json nameIn(Row const* row) {
  if (row == nullptr || !row->value()) return nullptr;
  return row->value()->name().view();
}

// Every system id that has a row, in order.
std::vector<SystemId> systemIdsIn(ControllerRegistration::ControllerStatus const& table) {
  std::vector<SystemId> ids;
  auto const collect = [&](auto const& rows) {
    for (auto const& row : rows) ids.push_back(row.fwkKey());
  };
  collect(table.switchConfig());
  collect(table.switchStatus());
  collect(table.registeredSwitch());
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

// The directories' names with a slash behind, which is what decides about the order of the paths inside them.
template <class D>
std::vector<std::pair<std::string, Ptr<D>>> subdirectories(Dir const& dir) {
  std::vector<std::pair<std::string, Ptr<D>>> sorted;
  for (auto const& [name, entry] : sortedByKey(dir.entries(), "/"))
    if (auto const subdirectory = Nox::ptrCast<D>(entry->entityRef()))
      sorted.emplace_back(name.substr(0, name.size() - 1), subdirectory);
  return sorted;
}

Path entryPath(std::string const& switchName, std::string const& entry) {
  if (entry == "config") return At::SwitchConfig{switchName};
  if (entry == "status") return At::SwitchStatus{switchName};
  return At::OtherEntry{switchName, entry};
}

}  // namespace

struct StateTree::Read {
  StateTree const& tree;

  using Result = std::optional<Json>;

  Result operator()(At::ControllerConfig const& /*at*/) const { return readDocument(*tree.tables_.config); }
  Result operator()(At::ControllerStatus const& /*at*/) const { return readDocument(*tree.tables_.status); }
  Result operator()(At::ControllerSwitch const& at) const {
    auto const& table = *tree.tables_.controllerStatus;
    auto const* const config = table.switchConfig().find(at.systemId);
    auto const* const status = table.switchStatus().find(at.systemId);
    auto const* const registered = table.registeredSwitch().find(at.systemId);
    if (config == nullptr && status == nullptr && registered == nullptr) return std::nullopt;
    return Json{{"switchConfig", nameIn(config)},
                {"switchStatus", nameIn(status)},
                {"registeredSwitch", registered == nullptr ? Json() : Json(registered->value())}};
  }
  Result operator()(At::Registration const& /*at*/) const { return std::nullopt; }
  Result operator()(At::SwitchConfig const& at) const {
    return documentOf(Nox::ptrCast<ControllerRegistration::SwitchConfig>(tree.entry(at.switchName, "config")));
  }
  Result operator()(At::SwitchStatus const& at) const {
    return documentOf(Nox::ptrCast<ControllerRegistration::SwitchStatus>(tree.entry(at.switchName, "status")));
  }
  Result operator()(At::OtherEntry const& at) const {
    auto const kept = Nox::ptrCast<KeptEntry>(tree.entry(at.switchName, at.entry));
    return kept ? Result(kept->content()) : std::nullopt;
  }
  Result operator()(At::Heartbeat const& at) const {
    auto const found = tree.heartbeats_.find(at.systemId.address().bits());
    return found != tree.heartbeats_.end() ? Result(found->second) : std::nullopt;
  }
  Result operator()(At::ServiceConfig const& at) const {
    return documentOf(tree.tables_.serviceConfigDir->service(Name(at.service)));
  }
  Result operator()(At::ServiceOverride const& at) const {
    return documentOf(tree.tables_.overrideServiceConfigDir->overrideService(Name(at.service)));
  }
  Result operator()(At::ServiceStatus const& at) const {
    auto const dir = tree.tables_.allClientsServiceStatusDir->entity<ServiceStatusDir>(Name(at.switchName));
    return dir ? documentOf(dir->service(Name(at.service))) : std::nullopt;
  }
  Result operator()(At::MountOffer const& at) const {
    return documentOf(tree.tables_.publishedMountsTable->system(at.systemId));
  }
  Result operator()(At::MountReady const& at) const {
    auto const* const row = tree.tables_.publishedMountsTable->servicePublishReady().find(Nox::String8(at.service));
    return row != nullptr ? Result(row->value()) : std::nullopt;
  }
};

std::optional<Json> StateTree::read(Path const& path) const { return std::visit(Read{*this}, path); }

void StateTree::forEach(std::function<void(std::string const&, Json const&)> const& visit) const {
  auto const show = [&](Path const& path) {
    if (auto const document = read(path)) visit(toText(path), *document);
  };
  show(At::ControllerConfig{});
  show(At::ControllerStatus{});
  for (SystemId const& id : systemIdsIn(*tables_.controllerStatus)) show(At::ControllerSwitch{id});
  for (auto const& [key, peer] : sortedByKey(tables_.peers->peer())) show(At::Heartbeat{peer->systemId()});
  for (auto const& [key, offer] : sortedByKey(tables_.publishedMountsTable->system()))
    show(At::MountOffer{offer->systemId()});
  for (auto const& [service, row] : sortedByKey(tables_.publishedMountsTable->servicePublishReady()))
    show(At::MountReady{service});
  for (auto const& [switchName, dir] : subdirectories<Dir>(*tables_.registrationRootDir))
    for (auto const& [entry, member] : sortedByKey(dir->entries())) show(entryPath(switchName, entry));
  for (auto const& [service, row] : sortedByKey(tables_.serviceConfigDir->service())) show(At::ServiceConfig{service});
  for (auto const& [service, row] : sortedByKey(tables_.overrideServiceConfigDir->overrideService()))
    show(At::ServiceOverride{service});
  for (auto const& [switchName, dir] : subdirectories<ServiceStatusDir>(*tables_.allClientsServiceStatusDir))
    for (auto const& [service, status] : sortedByKey(dir->service())) show(At::ServiceStatus{switchName, service});
}

}  // namespace Agent
