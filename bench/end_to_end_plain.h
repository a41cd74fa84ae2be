// The plain registry, driven like the other one.
#pragma once

#include "bench/end_to_end_inputs.h"
#include "bench/plain_registry.h"

namespace EndToEnd {

class PlainRegistry {
 public:
  void nameController(std::string const& uuid) { registry_.nameController(uuid); }
  void enableAgent(bool enabled) { registry_.enableAgent(enabled); }
  void putService(ServiceInput const& service) { registry_.putService(service.name, of(service)); }
  void removeService(std::string const& name) { registry_.removeService(name); }
  void putOverride(ServiceInput const& service) { registry_.putOverride(service.name, of(service)); }
  void removeOverride(std::string const& name) { registry_.removeOverride(name); }
  void putReady(std::string const& service, bool ready) { registry_.putReady(service, ready); }

  void putOffer(std::uint64_t systemId, std::vector<MountInput> const& mounts);
  void removeOffer(std::uint64_t systemId) { registry_.removeOffer(systemId); }
  void putHeartbeat(std::uint64_t systemId) { registry_.putHeartbeat(systemId); }
  void removeHeartbeat(std::uint64_t systemId) { registry_.removeHeartbeat(systemId); }

  void putConfig(SwitchInput const& input);
  void putGeneration(std::string const& switchName, unsigned generation) {
    registry_.putGeneration(switchName, generation);
  }
  void putStatus(std::string const& switchName) { registry_.putStatus(switchName); }
  void removeEntry(std::string const& switchName, std::string const& entry) {
    entry == "config" ? registry_.removeConfig(switchName) : registry_.removeStatus(switchName);
  }
  void removeRegistration(std::string const& switchName) { registry_.removeRegistration(switchName); }

  Documents documents() const;

 private:
  static Plain::ServiceConfig of(ServiceInput const& service);

  Plain::Registry registry_;
};

}  // namespace EndToEnd
