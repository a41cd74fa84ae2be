// The root: the one entity through which an agent builds and owns the registry.
#pragma once

#include "framework/core/dir.h"
#include "framework/core/state_machine.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/siblings.h"
#include "registry/registry_root_sm.h"

namespace Controllerdb {

/// Owns the tables and the top state machines. Empty at first; the agent sets each attribute in the order it likes, but
/// for the tables and the mounts registry, which the machines take as arguments. It reacts to nothing.
class NOX_EXPORT Root final : public Nox::Typed<Root, Nox::Entity> {
 public:
  enum AttrId : Nox::AttributeId {
    registrationRootDirId = 258,
    mountsRegistryId,
    publishedMountsTableId,
    registeredSwitchTableId,
    registryRootSmId,
    mountsRegistrySmId,
    serviceConfigDirSmId,
    initialMountSmId
  };
  using DirPtr = Nox::Ptr<Nox::Dir>;
  using ConstDirPtr = Nox::Ptr<Nox::Dir const>;
  using MountsRegistryPtr = Nox::Ptr<Controller::MountsRegistry>;
  using MountsTablePtr = Nox::Ptr<Controller::PublishedMountsTable>;
  using SwitchTablePtr = Nox::Ptr<Controller::RegisteredSwitchTable>;
  static Nox::NoxType noxType;

  /// A new root of that name, with every attribute null.
  static Nox::ValidPtr<Root> RootIs(Nox::Name const& name) { return Nox::make<Root>(name); }
  using Typed::Typed;
  ~Root() override;

  DirPtr const& registrationRootDir() const noexcept { return registrationRootDir_; }
  void registrationRootDirIs(DirPtr const& dir) { registrationRootDir_ = dir; }

  // The children that are entities. `xIs` keeps what was made from the same arguments; `xDel` returns what it removed,
  // or null.

  MountsRegistryPtr const& mountsRegistry() const noexcept { return mountsRegistry_.get(); }
  /// `mountTimeout` is in seconds.
  Nox::ValidPtr<Controller::MountsRegistry> mountsRegistryIs(DirPtr const& registryDir,
                                                             Nox::String8 const& registryDirPath, DirPtr const& rootDir,
                                                             Nox::String8 const& remoteRootPath,
                                                             unsigned reconnectRetries, Nox::Seconds mountTimeout);
  /// Makes a mounts registry whose parent is the root, and leaves the attribute as it is: the caller that keeps it
  /// clears its parent before the root goes.
  Nox::ValidPtr<Controller::MountsRegistry> newMountsRegistry(DirPtr const& registryDir,
                                                              Nox::String8 const& registryDirPath,
                                                              DirPtr const& rootDir, Nox::String8 const& remoteRootPath,
                                                              unsigned reconnectRetries, Nox::Seconds mountTimeout);
  MountsRegistryPtr mountsRegistryDel() { return mountsRegistry_.take(); }

  MountsTablePtr const& publishedMountsTable() const noexcept { return publishedMountsTable_.get(); }
  Nox::ValidPtr<Controller::PublishedMountsTable> publishedMountsTableIs();
  Nox::ValidPtr<Controller::PublishedMountsTable> newPublishedMountsTable();
  MountsTablePtr publishedMountsTableDel() { return publishedMountsTable_.take(); }

  SwitchTablePtr const& registeredSwitchTable() const noexcept { return registeredSwitchTable_.get(); }
  Nox::ValidPtr<Controller::RegisteredSwitchTable> registeredSwitchTableIs();
  Nox::ValidPtr<Controller::RegisteredSwitchTable> newRegisteredSwitchTable();
  SwitchTablePtr registeredSwitchTableDel() { return registeredSwitchTable_.take(); }

  // The state machines. `xIs` keeps the machine that was built from the same arguments; otherwise it builds another,
  // switches it on, and only releases the old one. `xDel` switches the machine off and returns it, or null.

  Nox::Ptr<RegistryRootSm> const& registryRootSm() const noexcept { return registryRootSm_; }
  Nox::ValidPtr<RegistryRootSm> registryRootSmIs(RegistryRootSm::ConfigPtr const& controllerdbConfig,
                                                 RegistryRootSm::StatusPtr const& controllerdbStatus,
                                                 DirPtr const& registrationRootDir,
                                                 RegistryRootSm::ControllerStatusPtr const& controllerStatus,
                                                 RegistryRootSm::PeerTablePtr const& heartbeatPeerTable,
                                                 RegistryRootSm::ServiceConfigDirPtr const& serviceConfigDir,
                                                 RegistryRootSm::OverrideDirPtr const& overrideServiceConfigDir,
                                                 DirPtr const& allClientsServiceStatusDir,
                                                 RegistryRootSm::MountsTablePtr const& publishedMountsTable);
  Nox::ValidPtr<RegistryRootSm> newRegistryRootSm(RegistryRootSm::ConfigPtr const& controllerdbConfig,
                                                  RegistryRootSm::StatusPtr const& controllerdbStatus,
                                                  DirPtr const& registrationRootDir,
                                                  RegistryRootSm::ControllerStatusPtr const& controllerStatus,
                                                  RegistryRootSm::PeerTablePtr const& heartbeatPeerTable,
                                                  RegistryRootSm::ServiceConfigDirPtr const& serviceConfigDir,
                                                  RegistryRootSm::OverrideDirPtr const& overrideServiceConfigDir,
                                                  DirPtr const& allClientsServiceStatusDir,
                                                  RegistryRootSm::MountsTablePtr const& publishedMountsTable);
  Nox::Ptr<RegistryRootSm> registryRootSmDel() { return Nox::switchedOff(registryRootSm_); }

  using MountsRegistrySmPtr = Nox::Ptr<Controller::MountsRegistrySm>;
  using ConstControllerStatusPtr = Nox::Ptr<ControllerRegistration::ControllerStatus const>;
  MountsRegistrySmPtr const& mountsRegistrySm() const noexcept { return mountsRegistrySm_; }
  Nox::ValidPtr<Controller::MountsRegistrySm> mountsRegistrySmIs(MountsRegistryPtr const& mountsRegistry,
                                                                 ConstControllerStatusPtr const& controllerStatus,
                                                                 DirPtr const& serviceMountStatusDir,
                                                                 MountsTablePtr const& publishedMountsTable,
                                                                 SwitchTablePtr const& registeredSwitchTable,
                                                                 ConstDirPtr const& allClientsServiceStatusDir);
  Nox::ValidPtr<Controller::MountsRegistrySm> newMountsRegistrySm(MountsRegistryPtr const& mountsRegistry,
                                                                  ConstControllerStatusPtr const& controllerStatus,
                                                                  DirPtr const& serviceMountStatusDir,
                                                                  MountsTablePtr const& publishedMountsTable,
                                                                  SwitchTablePtr const& registeredSwitchTable,
                                                                  ConstDirPtr const& allClientsServiceStatusDir);
  MountsRegistrySmPtr mountsRegistrySmDel() { return Nox::switchedOff(mountsRegistrySm_); }

  using ServiceConfigDirSmPtr = Nox::Ptr<Controller::ServiceConfigDirSm>;
  ServiceConfigDirSmPtr const& serviceConfigDirSm() const noexcept { return serviceConfigDirSm_; }
  Nox::ValidPtr<Controller::ServiceConfigDirSm> serviceConfigDirSmIs(ConstDirPtr const& mountConfigDir,
                                                                     DirPtr const& mountStatusDir,
                                                                     ConstDirPtr const& publishConfigDir,
                                                                     DirPtr const& publishStatusDir,
                                                                     MountsTablePtr const& publishedMountsTable,
                                                                     MountsRegistryPtr const& mountsRegistry);
  Nox::ValidPtr<Controller::ServiceConfigDirSm> newServiceConfigDirSm(ConstDirPtr const& mountConfigDir,
                                                                      DirPtr const& mountStatusDir,
                                                                      ConstDirPtr const& publishConfigDir,
                                                                      DirPtr const& publishStatusDir,
                                                                      MountsTablePtr const& publishedMountsTable,
                                                                      MountsRegistryPtr const& mountsRegistry);
  ServiceConfigDirSmPtr serviceConfigDirSmDel() { return Nox::switchedOff(serviceConfigDirSm_); }

  using InitialMountSmPtr = Nox::Ptr<Controller::InitialMountSm>;
  using HeartbeatConfigPtr = Nox::Ptr<Controller::Heartbeat::Config const>;
  using ConstSwitchTablePtr = Nox::Ptr<Controller::RegisteredSwitchTable const>;
  using PeerTablePtr = Nox::Ptr<Controller::PeerTable const>;
  InitialMountSmPtr const& initialMountSm() const noexcept { return initialMountSm_; }
  Nox::ValidPtr<Controller::InitialMountSm> initialMountSmIs(ConstDirPtr const& mountConfigDir,
                                                             DirPtr const& mountStatusDir,
                                                             HeartbeatConfigPtr const& heartbeatConfig,
                                                             ConstSwitchTablePtr const& registeredSwitchTable,
                                                             PeerTablePtr const& peerTable);
  Nox::ValidPtr<Controller::InitialMountSm> newInitialMountSm(ConstDirPtr const& mountConfigDir,
                                                              DirPtr const& mountStatusDir,
                                                              HeartbeatConfigPtr const& heartbeatConfig,
                                                              ConstSwitchTablePtr const& registeredSwitchTable,
                                                              PeerTablePtr const& peerTable);
  InitialMountSmPtr initialMountSmDel() { return Nox::switchedOff(initialMountSm_); }

 private:
  DirPtr registrationRootDir_;
  Nox::Child<Controller::MountsRegistry, mountsRegistryId> mountsRegistry_;
  Nox::Child<Controller::PublishedMountsTable, publishedMountsTableId> publishedMountsTable_;
  Nox::Child<Controller::RegisteredSwitchTable, registeredSwitchTableId> registeredSwitchTable_;
  Nox::Ptr<RegistryRootSm> registryRootSm_;
  MountsRegistrySmPtr mountsRegistrySm_;
  ServiceConfigDirSmPtr serviceConfigDirSm_;
  InitialMountSmPtr initialMountSm_;
};

/// The exported way in: a new, empty root of that name.
NOX_EXPORT Nox::Ptr<Root> rootFactory(Nox::Name name);

}  // namespace Controllerdb
