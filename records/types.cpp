// The records' types, and what of the records is no one-line member.
#include <algorithm>
#include <charconv>
#include <ostream>
#include <type_traits>

#include "framework/by_name/attr_table.h"
#include "framework/by_name/introspection.h"
#include "records/agent.h"
#include "records/heartbeat.h"
#include "records/mount.h"
#include "records/registration.h"
#include "records/service.h"

using Nox::NoxType;

/// What record R is: one that is made from a name where its constructor takes one, with the rows that it has.
template <class R>
static constexpr Nox::ClassFacts record = [] {
  Nox::ClassFacts facts{Nox::TypeName<R>::value, &Nox::Entity::noxType};
  if constexpr (std::is_constructible_v<R, Nox::Name const&>)
    facts.newEntity = [](Nox::Name const& name) -> Nox::Ptr<Nox::Entity> { return Nox::make<R>(name); };
  if constexpr (requires { R::attributes(); }) facts.rows = Nox::kAttrTable<R>.view();
  return facts;
}();

constinit NoxType Controllerdb::Config::noxType{record<Config>};
constinit NoxType Controllerdb::Status::noxType{record<Status>};

namespace ControllerRegistration {
constinit NoxType SwitchConfig::noxType{record<SwitchConfig>};
constinit NoxType SwitchStatus::noxType{record<SwitchStatus>};
constinit NoxType ServicePublishedInfo::noxType{record<ServicePublishedInfo>};
constinit NoxType ControllerStatus::noxType{record<ControllerStatus>};
}  // namespace ControllerRegistration

namespace Controller {

constinit NoxType ServiceVersionConfigV1::noxType{record<ServiceVersionConfigV1>};
constinit NoxType ServiceConfigV1::noxType{record<ServiceConfigV1>};
constinit NoxType ServiceVersionStatusV1::noxType{record<ServiceVersionStatusV1>};
constinit NoxType ServiceStatusV1::noxType{record<ServiceStatusV1>};
constinit NoxType ServiceStatusDir::noxType{record<ServiceStatusDir>};
constinit NoxType ServiceConfigDir::noxType{record<ServiceConfigDir>};
constinit NoxType OverrideServiceConfigDir::noxType{record<OverrideServiceConfigDir>};
constinit NoxType Peer::noxType{record<Peer>};
constinit NoxType PeerTable::noxType{record<PeerTable>};
constinit NoxType Heartbeat::Config::noxType{record<Config>};
constinit NoxType SystemPublishedMount::noxType{record<SystemPublishedMount>};
constinit NoxType PublishedMountsTable::noxType{record<PublishedMountsTable>};
constinit NoxType RegisteredSwitchTable::noxType{record<RegisteredSwitchTable>};
constinit NoxType MountsRegistry::noxType{record<MountsRegistry>};

static Nox::DescribedTypes<Controllerdb::Config, Controllerdb::Status, ControllerRegistration::SwitchConfig,
                           ControllerRegistration::SwitchStatus, ControllerRegistration::ServicePublishedInfo,
                           ControllerRegistration::ControllerStatus, ServiceVersionConfigV1, ServiceConfigV1,
                           ServiceVersionStatusV1, ServiceStatusV1, ServiceStatusDir, ServiceConfigDir,
                           OverrideServiceConfigDir, Peer, PeerTable, Heartbeat::Config, SystemPublishedMount,
                           PublishedMountsTable, RegisteredSwitchTable, MountsRegistry> const described;

ServiceConfigV1::ServiceConfigV1(Nox::Name service) : Typed(std::move(service)) {
  static Nox::Name const name("versionConfig");
  versionConfig_.put(
      *this, Nox::attributeId<ServiceConfigV1>("versionConfig"), Nox::make<ServiceVersionConfigV1>(name));
}

Nox::ValidPtr<ServiceVersionStatusV1> ServiceStatusV1::versionStatusIs(Nox::Name const& name) {
  Nox::Ptr<ServiceVersionStatusV1> const present = versionStatus_.get();
  bool const changed = !present || present->name() != name;
  Nox::observeWrite<&NotifieeConst::onVersionStatus>(*this, changed, name);
  if (!changed) return present;
  Nox::ValidPtr<ServiceVersionStatusV1> made = versionStatus_.put(
      *this, Nox::attributeId<ServiceStatusV1>("versionStatus"), Nox::make<ServiceVersionStatusV1>(name));
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

std::optional<Controller::ServiceVersionV1> Nox::TextForm<Controller::ServiceVersionV1>::parse(std::string_view text) {
  unsigned number = 0;
  char const* const end = text.data() + text.size();
  auto const [behind, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || (behind != end && *behind != ' ')) return std::nullopt;
  return Controller::ServiceVersionV1(number, String8(behind != end ? std::string_view(behind + 1, end) : ""));
}
Nox::String8 Nox::TextForm<Controller::ServiceVersionV1>::print(Controller::ServiceVersionV1 const& value) {
  return String8(detail::textOf(value));
}

std::optional<Controller::MountDesc> Nox::TextForm<Controller::MountDesc>::parse(std::string_view text) {
  Controller::MountDesc mount;
  std::size_t fields = 0;
  bool const isOpen = text.ends_with(' ');
  auto const take = [&](String8& field) {
    std::string_view const word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    field = String8(word == "-" ? "" : word);
    fields += word.empty() ? 0 : 1;
  };
  std::apply([&](auto const&... field) { (take(mount.*field.second), ...); }, Controller::MountDesc::fields());
  return fields == 5 && text.empty() && !isOpen ? std::optional(mount) : std::nullopt;
}
Nox::String8 Nox::TextForm<Controller::MountDesc>::print(Controller::MountDesc const& value) {
  return String8(detail::textOf(value));
}
