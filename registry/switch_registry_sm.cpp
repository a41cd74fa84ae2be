// One registration directory: when its switch is registered, and when it no longer is.
#include "registry/switch_registry_sm.h"

#include "framework/text/assertion_about.h"
#include "registry/registry_root_sm.h"
#include "registry/trace.h"

namespace Controllerdb {

using Nox::Name;
using Nox::ValidPtr;

SwitchRegistrySm::SwitchRegistrySm(Name const& name, DirPtr const& switchDir,
                                   ServiceStatusDirPtr const& serviceStatusDir,
                                   MountsTablePtr const& publishedMountsTable, PeerTablePtr const& heartbeatPeerTable,
                                   RegistryRootSm* registryRootSm)
    : name_(name), registryRootSm_(registryRootSm) {
  Inputs::start(*this, switchDir, serviceStatusDir, publishedMountsTable, heartbeatPeerTable);
}

SwitchRegistrySm::~SwitchRegistrySm() {
  noxDoZombieReactors(true);
  orphanReactors();
  configSmDel();
}

ValidPtr<SwitchRegistrySm> SwitchRegistrySm::SwitchRegistrySmIs(Name const& name, DirPtr const& switchDir,
                                                                ServiceStatusDirPtr const& serviceStatusDir,
                                                                MountsTablePtr const& publishedMountsTable,
                                                                PeerTablePtr const& heartbeatPeerTable,
                                                                RegistryRootSm* registryRootSm) {
  Nox::Turn turn;
  ValidPtr<SwitchRegistrySm> sm = Nox::make<SwitchRegistrySm>(
      name, switchDir, serviceStatusDir, publishedMountsTable, heartbeatPeerTable, registryRootSm);
  sm->handleInitialized();
  sm->hasNotificationActiveIs(true);
  return sm;
}

// The configuration machine.

ValidPtr<SwitchConfigSm> SwitchRegistrySm::configSmIs(
    SwitchConfigSm::ConfigPtr const& config, SwitchConfigSm::StatusPtr const& status,
    SwitchConfigSm::PeerTablePtr const& heartbeatPeerTable, SwitchConfigSm::ControllerStatusPtr const& controllerStatus,
    SwitchConfigSm::ServiceConfigDirPtr const& serviceConfigDir,
    SwitchConfigSm::OverrideDirPtr const& overrideServiceConfigDir, Nox::String8 const& controllerUUID,
    ServiceStatusDirPtr const& serviceStatusDir, Name const& switchId, MountsTablePtr const& publishedMountsTable) {
  return Nox::instantiateSwitchedOn(*this,
                                    configSm_,
                                    &SwitchRegistrySm::newConfigSm,
                                    config,
                                    status,
                                    heartbeatPeerTable,
                                    controllerStatus,
                                    serviceConfigDir,
                                    overrideServiceConfigDir,
                                    controllerUUID,
                                    serviceStatusDir,
                                    switchId,
                                    publishedMountsTable);
}

ValidPtr<SwitchConfigSm> SwitchRegistrySm::newConfigSm(
    SwitchConfigSm::ConfigPtr const& config, SwitchConfigSm::StatusPtr const& status,
    SwitchConfigSm::PeerTablePtr const& heartbeatPeerTable, SwitchConfigSm::ControllerStatusPtr const& controllerStatus,
    SwitchConfigSm::ServiceConfigDirPtr const& serviceConfigDir,
    SwitchConfigSm::OverrideDirPtr const& overrideServiceConfigDir, Nox::String8 const& controllerUUID,
    ServiceStatusDirPtr const& serviceStatusDir, Name const& switchId, MountsTablePtr const& publishedMountsTable) {
  return switchConfigSmFactory(config,
                               status,
                               heartbeatPeerTable,
                               controllerStatus,
                               serviceConfigDir,
                               overrideServiceConfigDir,
                               controllerUUID,
                               serviceStatusDir,
                               switchId,
                               publishedMountsTable,
                               this);
}

void SwitchRegistrySm::configSmDel() { Nox::switchedOff(configSm_); }

// Handlers.

void SwitchRegistrySm::handleInitialized() {
  Nox::Turn const turn;
  if (initialized()) return;
  initializedIs(true);
  handleEntry();
}

void SwitchRegistrySm::handleEntry() {
  Nox::Turn const turn;
  TRACE_TEXT(8, 151, "void Controllerdb::SwitchRegistrySm::handleEntry()");
  if (!initialized()) {
    TRACE(8, 153, "registrySm uninitialized");
    return;
  }
  DirPtr const dir = switchDir();
  if (!dir) return;
  for (auto at = dir->entityPtrIteratorConst(); at; ++at) handleEntry(at->fwkKey());
}

void SwitchRegistrySm::handleEntry(Name entry) {
  Nox::Turn const turn;
  TRACE(8, 162, "void Controllerdb::SwitchRegistrySm::handleEntry(Nox::Name)", " ", entry);
  if (!initialized()) {
    TRACE(8, 164, "registrySm uninitialized");
    return;
  }
  DirPtr const dir = switchDir();
  if (!dir) return;
  if (!dir->entityPtr(entry)) {
    // Any entry will do, deliberately: losing one that means nothing here unregisters the switch too, until the next
    // notification.
    TRACE_TEXT(3, 171, entry, " entry deleted");
    TRACE_RING(3, 172, "handleEntry", " un-registered switch:", name_);
    configSmDel();
    return;
  }
  if (!dir->entry(entry)) {
    TRACE(8, 177, entry, " subdir added but not instantiated");
    return;
  }
  TRACE(8, 180, entry, " entry added in registry ");
  static Name const configName("config");
  static Name const statusName("status");
  if (!dir->entry(configName) || !dir->entry(statusName)) return;  // the other one's notification comes back here
  SwitchConfigSm::ConfigPtr const config = dir->entity<ControllerRegistration::SwitchConfig>(configName);
  SwitchConfigSm::StatusPtr const status = dir->entity<ControllerRegistration::SwitchStatus>(statusName);
  NOX_ASSERT_ABOUT(config, "config", "switch", name_.view());
  NOX_ASSERT_ABOUT(status, "status", "switch", name_.view());
  TRACE_RING_TEXT(__func__, 3, 186, 187, "handleEntry", " registered switch: ", name_);
  if (registryRootSm_ == nullptr) return;  // left its root: there is no table to enter the switch into
  RegistryRootSm const& root = *registryRootSm_;
  configSmIs(config,
             status,
             heartbeatPeerTable_,
             root.controllerStatus(),
             root.serviceConfigDir(),
             root.overrideServiceConfigDir(),
             root.controllerdbStatus() ? root.controllerdbStatus()->controllerUUID() : Nox::String8(),
             serviceStatusDir_,
             name_,
             publishedMountsTable_);
}

}  // namespace Controllerdb
