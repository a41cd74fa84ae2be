// The registry, driven by its records: one turn an input, as an agent drives it.
#pragma once

#include "bench/end_to_end_inputs.h"
#include "registry/EnrolixSm.h"

namespace EndToEnd {

class OurRegistry {
 public:
  OurRegistry();

  void nameController(std::string const& uuid) { status_->controllerUUIDIs(uuid); }
  void enableAgent(bool enabled) { config_->enabledIs(enabled); }
  void putService(ServiceInput const& service) { put(*serviceConfigDir_, service); }
  void removeService(std::string const& name) { serviceConfigDir_->serviceDel(name); }
  void putOverride(ServiceInput const& service);
  void removeOverride(std::string const& name) { overrideServiceConfigDir_->overrideServiceDel(name); }
  void putReady(std::string const& service, bool ready) { mounts_->servicePublishReadyIs(service, ready); }

  void putOffer(std::uint64_t systemId, std::vector<MountInput> const& mounts);
  void removeOffer(std::uint64_t systemId) { mounts_->systemDel(Controller::SystemId(systemId)); }
  void putHeartbeat(std::uint64_t systemId) { peers_->peerIs(Controller::SystemId(systemId)); }
  void removeHeartbeat(std::uint64_t systemId) { peers_->peerDel(Controller::SystemId(systemId)); }

  void putConfig(SwitchInput const& input);
  void putGeneration(std::string const& switchName, unsigned generation);
  void putStatus(std::string const& switchName);
  void removeEntry(std::string const& switchName, Nox::Name const& entry);
  void removeRegistration(std::string const& switchName) { registrations_->entityDel(switchName); }

  Documents documents() const;

 private:
  void put(Controller::ServiceConfigDir& dir, ServiceInput const& service);
  void enter(Nox::Name const& switchName, Nox::Name const& entry, Nox::ValidPtr<Nox::Entity> const& entity);

  Nox::ValidPtr<Controllerdb::Config> config_ = Nox::make<Controllerdb::Config>("config");
  Nox::ValidPtr<Controllerdb::Status> status_ = Nox::make<Controllerdb::Status>("status");
  Nox::ValidPtr<Nox::Dir> registrations_ = Nox::make<Nox::Dir>("registration");
  Nox::ValidPtr<ControllerRegistration::ControllerStatus> controllerStatus_ =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  Nox::ValidPtr<Controller::PeerTable> peers_ = Nox::make<Controller::PeerTable>("peers");
  Nox::ValidPtr<Controller::ServiceConfigDir> serviceConfigDir_ =
      Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  Nox::ValidPtr<Controller::OverrideServiceConfigDir> overrideServiceConfigDir_ =
      Nox::make<Controller::OverrideServiceConfigDir>("overrideServiceConfig");
  Nox::ValidPtr<Nox::Dir> serviceStatusDirs_ = Nox::make<Nox::Dir>("serviceStatus");
  Nox::ValidPtr<Controller::PublishedMountsTable> mounts_ =
      Nox::make<Controller::PublishedMountsTable>("publishedMounts");
  Nox::Ptr<Controllerdb::Root> root_ = Controllerdb::rootFactory("root");
};

}  // namespace EndToEnd
