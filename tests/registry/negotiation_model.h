// One switch's machine over bare records, services in short form, and a small model of what a negotiation leaves.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/core/write_observer.h"
#include "registry/switch_config_sm.h"
#include "support/trace_capture.h"
#include "support/world.h"

namespace ServiceTest {

/// Version numbers with their descriptions.
using Versions = std::map<unsigned, std::string>;

/// One side's configuration of one service, as plain values.
struct Service {
  bool enabled = false;
  Versions versions;
};

inline void offer(Controller::ServiceConfigV1& record, Versions const& versions) {
  record.versionConfig()->versionDelAll();
  for (auto const& [number, desc] : versions)
    record.versionConfig()->versionIs(Controller::ServiceVersionV1(number, desc));
}
inline Nox::ValidPtr<Controller::ServiceConfigV1> makeService(Nox::Name const& name, Service const& service) {
  auto record = Nox::make<Controller::ServiceConfigV1>(name);
  record->enabledIs(service.enabled);
  offer(*record, service.versions);
  return record;
}

/// What stands in one status: "<enabled> <complete> <compatible> <version>".
struct Outcome {
  bool enabled = false;
  bool complete = false;
  bool compatible = false;
  Controller::ServiceVersionV1 version;

  std::string text() const {
    std::ostringstream out;
    out << enabled << ' ' << complete << ' ' << compatible << ' ' << version;
    return out.str();
  }
};
/// The same of a record; "none" if there is no record.
inline std::string outcomeOf(Nox::Ptr<Controller::ServiceStatusV1> const& status) {
  if (!status) return "none";
  auto const versions = status->versionStatus();
  if (!versions) return std::string(status->enabled() ? "1" : "0") + " -";
  return Outcome{status->enabled(),
                 versions->versionNegotiationComplete(),
                 versions->versionCompatible(),
                 versions->negotiatedVersion()}
      .text();
}
inline void enter(Outcome const& outcome, Controller::ServiceStatusV1& status) {
  status.enabledIs(outcome.enabled);
  auto const versions = status.versionStatusIs("VersionStatus" + std::string(status.name().view()));
  versions->negotiatedVersionIs(outcome.version);
  versions->versionCompatibleIs(outcome.compatible);
  versions->versionNegotiationCompleteIs(outcome.complete);
}

/// The highest version that both offer, as the client describes it.
inline std::optional<Controller::ServiceVersionV1> highestCommon(Versions const& client, Versions const& controller) {
  std::optional<Controller::ServiceVersionV1> highest;
  for (auto const& [number, desc] : client)
    if (controller.contains(number)) highest.emplace(number, desc);
  return highest;
}

/// The two statuses of one service, and what a negotiation makes of them.
struct Sides {
  std::optional<Outcome> ofSwitch;
  std::optional<Outcome> ofController;

  void negotiate(Service const* client, Service const* controller) {
    if (client == nullptr) return;
    if (!ofSwitch) ofSwitch.emplace();
    if (controller == nullptr) {
      if (client->enabled) *ofSwitch = {ofSwitch->enabled, true, false, {}};
      return;
    }
    Outcome outcome;
    if (client->enabled && controller->enabled) {
      auto const common = highestCommon(client->versions, controller->versions);
      outcome = {true, true, common.has_value(), common.value_or(Controller::ServiceVersionV1())};
    }
    ofSwitch = ofController = outcome;
  }
  std::string textOfSwitch() const { return ofSwitch ? ofSwitch->text() : "none"; }
  std::string textOfController() const { return ofController ? ofController->text() : "none"; }
};

/// Calls a function at every write, for the length of a scope, with a line like
///   switch/acl.onEnabled = 1      switch.onServiceStatus[acl] = {}      switch.onServicePublishedInfo[acl] deleted
/// where the entity stands with its full name, so that the two sides can be told apart.
class WriteHook final : public Nox::WriteObserver {
 public:
  explicit WriteHook(std::function<void(std::string const& line)> then)
      : then_(std::move(then)), before_(std::exchange(Nox::writeObserver_, this)) {}
  WriteHook(WriteHook const&) = delete;
  WriteHook& operator=(WriteHook const&) = delete;
  virtual ~WriteHook() { Nox::writeObserver_ = before_; }

 private:
  void written(Nox::Entity const& entity, std::string_view operation, bool /*changed*/, Nox::WriteText key,
               Nox::WriteText value) override {
    then_(place(entity, operation, key.text()) + " = " + value.text());
  }
  void removed(Nox::Entity const& entity, std::string_view operation, bool /*changed*/, Nox::WriteText key) override {
    then_(place(entity, operation, key.text()) + " deleted");
  }
  static std::string place(Nox::Entity const& entity, std::string_view operation, std::string const& key) {
    std::string text(entity.fullName().view());
    text += '.';
    text += operation;
    return key.empty() ? text : text + '[' + key + ']';
  }

  std::function<void(std::string const&)> then_;
  Nox::WriteObserver* before_;
};

/// The records of one switch, enabled and not heard, and its machine once it is started. The switch's records are named
/// "switch", the controller's view of its services "controller".
struct OneSwitch {
  OneSwitch() {
    config->systemIdIs(systemId(1));
    config->enabledIs(true);
  }
  /// Makes the machine, over what the records hold by then.
  void start() {
    sm = Controllerdb::switchConfigSmFactory(config,
                                             status,
                                             peers,
                                             controllerStatus,
                                             serviceConfigDir,
                                             overrides,
                                             "uuid-1",
                                             serviceStatusDir,
                                             switchId,
                                             mounts,
                                             nullptr);
  }
  void hear() const { peers->peerIs(systemId(1)); }
  /// Has a ready switch run its pass.
  void bump() const { config->registrationGenIdIs(config->registrationGenId() + 1); }

  /// Puts a new record of that service; returns it.
  Nox::ValidPtr<Controller::ServiceConfigV1> configure(Nox::Name const& name, Service const& service) const {
    auto record = makeService(name, service);
    config->serviceConfigIs(record);
    return record;
  }
  Nox::ValidPtr<Controller::ServiceConfigV1> configureController(Nox::Name const& name, Service const& service) const {
    auto record = makeService(name, service);
    serviceConfigDir->serviceIs(record);
    return record;
  }
  Nox::ValidPtr<Controller::ServiceConfigV1> override(Nox::Name const& name, Service const& service) const {
    auto record = makeService(name, service);
    overrides->overrideServiceIs(record);
    return record;
  }
  std::string ofSwitch(Nox::Name const& service) const { return outcomeOf(status->serviceStatus(service)); }
  std::string ofController(Nox::Name const& service) const { return outcomeOf(serviceStatusDir->service(service)); }

  Nox::Ptr<ControllerRegistration::SwitchConfig> config = Nox::make<ControllerRegistration::SwitchConfig>("switch");
  Nox::Ptr<ControllerRegistration::SwitchStatus> status = Nox::make<ControllerRegistration::SwitchStatus>("switch");
  Nox::Ptr<Controller::PeerTable> peers = Nox::make<Controller::PeerTable>("peers");
  Nox::Ptr<ControllerRegistration::ControllerStatus> controllerStatus =
      Nox::make<ControllerRegistration::ControllerStatus>("controllerStatus");
  Nox::Ptr<Controller::ServiceConfigDir> serviceConfigDir = Nox::make<Controller::ServiceConfigDir>("serviceConfig");
  Nox::Ptr<Controller::OverrideServiceConfigDir> overrides =
      Nox::make<Controller::OverrideServiceConfigDir>("overrides");
  Nox::Ptr<Controller::ServiceStatusDir> serviceStatusDir = Nox::make<Controller::ServiceStatusDir>("controller");
  Nox::Ptr<Controller::PublishedMountsTable> mounts = Nox::make<Controller::PublishedMountsTable>("mounts");
  Nox::Name switchId = "leaf-1";
  Nox::Ptr<Controllerdb::SwitchConfigSm> sm;
};

/// Whether the build is slowed down by a sanitizer: long random tests are shorter there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

}  // namespace ServiceTest
