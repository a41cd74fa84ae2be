// The records' types, and what of the records is no one-line member.
#include <ostream>

#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"

using Nox::Entity;
using Nox::NoxType;

/// A type whose entities are made from a name alone.
template <class T>
static constexpr NoxType named(char const* name) {
  return {name, &Entity::noxType, [](Nox::Name const& n) -> Nox::Ptr<Entity> { return Nox::make<T>(n); }};
}
static constexpr NoxType unnamed(char const* name) { return {name, &Entity::noxType, nullptr}; }

constinit NoxType const Controllerdb::Config::noxType = named<Config>("Controllerdb::Config");
constinit NoxType const Controllerdb::Status::noxType = named<Status>("Controllerdb::Status");

namespace ControllerRegistration {
constinit NoxType const SwitchConfig::noxType = named<SwitchConfig>("ControllerRegistration::SwitchConfig");
constinit NoxType const SwitchStatus::noxType = named<SwitchStatus>("ControllerRegistration::SwitchStatus");
constinit NoxType const ServicePublishedInfo::noxType = unnamed("ControllerRegistration::ServicePublishedInfo");
constinit NoxType const ControllerStatus::noxType = named<ControllerStatus>("ControllerRegistration::ControllerStatus");
}  // namespace ControllerRegistration

namespace Controller {

constinit NoxType const ServiceVersionConfigV1::noxType =
    named<ServiceVersionConfigV1>("Controller::ServiceVersionConfigV1");
constinit NoxType const ServiceConfigV1::noxType = named<ServiceConfigV1>("Controller::ServiceConfigV1");
constinit NoxType const ServiceVersionStatusV1::noxType =
    named<ServiceVersionStatusV1>("Controller::ServiceVersionStatusV1");
constinit NoxType const ServiceStatusV1::noxType = named<ServiceStatusV1>("Controller::ServiceStatusV1");
constinit NoxType const ServiceStatusDir::noxType = named<ServiceStatusDir>("Controller::ServiceStatusDir");
constinit NoxType const ServiceConfigDir::noxType = named<ServiceConfigDir>("Controller::ServiceConfigDir");
constinit NoxType const OverrideServiceConfigDir::noxType =
    named<OverrideServiceConfigDir>("Controller::OverrideServiceConfigDir");
constinit NoxType const Peer::noxType = unnamed("Controller::Peer");
constinit NoxType const PeerTable::noxType = named<PeerTable>("Controller::PeerTable");
constinit NoxType const Heartbeat::Config::noxType = named<Config>("Controller::Heartbeat::Config");
constinit NoxType const SystemPublishedMount::noxType = unnamed("Controller::SystemPublishedMount");
constinit NoxType const PublishedMountsTable::noxType = named<PublishedMountsTable>("Controller::PublishedMountsTable");
constinit NoxType const RegisteredSwitchTable::noxType =
    named<RegisteredSwitchTable>("Controller::RegisteredSwitchTable");
constinit NoxType const MountsRegistry::noxType = unnamed("Controller::MountsRegistry");

// The one record that directories make by type name.
static Nox::TypeRegistration const serviceStatusDirType(ServiceStatusDir::noxType);

ServiceConfigV1::ServiceConfigV1(Nox::Name service) : Typed(std::move(service)) {
  versionConfig_.put(*this, Nox::make<ServiceVersionConfigV1>("versionConfig"));
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

bool MountDesc::operator!() const { return *this == MountDesc(); }

std::ostream& operator<<(std::ostream& out, MountDesc const& mount) {
  auto const text = [](Nox::String8 const& field) { return field ? field.view() : std::string_view("-"); };
  return out << text(mount.path) << ' ' << text(mount.remotePath) << ' ' << text(mount.type) << ' ' << text(mount.mode)
             << ' ' << text(mount.service);
}

}  // namespace Controller
