// The registry, driven by its records: one turn an input, as an agent drives it.
#pragma once

#include "bench/end_to_end_inputs.h"
#include "records/tables.h"
#include "registry/EnrolixSm.h"

namespace EndToEnd {

class OurRegistry {
 public:
  OurRegistry();

  void nameController(std::string const& uuid) { tables_.status->controllerUUIDIs(uuid); }
  void enableAgent(bool enabled) { tables_.config->enabledIs(enabled); }
  void putService(ServiceInput const& service) { put(*tables_.serviceConfigDir, service); }
  void removeService(std::string const& name) { tables_.serviceConfigDir->serviceDel(name); }
  void putOverride(ServiceInput const& service);
  void removeOverride(std::string const& name) { tables_.overrideServiceConfigDir->overrideServiceDel(name); }
  void putReady(std::string const& service, bool ready) {
    tables_.publishedMountsTable->servicePublishReadyIs(service, ready);
  }

  void putOffer(std::uint64_t systemId, std::vector<MountInput> const& mounts);
  void removeOffer(std::uint64_t systemId) { tables_.publishedMountsTable->systemDel(Controller::SystemId(systemId)); }
  void putHeartbeat(std::uint64_t systemId) { tables_.peers->peerIs(Controller::SystemId(systemId)); }
  void removeHeartbeat(std::uint64_t systemId) { tables_.peers->peerDel(Controller::SystemId(systemId)); }

  void putConfig(SwitchInput const& input);
  void putGeneration(std::string const& switchName, unsigned generation);
  void putStatus(std::string const& switchName);
  void removeEntry(std::string const& switchName, Nox::Name const& entry);
  void removeRegistration(std::string const& switchName) { tables_.registrationRootDir->entityDel(switchName); }

  Documents documents() const;

 private:
  void put(Controller::ServiceConfigDir& dir, ServiceInput const& service);
  void enter(Nox::Name const& switchName, Nox::Name const& entry, Nox::ValidPtr<Nox::Entity> const& entity);

  Controllerdb::AgentTables tables_;
  Nox::Ptr<Controllerdb::Root> root_ = Controllerdb::rootFactory("root");
};

}  // namespace EndToEnd
