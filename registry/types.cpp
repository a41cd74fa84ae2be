// The attribute table of every class in Controllerdb, in the order of declaration: what is described to an agent, and
// what the agent reads, sets, instantiates, deletes and calls by name.
#include "framework/by_name/attr_table.h"
#include "framework/by_name/introspection.h"
#include "registry/EnrolixSm.h"

namespace Controllerdb {

using Nox::attrTable;
using Nox::child;
using Nox::collection;
using Nox::handler;
using Nox::keyed;
using Nox::kFirstAttribute;
using Nox::NoxType;
using Nox::plain;
using Nox::toggle;
using Nox::unkeyed;
using Nox::unlisted;
using Nox::whole;

/// The names of the inputs of the machine that a mutator makes.
template <class Owner, class Sm, class... A>
static constexpr auto inputNames(Nox::ValidPtr<Sm> (Owner::*)(A...)) {
  return Sm::Inputs::names;
}
/// The row of a machine: its arguments by name are its inputs.
template <auto Read, auto Is, auto New, auto Del>
static constexpr auto machine(std::string_view name) {
  return std::apply([name](auto... inputs) { return child<Read, Is, New, Del>(name, inputs...); }, inputNames(Is));
}

static constexpr auto kRoot = [] {
  using T = Root;
  return attrTable(
      kFirstAttribute,
      plain<&T::name>("name"),
      plain<&T::isNondestructing, &T::isNondestructingIs>("isNondestructing"),
      plain<&T::registrationRootDir, &T::registrationRootDirIs>("registrationRootDir"),
      child<&T::mountsRegistry, &T::mountsRegistryIs, &T::newMountsRegistry, &T::mountsRegistryDel>("mountsRegistry",
                                                                                                    "registryDir",
                                                                                                    "registryDirPath",
                                                                                                    "rootDir",
                                                                                                    "remoteRootPath",
                                                                                                    "reconnectRetries",
                                                                                                    "mountTimeout"),
      child<&T::publishedMountsTable,
            &T::publishedMountsTableIs,
            &T::newPublishedMountsTable,
            &T::publishedMountsTableDel>("publishedMountsTable"),
      child<&T::registeredSwitchTable,
            &T::registeredSwitchTableIs,
            &T::newRegisteredSwitchTable,
            &T::registeredSwitchTableDel>("registeredSwitchTable"),
      machine<&T::registryRootSm, &T::registryRootSmIs, &T::newRegistryRootSm, &T::registryRootSmDel>("registryRootSm"),
      machine<&T::mountsRegistrySm, &T::mountsRegistrySmIs, &T::newMountsRegistrySm, &T::mountsRegistrySmDel>(
          "mountsRegistrySm"),
      machine<&T::serviceConfigDirSm, &T::serviceConfigDirSmIs, &T::newServiceConfigDirSm, &T::serviceConfigDirSmDel>(
          "serviceConfigDirSm"),
      machine<&T::initialMountSm, &T::initialMountSmIs, &T::newInitialMountSm, &T::initialMountSmDel>(
          "initialMountSm"));
}();
/// Whether the ids that the root's header lists are those of the rows.
template <std::size_t... I>
static consteval bool areIdsOfRows(std::index_sequence<I...> /*numbers*/) {
  constexpr auto nameOf = [](std::string_view id) { return id.substr(0, id.size() - 2); };
  return ((kRoot.rows[I].name == nameOf(Nox::detail::spelledMember<Root::AttrId(kFirstAttribute + I)>())) && ...);
}
static_assert(areIdsOfRows(std::make_index_sequence<kRoot.rows.size()>()));

static constexpr auto kRegistryRootSm = [] {
  using T = RegistryRootSm;
  return attrTable(
      kFirstAttribute,
      plain<&T::controllerdbConfig, &T::controllerdbConfigIs, &T::controllerdbConfigDel>("controllerdbConfig"),
      plain<&T::controllerdbStatus>("controllerdbStatus"),
      plain<&T::registrationRootDir, &T::registrationRootDirIs, &T::registrationRootDirDel>("registrationRootDir"),
      plain<&T::controllerStatus, &T::controllerStatusIs, &T::controllerStatusDel>("controllerStatus"),
      plain<&T::heartbeatPeerTable>("heartbeatPeerTable"),
      plain<&T::serviceConfigDir>("serviceConfigDir"),
      plain<&T::overrideServiceConfigDir>("overrideServiceConfigDir"),
      plain<&T::allClientsServiceStatusDir>("allClientsServiceStatusDir"),
      plain<&T::publishedMountsTable>("publishedMountsTable"),
      plain<&T::noxFwkActivity, &T::noxFwkActivityIs>("noxFwkActivity"),
      handler<keyed(&T::handleRegistration), unkeyed(&T::handleRegistration)>("handleRegistration", "name"),
      std::apply(
          [](auto... inputs) {
            return collection<whole(&T::registrySm), &T::registrySmIs, &T::registrySmDel, &T::newRegistrySm>(
                "registrySm", inputs...);
          },
          inputNames(&T::registrySmIs)),
      handler<&T::handleEnabled>("handleEnabled"),
      handler<&T::doCleanup>("doCleanup"),
      handler<&T::handleInitialized>("handleInitialized"),
      toggle<&T::hasNotificationActiveIs>("hasNotificationActiveIs"),
      toggle<&T::noxDoZombieReactors>("noxDoZombieReactors"));
}();

static constexpr auto kSwitchRegistrySm = [] {
  using T = SwitchRegistrySm;
  return attrTable(kFirstAttribute,
                   plain<&T::name>("name"),
                   plain<&T::switchDir, &T::switchDirIs, &T::switchDirDel>("switchDir"),
                   plain<&T::serviceStatusDir>("serviceStatusDir"),
                   plain<&T::publishedMountsTable>("publishedMountsTable"),
                   plain<&T::heartbeatPeerTable>("heartbeatPeerTable"),
                   plain<&T::registryRootSm>("registryRootSm"),
                   plain<&T::noxFwkActivity, &T::noxFwkActivityIs>("noxFwkActivity"),
                   handler<keyed(&T::handleEntry), unkeyed(&T::handleEntry)>("handleEntry", "name"),
                   machine<&T::configSm, &T::configSmIs, &T::newConfigSm, &T::configSmDel>("configSm"),
                   handler<&T::handleInitialized>("handleInitialized"),
                   plain<&T::fwkKey>("fwkKey"),
                   toggle<&T::hasNotificationActiveIs>("hasNotificationActiveIs"),
                   toggle<&T::noxDoZombieReactors>("noxDoZombieReactors"));
}();

static constexpr auto kSwitchConfigSm = [] {
  using T = SwitchConfigSm;
  return attrTable(
      kFirstAttribute,
      plain<&T::config, &T::configIs, &T::configDel>("config"),
      plain<&T::status>("status"),
      plain<&T::heartbeatPeerTable, &T::heartbeatPeerTableIs, &T::heartbeatPeerTableDel>("heartbeatPeerTable"),
      plain<&T::controllerStatus>("controllerStatus"),
      plain<&T::serviceConfigDir, &T::serviceConfigDirIs, &T::serviceConfigDirDel>("serviceConfigDir"),
      plain<&T::overrideServiceConfigDir, &T::overrideServiceConfigDirIs, &T::overrideServiceConfigDirDel>(
          "overrideServiceConfigDir"),
      plain<&T::controllerUUID>("controllerUUID"),
      plain<&T::serviceStatusDir>("serviceStatusDir"),
      plain<&T::switchId>("switchId"),
      plain<&T::publishedMountsTable, &T::publishedMountsTableIs, &T::publishedMountsTableDel>("publishedMountsTable"),
      plain<&T::switchRegistrySm>("switchRegistrySm"),
      plain<&T::noxFwkActivity, &T::noxFwkActivityIs>("noxFwkActivity"),
      plain<&T::switchReady>("switchReady"),
      handler<&T::handleSwitchConfig>("handleSwitchConfig"),
      handler<&T::handleHeartbeat>("handleHeartbeat", "systemId"),
      handler<&T::doVersionNegotiation>("doVersionNegotiation", "serviceName"),
      collection<whole(&T::serviceConfig), &T::serviceConfigIs, &T::serviceConfigDel>("serviceConfig"),
      collection<whole(&T::localServiceConfig), &T::localServiceConfigIs, &T::localServiceConfigDel>(
          "localServiceConfig"),
      machine<&T::systemPublishSm, &T::systemPublishSmIs, &T::newSystemPublishSm, &T::systemPublishSmDel>(
          "systemPublishSm"),
      handler<keyed(&T::handleSystemPublish), unkeyed(&T::handleSystemPublish)>("handleSystemPublish", "systemId"),
      handler<&T::handleServicePublishReady>("handleServicePublishReady", "service"),
      handler<&T::doCleanup>("doCleanup"),
      handler<&T::handleInitialized>("handleInitialized"),
      toggle<&T::hasNotificationActiveIs>("hasNotificationActiveIs"),
      toggle<&T::noxDoZombieReactors>("noxDoZombieReactors"));
}();

static constexpr auto kSystemPublishSm = [] {
  using T = SystemPublishSm;
  return attrTable(
      kFirstAttribute,
      plain<&T::systemPublishedMount, &T::systemPublishedMountIs, &T::systemPublishedMountDel>("systemPublishedMount"),
      plain<&T::status>("status"),
      plain<&T::publishedMountsTable, &T::publishedMountsTableIs, &T::publishedMountsTableDel>("publishedMountsTable"),
      plain<&T::noxFwkActivity, &T::noxFwkActivityIs>("noxFwkActivity"),
      handler<keyed(&T::handlePublishedMount), unkeyed(&T::handlePublishedMount)>("handlePublishedMount", "path"),
      handler<&T::handleInitialized>("handleInitialized"),
      toggle<&T::hasNotificationActiveIs>("hasNotificationActiveIs"),
      toggle<&T::noxDoZombieReactors>("noxDoZombieReactors"),
      unlisted(plain<&T::initialized, &T::initializedIs>("initialized")));
}();

constinit NoxType Root::noxType{"Controllerdb::Root", &Nox::Entity::noxType, nullptr, kRoot.view()};
constinit NoxType RegistryRootSm::noxType{
    "Controllerdb::RegistryRootSm", &PtrInterface::ptrInterfaceType, nullptr, kRegistryRootSm.view()};
constinit NoxType SwitchRegistrySm::noxType{
    "Controllerdb::SwitchRegistrySm", &PtrInterface::ptrInterfaceType, nullptr, kSwitchRegistrySm.view()};
constinit NoxType SwitchConfigSm::noxType{
    "Controllerdb::SwitchConfigSm", &PtrInterface::ptrInterfaceType, nullptr, kSwitchConfigSm.view()};
constinit NoxType SystemPublishSm::noxType{
    "Controllerdb::SystemPublishSm", &PtrInterface::ptrInterfaceType, nullptr, kSystemPublishSm.view()};

static Nox::DescribedTypes<Root, RegistryRootSm, SwitchRegistrySm, SwitchConfigSm, SystemPublishSm> const described;

}  // namespace Controllerdb
