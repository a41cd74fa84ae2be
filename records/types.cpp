// The records' types, and what of the records is no one-line member.
#include <ostream>

#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"

using Nox::Entity;
using Nox::NoxType;

/// For a type whose entities are made from a name alone.
template <class T>
static Nox::Ptr<Entity> named(Nox::Name const& name) {
  return Nox::make<T>(name);
}

constinit NoxType Controllerdb::Config::noxType{"Controllerdb::Config", &Entity::noxType, &named<Config>};
constinit NoxType Controllerdb::Status::noxType{"Controllerdb::Status", &Entity::noxType, &named<Status>};

namespace ControllerRegistration {
constinit NoxType SwitchConfig::noxType{"ControllerRegistration::SwitchConfig", &Entity::noxType, &named<SwitchConfig>};
constinit NoxType SwitchStatus::noxType{"ControllerRegistration::SwitchStatus", &Entity::noxType, &named<SwitchStatus>};
constinit NoxType ServicePublishedInfo::noxType{"ControllerRegistration::ServicePublishedInfo", &Entity::noxType};
constinit NoxType ControllerStatus::noxType{
    "ControllerRegistration::ControllerStatus", &Entity::noxType, &named<ControllerStatus>};
}  // namespace ControllerRegistration

namespace Controller {

constinit NoxType ServiceVersionConfigV1::noxType{
    "Controller::ServiceVersionConfigV1", &Entity::noxType, &named<ServiceVersionConfigV1>};
constinit NoxType ServiceConfigV1::noxType{"Controller::ServiceConfigV1", &Entity::noxType, &named<ServiceConfigV1>};
constinit NoxType ServiceVersionStatusV1::noxType{
    "Controller::ServiceVersionStatusV1", &Entity::noxType, &named<ServiceVersionStatusV1>};
constinit NoxType ServiceStatusV1::noxType{"Controller::ServiceStatusV1", &Entity::noxType, &named<ServiceStatusV1>};
constinit NoxType ServiceStatusDir::noxType{"Controller::ServiceStatusDir", &Entity::noxType, &named<ServiceStatusDir>};
constinit NoxType ServiceConfigDir::noxType{"Controller::ServiceConfigDir", &Entity::noxType, &named<ServiceConfigDir>};
constinit NoxType OverrideServiceConfigDir::noxType{
    "Controller::OverrideServiceConfigDir", &Entity::noxType, &named<OverrideServiceConfigDir>};
constinit NoxType Peer::noxType{"Controller::Peer", &Entity::noxType};
constinit NoxType PeerTable::noxType{"Controller::PeerTable", &Entity::noxType, &named<PeerTable>};
constinit NoxType Heartbeat::Config::noxType{"Controller::Heartbeat::Config", &Entity::noxType, &named<Config>};
constinit NoxType SystemPublishedMount::noxType{"Controller::SystemPublishedMount", &Entity::noxType};
constinit NoxType PublishedMountsTable::noxType{
    "Controller::PublishedMountsTable", &Entity::noxType, &named<PublishedMountsTable>};
constinit NoxType RegisteredSwitchTable::noxType{
    "Controller::RegisteredSwitchTable", &Entity::noxType, &named<RegisteredSwitchTable>};
constinit NoxType MountsRegistry::noxType{"Controller::MountsRegistry", &Entity::noxType};

// The one record that directories make by type name.
static Nox::TypeRegistration const serviceStatusDirType(ServiceStatusDir::noxType);

ServiceConfigV1::ServiceConfigV1(Nox::Name service) : Typed(std::move(service)) {
  static Nox::Name const name("versionConfig");
  versionConfig_.put(*this, Nox::make<ServiceVersionConfigV1>(name));
}

Nox::ValidPtr<ServiceVersionStatusV1> ServiceStatusV1::versionStatusIs(Nox::Name const& name) {
  Nox::Ptr<ServiceVersionStatusV1> const present = versionStatus_.get();
  bool const changed = !present || present->name() != name;
  Nox::observeWrite<&NotifieeConst::onVersionStatus>(*this, changed, name);
  if (!changed) return present;
  Nox::ValidPtr<ServiceVersionStatusV1> made = versionStatus_.put(*this, Nox::make<ServiceVersionStatusV1>(name));
  announce<&NotifieeConst::onVersionStatus>();
  return made;
}

Nox::Ptr<ServiceVersionStatusV1> ServiceStatusV1::versionStatusDel() {
  Nox::Ptr<ServiceVersionStatusV1> old = versionStatus_.take();
  if (old) announce<&NotifieeConst::onVersionStatus>();
  return old;
}

std::ostream& operator<<(std::ostream& out, ServiceVersionV1 const& version) {
  out << version.version();
  if (version.desc()) out << ' ' << version.desc();
  return out;
}

Nox::String8 const& MountDesc::defaultMode() {
  static Nox::String8 const mode("rt");
  return mode;
}

bool MountDesc::operator!() const {
  return path.empty() && remotePath.empty() && type.empty() && mode == defaultMode() && service.empty();
}

std::ostream& operator<<(std::ostream& out, MountDesc const& mount) {
  auto const text = [](Nox::String8 const& field) { return field ? field.view() : std::string_view("-"); };
  return out << text(mount.path) << ' ' << text(mount.remotePath) << ' ' << text(mount.type) << ' ' << text(mount.mode)
             << ' ' << text(mount.service);
}

}  // namespace Controller
