// The records that a switch and the controller exchange, and the controller's table of switches.
#pragma once

#include "framework/by_name/rows.h"
#include "framework/core/entity.h"
#include "records/ids.h"
#include "records/mount.h"
#include "records/published_paths.h"
#include "records/service.h"

namespace ControllerRegistration {

/// A switch's registration record: entry "config" of its directory, written by the switch. Its name is the directory's.
class NOX_EXPORT SwitchConfig : public Nox::Typed<SwitchConfig, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<SwitchConfig, Nox::Entity> {
   public:
    virtual void onSystemId() {}
    virtual void onConnectionConfig() {}
    virtual void onServiceConfig(Nox::Name /*service*/) {}
    virtual void onServiceConfignoxImmediate() {}
    virtual void onServiceConfig() {}
    virtual void onEnabled() {}
    virtual void onRegistrationGenId() {}
  };
  /// One service of the switch, keyed by its name.
  class NoxServiceConfig final : public Nox::Row<Nox::Name, Nox::Ptr<Controller::ServiceConfigV1>> {
   public:
    using Row::Row;
  };
  using ServiceConfigMap = Nox::ValueMap<NoxServiceConfig, Nox::Name, Nox::Ptr<Controller::ServiceConfigV1>>;
  using ServiceConfigIteratorConst = ServiceConfigMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  Controller::SystemId const& systemId() const noexcept { return systemId_; }
  void systemIdIs(Controller::SystemId const& id) {
    systemIdKey_.keyIs(id.keyWord());
    assign<&NotifieeConst::onSystemId>(systemId_, id);
  }
  /// The system id as the key that reactors of other records follow.
  Nox::KeySource const& systemIdKey() const noexcept { return systemIdKey_; }

  /// The switch's connection settings, in its own words.
  Nox::String8 const& connectionConfig() const noexcept { return connectionConfig_; }
  void connectionConfigIs(Nox::String8 const& config) {
    assign<&NotifieeConst::onConnectionConfig>(connectionConfig_, config);
  }

  ServiceConfigMap const& serviceConfig() const noexcept { return serviceConfig_; }
  Nox::Ptr<Controller::ServiceConfigV1> serviceConfig(Nox::Name const& service) {
    return serviceConfig_.value(service);
  }
  Nox::Ptr<Controller::ServiceConfigV1 const> serviceConfig(Nox::Name const& service) const {
    return serviceConfig_.value(service);
  }
  ServiceConfigIteratorConst serviceConfigIteratorConst() const { return ServiceConfigIteratorConst(serviceConfig_); }
  void serviceConfigIs(Nox::ValidPtr<Controller::ServiceConfigV1> const& config) {
    assign<Nox::keyed(&NotifieeConst::onServiceConfig)>(serviceConfig_, config->name(), config);
  }
  void serviceConfigDel(Nox::Name const& service) {
    remove<Nox::keyed(&NotifieeConst::onServiceConfig)>(serviceConfig_, service);
  }
  void serviceConfigDelAll() { removeAll<Nox::keyed(&NotifieeConst::onServiceConfig)>(serviceConfig_); }

  bool enabled() const noexcept { return enabled_; }
  void enabledIs(bool enabled) { assign<&NotifieeConst::onEnabled>(enabled_, enabled); }

  unsigned registrationGenId() const noexcept { return registrationGenId_; }
  void registrationGenIdIs(unsigned genId) { assign<&NotifieeConst::onRegistrationGenId>(registrationGenId_, genId); }

 private:
  bool enabled_ = false;
  unsigned registrationGenId_ = 0;
  Controller::SystemId systemId_;
  Nox::KeySource systemIdKey_;
  Nox::String8 connectionConfig_;
  ServiceConfigMap serviceConfig_;
};

/// What the controller publishes to a switch for one service; its name is the service's.
class NOX_EXPORT ServicePublishedInfo : public Nox::Typed<ServicePublishedInfo, Nox::Entity>, public Nox::HashMapLink {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ServicePublishedInfo, Nox::Entity> {
   public:
    virtual void onReady() {}
    virtual void onPublishedMount(Nox::String8 /*path*/) {}
    virtual void onPublishedMountnoxImmediate() {}
    virtual void onPublishedMount() {}
  };
  /// One published mount, keyed by its path.
  class NoxPublishedMount final : public Nox::Row<Nox::String8, Controller::MountDesc> {
   public:
    using Row::Row;
  };
  using PublishedMountMap = Nox::ValueMap<NoxPublishedMount, Nox::String8, Controller::MountDesc>;
  using PublishedMountIterator = PublishedMountMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();

  explicit ServicePublishedInfo(Nox::String8 const& service) : Typed(Nox::Name(service)) {}
  Nox::String8 fwkKey() const { return Nox::String8(Entity::name()); }

  bool ready() const noexcept { return ready_; }
  void readyIs(bool ready) { assign<&NotifieeConst::onReady>(ready_, ready); }

  PublishedMountMap const& publishedMount() const noexcept { return publishedMount_; }
  /// The mount published at that path; the default descriptor if there is none.
  Controller::MountDesc publishedMount(Nox::String8 const& path) const { return publishedMount_.value(path); }
  PublishedMountIterator publishedMountIterator() const { return PublishedMountIterator(publishedMount_); }
  void publishedMountIs(Controller::MountDesc const& mount);
  void publishedMountDel(Nox::String8 const& path);
  void publishedMountDelAll();

 private:
  void handleParent(Nox::Ptr<Nox::Entity> const& parent) override;

  bool ready_ = false;
  PublishedMountMap publishedMount_;
  PublishedPaths* paths_ = nullptr;  // that of the status that owns this, as long as it does
};

/// The controller's answer to one switch: entry "status" of its directory. Its name is the directory's.
class NOX_EXPORT SwitchStatus : public Nox::Typed<SwitchStatus, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<SwitchStatus, Nox::Entity> {
   public:
    virtual void onControllerUUID() {}
    virtual void onRegistrationGenId() {}
    virtual void onClientShutdownAck() {}
    virtual void onServiceStatus(Nox::Name /*service*/) {}
    virtual void onServiceStatusnoxImmediate() {}
    virtual void onServiceStatus() {}
    virtual void onServicePublishedInfo(Nox::String8 /*service*/) {}
    virtual void onServicePublishedInfonoxImmediate() {}
    virtual void onServicePublishedInfo() {}
  };
  using ServiceStatusMap = Nox::ChildMap<Controller::ServiceStatusV1, Nox::Name>;
  using ServiceStatusIterator = ServiceStatusMap::IteratorConst;
  using ServicePublishedInfoMap = Nox::ChildMap<ServicePublishedInfo, Nox::String8>;
  using ServicePublishedInfoIterator = ServicePublishedInfoMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  Nox::String8 const& controllerUUID() const noexcept { return controllerUUID_; }
  void controllerUUIDIs(Nox::String8 const& uuid) { assign<&NotifieeConst::onControllerUUID>(controllerUUID_, uuid); }

  /// The generation of the registration that this answers.
  unsigned registrationGenId() const noexcept { return registrationGenId_; }
  void registrationGenIdIs(unsigned genId) { assign<&NotifieeConst::onRegistrationGenId>(registrationGenId_, genId); }

  bool clientShutdownAck() const noexcept { return clientShutdownAck_; }
  void clientShutdownAckIs(bool ack) { assign<&NotifieeConst::onClientShutdownAck>(clientShutdownAck_, ack); }

  ServiceStatusMap const& serviceStatus() const noexcept { return serviceStatus_; }
  Nox::Ptr<Controller::ServiceStatusV1> serviceStatus(Nox::Name const& service) {
    return serviceStatus_.member(service);
  }
  Nox::Ptr<Controller::ServiceStatusV1 const> serviceStatus(Nox::Name const& service) const {
    return serviceStatus_.member(service);
  }
  ServiceStatusIterator serviceStatusIterator() const { return ServiceStatusIterator(serviceStatus_); }
  Nox::ValidPtr<Controller::ServiceStatusV1> serviceStatusIs(Nox::Name const& service) {
    return instantiate<Nox::keyed(&NotifieeConst::onServiceStatus)>(serviceStatus_, service);
  }
  void serviceStatusDel(Nox::Name const& service) {
    remove<Nox::keyed(&NotifieeConst::onServiceStatus)>(serviceStatus_, service);
  }
  void serviceStatusDelAll() { removeAll<Nox::keyed(&NotifieeConst::onServiceStatus)>(serviceStatus_); }

  ServicePublishedInfoMap const& servicePublishedInfo() const noexcept { return servicePublishedInfo_; }
  Nox::Ptr<ServicePublishedInfo> servicePublishedInfo(Nox::String8 const& service) {
    return servicePublishedInfo_.member(service);
  }
  Nox::Ptr<ServicePublishedInfo const> servicePublishedInfo(Nox::String8 const& service) const {
    return servicePublishedInfo_.member(service);
  }
  ServicePublishedInfoIterator servicePublishedInfoIterator() const {
    return ServicePublishedInfoIterator(servicePublishedInfo_);
  }
  /// The first service, in the collection's order, that holds a mount at that path; null if there is none. A default
  /// descriptor counts as no mount. Costs no walk over all services where they are many.
  Nox::Ptr<ServicePublishedInfo> servicePublishedInfoHolding(Nox::String8 const& path);
  Nox::ValidPtr<ServicePublishedInfo> servicePublishedInfoIs(Nox::String8 const& service) {
    return instantiate<Nox::keyed(&NotifieeConst::onServicePublishedInfo)>(servicePublishedInfo_, service);
  }
  void servicePublishedInfoDel(Nox::String8 const& service) {
    remove<Nox::keyed(&NotifieeConst::onServicePublishedInfo)>(servicePublishedInfo_, service);
  }
  void servicePublishedInfoDelAll() {
    removeAll<Nox::keyed(&NotifieeConst::onServicePublishedInfo)>(servicePublishedInfo_);
  }

 private:
  friend class ServicePublishedInfo;

  bool clientShutdownAck_ = false;
  unsigned registrationGenId_ = 0;
  Nox::String8 controllerUUID_;
  ServiceStatusMap serviceStatus_;
  PublishedPaths publishedPaths_;  // before its informations, which know it until they go
  ServicePublishedInfoMap servicePublishedInfo_;
};

/// The controller's table of switches, every row keyed by system id; written by the registry.
class NOX_EXPORT ControllerStatus : public Nox::Typed<ControllerStatus, Nox::Entity> {
 public:
  class NotifieeConst : public Nox::NotifieeOf<ControllerStatus, Nox::Entity> {
   public:
    virtual void onSwitchConfig(Controller::SystemId const& /*systemId*/) {}
    virtual void onSwitchConfignoxImmediate() {}
    virtual void onSwitchConfig() {}
    virtual void onSwitchStatus(Controller::SystemId const& /*systemId*/) {}
    virtual void onSwitchStatusnoxImmediate() {}
    virtual void onSwitchStatus() {}
    virtual void onRegisteredSwitch(Controller::SystemId const& /*systemId*/) {}
    virtual void onRegisteredSwitchnoxImmediate() {}
    virtual void onRegisteredSwitch() {}
  };
  class NoxSwitchConfig final : public Nox::Row<Controller::SystemId, Nox::Ptr<SwitchConfig const>> {
   public:
    using Row::Row;
  };
  class NoxSwitchStatus final : public Nox::Row<Controller::SystemId, Nox::Ptr<SwitchStatus const>> {
   public:
    using Row::Row;
  };
  class NoxRegisteredSwitch final : public Nox::Row<Controller::SystemId, bool> {
   public:
    using Row::Row;
  };
  using SwitchConfigMap = Nox::ValueMap<NoxSwitchConfig, Controller::SystemId, Nox::Ptr<SwitchConfig const>>;
  using SwitchStatusMap = Nox::ValueMap<NoxSwitchStatus, Controller::SystemId, Nox::Ptr<SwitchStatus const>>;
  using RegisteredSwitchMap = Nox::ValueMap<NoxRegisteredSwitch, Controller::SystemId, bool>;
  using SwitchConfigIteratorConst = SwitchConfigMap::IteratorConst;
  using SwitchStatusIteratorConst = SwitchStatusMap::IteratorConst;
  using RegisteredSwitchIteratorConst = RegisteredSwitchMap::IteratorConst;
  static Nox::NoxType noxType;
  static constexpr auto attributes();
  using Typed::Typed;

  SwitchConfigMap const& switchConfig() const noexcept { return switchConfig_; }
  Nox::Ptr<SwitchConfig const> switchConfig(Controller::SystemId const& id) const { return switchConfig_.value(id); }
  SwitchConfigIteratorConst switchConfigIteratorConst() const { return SwitchConfigIteratorConst(switchConfig_); }
  void switchConfigIs(Controller::SystemId const& id, Nox::Ptr<SwitchConfig const> const& config) {
    assign<Nox::keyed(&NotifieeConst::onSwitchConfig)>(switchConfig_, id, config);
  }
  void switchConfigDel(Controller::SystemId const& id) {
    remove<Nox::keyed(&NotifieeConst::onSwitchConfig)>(switchConfig_, id);
  }
  void switchConfigDelAll() { removeAll<Nox::keyed(&NotifieeConst::onSwitchConfig)>(switchConfig_); }

  SwitchStatusMap const& switchStatus() const noexcept { return switchStatus_; }
  Nox::Ptr<SwitchStatus const> switchStatus(Controller::SystemId const& id) const { return switchStatus_.value(id); }
  SwitchStatusIteratorConst switchStatusIteratorConst() const { return SwitchStatusIteratorConst(switchStatus_); }
  void switchStatusIs(Controller::SystemId const& id, Nox::Ptr<SwitchStatus const> const& status) {
    assign<Nox::keyed(&NotifieeConst::onSwitchStatus)>(switchStatus_, id, status);
  }
  void switchStatusDel(Controller::SystemId const& id) {
    remove<Nox::keyed(&NotifieeConst::onSwitchStatus)>(switchStatus_, id);
  }
  void switchStatusDelAll() { removeAll<Nox::keyed(&NotifieeConst::onSwitchStatus)>(switchStatus_); }

  RegisteredSwitchMap const& registeredSwitch() const noexcept { return registeredSwitch_; }
  bool registeredSwitch(Controller::SystemId const& id) const { return registeredSwitch_.value(id); }
  RegisteredSwitchIteratorConst registeredSwitchIteratorConst() const {
    return RegisteredSwitchIteratorConst(registeredSwitch_);
  }
  void registeredSwitchIs(Controller::SystemId const& id, bool registered) {
    assign<Nox::keyed(&NotifieeConst::onRegisteredSwitch)>(registeredSwitch_, id, registered);
  }
  void registeredSwitchDel(Controller::SystemId const& id) {
    remove<Nox::keyed(&NotifieeConst::onRegisteredSwitch)>(registeredSwitch_, id);
  }
  void registeredSwitchDelAll() { removeAll<Nox::keyed(&NotifieeConst::onRegisteredSwitch)>(registeredSwitch_); }

 private:
  SwitchConfigMap switchConfig_;
  SwitchStatusMap switchStatus_;
  RegisteredSwitchMap registeredSwitch_;
};

constexpr auto SwitchConfig::attributes() {
  using T = SwitchConfig;
  return std::tuple(
      Nox::plain<&T::systemId, &T::systemIdIs>("systemId"),
      Nox::internal(Nox::plain<&T::connectionConfig, &T::connectionConfigIs>("connectionConfig")),
      Nox::collection<Nox::whole(&T::serviceConfig), &T::serviceConfigIs, &T::serviceConfigDel>("serviceConfig"),
      Nox::plain<&T::enabled, &T::enabledIs>("enabled"),
      Nox::plain<&T::registrationGenId, &T::registrationGenIdIs>("registrationGenId"));
}
constexpr auto ServicePublishedInfo::attributes() {
  using T = ServicePublishedInfo;
  return std::tuple(
      Nox::plain<&T::ready, &T::readyIs>("ready"),
      Nox::collection<Nox::whole(&T::publishedMount), &T::publishedMountIs, &T::publishedMountDel>("publishedMount"));
}
constexpr auto SwitchStatus::attributes() {
  using T = SwitchStatus;
  return std::tuple(
      Nox::answer(Nox::plain<&T::controllerUUID, &T::controllerUUIDIs>("controllerUUID")),
      Nox::answer(Nox::plain<&T::registrationGenId, &T::registrationGenIdIs>("registrationGenId")),
      Nox::answer(Nox::plain<&T::clientShutdownAck, &T::clientShutdownAckIs>("clientShutdownAck")),
      Nox::answer(
          Nox::collection<Nox::whole(&T::serviceStatus), &T::serviceStatusIs, &T::serviceStatusDel>("serviceStatus")),
      Nox::answer(Nox::collection<Nox::whole(&T::servicePublishedInfo),
                                  &T::servicePublishedInfoIs,
                                  &T::servicePublishedInfoDel>("servicePublishedInfo")));
}
constexpr auto ControllerStatus::attributes() {
  using T = ControllerStatus;
  return std::tuple(
      Nox::collection<Nox::whole(&T::switchConfig), &T::switchConfigIs, &T::switchConfigDel>("switchConfig"),
      Nox::collection<Nox::whole(&T::switchStatus), &T::switchStatusIs, &T::switchStatusDel>("switchStatus"),
      Nox::collection<Nox::whole(&T::registeredSwitch), &T::registeredSwitchIs, &T::registeredSwitchDel>(
          "registeredSwitch"));
}

}  // namespace ControllerRegistration
