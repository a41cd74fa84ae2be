// The registry root: one switch registry per registration directory, for as long as the agent is enabled.
#pragma once

#include "framework/core/state_machine.h"
#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "registry/switch_registry_sm.h"

namespace Controllerdb {

/// Watches the registration root directory and the agent's `enabled`. Owns the switch registries, and keeps one service
/// status directory per switch in the all-clients service status directory.
class NOX_EXPORT RegistryRootSm final : public Nox::StateMachine<RegistryRootSm> {
 public:
  /// A reactor of this machine, whose pointer to the machine has a mutator of the machine's name.
  template <class In>
  class Watch : public Nox::Reactor<RegistryRootSm, In> {
   public:
    using Nox::Reactor<RegistryRootSm, In>::Reactor;
    void registryRootSmIs(RegistryRootSm* sm) noexcept { this->smIs(sm); }
  };
  /// The agent's configuration.
  class NoxControllerdbConfig final : public Watch<Config const> {
   public:
    using Watch::Watch;
    void onEnabled() override {
      if (auto sm = live()) sm->handleEnabled();
    }

   protected:
    void handleNotifier(RegistryRootSm& sm) override { sm.handleEnabled(); }
  };
  /// The registration root directory: one subdirectory per switch.
  class NoxRegistrationRootDir final : public Watch<Nox::Dir> {
   public:
    using Watch::Watch;
    void onEntityPtr(Nox::Name name) override {
      if (auto sm = live()) sm->handleRegistration(name);
    }
    void onEntityPtrnoxImmediate() override {
      if (auto sm = live()) sm->handleRegistration();
    }

   protected:
    void handleNotifier(RegistryRootSm& sm) override { sm.handleRegistration(); }
  };
  /// The controller's table of switches: held and switched like the other inputs, never reacted to.
  class NoxControllerStatus final : public Watch<ControllerRegistration::ControllerStatus> {
   public:
    using Watch::Watch;
  };

  using ConfigPtr = Nox::Ptr<Config const>;
  using StatusPtr = Nox::Ptr<Status>;
  using DirPtr = Nox::Ptr<Nox::Dir>;
  using ControllerStatusPtr = Nox::Ptr<ControllerRegistration::ControllerStatus>;
  using PeerTablePtr = Nox::Ptr<Controller::PeerTable const>;
  using ServiceConfigDirPtr = Nox::Ptr<Controller::ServiceConfigDir const>;
  using OverrideDirPtr = Nox::Ptr<Controller::OverrideServiceConfigDir const>;
  using MountsTablePtr = Nox::Ptr<Controller::PublishedMountsTable const>;
  using ServiceStatusDirPtr = Nox::Ptr<Controller::ServiceStatusDir>;
  using RegistrySmMap = Nox::HashMap<SwitchRegistrySm, Nox::Name>;
  using RegistrySmIteratorConst = RegistrySmMap::IteratorConst;
  static Nox::NoxType noxType;

  /// Use `registryRootSmFactory`, which also runs the first pass.
  RegistryRootSm(ConfigPtr const& controllerdbConfig, StatusPtr const& controllerdbStatus,
                 DirPtr const& registrationRootDir, ControllerStatusPtr const& controllerStatus,
                 PeerTablePtr const& heartbeatPeerTable, ServiceConfigDirPtr const& serviceConfigDir,
                 OverrideDirPtr const& overrideServiceConfigDir, DirPtr const& allClientsServiceStatusDir,
                 MountsTablePtr const& publishedMountsTable);
  ~RegistryRootSm() override;

  // The inputs that are watched. A mutator points the present reactor at the other input, which runs its pass.

  ConfigPtr controllerdbConfig() const { return controllerdbConfig_.get(); }
  void controllerdbConfigIs(ConfigPtr const& config) { controllerdbConfig_.repoint(*this, config); }
  void controllerdbConfigDel() { controllerdbConfig_.retire(); }
  auto newControllerdbConfig(ConfigPtr const& config) { return newReactor<NoxControllerdbConfig>(config); }

  DirPtr registrationRootDir() const { return registrationRootDir_.get(); }
  void registrationRootDirIs(DirPtr const& dir) { registrationRootDir_.repoint(*this, dir); }
  void registrationRootDirDel() { registrationRootDir_.retire(); }
  auto newRegistrationRootDir(DirPtr const& dir) { return newReactor<NoxRegistrationRootDir>(dir); }

  ControllerStatusPtr controllerStatus() const { return controllerStatus_.get(); }
  void controllerStatusIs(ControllerStatusPtr const& status) { controllerStatus_.repoint(*this, status); }
  void controllerStatusDel() { controllerStatus_.retire(); }
  auto newControllerStatus(ControllerStatusPtr const& status) { return newReactor<NoxControllerStatus>(status); }

  // The inputs that are held.

  StatusPtr const& controllerdbStatus() const noexcept { return controllerdbStatus_; }
  PeerTablePtr const& heartbeatPeerTable() const noexcept { return heartbeatPeerTable_; }
  ServiceConfigDirPtr const& serviceConfigDir() const noexcept { return serviceConfigDir_; }
  OverrideDirPtr const& overrideServiceConfigDir() const noexcept { return overrideServiceConfigDir_; }
  DirPtr const& allClientsServiceStatusDir() const noexcept { return allClientsServiceStatusDir_; }
  MountsTablePtr const& publishedMountsTable() const noexcept { return publishedMountsTable_; }

  // The switch registries, by the name of their directory.

  RegistrySmMap const& registrySm() const noexcept { return registrySm_; }
  Nox::Ptr<SwitchRegistrySm> registrySm(Nox::Name const& name) const { return registrySm_.member(name); }
  /// The member of that name, if it was built from these arguments, or a new one. Throws NameInUseException for a
  /// member that was built from others, which stays.
  Nox::ValidPtr<SwitchRegistrySm> registrySmIs(Nox::Name const& name, DirPtr const& switchDir,
                                               ServiceStatusDirPtr const& serviceStatusDir,
                                               MountsTablePtr const& publishedMountsTable,
                                               PeerTablePtr const& heartbeatPeerTable);
  Nox::ValidPtr<SwitchRegistrySm> newRegistrySm(Nox::Name const& name, DirPtr const& switchDir,
                                                ServiceStatusDirPtr const& serviceStatusDir,
                                                MountsTablePtr const& publishedMountsTable,
                                                PeerTablePtr const& heartbeatPeerTable);
  /// Removes the member, switched off and without its way back, and releases it.
  void registrySmDel(Nox::Name const& name);
  void registrySmDelAll();
  /// The collection's hook for each member that leaves; does nothing.
  void registrySmNotify(Nox::Name const& /*name*/, Nox::Ptr<SwitchRegistrySm> const& /*member*/) {}
  using RegistrySmIterator = Nox::OwnedIterator<RegistrySmMap, &RegistryRootSm::registrySmNotify>;

  // Handlers.

  /// The first pass. Always cleans up first, so that the service status directories start empty.
  void handleInitialized();
  void handleEnabled();
  void handleRegistration();
  void handleRegistration(Nox::Name name);
  /// Removes every switch registry, and every entry of the all-clients service status directory.
  void doCleanup();

 private:
  friend class Nox::StateMachine<RegistryRootSm>;
  auto childSms() { return std::tie(registrySm_); }
  void remove(RegistrySmIterator const& at);

  Nox::Input<NoxControllerdbConfig> controllerdbConfig_;
  StatusPtr controllerdbStatus_;
  Nox::Input<NoxRegistrationRootDir> registrationRootDir_;
  Nox::Input<NoxControllerStatus> controllerStatus_;
  PeerTablePtr heartbeatPeerTable_;
  ServiceConfigDirPtr serviceConfigDir_;
  OverrideDirPtr overrideServiceConfigDir_;
  DirPtr allClientsServiceStatusDir_;
  MountsTablePtr publishedMountsTable_;
  RegistrySmMap registrySm_{1};

  using T = RegistryRootSm;

 public:
  /// What it is built from.
  using Inputs = Nox::Inputs<&T::controllerdbConfig_, &T::controllerdbStatus_, &T::registrationRootDir_,
                             &T::controllerStatus_, &T::heartbeatPeerTable_, &T::serviceConfigDir_,
                             &T::overrideServiceConfigDir_, &T::allClientsServiceStatusDir_, &T::publishedMountsTable_>;
  /// A function that makes a registry root of its inputs, given in their order.
  using Maker = Inputs::Function<Nox::ValidPtr<RegistryRootSm>>;
};

/// Makes a registry root, runs its first pass and switches it on. The inputs may be null; what is null is skipped.
NOX_EXPORT RegistryRootSm::Maker registryRootSmFactory;

}  // namespace Controllerdb
