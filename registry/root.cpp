// The root: how its attributes are made and kept, and the order in which it releases them.
#include "registry/root.h"

namespace Controllerdb {

using Controller::InitialMountSm;
using Controller::MountsRegistry;
using Controller::MountsRegistrySm;
using Controller::PublishedMountsTable;
using Controller::RegisteredSwitchTable;
using Controller::ServiceConfigDirSm;
using Nox::ValidPtr;

Nox::Ptr<Root> rootFactory(Nox::Name name) { return Root::RootIs(name); }

/// The tables are unlinked before the machines that write into them are switched off.
Root::~Root() {
  mountsRegistryDel();
  publishedMountsTableDel();
  registeredSwitchTableDel();
  registryRootSmDel();
  mountsRegistrySmDel();
  serviceConfigDirSmDel();
  initialMountSmDel();
}

ValidPtr<MountsRegistry> Root::mountsRegistryIs(DirPtr const& registryDir, Nox::String8 const& registryDirPath,
                                                DirPtr const& rootDir, Nox::String8 const& remoteRootPath,
                                                unsigned reconnectRetries, Nox::Seconds mountTimeout) {
  if (MountsRegistryPtr const& held = mountsRegistry();
      held && held->constructorArgs() ==
                  std::tie(registryDir, registryDirPath, rootDir, remoteRootPath, reconnectRetries, mountTimeout))
    return held;
  return mountsRegistry_.put(
      *this,
      mountsRegistryId,
      newMountsRegistry(registryDir, registryDirPath, rootDir, remoteRootPath, reconnectRetries, mountTimeout));
}

ValidPtr<MountsRegistry> Root::newMountsRegistry(DirPtr const& registryDir, Nox::String8 const& registryDirPath,
                                                 DirPtr const& rootDir, Nox::String8 const& remoteRootPath,
                                                 unsigned reconnectRetries, Nox::Seconds mountTimeout) {
  ValidPtr<MountsRegistry> made =
      Nox::make<MountsRegistry>(registryDir, registryDirPath, rootDir, remoteRootPath, reconnectRetries, mountTimeout);
  made->parentAttrIdIs(mountsRegistryId);
  made->parentIs(Nox::Ptr<Nox::Entity>(this));
  return made;
}

ValidPtr<PublishedMountsTable> Root::publishedMountsTableIs() {
  if (publishedMountsTable()) return publishedMountsTable();
  return newPublishedMountsTable();
}
ValidPtr<PublishedMountsTable> Root::newPublishedMountsTable() {
  return publishedMountsTable_.put(
      *this, publishedMountsTableId, Nox::make<PublishedMountsTable>("publishedMountsTable"));
}

ValidPtr<RegisteredSwitchTable> Root::registeredSwitchTableIs() {
  if (registeredSwitchTable()) return registeredSwitchTable();
  return newRegisteredSwitchTable();
}
ValidPtr<RegisteredSwitchTable> Root::newRegisteredSwitchTable() {
  return registeredSwitchTable_.put(
      *this, registeredSwitchTableId, Nox::make<RegisteredSwitchTable>("registeredSwitchTable"));
}

ValidPtr<RegistryRootSm> Root::registryRootSmIs(
    RegistryRootSm::ConfigPtr const& controllerdbConfig, RegistryRootSm::StatusPtr const& controllerdbStatus,
    DirPtr const& registrationRootDir, RegistryRootSm::ControllerStatusPtr const& controllerStatus,
    RegistryRootSm::PeerTablePtr const& heartbeatPeerTable, RegistryRootSm::ServiceConfigDirPtr const& serviceConfigDir,
    RegistryRootSm::OverrideDirPtr const& overrideServiceConfigDir, DirPtr const& allClientsServiceStatusDir,
    RegistryRootSm::MountsTablePtr const& publishedMountsTable) {
  return Nox::instantiateSwitchedOn(*this,
                                    registryRootSm_,
                                    &Root::newRegistryRootSm,
                                    controllerdbConfig,
                                    controllerdbStatus,
                                    registrationRootDir,
                                    controllerStatus,
                                    heartbeatPeerTable,
                                    serviceConfigDir,
                                    overrideServiceConfigDir,
                                    allClientsServiceStatusDir,
                                    publishedMountsTable);
}
ValidPtr<RegistryRootSm> Root::newRegistryRootSm(
    RegistryRootSm::ConfigPtr const& controllerdbConfig, RegistryRootSm::StatusPtr const& controllerdbStatus,
    DirPtr const& registrationRootDir, RegistryRootSm::ControllerStatusPtr const& controllerStatus,
    RegistryRootSm::PeerTablePtr const& heartbeatPeerTable, RegistryRootSm::ServiceConfigDirPtr const& serviceConfigDir,
    RegistryRootSm::OverrideDirPtr const& overrideServiceConfigDir, DirPtr const& allClientsServiceStatusDir,
    RegistryRootSm::MountsTablePtr const& publishedMountsTable) {
  return registryRootSmFactory(controllerdbConfig,
                               controllerdbStatus,
                               registrationRootDir,
                               controllerStatus,
                               heartbeatPeerTable,
                               serviceConfigDir,
                               overrideServiceConfigDir,
                               allClientsServiceStatusDir,
                               publishedMountsTable);
}

ValidPtr<MountsRegistrySm> Root::mountsRegistrySmIs(MountsRegistryPtr const& mountsRegistry,
                                                    ConstControllerStatusPtr const& controllerStatus,
                                                    DirPtr const& serviceMountStatusDir,
                                                    MountsTablePtr const& publishedMountsTable,
                                                    SwitchTablePtr const& registeredSwitchTable,
                                                    ConstDirPtr const& allClientsServiceStatusDir) {
  return Nox::instantiateSwitchedOn(*this,
                                    mountsRegistrySm_,
                                    &Root::newMountsRegistrySm,
                                    mountsRegistry,
                                    controllerStatus,
                                    serviceMountStatusDir,
                                    publishedMountsTable,
                                    registeredSwitchTable,
                                    allClientsServiceStatusDir);
}
ValidPtr<MountsRegistrySm> Root::newMountsRegistrySm(MountsRegistryPtr const& mountsRegistry,
                                                     ConstControllerStatusPtr const& controllerStatus,
                                                     DirPtr const& serviceMountStatusDir,
                                                     MountsTablePtr const& publishedMountsTable,
                                                     SwitchTablePtr const& registeredSwitchTable,
                                                     ConstDirPtr const& allClientsServiceStatusDir) {
  return MountsRegistrySm::MountsRegistrySmIs(mountsRegistry,
                                              controllerStatus,
                                              serviceMountStatusDir,
                                              publishedMountsTable,
                                              registeredSwitchTable,
                                              allClientsServiceStatusDir);
}

ValidPtr<ServiceConfigDirSm> Root::serviceConfigDirSmIs(ConstDirPtr const& mountConfigDir, DirPtr const& mountStatusDir,
                                                        ConstDirPtr const& publishConfigDir,
                                                        DirPtr const& publishStatusDir,
                                                        MountsTablePtr const& publishedMountsTable,
                                                        MountsRegistryPtr const& mountsRegistry) {
  return Nox::instantiateSwitchedOn(*this,
                                    serviceConfigDirSm_,
                                    &Root::newServiceConfigDirSm,
                                    mountConfigDir,
                                    mountStatusDir,
                                    publishConfigDir,
                                    publishStatusDir,
                                    publishedMountsTable,
                                    mountsRegistry);
}
ValidPtr<ServiceConfigDirSm> Root::newServiceConfigDirSm(ConstDirPtr const& mountConfigDir,
                                                         DirPtr const& mountStatusDir,
                                                         ConstDirPtr const& publishConfigDir,
                                                         DirPtr const& publishStatusDir,
                                                         MountsTablePtr const& publishedMountsTable,
                                                         MountsRegistryPtr const& mountsRegistry) {
  return ServiceConfigDirSm::ServiceConfigDirSmIs(
      mountConfigDir, mountStatusDir, publishConfigDir, publishStatusDir, publishedMountsTable, mountsRegistry);
}

ValidPtr<InitialMountSm> Root::initialMountSmIs(ConstDirPtr const& mountConfigDir, DirPtr const& mountStatusDir,
                                                HeartbeatConfigPtr const& heartbeatConfig,
                                                ConstSwitchTablePtr const& registeredSwitchTable,
                                                PeerTablePtr const& peerTable) {
  return Nox::instantiateSwitchedOn(*this,
                                    initialMountSm_,
                                    &Root::newInitialMountSm,
                                    mountConfigDir,
                                    mountStatusDir,
                                    heartbeatConfig,
                                    registeredSwitchTable,
                                    peerTable);
}
ValidPtr<InitialMountSm> Root::newInitialMountSm(ConstDirPtr const& mountConfigDir, DirPtr const& mountStatusDir,
                                                 HeartbeatConfigPtr const& heartbeatConfig,
                                                 ConstSwitchTablePtr const& registeredSwitchTable,
                                                 PeerTablePtr const& peerTable) {
  return InitialMountSm::InitialMountSmIs(
      mountConfigDir, mountStatusDir, heartbeatConfig, registeredSwitchTable, peerTable);
}

}  // namespace Controllerdb
