// One switch: construction, readiness, answers, clean-up.
#include "registry/switch_config_sm.h"

#include "registry/trace.h"

namespace Controllerdb {

using ControllerRegistration::SwitchConfig;
using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;

/// Delegates, so that a first pass that throws ends in the destructor: the rows that it has written go again.
SwitchConfigSm::SwitchConfigSm(ConfigPtr const& config, StatusPtr const& status, PeerTablePtr const& heartbeatPeerTable,
                               ControllerStatusPtr const& controllerStatus, ServiceConfigDirPtr const& serviceConfigDir,
                               OverrideDirPtr const& overrideServiceConfigDir, Nox::String8 const& controllerUUID,
                               ServiceStatusDirPtr const& serviceStatusDir, Name const& switchId,
                               MountsTablePtr const& publishedMountsTable, SwitchRegistrySm* switchRegistrySm)
    : SwitchConfigSm(switchRegistrySm) {
  Inputs::start(*this,
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
  handleServiceConfig();
  handleLocalServiceConfig();
  handleInitialized();
}

void SwitchConfigSm::followSystemId() {
  ConfigPtr const config = config_.get();
  if (auto const& reactor = heartbeatPeerTable_.reactor()) reactor->follow(config);
  if (auto const& reactor = publishedMountsTable_.reactor()) reactor->follow(config);
}

/// However the machine ends, the switch's rows leave the controller's table first.
SwitchConfigSm::~SwitchConfigSm() {
  Nox::Turn const turn(Nox::Turn::Reports::kLater);
  doCleanup();
  noxDoZombieReactors(true);
  orphanReactors();
  systemPublishSmDel();
}

ValidPtr<SwitchConfigSm> switchConfigSmFactory(
    SwitchConfigSm::ConfigPtr const& config, SwitchConfigSm::StatusPtr const& status,
    SwitchConfigSm::PeerTablePtr const& heartbeatPeerTable, SwitchConfigSm::ControllerStatusPtr const& controllerStatus,
    SwitchConfigSm::ServiceConfigDirPtr const& serviceConfigDir,
    SwitchConfigSm::OverrideDirPtr const& overrideServiceConfigDir, Nox::String8 const& controllerUUID,
    SwitchConfigSm::ServiceStatusDirPtr const& serviceStatusDir, Name const& switchId,
    SwitchConfigSm::MountsTablePtr const& publishedMountsTable, SwitchRegistrySm* switchRegistrySm) {
  Nox::Turn turn;
  ValidPtr<SwitchConfigSm> sm = Nox::make<SwitchConfigSm>(config,
                                                          status,
                                                          heartbeatPeerTable,
                                                          controllerStatus,
                                                          serviceConfigDir,
                                                          overrideServiceConfigDir,
                                                          controllerUUID,
                                                          serviceStatusDir,
                                                          switchId,
                                                          publishedMountsTable,
                                                          switchRegistrySm);
  sm->hasNotificationActiveIs(true);
  return sm;
}

void SwitchConfigSm::handleInitialized() {
  Nox::Turn const turn;
  if (initialized()) return;
  initializedIs(true);
  handleSwitchConfig();
}

bool SwitchConfigSm::switchReady() const {
  SwitchConfig const* const config = config_.raw();
  Controller::PeerTable const* const peers = heartbeatPeerTable_.raw();
  if (config == nullptr) return false;
  Nox::Entity const* const peer = peers != nullptr ? peers->peer().find(config->systemId()) : nullptr;
  TRACE_RING(5, 80, "switchReady", ": enabled ", config->enabled(), " peerTable ", peer != nullptr);
  TRACE_TEXT(5, 82, "switchReady", ": enabled ", config->enabled(), " peerTable ", peer);
  return config->enabled() && peer != nullptr;
}

void SwitchConfigSm::handleSwitchConfig() {
  Nox::Turn const turn;
  TRACE_TEXT(5, 89, "void Controllerdb::SwitchConfigSm::handleSwitchConfig()", " ", switchId_);
  TRACE_RING(5, 90, "handleSwitchConfig");
  if (!initialized()) {
    TRACE_TEXT_RING(__func__, 5, 92, 93, "handleSwitchConfig", " not initialized");
    return;
  }
  if (switchReady())
    answer(*config_.get());
  else
    shutDown();
}

/// The ready path. Every pass writes the same values again; only the flag's going and coming back is a change each
/// time.
void SwitchConfigSm::answer(SwitchConfig const& config) {
  for (NoxServiceConfigIterator at(*this, serviceConfig_); at; ++at) {
    Ptr<NoxServiceConfig> const member = at.member();
    member->handleEnabled();
  }
  TRACE_TEXT_RING("handleSwitchConfig", 5, 103, 104, "handleSwitchConfig", " ready");
  if (controllerStatus_) {
    controllerStatus_->switchConfigIs(config.systemId(), ConfigPtr(&config));
    if (status_) controllerStatus_->switchStatusIs(config.systemId(), status_);
    // Removed and written again on every pass, deliberately: a reactor that watches the flag hears of each.
    controllerStatus_->registeredSwitchDel(config.systemId());
    controllerStatus_->registeredSwitchIs(config.systemId(), true);
  }
  handleSystemPublish(config.systemId());
  if (status_) status_->clientShutdownAckIs(false);
  TRACE_RING_TEXT(
      "handleSwitchConfig", 3, 116, 117, "handleSwitchConfig", " sending uuid to switch: ", controllerUUID_);
  if (status_) status_->controllerUUIDIs(controllerUUID_);
  TRACE_TEXT_RING(
      "handleSwitchConfig", 1, 128, 130, "handleSwitchConfig", " reflecting genid:", config.registrationGenId());
  // Last, so that a switch that reads its own generation here finds the rest of its answer in place.
  if (status_) status_->registrationGenIdIs(config.registrationGenId());
}

void SwitchConfigSm::shutDown() {
  TRACE_TEXT_RING("handleSwitchConfig", 1, 133, 134, "handleSwitchConfig", " shutdown");
  if (status_) status_->clientShutdownAckIs(true);
  doCleanup();
}

/// Peers of other ids leave a trace and nothing else.
static Nox::IgnoredChangesShow const ignoredPeersShow(Controller::PeerTable::noxType, [] {
  return Nox::tracesAny(enrolixTrace(), Nox::traceLevels({8}));
});

void SwitchConfigSm::handleHeartbeat(Controller::SystemId const& systemId) {
  Nox::Turn const turn;
  TRACE_TEXT(8,
             142,
             "void Controllerdb::SwitchConfigSm::handleHeartbeat(const Controller::SystemId&) ",
             switchId_,
             " ",
             systemId);
  TRACE_RING(8, 144, "handleHeartbeat", " ", systemId);
  SwitchConfig const* const config = config_.raw();
  if (config == nullptr || !(systemId == config->systemId())) return;
  TRACE_TEXT_RING(__func__, 8, 146, 147, "handleHeartbeat", " matched");
  handleSwitchConfig();
}

void SwitchConfigSm::doCleanup() {
  Nox::Turn const turn;
  TRACE_TEXT(8, 362, "void Controllerdb::SwitchConfigSm::doCleanup()", " ", switchId_);
  auto const config = config_.held();
  if (!config || !controllerStatus_) return;
  controllerStatus_->registeredSwitchDel(config->systemId());
  controllerStatus_->switchConfigDel(config->systemId());
  controllerStatus_->switchStatusDel(config->systemId());
}

}  // namespace Controllerdb
