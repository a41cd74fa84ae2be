// The root: the one entity through which an agent builds and owns the registry.
#pragma once

#include "framework/by_name/rows.h"
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
  /// The ids of the attributes.
  enum AttrId : Nox::AttributeId {
    nameId = Nox::kFirstAttribute,
    isNondestructingId,
    registrationRootDirId,
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
  // switches it on, and only releases the old one. `xDel` switches the machine off and returns it, or null. A `Maker`
  // is a function of the machine's inputs, in the order of its `Inputs`.

  Nox::Ptr<RegistryRootSm> const& registryRootSm() const noexcept { return registryRootSm_; }
  RegistryRootSm::Maker registryRootSmIs;
  RegistryRootSm::Maker newRegistryRootSm;
  Nox::Ptr<RegistryRootSm> registryRootSmDel() { return Nox::switchedOff(registryRootSm_); }

  using MountsRegistrySmPtr = Nox::Ptr<Controller::MountsRegistrySm>;
  using ConstControllerStatusPtr = Nox::Ptr<ControllerRegistration::ControllerStatus const>;
  MountsRegistrySmPtr const& mountsRegistrySm() const noexcept { return mountsRegistrySm_; }
  Controller::MountsRegistrySm::Maker mountsRegistrySmIs;
  Controller::MountsRegistrySm::Maker newMountsRegistrySm;
  MountsRegistrySmPtr mountsRegistrySmDel() { return Nox::switchedOff(mountsRegistrySm_); }

  using ServiceConfigDirSmPtr = Nox::Ptr<Controller::ServiceConfigDirSm>;
  ServiceConfigDirSmPtr const& serviceConfigDirSm() const noexcept { return serviceConfigDirSm_; }
  Controller::ServiceConfigDirSm::Maker serviceConfigDirSmIs;
  Controller::ServiceConfigDirSm::Maker newServiceConfigDirSm;
  ServiceConfigDirSmPtr serviceConfigDirSmDel() { return Nox::switchedOff(serviceConfigDirSm_); }

  using InitialMountSmPtr = Nox::Ptr<Controller::InitialMountSm>;
  using HeartbeatConfigPtr = Nox::Ptr<Controller::Heartbeat::Config const>;
  using ConstSwitchTablePtr = Nox::Ptr<Controller::RegisteredSwitchTable const>;
  using PeerTablePtr = Nox::Ptr<Controller::PeerTable const>;
  InitialMountSmPtr const& initialMountSm() const noexcept { return initialMountSm_; }
  Controller::InitialMountSm::Maker initialMountSmIs;
  Controller::InitialMountSm::Maker newInitialMountSm;
  InitialMountSmPtr initialMountSmDel() { return Nox::switchedOff(initialMountSm_); }

 private:
  DirPtr registrationRootDir_;
  Nox::Child<Controller::MountsRegistry> mountsRegistry_;
  Nox::Child<Controller::PublishedMountsTable> publishedMountsTable_;
  Nox::Child<Controller::RegisteredSwitchTable> registeredSwitchTable_;
  Nox::Ptr<RegistryRootSm> registryRootSm_;
  MountsRegistrySmPtr mountsRegistrySm_;
  ServiceConfigDirSmPtr serviceConfigDirSm_;
  InitialMountSmPtr initialMountSm_;
};

/// Makes a new root of that name, with every attribute null.
NOX_EXPORT Nox::Ptr<Root> rootFactory(Nox::Name name);

}  // namespace Controllerdb
