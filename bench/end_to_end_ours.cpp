// The registry's inputs as writes to its records, and its records as documents.
#include "bench/end_to_end_ours.h"

#include "framework/text/shared_text.h"

namespace EndToEnd {

using Controller::MountDesc;
using Controller::ServiceConfigV1;
using Controller::ServiceStatusV1;
using Controller::ServiceVersionV1;
using Controller::SystemId;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Name;
using Nox::Ptr;
using Nox::sharedText;
using Nox::String8;
using Nox::ValidPtr;

static Name const kConfig("config");
static Name const kStatus("status");

OurRegistry::OurRegistry() {
  std::apply([this](auto const&... input) { root_->registryRootSmIs(input...); }, tables_.registryRootInputs());
}

/// Writes what differs. Members that are no longer listed go first.
static void write(ServiceInput const& input, ServiceConfigV1& record) {
  record.enabledIs(input.enabled);
  Controller::ServiceVersionConfigV1& versions = *record.versionConfig();
  for (auto at = versions.versionIteratorConst(); at; ++at) {
    unsigned const number = at->fwkKey();
    bool isListed = false;
    for (VersionInput const& version : input.versions) isListed = isListed || version.number == number;
    if (!isListed) versions.versionDel(number);
  }
  for (VersionInput const& version : input.versions)
    versions.versionIs(ServiceVersionV1(version.number, sharedText<String8>(version.description)));
}

static ValidPtr<ServiceConfigV1> newService(ServiceInput const& input, Name const& name) {
  ValidPtr<ServiceConfigV1> made = Nox::make<ServiceConfigV1>(name);
  write(input, *made);
  return made;
}

void OurRegistry::put(Controller::ServiceConfigDir& dir, ServiceInput const& service) {
  Nox::Turn turn;
  Name const name = sharedText<Name>(service.name);
  if (Ptr<ServiceConfigV1> const present = dir.service(name))
    write(service, *present);
  else
    dir.serviceIs(newService(service, name));
}

void OurRegistry::putOverride(ServiceInput const& service) {
  Nox::Turn turn;
  Name const name = sharedText<Name>(service.name);
  if (Ptr<ServiceConfigV1> const present = tables_.overrideServiceConfigDir->overrideService(name))
    write(service, *present);
  else
    tables_.overrideServiceConfigDir->overrideServiceIs(newService(service, name));
}

void OurRegistry::putOffer(std::uint64_t systemId, std::vector<MountInput> const& mounts) {
  Nox::Turn turn;
  ValidPtr<Controller::SystemPublishedMount> const offer = tables_.publishedMountsTable->systemIs(SystemId(systemId));
  for (auto at = offer->publishedMountIteratorConst(); at; ++at) {
    String8 const path = at->fwkKey();
    bool isListed = false;
    for (MountInput const& mount : mounts) isListed = isListed || path == std::string_view(mount.path);
    if (!isListed) offer->publishedMountDel(path);
  }
  for (MountInput const& mount : mounts) {
    offer->publishedMountIs({.path = sharedText<String8>(mount.path),
                             .remotePath = sharedText<String8>(mount.remotePath),
                             .type = sharedText<String8>(mount.type),
                             .mode = sharedText<String8>(mount.mode),
                             .service = sharedText<String8>(mount.service)});
  }
}

void OurRegistry::enter(Name const& switchName, Name const& entry, ValidPtr<Nox::Entity> const& entity) {
  Ptr<Nox::Dir> dir = tables_.registrationRootDir->entity<Nox::Dir>(switchName);
  if (!dir) {
    dir = Nox::make<Nox::Dir>(switchName);
    tables_.registrationRootDir->entityIs(switchName, dir);
  }
  dir->entityIs(entry, entity);
}

void OurRegistry::putConfig(SwitchInput const& input) {
  Nox::Turn turn;
  Name const name = sharedText<Name>(input.name);
  Ptr<Nox::Dir> const dir = tables_.registrationRootDir->entity<Nox::Dir>(name);
  Ptr<SwitchConfig> const present = dir ? dir->entity<SwitchConfig>(kConfig) : nullptr;
  Ptr<SwitchConfig> const record = present ? present : Ptr<SwitchConfig>(Nox::make<SwitchConfig>(name));
  record->systemIdIs(SystemId(input.systemId));
  for (auto at = record->serviceConfigIteratorConst(); at; ++at) {
    Name const service = at->fwkKey();
    bool isListed = false;
    for (ServiceInput const& listed : *input.services) isListed = isListed || service == std::string_view(listed.name);
    if (!isListed) record->serviceConfigDel(service);
  }
  for (ServiceInput const& service : *input.services) {
    Name const serviceName = sharedText<Name>(service.name);
    if (Ptr<ServiceConfigV1> const there = record->serviceConfig(serviceName))
      write(service, *there);
    else
      record->serviceConfigIs(newService(service, serviceName));
  }
  record->enabledIs(input.enabled);
  record->registrationGenIdIs(input.generation);
  if (!present) enter(name, kConfig, record);
}

void OurRegistry::putGeneration(std::string const& switchName, unsigned generation) {
  Nox::Turn turn;
  Ptr<Nox::Dir> const dir = tables_.registrationRootDir->entity<Nox::Dir>(sharedText<Name>(switchName));
  dir->entity<SwitchConfig>(kConfig)->registrationGenIdIs(generation);
}

void OurRegistry::putStatus(std::string const& switchName) {
  Nox::Turn turn;
  Name const name = sharedText<Name>(switchName);
  Ptr<Nox::Dir> const dir = tables_.registrationRootDir->entity<Nox::Dir>(name);
  if (dir && dir->entityRef(kStatus)) return;
  enter(name, kStatus, Nox::make<SwitchStatus>(name));
}

void OurRegistry::removeEntry(std::string const& switchName, Name const& entry) {
  Nox::Turn turn;
  Name const name = sharedText<Name>(switchName);
  Ptr<Nox::Dir> const dir = tables_.registrationRootDir->entity<Nox::Dir>(name);
  if (!dir) return;
  dir->entityDel(entry);
  if (dir->entries().empty()) tables_.registrationRootDir->entityDel(name);
}

// Documents.

static std::string textOf(bool flag) { return flag ? "true" : "false"; }
static std::string textOf(Nox::StringN<unsigned char> const& text) { return std::string(text.view()); }

static void add(ServiceStatusV1 const& status, std::string const& prefix, std::map<std::string, std::string>& fields) {
  Ptr<Controller::ServiceVersionStatusV1 const> const outcome = status.versionStatus();
  fields[prefix + "enabled"] = textOf(status.enabled());
  fields[prefix + "name"] = textOf(outcome->name());
  fields[prefix + "version"] = std::to_string(outcome->negotiatedVersion().version());
  fields[prefix + "desc"] = textOf(outcome->negotiatedVersion().desc());
  fields[prefix + "versionCompatible"] = textOf(outcome->versionCompatible());
  fields[prefix + "versionNegotiationComplete"] = textOf(outcome->versionNegotiationComplete());
}

static std::map<std::string, std::string> fieldsOf(SwitchStatus const& status) {
  std::map<std::string, std::string> fields{{"controllerUUID", textOf(status.controllerUUID())},
                                            {"registrationGenId", std::to_string(status.registrationGenId())},
                                            {"clientShutdownAck", textOf(status.clientShutdownAck())}};
  for (ServiceStatusV1 const& service : status.serviceStatus())
    add(service, "serviceStatus." + textOf(service.name()) + ".", fields);
  for (auto const& info : status.servicePublishedInfo()) {
    std::string const prefix = "servicePublishedInfo." + textOf(info.fwkKey()) + ".";
    fields[prefix + "ready"] = textOf(info.ready());
    for (auto const& row : info.publishedMount()) {
      MountDesc const& mount = row.value();
      fields[prefix + textOf(mount.path)] =
          textOf(mount.remotePath) + " " + textOf(mount.type) + " " + textOf(mount.mode) + " " + textOf(mount.service);
    }
  }
  return fields;
}

Documents OurRegistry::documents() const {
  Documents all;
  all["controller/status"] = {{"controllerUUID", textOf(tables_.status->controllerUUID())},
                              {"enabled", textOf(tables_.status->enabled())}};
  for (auto const& row : tables_.controllerStatus->switchConfig())
    all["controller/switch/" + textOf(row.fwkKey().stringValue())]["switchConfig"] = textOf(row.value()->name());
  for (auto const& row : tables_.controllerStatus->switchStatus())
    all["controller/switch/" + textOf(row.fwkKey().stringValue())]["switchStatus"] = textOf(row.value()->name());
  for (auto const& row : tables_.controllerStatus->registeredSwitch())
    all["controller/switch/" + textOf(row.fwkKey().stringValue())]["registeredSwitch"] = textOf(row.value());
  for (auto const& entry : tables_.registrationRootDir->entries()) {
    Ptr<Nox::Dir> const dir = Nox::ptrCast<Nox::Dir>(entry.entityRef());
    if (Ptr<SwitchStatus> const status = dir->entity<SwitchStatus>(kStatus))
      all["registration/" + textOf(entry.name()) + "/status"] = fieldsOf(*status);
  }
  for (auto const& entry : tables_.allClientsServiceStatusDir->entries()) {
    auto const dir = Nox::ptrCast<Controller::ServiceStatusDir>(entry.entityRef());
    for (ServiceStatusV1 const& service : dir->service())
      add(service, "", all["service/status/" + textOf(entry.name()) + "/" + textOf(service.name())]);
  }
  return all;
}

}  // namespace EndToEnd
