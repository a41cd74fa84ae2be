// One registration directory: a switch is registered while its directory holds "config" and "status".
#pragma once

#include "framework/core/dir.h"
#include "framework/core/state_machine.h"
#include "records/registration.h"
#include "registry/switch_config_sm.h"

namespace Controllerdb {

class RegistryRootSm;

/// Watches one registration directory and keeps the switch's configuration machine while it is registered. Member of
/// the registry root's collection, under the directory's name.
class NOX_EXPORT SwitchRegistrySm final : public Nox::StateMachine<SwitchRegistrySm>, public Nox::HashMapLink {
 public:
  /// The registration directory: any entry that goes unregisters the switch.
  class NoxSwitchDir final : public Nox::Reactor<SwitchRegistrySm, Nox::Dir> {
   public:
    using Reactor::Reactor;
    void switchRegistrySmIs(SwitchRegistrySm* sm) noexcept { smIs(sm); }
    void onEntityPtr(Nox::Name name) override {
      if (auto sm = live()) sm->handleEntry(name);
    }
    void onEntityPtrnoxImmediate() override {
      if (auto sm = live()) sm->handleEntry();
    }

   protected:
    void handleNotifier(SwitchRegistrySm& sm) override { sm.handleEntry(); }
  };

  using DirPtr = Nox::Ptr<Nox::Dir>;
  using ServiceStatusDirPtr = Nox::Ptr<Controller::ServiceStatusDir>;
  using MountsTablePtr = Nox::Ptr<Controller::PublishedMountsTable const>;
  using PeerTablePtr = Nox::Ptr<Controller::PeerTable const>;
  static Nox::NoxType noxType;

  /// Makes the machine, runs its first pass and switches it on. `registryRootSm` is the owner, not counted.
  static Nox::ValidPtr<SwitchRegistrySm> SwitchRegistrySmIs(Nox::Name const& name, DirPtr const& switchDir,
                                                            ServiceStatusDirPtr const& serviceStatusDir,
                                                            MountsTablePtr const& publishedMountsTable,
                                                            PeerTablePtr const& heartbeatPeerTable,
                                                            RegistryRootSm* registryRootSm);
  SwitchRegistrySm(Nox::Name const& name, DirPtr const& switchDir, ServiceStatusDirPtr const& serviceStatusDir,
                   MountsTablePtr const& publishedMountsTable, PeerTablePtr const& heartbeatPeerTable,
                   RegistryRootSm* registryRootSm);
  ~SwitchRegistrySm() override;

  Nox::Name const& name() const noexcept { return name_; }
  Nox::Name const& fwkKey() const noexcept { return name_; }

  DirPtr switchDir() const { return switchDir_.get(); }
  /// Points the present reactor at the other directory, which runs its pass.
  void switchDirIs(DirPtr const& dir) { switchDir_.repoint(*this, dir); }
  void switchDirDel() { switchDir_.retire(); }
  auto newSwitchDir(DirPtr const& dir) { return newReactor<NoxSwitchDir>(dir); }

  ServiceStatusDirPtr const& serviceStatusDir() const noexcept { return serviceStatusDir_; }
  MountsTablePtr const& publishedMountsTable() const noexcept { return publishedMountsTable_; }
  PeerTablePtr const& heartbeatPeerTable() const noexcept { return heartbeatPeerTable_; }
  /// The owner; null once this machine has left its collection.
  RegistryRootSm* registryRootSm() const noexcept { return registryRootSm_; }
  void registryRootSmIs(RegistryRootSm* sm) noexcept { registryRootSm_ = sm; }

  /// The switch's configuration machine; null while the switch is not registered.
  Nox::Ptr<SwitchConfigSm> const& configSm() const noexcept { return configSm_; }
  /// Keeps the machine that was built from these arguments; otherwise builds another and only releases the old one: its
  /// clean-up then removes the rows that the new one has just written, and they stay away until the next pass.
  /// Deliberate.
  SwitchConfigSm::Maker configSmIs;
  SwitchConfigSm::Maker newConfigSm;
  /// Takes the machine out, switches it off and releases it.
  void configSmDel();

  // Handlers.

  void handleInitialized();
  void handleEntry();
  void handleEntry(Nox::Name entry);

 private:
  friend class Nox::StateMachine<SwitchRegistrySm>;
  auto childSms() { return std::tie(configSm_); }

  Nox::Name name_;
  Nox::Input<NoxSwitchDir> switchDir_;
  ServiceStatusDirPtr serviceStatusDir_;
  MountsTablePtr publishedMountsTable_;
  PeerTablePtr heartbeatPeerTable_;
  RegistryRootSm* registryRootSm_;
  Nox::Ptr<SwitchConfigSm> configSm_;

  using T = SwitchRegistrySm;

 public:
  /// What it is built from, and beside it its name and its owner, which are not compared.
  using Inputs = Nox::Inputs<&T::switchDir_, &T::serviceStatusDir_, &T::publishedMountsTable_, &T::heartbeatPeerTable_>;
};

}  // namespace Controllerdb
