// The publication of one switch: its publication machine is made for its offer and dropped without one, and the
// readiness of its services is written to its status.
#include "registry/switch_config_sm.h"
#include "registry/trace.h"

namespace Controllerdb {

using Controller::SystemId;
using ControllerRegistration::ServicePublishedInfo;
using Nox::Ptr;
using Nox::String8;
using Nox::ValidPtr;

ValidPtr<SystemPublishSm> SwitchConfigSm::systemPublishSmIs(SystemPublishSm::MountPtr const& mount,
                                                            StatusPtr const& status, MountsTablePtr const& table) {
  Nox::Turn turn;
  Nox::instantiateSm(*this, systemPublishSm_, &SwitchConfigSm::newSystemPublishSm, mount, status, table);
  return systemPublishSm_;
}

ValidPtr<SystemPublishSm> SwitchConfigSm::newSystemPublishSm(SystemPublishSm::MountPtr const& mount,
                                                             StatusPtr const& status, MountsTablePtr const& table) {
  return SystemPublishSm::SystemPublishSmIs(mount, status, table);
}

/// Offers of other ids leave traces and nothing else: of the handler, of the readiness and of its absence.
static Nox::IgnoredChangesShow const ignoredOffersShow(Controller::PublishedMountsTable::noxType, [] {
  return Nox::tracesAny(enrolixTrace(), Nox::traceLevels({8, 5, 4}));
});

/// Not ready leaves the machine and what is published as they are, deliberately: a switch that comes back finds its
/// mounts in place.
void SwitchConfigSm::handleSystemPublish(SystemId const& systemId) {
  Nox::Turn const turn;
  TRACE_TEXT(
      8, 324, "void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&)", " ", systemId);
  if (!switchReady()) {
    TRACE_RING_TEXT(__func__,
                    4,
                    327,
                    328,
                    "void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&)",
                    " ",
                    systemId,
                    " switch not ready");
    return;
  }
  if (systemId != config_.raw()->systemId()) return;
  MountsTablePtr const table = publishedMountsTable_.get();
  if (SystemPublishSm::MountPtr const mount = table ? table->system(systemId) : nullptr) {
    TRACE_RING_TEXT(__func__,
                    4,
                    338,
                    340,
                    "void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&)",
                    " creating systemPublishSm for ",
                    systemId);
    systemPublishSmIs(mount, status_, table);
    return;
  }
  systemPublishSmDel();
  if (status_) status_->servicePublishedInfoDelAll();
}

void SwitchConfigSm::handleSystemPublish() {
  Nox::Turn const turn;
  TRACE_TEXT(8, 352, "void Controllerdb::SwitchConfigSm::handleSystemPublish()");
  MountsTablePtr const table = publishedMountsTable_.get();
  if (!table) return;
  for (auto system = table->systemIteratorConst(); system; ++system) {
    SystemId const systemId = system->systemId();
    handleSystemPublish(systemId);
  }
}

/// What changes while the switch is not ready is not replayed when it becomes ready, deliberately: the next change, or
/// the next mount that is published, writes the value of its time.
void SwitchConfigSm::handleServicePublishReady(String8 service) {
  Nox::Turn const turn;
  TRACE_TEXT(8, 307, "void Controllerdb::SwitchConfigSm::handleServicePublishReady(Nox::String)", " ", service);
  if (!switchReady()) {
    ConfigPtr const config = config_.get();
    SystemId const systemId = config ? config->systemId() : SystemId();
    TRACE_RING_TEXT(__func__,
                    4,
                    311,
                    314,
                    "void Controllerdb::SwitchConfigSm::handleServicePublishReady(Nox::String)",
                    " ",
                    service,
                    " ",
                    systemId,
                    " switch not ready");
    return;
  }
  if (!status_) return;
  MountsTablePtr const table = publishedMountsTable_.get();
  Ptr<ServicePublishedInfo> const info = status_->servicePublishedInfoIs(service);
  info->readyIs(table && table->servicePublishReady(service));
}

}  // namespace Controllerdb
