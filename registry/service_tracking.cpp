// The services of both sides, each mirrored into a collection of one reactor per service. A relevant change of a
// service negotiates it.
#include "registry/switch_config_sm.h"
#include "registry/trace.h"

namespace Controllerdb {

using Nox::Name;
using Nox::Ptr;
using Nox::ValidPtr;

// The members.

template <class Self>
void SwitchConfigSm::NoxService<Self>::handleEnabled() {
  Nox::Turn const turn;
  Nox::Held<SwitchConfigSm> const owner(sm());
  if (!owner) return;
  TRACE_RING_TEXT(
      __func__, 8, Self::kEnabledRing, Self::kEnabledText, Self::kEnabled, " ", owner->switchId(), " ", name());
  owner->doVersionNegotiation(name());
}

template <class Self>
void SwitchConfigSm::NoxService<Self>::doCleanup() {
  if (sm() == nullptr) return;
  TRACE_TEXT(8, Self::kCleanupText, Self::kCleanup, " ", sm()->switchId(), " ", name());
}

template class SwitchConfigSm::NoxService<SwitchConfigSm::NoxServiceConfig>;
template class SwitchConfigSm::NoxService<SwitchConfigSm::NoxLocalServiceConfig>;

// What both collections do alike.

/// Points the member of the record's name at the record and gives it the machine's zombie state; makes one if there is
/// none.
template <class Member>
static void enter(SwitchConfigSm& sm, Nox::HashMap<Member, Name> const& members,
                  SwitchConfigSm::RecordPtr const& record,
                  ValidPtr<Member> (SwitchConfigSm::*newMember)(SwitchConfigSm::RecordPtr const&),
                  char const* attribute) {
  if (!record) {
    Nox::throwRangeException(Nox::String8("null _") + attribute +
                             " parameter to mutator for Controllerdb::SwitchConfigSm::" + attribute + " not allowed\"");
  }
  Nox::Turn turn;
  Ptr<Member> const member = members.member(record->name());
  if (!member) {
    (sm.*newMember)(record);
  } else if (member->input() != record) {
    bool const zombie = sm.noxMarkedForDeletion();  // read before the pass, which may let go of the machine
    member->notifierIs(record);
    member->noxDoZombieReactors(zombie);
  }
}

template <class Member>
static ValidPtr<Member> entered(Nox::HashMap<Member, Name>& members, ValidPtr<Member> const& member) {
  members.newMember(member);
  return member;
}

/// Makes a member that has just been removed a zombie that knows no machine.
template <class Member>
static void retire(Member& member) {
  member.noxDoZombieReactors(true);
  member.switchConfigSmIs(nullptr);
}

using ServiceIs = void (SwitchConfigSm::*)(SwitchConfigSm::RecordPtr const&);
using ServiceDel = void (SwitchConfigSm::*)(Name const&);

/// Gives the service's record its member, or removes the member if there is no record.
template <class Source>
static void mirror(SwitchConfigSm& sm, Source const& source, Name const& service, ServiceIs is, ServiceDel del) {
  if (SwitchConfigSm::RecordPtr const record = source.value(service))
    (sm.*is)(record);
  else
    (sm.*del)(service);
}

/// Gives every record its member, and removes the members that have none.
template <class Source, class Members>
static void mirror(SwitchConfigSm& sm, Source const& source, Members const& members, ServiceIs is, ServiceDel del) {
  for (typename Source::IteratorConst at(source); at; ++at) (sm.*is)(at->value());
  for (typename Members::IteratorConst at(members); at; ++at)
    if (!source.has(at->fwkKey())) (sm.*del)(at->fwkKey());
}

// The switch's side.

void SwitchConfigSm::serviceConfigIs(RecordPtr const& record) {
  enter(*this, serviceConfig_, record, &SwitchConfigSm::newServiceConfig, "serviceConfig");
}

ValidPtr<SwitchConfigSm::NoxServiceConfig> SwitchConfigSm::newServiceConfig(RecordPtr const& record) {
  return entered(serviceConfig_, newReactor<NoxServiceConfig>(ValidPtr<Controller::ServiceConfigV1 const>(record)));
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
  if (ConfigPtr const config = config_.get())
    mirror(*this, config->serviceConfig(), serviceConfig_, &T::serviceConfigIs, &T::serviceConfigDel);
}

void SwitchConfigSm::handleServiceConfig(Name const& service) {
  Nox::Turn const turn;
  if (ConfigPtr const config = config_.get())
    mirror(*this, config->serviceConfig(), service, &T::serviceConfigIs, &T::serviceConfigDel);
}

// The controller's side.

void SwitchConfigSm::localServiceConfigIs(RecordPtr const& record) {
  enter(*this, localServiceConfig_, record, &SwitchConfigSm::newLocalServiceConfig, "localServiceConfig");
}

ValidPtr<SwitchConfigSm::NoxLocalServiceConfig> SwitchConfigSm::newLocalServiceConfig(RecordPtr const& record) {
  return entered(localServiceConfig_,
                 newReactor<NoxLocalServiceConfig>(ValidPtr<Controller::ServiceConfigV1 const>(record)));
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
  if (ServiceConfigDirPtr const dir = serviceConfigDir_.get())
    mirror(*this, dir->service(), localServiceConfig_, &T::localServiceConfigIs, &T::localServiceConfigDel);
}

void SwitchConfigSm::handleLocalServiceConfig(Name const& service) {
  Nox::Turn const turn;
  if (ServiceConfigDirPtr const dir = serviceConfigDir_.get())
    mirror(*this, dir->service(), service, &T::localServiceConfigIs, &T::localServiceConfigDel);
}

}  // namespace Controllerdb
