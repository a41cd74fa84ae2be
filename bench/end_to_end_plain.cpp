// The plain registry's inputs as its structs, and its structs as documents.
#include "bench/end_to_end_plain.h"

#include "records/ids.h"

namespace EndToEnd {

Plain::ServiceConfig PlainRegistry::of(ServiceInput const& service) {
  Plain::ServiceConfig config;
  config.enabled = service.enabled;
  for (VersionInput const& version : service.versions) config.versions.emplace(version.number, version.description);
  return config;
}

void PlainRegistry::putOffer(std::uint64_t systemId, std::vector<MountInput> const& mounts) {
  Plain::Mounts offered;
  for (MountInput const& mount : mounts) {
    offered.try_emplace(mount.path, Plain::Mount{mount.path, mount.remotePath, mount.type, mount.mode, mount.service});
  }
  registry_.putOffer(systemId, std::move(offered));
}

void PlainRegistry::putConfig(SwitchInput const& input) {
  Plain::SwitchConfig config{.name = input.name,
                             .systemId = input.systemId,
                             .services = {},
                             .enabled = input.enabled,
                             .generation = input.generation};
  for (ServiceInput const& service : *input.services) config.services.emplace(service.name, of(service));
  registry_.putConfig(std::move(config));
}

// Documents.

static std::string textOf(bool flag) { return flag ? "true" : "false"; }

static void add(Plain::ServiceStatus const& status, std::string const& prefix,
                std::map<std::string, std::string>& fields) {
  fields[prefix + "enabled"] = textOf(status.enabled);
  fields[prefix + "name"] = status.name;
  fields[prefix + "version"] = std::to_string(status.version);
  fields[prefix + "desc"] = status.description;
  fields[prefix + "versionCompatible"] = textOf(status.compatible);
  fields[prefix + "versionNegotiationComplete"] = textOf(status.complete);
}

static std::map<std::string, std::string> fieldsOf(Plain::SwitchStatus const& status) {
  std::map<std::string, std::string> fields{{"controllerUUID", status.controllerUUID},
                                            {"registrationGenId", std::to_string(status.generation)},
                                            {"clientShutdownAck", textOf(status.shutdownAck)}};
  for (auto const& [name, service] : status.services) add(service, "serviceStatus." + name + ".", fields);
  for (auto const& [name, info] : status.published) {
    std::string const prefix = "servicePublishedInfo." + name + ".";
    fields[prefix + "ready"] = textOf(info.ready);
    for (auto const& [path, mount] : info.mounts) {
      std::string& text = fields[prefix + path];
      text.append(mount.remotePath).append(" ").append(mount.type).append(" ");
      text.append(mount.mode).append(" ").append(mount.service);
    }
  }
  return fields;
}

Documents PlainRegistry::documents() const {
  Documents all;
  all["controller/status"] = {{"controllerUUID", registry_.controllerStatus().controllerUUID},
                              {"enabled", textOf(registry_.controllerStatus().enabled)}};
  for (Plain::SystemId const id : registry_.systemIds()) {
    Plain::Row const& row = *registry_.row(id);
    all["controller/switch/" + std::string(Lumo::EthAddr(id).stringValue().view())] = {
        {"switchConfig", row.config->name}, {"switchStatus", row.status->name}, {"registeredSwitch", "true"}};
  }
  for (std::string const& name : registry_.switchNames()) {
    if (Plain::SwitchStatus const* const status = registry_.status(name))
      all["registration/" + name + "/status"] = fieldsOf(*status);
    for (std::string const& service : registry_.servicesOf(name))
      add(*registry_.serviceStatus(name, service),
          "",
          all[std::string("service/status/").append(name).append("/").append(service)]);
  }
  return all;
}

}  // namespace EndToEnd
