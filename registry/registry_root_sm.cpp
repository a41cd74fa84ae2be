// The registry root: what it does when a registration directory is added or removed, and when the agent's `enabled`
// changes.
#include "registry/registry_root_sm.h"

#include "framework/text/assertion_about.h"
#include "registry/trace.h"

namespace Controllerdb {

using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;

RegistryRootSm::RegistryRootSm(ConfigPtr const& controllerdbConfig, StatusPtr const& controllerdbStatus,
                               DirPtr const& registrationRootDir, ControllerStatusPtr const& controllerStatus,
                               PeerTablePtr const& heartbeatPeerTable, ServiceConfigDirPtr const& serviceConfigDir,
                               OverrideDirPtr const& overrideServiceConfigDir, DirPtr const& allClientsServiceStatusDir,
                               MountsTablePtr const& publishedMountsTable) {
  Inputs::start(*this,
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

/// Does not run `doCleanup`: the all-clients service status directory keeps its entries, which the next root empties.
RegistryRootSm::~RegistryRootSm() {
  noxDoZombieReactors(true);
  orphanReactors();
  registrySmDelAll();
}

ValidPtr<RegistryRootSm> registryRootSmFactory(RegistryRootSm::ConfigPtr const& controllerdbConfig,
                                               RegistryRootSm::StatusPtr const& controllerdbStatus,
                                               RegistryRootSm::DirPtr const& registrationRootDir,
                                               RegistryRootSm::ControllerStatusPtr const& controllerStatus,
                                               RegistryRootSm::PeerTablePtr const& heartbeatPeerTable,
                                               RegistryRootSm::ServiceConfigDirPtr const& serviceConfigDir,
                                               RegistryRootSm::OverrideDirPtr const& overrideServiceConfigDir,
                                               RegistryRootSm::DirPtr const& allClientsServiceStatusDir,
                                               RegistryRootSm::MountsTablePtr const& publishedMountsTable) {
  Nox::Turn turn;
  ValidPtr<RegistryRootSm> sm = Nox::make<RegistryRootSm>(controllerdbConfig,
                                                          controllerdbStatus,
                                                          registrationRootDir,
                                                          controllerStatus,
                                                          heartbeatPeerTable,
                                                          serviceConfigDir,
                                                          overrideServiceConfigDir,
                                                          allClientsServiceStatusDir,
                                                          publishedMountsTable);
  sm->handleInitialized();
  sm->hasNotificationActiveIs(true);
  return sm;
}

// The collection of switch registries.

ValidPtr<SwitchRegistrySm> RegistryRootSm::registrySmIs(Name const& name, DirPtr const& switchDir,
                                                        ServiceStatusDirPtr const& serviceStatusDir,
                                                        MountsTablePtr const& publishedMountsTable,
                                                        PeerTablePtr const& heartbeatPeerTable) {
  Nox::Turn turn;
  Ptr<SwitchRegistrySm> const member = registrySm(name);
  if (!member) return newRegistrySm(name, switchDir, serviceStatusDir, publishedMountsTable, heartbeatPeerTable);
  Nox::checkConstructorArgs(member->constructorArgs(),
                            std::tie(switchDir, serviceStatusDir, publishedMountsTable, heartbeatPeerTable),
                            SwitchRegistrySm::Inputs::names);
  return member;
}

ValidPtr<SwitchRegistrySm> RegistryRootSm::newRegistrySm(Name const& name, DirPtr const& switchDir,
                                                         ServiceStatusDirPtr const& serviceStatusDir,
                                                         MountsTablePtr const& publishedMountsTable,
                                                         PeerTablePtr const& heartbeatPeerTable) {
  Nox::Turn turn;
  ValidPtr<SwitchRegistrySm> member = SwitchRegistrySm::SwitchRegistrySmIs(
      name, switchDir, serviceStatusDir, publishedMountsTable, heartbeatPeerTable, this);
  registrySm_.newMember(member);
  member->hasNotificationActiveIs(true);
  return member;
}

void RegistryRootSm::registrySmDel(Name const& name) { remove(RegistrySmIterator(*this, registrySm_, name)); }

void RegistryRootSm::registrySmDelAll() {
  Nox::Turn turn(Nox::Turn::Reports::kLater);
  for (RegistrySmIterator at(*this, registrySm_); at; ++at) remove(at);
}

/// The removed machine is switched off before it is released. Its pointer to the root is cleared: the root may go
/// before it does.
void RegistryRootSm::remove(RegistrySmIterator const& at) {
  Nox::Turn turn(Nox::Turn::Reports::kLater);
  Ptr<SwitchRegistrySm> const member = registrySm_.deleteMember(at);
  if (!member) return;
  member->hasNotificationActiveIs(false);
  member->registryRootSmIs(nullptr);
}

// Handlers.

void RegistryRootSm::handleInitialized() {
  Nox::Turn const turn;
  TRACE_TEXT(8, 41, "void Controllerdb::RegistryRootSm::handleInitialized()");
  doCleanup();
  initializedIs(true);
  handleEnabled();
}

void RegistryRootSm::handleEnabled() {
  Nox::Turn const turn;
  if (!initialized()) return;
  TRACE(8, 49, "void Controllerdb::RegistryRootSm::handleEnabled()");
  ConfigPtr const config = controllerdbConfig();
  if (!config) return;
  bool const enabled = config->enabled();
  if (enabled)
    handleRegistration();
  else
    doCleanup();
  // Written after the work, and on every call: a reader that finds true finds the registrations served.
  if (controllerdbStatus_) controllerdbStatus_->enabledIs(enabled);
}

void RegistryRootSm::handleRegistration() {
  Nox::Turn const turn;
  TRACE(8, 62, "void Controllerdb::RegistryRootSm::handleRegistration()");
  if (!initialized()) {
    TRACE(8, 64, "registryRootSm uninitialized");
    return;
  }
  DirPtr const dir = registrationRootDir();
  if (!dir) return;
  for (auto at = dir->entityPtrIteratorConst(); at; ++at) handleRegistration(at->fwkKey());
}

/// Tests `initialized` only, deliberately: a directory that is added while the agent is disabled gets its machines all
/// the same, and loses them at the next cleanup.
void RegistryRootSm::handleRegistration(Name name) {
  Nox::Turn const turn;
  TRACE(8, 74, "void Controllerdb::RegistryRootSm::handleRegistration(Nox::Name)", " ", name);
  if (!initialized()) {
    TRACE(8, 76, "registryRootSm uninitialized");
    return;
  }
  DirPtr const dir = registrationRootDir();
  if (!dir) return;
  if (!dir->entityPtr(name)) {
    TRACE(8, 82, "entry deleted from registry ", name);
    registrySmDel(name);
    if (allClientsServiceStatusDir_) {
      allClientsServiceStatusDir_->entityPtrDel(name);
      allClientsServiceStatusDir_->entryDel(name);
    }
    return;
  }
  if (!dir->entry(name)) {
    TRACE(8, 91, "entry subdir added - not instantiated ", name);
    return;
  }
  TRACE(8, 94, "entry added in registry ", name);
  DirPtr const registrationDir = dir->entity<Nox::Dir>(name);
  NOX_ASSERT_ABOUT(registrationDir, "registrationDir", "switch", name.view());
  ServiceStatusDirPtr serviceStatusDir;
  if (allClientsServiceStatusDir_) {
    allClientsServiceStatusDir_->entryIs(name);
    allClientsServiceStatusDir_->newEntity(name, "Controller::ServiceStatusDir");
    serviceStatusDir = Nox::ptrCast<Controller::ServiceStatusDir>(allClientsServiceStatusDir_->entityPtr(name));
  }
  registrySmIs(name, registrationDir, serviceStatusDir, publishedMountsTable_, heartbeatPeerTable_);
}

void RegistryRootSm::doCleanup() {
  Nox::Turn const turn;
  TRACE(8, 109, "void Controllerdb::RegistryRootSm::doCleanup()");
  registrySmDelAll();
  if (!allClientsServiceStatusDir_) return;
  for (auto at = allClientsServiceStatusDir_->entryIterator(); at; ++at) {
    Name const name = at->name();
    allClientsServiceStatusDir_->entityPtrDel(name);
    allClientsServiceStatusDir_->entityRefDel(name);
    allClientsServiceStatusDir_->entryDel(name);
  }
}

}  // namespace Controllerdb
