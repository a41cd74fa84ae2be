// The operations of the root and of its machine, by member and by name.
#include "by_name_operations.h"

namespace ByName {

template <>
std::vector<Step> steps<Controllerdb::Root>() {
  using T = Controllerdb::Root;
  using S = Side;
  StepOf<T> const step;
  auto const mountsRegistry = [&](Op op, auto member, unsigned retries) {
    return step("mountsRegistry", op, member, &S::otherDir, "/mounts", &S::otherDir, "/mounted", retries, 30.0);
  };
  auto const registryRootSm = [&](Op op, auto member, auto config) {
    return step("registryRootSm",
                op,
                member,
                config,
                &S::status,
                &S::registrationRootDir,
                &S::controllerStatus,
                &S::peers,
                &S::serviceConfigDir,
                &S::overrideServiceConfigDir,
                &S::allClientsServiceStatusDir,
                &S::publishedMountsTable);
  };
  auto const mountsRegistrySm = [&](Op op, auto member, auto controllerStatus) {
    return step("mountsRegistrySm",
                op,
                member,
                &S::mountsRegistry,
                controllerStatus,
                &S::otherDir,
                &S::ownMountsTable,
                &S::ownSwitchTable,
                &S::registrationRootDir);
  };
  auto const serviceConfigDirSm = [&](Op op, auto member, auto publishConfigDir) {
    return step("serviceConfigDirSm",
                op,
                member,
                &S::otherDir,
                &S::otherDir,
                publishConfigDir,
                &S::otherDir,
                &S::ownMountsTable,
                &S::mountsRegistry);
  };
  auto const initialMountSm = [&](Op op, auto member, auto peers) {
    return step(
        "initialMountSm", op, member, &S::otherDir, &S::otherDir, &S::heartbeatConfig, &S::ownSwitchTable, peers);
  };
  return {
      step("name", Op::kRead, &T::name),
      step("isNondestructing", Op::kRead, &T::isNondestructing),
      step("isNondestructing", Op::kSet, &T::isNondestructingIs, true),
      step("registrationRootDir", Op::kRead, &T::registrationRootDir),
      step("registrationRootDir", Op::kSet, &T::registrationRootDirIs, &S::otherDir),
      step("registrationRootDir", Op::kSet, &T::registrationRootDirIs, nullptr),
      step("mountsRegistry", Op::kRead, &T::mountsRegistry),
      mountsRegistry(Op::kInstantiate, &T::mountsRegistryIs, 3U),
      mountsRegistry(Op::kInstantiate, &T::mountsRegistryIs, 4U),
      mountsRegistry(Op::kNew, &T::newMountsRegistry, 3U),
      step("mountsRegistry", Op::kDelete, &T::mountsRegistryDel),
      step("publishedMountsTable", Op::kRead, &T::publishedMountsTable),
      step("publishedMountsTable", Op::kInstantiate, &T::publishedMountsTableIs),
      step("publishedMountsTable", Op::kNew, &T::newPublishedMountsTable),
      step("publishedMountsTable", Op::kDelete, &T::publishedMountsTableDel),
      step("registeredSwitchTable", Op::kRead, &T::registeredSwitchTable),
      step("registeredSwitchTable", Op::kInstantiate, &T::registeredSwitchTableIs),
      step("registeredSwitchTable", Op::kNew, &T::newRegisteredSwitchTable),
      step("registeredSwitchTable", Op::kDelete, &T::registeredSwitchTableDel),
      step("registryRootSm", Op::kRead, &T::registryRootSm),
      registryRootSm(Op::kInstantiate, &T::registryRootSmIs, &S::config),
      registryRootSm(Op::kInstantiate, &T::registryRootSmIs, &S::otherConfig),
      registryRootSm(Op::kInstantiate, &T::registryRootSmIs, nullptr),
      registryRootSm(Op::kNew, &T::newRegistryRootSm, &S::config),
      step("registryRootSm", Op::kDelete, &T::registryRootSmDel),
      step("mountsRegistrySm", Op::kRead, &T::mountsRegistrySm),
      mountsRegistrySm(Op::kInstantiate, &T::mountsRegistrySmIs, &S::controllerStatus),
      mountsRegistrySm(Op::kInstantiate, &T::mountsRegistrySmIs, &S::otherControllerStatus),
      mountsRegistrySm(Op::kNew, &T::newMountsRegistrySm, nullptr),
      step("mountsRegistrySm", Op::kDelete, &T::mountsRegistrySmDel),
      step("serviceConfigDirSm", Op::kRead, &T::serviceConfigDirSm),
      serviceConfigDirSm(Op::kInstantiate, &T::serviceConfigDirSmIs, &S::otherDir),
      serviceConfigDirSm(Op::kInstantiate, &T::serviceConfigDirSmIs, &S::registrationRootDir),
      serviceConfigDirSm(Op::kNew, &T::newServiceConfigDirSm, nullptr),
      step("serviceConfigDirSm", Op::kDelete, &T::serviceConfigDirSmDel),
      step("initialMountSm", Op::kRead, &T::initialMountSm),
      initialMountSm(Op::kInstantiate, &T::initialMountSmIs, &S::peers),
      initialMountSm(Op::kInstantiate, &T::initialMountSmIs, &S::otherPeers),
      initialMountSm(Op::kNew, &T::newInitialMountSm, nullptr),
      step("initialMountSm", Op::kDelete, &T::initialMountSmDel),
  };
}

template <>
std::vector<Step> steps<Controllerdb::RegistryRootSm>() {
  using T = Controllerdb::RegistryRootSm;
  using S = Side;
  using Nox::keyed;
  using Nox::unkeyed;
  using Nox::whole;
  StepOf<T> const step;
  auto const registrySm = [&](Op op, auto member, char const* name, auto dir) {
    return step("registrySm", op, member, name, dir, &S::leafServices, &S::publishedMountsTable, &S::peers);
  };
  return {
      step("controllerdbConfig", Op::kRead, &T::controllerdbConfig),
      step("controllerdbConfig", Op::kSet, &T::controllerdbConfigIs, &S::otherConfig),
      step("controllerdbConfig", Op::kSet, &T::controllerdbConfigIs, nullptr),
      step("controllerdbConfig", Op::kDelete, &T::controllerdbConfigDel),
      step("controllerdbStatus", Op::kRead, &T::controllerdbStatus),
      step("registrationRootDir", Op::kRead, &T::registrationRootDir),
      step("registrationRootDir", Op::kSet, &T::registrationRootDirIs, &S::otherDir),
      step("registrationRootDir", Op::kSet, &T::registrationRootDirIs, nullptr),
      step("registrationRootDir", Op::kDelete, &T::registrationRootDirDel),
      step("controllerStatus", Op::kRead, &T::controllerStatus),
      step("controllerStatus", Op::kSet, &T::controllerStatusIs, &S::otherControllerStatus),
      step("controllerStatus", Op::kSet, &T::controllerStatusIs, nullptr),
      step("controllerStatus", Op::kDelete, &T::controllerStatusDel),
      step("heartbeatPeerTable", Op::kRead, &T::heartbeatPeerTable),
      step("serviceConfigDir", Op::kRead, &T::serviceConfigDir),
      step("overrideServiceConfigDir", Op::kRead, &T::overrideServiceConfigDir),
      step("allClientsServiceStatusDir", Op::kRead, &T::allClientsServiceStatusDir),
      step("publishedMountsTable", Op::kRead, &T::publishedMountsTable),
      step("noxFwkActivity", Op::kRead, &T::noxFwkActivity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, &S::activity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, nullptr),
      step("handleRegistration", Op::kCall, keyed(&T::handleRegistration), "leaf-1"),
      step("handleRegistration", Op::kCall, keyed(&T::handleRegistration), "leaf-9"),
      step("handleRegistration", Op::kCall, unkeyed(&T::handleRegistration)),
      step("registrySm", Op::kRead, whole(&T::registrySm)),
      step("registrySm", Op::kRead, memberOf(&T::registrySm), "leaf-2"),
      step("registrySm", Op::kRead, memberOf(&T::registrySm), "leaf-9"),
      registrySm(Op::kInstantiate, &T::registrySmIs, "leaf-1", &S::leafDir),
      registrySm(Op::kInstantiate, &T::registrySmIs, "leaf-1", &S::otherDir),
      registrySm(Op::kInstantiate, &T::registrySmIs, "leaf-9", &S::leafDir),
      registrySm(Op::kNew, &T::newRegistrySm, "leaf-9", nullptr),
      step("registrySm", Op::kDelete, &T::registrySmDel, "leaf-1"),
      step("registrySm", Op::kDelete, &T::registrySmDelAll),
      step("handleEnabled", Op::kCall, &T::handleEnabled),
      step("doCleanup", Op::kCall, &T::doCleanup),
      step("handleInitialized", Op::kCall, &T::handleInitialized),
      step("hasNotificationActiveIs", Op::kCall, &T::hasNotificationActiveIs, false),
      step("noxDoZombieReactors", Op::kCall, &T::noxDoZombieReactors, true),
  };
}

using RootClasses = testing::Types<Controllerdb::Root, Controllerdb::RegistryRootSm>;
INSTANTIATE_TYPED_TEST_SUITE_P(Root, OperationByName, RootClasses);

}  // namespace ByName
