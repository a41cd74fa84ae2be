// One switch: whether it is ready, what it is answered, and which versions of its services are negotiated.
#pragma once

#include "framework/core/state_machine.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"
#include "registry/system_publish_sm.h"

namespace Controllerdb {

class SwitchRegistrySm;

/// The machine of one registered switch. A switch is ready while its record is enabled and the controller hears its
/// system id; nothing else counts. A ready switch is entered into the controller's table and answered; one that is not
/// is acknowledged for shutdown, and its rows go. Rows are keyed by the system id: they do not follow it when it
/// changes, and two registrations with one id share them. Deliberate.
class NOX_EXPORT SwitchConfigSm final : public Nox::StateMachine<SwitchConfigSm> {
 public:
  using ConfigPtr = Nox::Ptr<ControllerRegistration::SwitchConfig const>;
  using RecordPtr = Nox::Ptr<Controller::ServiceConfigV1 const>;

  /// A reactor of this machine, whose pointer to the machine has a mutator of the machine's name.
  template <class In>
  class Watch : public Nox::Reactor<SwitchConfigSm, In> {
   public:
    using Nox::Reactor<SwitchConfigSm, In>::Reactor;
    void switchConfigSmIs(SwitchConfigSm* sm) noexcept { this->smIs(sm); }
  };
  /// The switch's registration record.
  class NoxConfig final : public Watch<ControllerRegistration::SwitchConfig const> {
   public:
    using Watch::Watch;
    void onEnabled() override {
      if (auto sm = live()) sm->handleSwitchConfig();
    }
    void onRegistrationGenId() override {
      if (auto sm = live()) sm->handleSwitchConfig();
    }
    void onServiceConfig(Nox::Name service) override {
      if (auto sm = live()) sm->handleServiceConfig(service);
    }
    void onServiceConfignoxImmediate() override {
      if (auto sm = live()) sm->handleServiceConfig();
    }

    void notifierIs(Nox::Ptr<Nox::PtrInterface const> const& notifier) override {
      Nox::Turn turn;
      Watch::notifierIs(notifier);
      if (Nox::Held<SwitchConfigSm> const owner(sm()); owner) owner->followSystemId();
    }

   protected:
    void handleNotifier(SwitchConfigSm& sm) override {
      sm.handleSwitchConfig();
      sm.handleServiceConfig();
    }
  };
  /// A reactor that cares about the switch's system id: changes of other switches pass it by.
  template <class In>
  class OwnSystemWatch : public Watch<In> {
   public:
    OwnSystemWatch(Nox::Ptr<In> const& input, SwitchConfigSm* sm) : Watch<In>(input, sm) { follow(sm->config()); }
    void follow(ConfigPtr const& config) { interest_.sourceIs(config ? &config->systemIdKey() : nullptr); }

   private:
    Nox::KeyInterest interest_{*this};
  };
  /// The peers that the controller hears. The immediate form is left empty and another table runs no pass: a peer is
  /// looked at when it is named.
  class NoxHeartbeatPeerTable final : public OwnSystemWatch<Controller::PeerTable const> {
   public:
    using OwnSystemWatch::OwnSystemWatch;
    void onPeer(Controller::SystemId const& systemId) override {
      if (auto sm = live()) sm->handleHeartbeat(systemId);
    }
    void onPeernoxImmediate() override {}
  };
  /// The controller's own service configurations.
  class NoxServiceConfigDir final : public Watch<Controller::ServiceConfigDir const> {
   public:
    using Watch::Watch;
    void onService(Nox::Name service) override {
      if (auto sm = live()) sm->handleLocalServiceConfig(service);
    }
    void onServicenoxImmediate() override {
      if (auto sm = live()) sm->handleLocalServiceConfig();
    }

   protected:
    void handleNotifier(SwitchConfigSm& sm) override { sm.handleLocalServiceConfig(); }
  };
  /// The overrides: held, and read when a service is negotiated. A change of an override triggers nothing by itself.
  class NoxOverrideServiceConfigDir final : public Watch<Controller::OverrideServiceConfigDir const> {
   public:
    using Watch::Watch;
  };
  /// What the switches offer, and which services are ready. The immediate forms are left empty: an offer is looked at
  /// when it is named.
  class NoxPublishedMountsTable final : public OwnSystemWatch<Controller::PublishedMountsTable const> {
   public:
    using OwnSystemWatch::OwnSystemWatch;
    void onSystem(Controller::SystemId const& systemId) override {
      if (auto sm = live()) sm->handleSystemPublish(systemId);
    }
    void onSystemnoxImmediate() override {}
    void onServicePublishReady(Nox::String8 service) override {
      if (auto sm = live()) sm->handleServicePublishReady(service);
    }
    void onServicePublishReadynoxImmediate() override {}
  };
  /// One service of one side, a member of the collection that mirrors that side. Negotiates the service when its record
  /// changes `enabled`, or is another record of the same name. Its key is the service's name. `Self` has the texts and
  /// the line tags of its messages.
  template <class Self>
  class NoxService : public Watch<Controller::ServiceConfigV1 const>, public Nox::HashMapLink {
   public:
    NoxService(RecordPtr const& record, SwitchConfigSm* sm)
        : Watch<Controller::ServiceConfigV1 const>(record, sm), name_(record->name()) {}
    Nox::Name const& fwkKey() const noexcept { return name_; }
    Nox::Name name() const override { return name_; }
    void onEnabled() override {
      if (auto sm = live()) handleEnabled();
    }
    void handleEnabled();
    void doCleanup();

   protected:
    void handleNotifier(SwitchConfigSm& /*sm*/) override { handleEnabled(); }

   private:
    Nox::Name name_;
  };
  /// A service of the switch.
  class NoxServiceConfig final : public NoxService<NoxServiceConfig> {
   public:
    using NoxService::NoxService;
    static constexpr char kEnabled[] = "void Controllerdb::SwitchConfigSm::NoxServiceConfig::handleEnabled()";
    static constexpr char kCleanup[] = "void Controllerdb::SwitchConfigSm::NoxServiceConfig::doCleanup()";
    static constexpr int kEnabledRing = 282, kEnabledText = 284, kCleanupText = 290;

   protected:
    void handleZombie(SwitchConfigSm& sm) override { sm.nox_handleServiceConfig(*this); }
  };
  /// A service of the controller.
  class NoxLocalServiceConfig final : public NoxService<NoxLocalServiceConfig> {
   public:
    using NoxService::NoxService;
    static constexpr char kEnabled[] = "void Controllerdb::SwitchConfigSm::NoxLocalServiceConfig::handleEnabled()";
    static constexpr char kCleanup[] = "void Controllerdb::SwitchConfigSm::NoxLocalServiceConfig::doCleanup()";
    static constexpr int kEnabledRing = 295, kEnabledText = 297, kCleanupText = 303;

   protected:
    void handleZombie(SwitchConfigSm& sm) override { sm.nox_handleLocalServiceConfig(*this); }
  };

  using StatusPtr = Nox::Ptr<ControllerRegistration::SwitchStatus>;
  using PeerTablePtr = Nox::Ptr<Controller::PeerTable const>;
  using ControllerStatusPtr = Nox::Ptr<ControllerRegistration::ControllerStatus>;
  using ServiceConfigDirPtr = Nox::Ptr<Controller::ServiceConfigDir const>;
  using OverrideDirPtr = Nox::Ptr<Controller::OverrideServiceConfigDir const>;
  using ServiceStatusDirPtr = Nox::Ptr<Controller::ServiceStatusDir>;
  using MountsTablePtr = Nox::Ptr<Controller::PublishedMountsTable const>;
  static Nox::NoxType noxType;

  /// Use `switchConfigSmFactory`. Runs the first pass as its last step; if that throws, no row is left behind.
  SwitchConfigSm(ConfigPtr const& config, StatusPtr const& status, PeerTablePtr const& heartbeatPeerTable,
                 ControllerStatusPtr const& controllerStatus, ServiceConfigDirPtr const& serviceConfigDir,
                 OverrideDirPtr const& overrideServiceConfigDir, Nox::String8 const& controllerUUID,
                 ServiceStatusDirPtr const& serviceStatusDir, Nox::Name const& switchId,
                 MountsTablePtr const& publishedMountsTable, SwitchRegistrySm* switchRegistrySm);
  ~SwitchConfigSm() override;

  // The inputs that are watched. A mutator retires the reactor of another input and makes a fresh one, which runs no
  // pass.

  ConfigPtr config() const { return config_.get(); }
  void configIs(ConfigPtr const& config) {
    Nox::Turn turn;
    config_.replace(*this, config);
    followSystemId();
  }
  void configDel() {
    config_.retire();
    followSystemId();
  }
  auto newConfig(ConfigPtr const& config) { return newReactor<NoxConfig>(config); }

  PeerTablePtr heartbeatPeerTable() const { return heartbeatPeerTable_.get(); }
  void heartbeatPeerTableIs(PeerTablePtr const& table) { heartbeatPeerTable_.replace(*this, table); }
  void heartbeatPeerTableDel() { heartbeatPeerTable_.retire(); }
  auto newHeartbeatPeerTable(PeerTablePtr const& table) { return newReactor<NoxHeartbeatPeerTable>(table); }

  ServiceConfigDirPtr serviceConfigDir() const { return serviceConfigDir_.get(); }
  void serviceConfigDirIs(ServiceConfigDirPtr const& dir) { serviceConfigDir_.replace(*this, dir); }
  void serviceConfigDirDel() { serviceConfigDir_.retire(); }
  auto newServiceConfigDir(ServiceConfigDirPtr const& dir) { return newReactor<NoxServiceConfigDir>(dir); }

  OverrideDirPtr overrideServiceConfigDir() const { return overrideServiceConfigDir_.get(); }
  void overrideServiceConfigDirIs(OverrideDirPtr const& dir) { overrideServiceConfigDir_.replace(*this, dir); }
  void overrideServiceConfigDirDel() { overrideServiceConfigDir_.retire(); }
  auto newOverrideServiceConfigDir(OverrideDirPtr const& dir) { return newReactor<NoxOverrideServiceConfigDir>(dir); }

  MountsTablePtr publishedMountsTable() const { return publishedMountsTable_.get(); }
  void publishedMountsTableIs(MountsTablePtr const& table) { publishedMountsTable_.replace(*this, table); }
  void publishedMountsTableDel() { publishedMountsTable_.retire(); }
  auto newPublishedMountsTable(MountsTablePtr const& table) { return newReactor<NoxPublishedMountsTable>(table); }

  // The inputs that are held.

  StatusPtr const& status() const noexcept { return status_; }
  ControllerStatusPtr const& controllerStatus() const noexcept { return controllerStatus_; }
  Nox::String8 controllerUUID() const { return controllerUUID_; }
  ServiceStatusDirPtr const& serviceStatusDir() const noexcept { return serviceStatusDir_; }
  /// The name of the registration directory; serves in messages alone.
  Nox::Name switchId() const { return switchId_; }
  /// The owner; never written through.
  SwitchRegistrySm* switchRegistrySm() const noexcept { return switchRegistrySm_; }

  // The services of the switch: one reactor each, by service name. A service that is new here is not negotiated before
  // the next trigger.

  using ServiceConfigMap = Nox::HashMap<NoxServiceConfig, Nox::Name>;
  using ServiceConfigIterator = ServiceConfigMap::Iterator;
  using ServiceConfigIteratorConst = ServiceConfigMap::IteratorConst;
  ServiceConfigMap const& serviceConfig() const noexcept { return serviceConfig_; }
  Nox::Ptr<NoxServiceConfig> serviceConfig(Nox::Name const& service) const { return serviceConfig_.member(service); }
  /// Makes the collection hold a reactor for this record under its name; one that watches another record is pointed at
  /// it, which negotiates. Throws RangeException for null.
  void serviceConfigIs(RecordPtr const& record);
  /// Makes the reactor of a record that has none, and enters it. Throws RangeException for null.
  Nox::ValidPtr<NoxServiceConfig> newServiceConfig(RecordPtr const& record);
  void serviceConfigDel(Nox::Name const& service);
  void serviceConfigDelAll();
  /// The collection's hook: a member that leaves becomes a zombie that knows no machine.
  void serviceConfigNotify(Nox::Name const& service, Nox::Ptr<NoxServiceConfig> const& member);
  using NoxServiceConfigIterator = Nox::OwnedIterator<ServiceConfigMap, &SwitchConfigSm::serviceConfigNotify>;
  /// Called at every change of a member's zombie state.
  void nox_handleServiceConfig(NoxServiceConfig& member) { member.doCleanup(); }

  // The services of the controller, likewise.

  using LocalServiceConfigMap = Nox::HashMap<NoxLocalServiceConfig, Nox::Name>;
  using LocalServiceConfigIterator = LocalServiceConfigMap::Iterator;
  using LocalServiceConfigIteratorConst = LocalServiceConfigMap::IteratorConst;
  LocalServiceConfigMap const& localServiceConfig() const noexcept { return localServiceConfig_; }
  Nox::Ptr<NoxLocalServiceConfig> localServiceConfig(Nox::Name const& service) const {
    return localServiceConfig_.member(service);
  }
  void localServiceConfigIs(RecordPtr const& record);
  /// As newServiceConfig.
  Nox::ValidPtr<NoxLocalServiceConfig> newLocalServiceConfig(RecordPtr const& record);
  void localServiceConfigDel(Nox::Name const& service);
  void localServiceConfigDelAll();
  void localServiceConfigNotify(Nox::Name const& service, Nox::Ptr<NoxLocalServiceConfig> const& member);
  using NoxLocalServiceConfigIterator =
      Nox::OwnedIterator<LocalServiceConfigMap, &SwitchConfigSm::localServiceConfigNotify>;
  void nox_handleLocalServiceConfig(NoxLocalServiceConfig& member) { member.doCleanup(); }

  // The publication machine: there while the switch, when last looked at, was ready and had an offer.

  Nox::Ptr<SystemPublishSm> const& systemPublishSm() const noexcept { return systemPublishSm_; }
  /// Keeps the machine that was built from these arguments; otherwise builds another and releases the old one.
  SystemPublishSm::Maker systemPublishSmIs;
  SystemPublishSm::Maker newSystemPublishSm;
  void systemPublishSmDel() { systemPublishSm_ = nullptr; }

  // Handlers.

  void handleInitialized();
  bool switchReady() const;
  void handleSwitchConfig();
  void handleHeartbeat(Controller::SystemId const& systemId);
  /// Brings `serviceConfig` into line with the switch's record: the whole, or one service.
  void handleServiceConfig();
  void handleServiceConfig(Nox::Name const& service);
  /// Brings `localServiceConfig` into line with the controller's directory.
  void handleLocalServiceConfig();
  void handleLocalServiceConfig(Nox::Name const& service);
  /// Negotiates one service from scratch, and writes the outcome on both sides.
  void doVersionNegotiation(Nox::Name serviceName);
  /// Makes, keeps or drops the publication machine, if the system id is this switch's. The form without an id goes
  /// through the whole table.
  void handleSystemPublish(Controller::SystemId const& systemId);
  void handleSystemPublish();
  /// Writes the service's readiness to the switch.
  void handleServicePublishReady(Nox::String8 service);
  /// Removes the switch's rows from the controller's table.
  void doCleanup();

 private:
  friend class Nox::StateMachine<SwitchConfigSm>;
  explicit SwitchConfigSm(SwitchRegistrySm* switchRegistrySm) : switchRegistrySm_(switchRegistrySm) {}
  auto reactors() { return std::tuple_cat(Inputs::watched(*this), std::tie(serviceConfig_, localServiceConfig_)); }
  /// Tells the reactors that care about the system id whose it is, at every change of `config`.
  void followSystemId();
  void shutDown();
  void answer(ControllerRegistration::SwitchConfig const& config);

  Nox::Input<NoxConfig> config_;
  StatusPtr status_;
  Nox::Input<NoxHeartbeatPeerTable> heartbeatPeerTable_;
  ControllerStatusPtr controllerStatus_;
  Nox::Input<NoxServiceConfigDir> serviceConfigDir_;
  Nox::Input<NoxOverrideServiceConfigDir> overrideServiceConfigDir_;
  Nox::String8 controllerUUID_;
  ServiceStatusDirPtr serviceStatusDir_;
  Nox::Name switchId_;
  Nox::Input<NoxPublishedMountsTable> publishedMountsTable_;
  SwitchRegistrySm* switchRegistrySm_;
  ServiceConfigMap serviceConfig_;
  LocalServiceConfigMap localServiceConfig_;
  Nox::Ptr<SystemPublishSm> systemPublishSm_;

  using T = SwitchConfigSm;

 public:
  /// What it is built from, and beside it the owner, which is not compared.
  using Inputs = Nox::Inputs<&T::config_, &T::status_, &T::heartbeatPeerTable_, &T::controllerStatus_,
                             &T::serviceConfigDir_, &T::overrideServiceConfigDir_, &T::controllerUUID_,
                             &T::serviceStatusDir_, &T::switchId_, &T::publishedMountsTable_>;
  /// A function that makes a machine of its inputs, given in their order.
  using Maker = Inputs::Function<Nox::ValidPtr<SwitchConfigSm>>;
};

/// Makes the machine of one switch, runs its first pass and switches it on. Any input may be null; what is null is
/// skipped. Takes the inputs, then the owner.
NOX_EXPORT SwitchConfigSm::Inputs::Function<Nox::ValidPtr<SwitchConfigSm>, SwitchRegistrySm*> switchConfigSmFactory;

}  // namespace Controllerdb
