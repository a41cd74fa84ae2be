// A registry in plain standard C++: structs, maps and direct calls. It keeps the decisions of the real one, and is what
// that is measured against.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Plain {

using SystemId = std::uint64_t;

/// Functions that are called when a document has changed, once for each input that changes it.
class Listeners {
 public:
  void add(std::function<void()> listener) { listeners_.push_back(std::move(listener)); }
  void tell() const {
    for (auto const& listener : listeners_) listener();
  }

 private:
  std::vector<std::function<void()>> listeners_;
};

// What switches and operators write.

struct ServiceConfig {
  bool enabled = false;
  std::map<unsigned, std::string> versions;  // descriptions by number
};
struct Mount {
  std::string path;
  std::string remotePath;
  std::string type;
  std::string mode = "rt";
  std::string service;

  friend bool operator==(Mount const&, Mount const&) = default;
};
using Mounts = std::map<std::string, Mount>;  // by path
struct SwitchConfig {
  std::string name;
  SystemId systemId = 0;
  std::map<std::string, ServiceConfig> services;
  bool enabled = false;
  unsigned generation = 0;
};

// What the registry writes.

struct ControllerStatus {
  std::string controllerUUID;
  bool enabled = false;
  mutable Listeners listeners;
};
struct ServiceStatus {
  std::string name;
  bool enabled = false;
  unsigned version = 0;
  std::string description;
  bool compatible = false;
  bool complete = false;
  mutable Listeners listeners;
};
struct PublishedService {
  bool ready = false;
  Mounts mounts;
};
struct SwitchStatus {
  std::string name;
  std::string controllerUUID;
  unsigned generation = 0;
  bool shutdownAck = false;
  std::map<std::string, ServiceStatus> services;
  std::map<std::string, PublishedService> published;
  mutable Listeners listeners;
};
/// The controller's row of one ready switch. It keeps the records, also when their registration has gone.
struct Row {
  std::shared_ptr<SwitchConfig const> config;
  std::shared_ptr<SwitchStatus const> status;
  mutable Listeners listeners;
};

/// The registry. An input is a call; when it returns, every document says what follows from it. Pointers to documents
/// are null where there is none, and good until the document goes.
class Registry {
 public:
  // The operator's and the sources' inputs.

  void nameController(std::string uuid) { controllerStatus_.controllerUUID = std::move(uuid); }
  void enableAgent(bool enabled);
  void putService(std::string const& service, ServiceConfig config);
  void removeService(std::string const& service) { services_.erase(service); }
  void putOverride(std::string const& service, ServiceConfig config) { overrides_[service] = std::move(config); }
  void removeOverride(std::string const& service) { overrides_.erase(service); }
  void putReady(std::string const& service, bool ready);
  void putOffer(SystemId systemId, Mounts mounts);
  void removeOffer(SystemId systemId);
  void putHeartbeat(SystemId systemId);
  void removeHeartbeat(SystemId systemId);

  // The switches' inputs.

  void putConfig(SwitchConfig config);
  void putGeneration(std::string const& switchName, unsigned generation);
  void putStatus(std::string const& switchName);
  void removeConfig(std::string const& switchName);
  void removeStatus(std::string const& switchName);
  void removeRegistration(std::string const& switchName);

  // The documents.

  ControllerStatus const& controllerStatus() const { return controllerStatus_; }
  Row const* row(SystemId systemId) const;
  SwitchStatus const* status(std::string const& switchName) const;
  ServiceStatus const* serviceStatus(std::string const& switchName, std::string const& service) const;
  std::vector<SystemId> systemIds() const;
  std::vector<std::string> switchNames() const;
  std::vector<std::string> servicesOf(std::string const& switchName) const;

 private:
  struct Offer {
    Mounts mounts;
  };
  /// One registration.
  struct Switch {
    std::shared_ptr<SwitchConfig> config;
    std::shared_ptr<SwitchStatus> status;
    bool served = false;         // since its first entry, until the agent is disabled
    bool registered = false;     // served with both entries
    std::string controllerUUID;  // as it was on registering
    std::shared_ptr<Offer> publishing;
    std::map<std::string, ServiceStatus> serviceStatus;  // the controller's copy
  };
  using SwitchesById = std::unordered_multimap<SystemId, Switch*>;

  bool isReady(Switch const& s) const;
  ServiceConfig const* controllersService(std::string const& service) const;
  bool readyFlag(std::string const& service) const;

  Switch& enter(std::string const& switchName);
  void leaveIndex(Switch& s);
  void removeIfEmpty(std::string const& switchName, Switch const& s);
  void registerIfComplete(Switch& s);
  void unregister(Switch& s);
  void decide(Switch& s);
  void decideById(SystemId systemId);
  bool negotiate(Switch& s, std::string const& service, ServiceConfig const& own);
  void renegotiate(Switch& s, std::string const& service);
  bool followOffer(Switch& s);
  bool publish(Switch& s, Mount const& offered);
  bool withdraw(Switch& s, std::string const& path);
  void enterRow(Switch& s);
  void dropRow(SystemId systemId);

  ControllerStatus controllerStatus_;
  bool agentEnabled_ = false;
  std::map<std::string, ServiceConfig> services_;
  std::map<std::string, ServiceConfig> overrides_;
  std::map<std::string, bool> ready_;
  std::unordered_set<SystemId> heartbeats_;
  std::unordered_map<SystemId, std::shared_ptr<Offer>> offers_;
  std::unordered_map<std::string, Switch> switches_;
  SwitchesById switchesById_;
  std::unordered_map<SystemId, Row> rows_;
};

}  // namespace Plain
