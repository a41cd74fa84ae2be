// The services of both sides, mirrored into one reactor each; every relevant change of one negotiates its service.
#include "registry/switch_config_sm.h"
#include "registry/trace.h"

namespace Controllerdb {

using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;

// The members.

void SwitchConfigSm::NoxServiceConfig::handleEnabled() {
  Nox::Turn const turn;
  Nox::Held<SwitchConfigSm> const owner(sm());
  if (!owner) return;
  TRACE_RING(8,
             282,
             "void Controllerdb::SwitchConfigSm::NoxServiceConfig::handleEnabled()",
             " ",
             owner->switchId(),
             " ",
             name());
  TRACE_TEXT(8,
             284,
             "void Controllerdb::SwitchConfigSm::NoxServiceConfig::handleEnabled()",
             " ",
             owner->switchId(),
             " ",
             name());
  owner->doVersionNegotiation(name());
}

void SwitchConfigSm::NoxServiceConfig::doCleanup() {
  if (sm() == nullptr) return;
  TRACE_TEXT(
      8, 290, "void Controllerdb::SwitchConfigSm::NoxServiceConfig::doCleanup()", " ", sm()->switchId(), " ", name());
}

void SwitchConfigSm::NoxLocalServiceConfig::handleEnabled() {
  Nox::Turn const turn;
  Nox::Held<SwitchConfigSm> const owner(sm());
  if (!owner) return;
  TRACE_RING(8,
             295,
             "void Controllerdb::SwitchConfigSm::NoxLocalServiceConfig::handleEnabled()",
             " ",
             owner->switchId(),
             " ",
             name());
  TRACE_TEXT(8,
             297,
             "void Controllerdb::SwitchConfigSm::NoxLocalServiceConfig::handleEnabled()",
             " ",
             owner->switchId(),
             " ",
             name());
  owner->doVersionNegotiation(name());
}

void SwitchConfigSm::NoxLocalServiceConfig::doCleanup() {
  if (sm() == nullptr) return;
  TRACE_TEXT(8,
             303,
             "void Controllerdb::SwitchConfigSm::NoxLocalServiceConfig::doCleanup()",
             " ",
             sm()->switchId(),
             " ",
             name());
}

// What both collections do alike.

/// Points the member of the record's name at the record and gives it the machine's zombie state; false if there is none
/// to point.
template <class Members>
static bool repointMember(Members const& members, SwitchConfigSm::RecordPtr const& record, bool zombie) {
  auto const member = members.member(record->name());
  if (!member) return false;
  if (member->input() == record) return true;
  member->notifierIs(record);
  member->noxDoZombieReactors(zombie);
  return true;
}

/// Takes leave of a member that has just been removed.
template <class Member>
static void retire(Member& member) {
  member.noxDoZombieReactors(true);
  member.switchConfigSmIs(nullptr);
}

// The switch's side.

void SwitchConfigSm::serviceConfigIs(RecordPtr const& record) {
  if (!record) {
    Nox::throwRangeException(
        "null _serviceConfig parameter to mutator for Controllerdb::SwitchConfigSm::serviceConfig not allowed\"");
  }
  Nox::Turn turn;
  if (!repointMember(serviceConfig_, record, noxMarkedForDeletion())) newServiceConfig(record);
}

ValidPtr<SwitchConfigSm::NoxServiceConfig> SwitchConfigSm::newServiceConfig(RecordPtr const& record) {
  ValidPtr<NoxServiceConfig> member = newReactor<NoxServiceConfig>(ValidPtr<Controller::ServiceConfigV1 const>(record));
  serviceConfig_.newMember(member);
  return member;
}

void SwitchConfigSm::serviceConfigDel(Name const& service) {
  serviceConfig_.deleteMember(NoxServiceConfigIterator(*this, serviceConfig_, service));
}

void SwitchConfigSm::serviceConfigDelAll() {
  serviceConfig_.deleteAll(NoxServiceConfigIterator(*this, serviceConfig_));
}

void SwitchConfigSm::serviceConfigNotify(Name const& /*service*/, Ptr<NoxServiceConfig> const& member) {
  retire(*member);
}

void SwitchConfigSm::handleServiceConfig() {
  Nox::Turn const turn;
  ConfigPtr const config = config_.get();
  if (!config) return;
  for (auto at = config->serviceConfigIteratorConst(); at; ++at) serviceConfigIs(at->value());
  for (NoxServiceConfigIterator at(*this, serviceConfig_); at; ++at)
    if (!config->serviceConfig(at->fwkKey())) serviceConfig_.deleteMember(at);
}

void SwitchConfigSm::handleServiceConfig(Name const& service) {
  Nox::Turn const turn;
  ConfigPtr const config = config_.get();
  if (!config) return;
  if (RecordPtr const record = config->serviceConfig(service))
    serviceConfigIs(record);
  else
    serviceConfigDel(service);
}

// The controller's side.

void SwitchConfigSm::localServiceConfigIs(RecordPtr const& record) {
  if (!record) {
    Nox::throwRangeException(
        "null _localServiceConfig parameter to mutator for Controllerdb::SwitchConfigSm::localServiceConfig not allowed\"");
  }
  Nox::Turn turn;
  if (!repointMember(localServiceConfig_, record, noxMarkedForDeletion())) newLocalServiceConfig(record);
}

ValidPtr<SwitchConfigSm::NoxLocalServiceConfig> SwitchConfigSm::newLocalServiceConfig(RecordPtr const& record) {
  ValidPtr<NoxLocalServiceConfig> member =
      newReactor<NoxLocalServiceConfig>(ValidPtr<Controller::ServiceConfigV1 const>(record));
  localServiceConfig_.newMember(member);
  return member;
}

void SwitchConfigSm::localServiceConfigDel(Name const& service) {
  localServiceConfig_.deleteMember(NoxLocalServiceConfigIterator(*this, localServiceConfig_, service));
}

void SwitchConfigSm::localServiceConfigDelAll() {
  localServiceConfig_.deleteAll(NoxLocalServiceConfigIterator(*this, localServiceConfig_));
}

void SwitchConfigSm::localServiceConfigNotify(Name const& /*service*/, Ptr<NoxLocalServiceConfig> const& member) {
  retire(*member);
}

void SwitchConfigSm::handleLocalServiceConfig() {
  Nox::Turn const turn;
  ServiceConfigDirPtr const dir = serviceConfigDir_.get();
  if (!dir) return;
  for (auto at = dir->serviceIteratorConst(); at; ++at) localServiceConfigIs(at->value());
  for (NoxLocalServiceConfigIterator at(*this, localServiceConfig_); at; ++at)
    if (!dir->service(at->fwkKey())) localServiceConfig_.deleteMember(at);
}

void SwitchConfigSm::handleLocalServiceConfig(Name const& service) {
  Nox::Turn const turn;
  ServiceConfigDirPtr const dir = serviceConfigDir_.get();
  if (!dir) return;
  if (RecordPtr const record = dir->service(service))
    localServiceConfigIs(record);
  else
    localServiceConfigDel(service);
}

}  // namespace Controllerdb
