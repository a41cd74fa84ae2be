// A listener for each record: writes down every notification that it hears.
#pragma once

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"

/// What a listener heard, in order: "ATTRIBUTE" for a scalar and for the plain form of a collection,
/// "ATTRIBUTE[KEY]" for its keyed form, "ATTRIBUTE!" for its immediate form.
using Heard = std::vector<std::string>;

template <class R>
class ListenerOf : public R::NotifieeConst {
 public:
  explicit ListenerOf(Nox::Ptr<R const> const& record) { R::NotifieeConst::notifierIs(record); }

  /// What was heard since the last call.
  Heard take() { return std::exchange(heard_, {}); }

  void onParent() override { heard("parent"); }
  void onIsNondestructing() override { heard("isNondestructing"); }

 protected:
  void heard(char const* attribute) { heard_.emplace_back(attribute); }
  template <class K>
  void heardAt(char const* attribute, K const& key) {
    std::ostringstream text;
    text << attribute << '[' << key << ']';
    heard_.push_back(text.str());
  }

 private:
  Heard heard_;
};

template <class R>
class Listener final : public ListenerOf<R> {
 public:
  using ListenerOf<R>::ListenerOf;
};

template <>
class Listener<Controllerdb::Config> final : public ListenerOf<Controllerdb::Config> {
 public:
  using ListenerOf::ListenerOf;
  void onEnabled() override { heard("enabled"); }
  void onPort() override { heard("port"); }
};

template <>
class Listener<Controllerdb::Status> final : public ListenerOf<Controllerdb::Status> {
 public:
  using ListenerOf::ListenerOf;
  void onControllerUUID() override { heard("controllerUUID"); }
  void onEnabled() override { heard("enabled"); }
};

template <>
class Listener<ControllerRegistration::SwitchConfig> final : public ListenerOf<ControllerRegistration::SwitchConfig> {
 public:
  using ListenerOf::ListenerOf;
  void onSystemId() override { heard("systemId"); }
  void onConnectionConfig() override { heard("connectionConfig"); }
  void onServiceConfig(Nox::Name key) override { heardAt("serviceConfig", key); }
  void onServiceConfignoxImmediate() override { heard("serviceConfig!"); }
  void onServiceConfig() override { heard("serviceConfig"); }
  void onEnabled() override { heard("enabled"); }
  void onRegistrationGenId() override { heard("registrationGenId"); }
};

template <>
class Listener<ControllerRegistration::SwitchStatus> final : public ListenerOf<ControllerRegistration::SwitchStatus> {
 public:
  using ListenerOf::ListenerOf;
  void onControllerUUID() override { heard("controllerUUID"); }
  void onRegistrationGenId() override { heard("registrationGenId"); }
  void onClientShutdownAck() override { heard("clientShutdownAck"); }
  void onServiceStatus(Nox::Name key) override { heardAt("serviceStatus", key); }
  void onServiceStatusnoxImmediate() override { heard("serviceStatus!"); }
  void onServiceStatus() override { heard("serviceStatus"); }
  void onServicePublishedInfo(Nox::String8 key) override { heardAt("servicePublishedInfo", key); }
  void onServicePublishedInfonoxImmediate() override { heard("servicePublishedInfo!"); }
  void onServicePublishedInfo() override { heard("servicePublishedInfo"); }
};

template <>
class Listener<ControllerRegistration::ServicePublishedInfo> final
    : public ListenerOf<ControllerRegistration::ServicePublishedInfo> {
 public:
  using ListenerOf::ListenerOf;
  void onReady() override { heard("ready"); }
  void onPublishedMount(Nox::String8 key) override { heardAt("publishedMount", key); }
  void onPublishedMountnoxImmediate() override { heard("publishedMount!"); }
  void onPublishedMount() override { heard("publishedMount"); }
};

template <>
class Listener<ControllerRegistration::ControllerStatus> final
    : public ListenerOf<ControllerRegistration::ControllerStatus> {
 public:
  using ListenerOf::ListenerOf;
  void onSwitchConfig(Controller::SystemId const& key) override { heardAt("switchConfig", key); }
  void onSwitchConfignoxImmediate() override { heard("switchConfig!"); }
  void onSwitchConfig() override { heard("switchConfig"); }
  void onSwitchStatus(Controller::SystemId const& key) override { heardAt("switchStatus", key); }
  void onSwitchStatusnoxImmediate() override { heard("switchStatus!"); }
  void onSwitchStatus() override { heard("switchStatus"); }
  void onRegisteredSwitch(Controller::SystemId const& key) override { heardAt("registeredSwitch", key); }
  void onRegisteredSwitchnoxImmediate() override { heard("registeredSwitch!"); }
  void onRegisteredSwitch() override { heard("registeredSwitch"); }
};

template <>
class Listener<Controller::ServiceVersionConfigV1> final : public ListenerOf<Controller::ServiceVersionConfigV1> {
 public:
  using ListenerOf::ListenerOf;
  void onVersion(unsigned key) override { heardAt("version", key); }
  void onVersionnoxImmediate() override { heard("version!"); }
  void onVersion() override { heard("version"); }
};

template <>
class Listener<Controller::ServiceConfigV1> final : public ListenerOf<Controller::ServiceConfigV1> {
 public:
  using ListenerOf::ListenerOf;
  void onEnabled() override { heard("enabled"); }
};

template <>
class Listener<Controller::ServiceVersionStatusV1> final : public ListenerOf<Controller::ServiceVersionStatusV1> {
 public:
  using ListenerOf::ListenerOf;
  void onNegotiatedVersion() override { heard("negotiatedVersion"); }
  void onVersionCompatible() override { heard("versionCompatible"); }
  void onVersionNegotiationComplete() override { heard("versionNegotiationComplete"); }
};

template <>
class Listener<Controller::ServiceStatusV1> final : public ListenerOf<Controller::ServiceStatusV1> {
 public:
  using ListenerOf::ListenerOf;
  void onEnabled() override { heard("enabled"); }
  void onVersionStatus() override { heard("versionStatus"); }
};

template <>
class Listener<Controller::ServiceStatusDir> final : public ListenerOf<Controller::ServiceStatusDir> {
 public:
  using ListenerOf::ListenerOf;
  void onService(Nox::Name key) override { heardAt("service", key); }
  void onServicenoxImmediate() override { heard("service!"); }
  void onService() override { heard("service"); }
};

template <>
class Listener<Controller::ServiceConfigDir> final : public ListenerOf<Controller::ServiceConfigDir> {
 public:
  using ListenerOf::ListenerOf;
  void onService(Nox::Name key) override { heardAt("service", key); }
  void onServicenoxImmediate() override { heard("service!"); }
  void onService() override { heard("service"); }
};

template <>
class Listener<Controller::OverrideServiceConfigDir> final : public ListenerOf<Controller::OverrideServiceConfigDir> {
 public:
  using ListenerOf::ListenerOf;
  void onOverrideService(Nox::Name key) override { heardAt("overrideService", key); }
  void onOverrideServicenoxImmediate() override { heard("overrideService!"); }
  void onOverrideService() override { heard("overrideService"); }
};

template <>
class Listener<Controller::PeerTable> final : public ListenerOf<Controller::PeerTable> {
 public:
  using ListenerOf::ListenerOf;
  void onPeer(Controller::SystemId const& key) override { heardAt("peer", key); }
  void onPeernoxImmediate() override { heard("peer!"); }
  void onPeer() override { heard("peer"); }
};

template <>
class Listener<Controller::SystemPublishedMount> final : public ListenerOf<Controller::SystemPublishedMount> {
 public:
  using ListenerOf::ListenerOf;
  void onPublishedMount(Nox::String8 key) override { heardAt("publishedMount", key); }
  void onPublishedMountnoxImmediate() override { heard("publishedMount!"); }
  void onPublishedMount() override { heard("publishedMount"); }
};

template <>
class Listener<Controller::PublishedMountsTable> final : public ListenerOf<Controller::PublishedMountsTable> {
 public:
  using ListenerOf::ListenerOf;
  void onSystem(Controller::SystemId const& key) override { heardAt("system", key); }
  void onSystemnoxImmediate() override { heard("system!"); }
  void onSystem() override { heard("system"); }
  void onServicePublishReady(Nox::String8 key) override { heardAt("servicePublishReady", key); }
  void onServicePublishReadynoxImmediate() override { heard("servicePublishReady!"); }
  void onServicePublishReady() override { heard("servicePublishReady"); }
};
