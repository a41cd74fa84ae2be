// The sibling libraries' machines: the order in which each is built.
#include "records/siblings.h"

namespace Controller {

using Nox::Dir;
using Nox::NoxType;
using Nox::Ptr;
using Nox::ValidPtr;

constinit NoxType MountsRegistryEntrySm::noxType{"Controller::MountsRegistryEntrySm", nullptr, nullptr};
constinit NoxType PublishRegistryEntrySm::noxType{"Controller::PublishRegistryEntrySm", nullptr, nullptr};
constinit NoxType ConnectionServiceStatusDirSm::noxType{"Controller::ConnectionServiceStatusDirSm", nullptr, nullptr};
constinit NoxType ServiceMountConfigSm::noxType{"Controller::ServiceMountConfigSm", nullptr, nullptr};
constinit NoxType ServicePublishConfigSm::noxType{"Controller::ServicePublishConfigSm", nullptr, nullptr};
constinit NoxType ServiceInitialMountSm::noxType{"Controller::ServiceInitialMountSm", nullptr, nullptr};
constinit NoxType MountsRegistrySm::noxType{"Controller::MountsRegistrySm", nullptr, nullptr};
constinit NoxType ServiceConfigDirSm::noxType{"Controller::ServiceConfigDirSm", nullptr, nullptr};
constinit NoxType InitialMountSm::noxType{"Controller::InitialMountSm", nullptr, nullptr};

MountsRegistrySm::MountsRegistrySm(MountsRegistryPtr const& mountsRegistry, ControllerStatusPtr const& controllerStatus,
                                   Ptr<Dir> const& serviceMountStatusDir,
                                   Ptr<PublishedMountsTable> const& publishedMountsTable,
                                   Ptr<RegisteredSwitchTable> const& registeredSwitchTable,
                                   Ptr<Dir const> const& allClientsServiceStatusDir) {
  Inputs::start(*this,
                mountsRegistry,
                controllerStatus,
                serviceMountStatusDir,
                publishedMountsTable,
                registeredSwitchTable,
                allClientsServiceStatusDir);
}

MountsRegistrySm::~MountsRegistrySm() {
  noxDoZombieReactors(true);
  orphanReactors();
}

void MountsRegistrySm::handleInitialized() {
  Nox::Turn const turn;
  initializedIs(true);
}

ValidPtr<MountsRegistrySm> MountsRegistrySm::MountsRegistrySmIs(MountsRegistryPtr const& mountsRegistry,
                                                                ControllerStatusPtr const& controllerStatus,
                                                                Ptr<Dir> const& serviceMountStatusDir,
                                                                Ptr<PublishedMountsTable> const& publishedMountsTable,
                                                                Ptr<RegisteredSwitchTable> const& registeredSwitchTable,
                                                                Ptr<Dir const> const& allClientsServiceStatusDir) {
  Nox::Turn const turn;
  ValidPtr<MountsRegistrySm> sm = Nox::make<MountsRegistrySm>(mountsRegistry,
                                                              controllerStatus,
                                                              serviceMountStatusDir,
                                                              publishedMountsTable,
                                                              registeredSwitchTable,
                                                              allClientsServiceStatusDir);
  sm->handleMountEntry();
  sm->handlePublishEntry();
  sm->handleClientStatus();
  sm->handleInitialized();
  return sm;
}

ServiceConfigDirSm::ServiceConfigDirSm(Ptr<Dir const> const& mountConfigDir, Ptr<Dir> const& mountStatusDir,
                                       Ptr<Dir const> const& publishConfigDir, Ptr<Dir> const& publishStatusDir,
                                       Ptr<PublishedMountsTable> const& publishedMountsTable,
                                       Ptr<MountsRegistry> const& mountsRegistry) {
  Inputs::start(
      *this, mountConfigDir, mountStatusDir, publishConfigDir, publishStatusDir, publishedMountsTable, mountsRegistry);
}

ServiceConfigDirSm::~ServiceConfigDirSm() {
  noxDoZombieReactors(true);
  orphanReactors();
}

void ServiceConfigDirSm::handleInitialized() {
  Nox::Turn const turn;
  initializedIs(true);
}

ValidPtr<ServiceConfigDirSm> ServiceConfigDirSm::ServiceConfigDirSmIs(
    Ptr<Dir const> const& mountConfigDir, Ptr<Dir> const& mountStatusDir, Ptr<Dir const> const& publishConfigDir,
    Ptr<Dir> const& publishStatusDir, Ptr<PublishedMountsTable> const& publishedMountsTable,
    Ptr<MountsRegistry> const& mountsRegistry) {
  Nox::Turn const turn;
  ValidPtr<ServiceConfigDirSm> sm = Nox::make<ServiceConfigDirSm>(
      mountConfigDir, mountStatusDir, publishConfigDir, publishStatusDir, publishedMountsTable, mountsRegistry);
  sm->handleInitialized();
  return sm;
}

InitialMountSm::InitialMountSm(Ptr<Dir const> const& mountConfigDir, Ptr<Dir> const& mountStatusDir,
                               Ptr<Heartbeat::Config const> const& heartbeatConfig,
                               Ptr<RegisteredSwitchTable const> const& registeredSwitchTable,
                               Ptr<PeerTable const> const& peerTable) {
  Inputs::start(*this, mountConfigDir, mountStatusDir, heartbeatConfig, registeredSwitchTable, peerTable);
}

InitialMountSm::~InitialMountSm() {
  noxDoZombieReactors(true);
  orphanReactors();
}

void InitialMountSm::handleInitialized() {
  Nox::Turn const turn;
  initializedIs(true);
}

ValidPtr<InitialMountSm> InitialMountSm::InitialMountSmIs(Ptr<Dir const> const& mountConfigDir,
                                                          Ptr<Dir> const& mountStatusDir,
                                                          Ptr<Heartbeat::Config const> const& heartbeatConfig,
                                                          Ptr<RegisteredSwitchTable const> const& registeredSwitchTable,
                                                          Ptr<PeerTable const> const& peerTable) {
  Nox::Turn const turn;
  ValidPtr<InitialMountSm> sm =
      Nox::make<InitialMountSm>(mountConfigDir, mountStatusDir, heartbeatConfig, registeredSwitchTable, peerTable);
  sm->handleInitialized();
  return sm;
}

}  // namespace Controller
