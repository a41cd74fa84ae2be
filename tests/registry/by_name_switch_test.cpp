// The operations of the machines of a switch's registration and publication, by member and by name.
#include "by_name_operations.h"

namespace ByName {

template <>
std::vector<Step> steps<Controllerdb::SwitchRegistrySm>() {
  using T = Controllerdb::SwitchRegistrySm;
  using S = Side;
  using Nox::keyed;
  using Nox::unkeyed;
  StepOf<T> const step;
  auto const configSm = [&](Op op, auto member, auto config) {
    return step("configSm",
                op,
                member,
                config,
                &S::leafStatus,
                &S::peers,
                &S::controllerStatus,
                &S::serviceConfigDir,
                &S::overrideServiceConfigDir,
                "uuid-1",
                &S::leafServices,
                "leaf-1",
                &S::publishedMountsTable);
  };
  return {
      step("name", Op::kRead, &T::name),
      step("switchDir", Op::kRead, &T::switchDir),
      step("switchDir", Op::kSet, &T::switchDirIs, &S::otherDir),
      step("switchDir", Op::kSet, &T::switchDirIs, nullptr),
      step("switchDir", Op::kDelete, &T::switchDirDel),
      step("serviceStatusDir", Op::kRead, &T::serviceStatusDir),
      step("publishedMountsTable", Op::kRead, &T::publishedMountsTable),
      step("heartbeatPeerTable", Op::kRead, &T::heartbeatPeerTable),
      step("registryRootSm", Op::kRead, &T::registryRootSm),
      step("noxFwkActivity", Op::kRead, &T::noxFwkActivity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, &S::activity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, nullptr),
      step("handleEntry", Op::kCall, keyed(&T::handleEntry), "config"),
      step("handleEntry", Op::kCall, keyed(&T::handleEntry), "absent"),
      step("handleEntry", Op::kCall, unkeyed(&T::handleEntry)),
      step("configSm", Op::kRead, &T::configSm),
      configSm(Op::kInstantiate, &T::configSmIs, &S::leafConfig),
      configSm(Op::kInstantiate, &T::configSmIs, &S::otherSwitchConfig),
      configSm(Op::kNew, &T::newConfigSm, &S::leafConfig),
      step("configSm", Op::kDelete, &T::configSmDel),
      step("handleInitialized", Op::kCall, &T::handleInitialized),
      step("fwkKey", Op::kRead, &T::fwkKey),
      step("hasNotificationActiveIs", Op::kCall, &T::hasNotificationActiveIs, false),
      step("noxDoZombieReactors", Op::kCall, &T::noxDoZombieReactors, true),
  };
}

template <>
std::vector<Step> steps<Controllerdb::SystemPublishSm>() {
  using T = Controllerdb::SystemPublishSm;
  using S = Side;
  using Nox::keyed;
  using Nox::unkeyed;
  StepOf<T> const step;
  return {
      step("systemPublishedMount", Op::kRead, &T::systemPublishedMount),
      step("systemPublishedMount", Op::kSet, &T::systemPublishedMountIs, &S::otherOffer),
      step("systemPublishedMount", Op::kSet, &T::systemPublishedMountIs, nullptr),
      step("systemPublishedMount", Op::kDelete, &T::systemPublishedMountDel),
      step("status", Op::kRead, &T::status),
      step("publishedMountsTable", Op::kRead, &T::publishedMountsTable),
      step("publishedMountsTable", Op::kSet, &T::publishedMountsTableIs, &S::otherMountsTable),
      step("publishedMountsTable", Op::kSet, &T::publishedMountsTableIs, nullptr),
      step("publishedMountsTable", Op::kDelete, &T::publishedMountsTableDel),
      step("noxFwkActivity", Op::kRead, &T::noxFwkActivity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, &S::activity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, nullptr),
      step("handlePublishedMount", Op::kCall, keyed(&T::handlePublishedMount), "/sysdb/a"),
      step("handlePublishedMount", Op::kCall, keyed(&T::handlePublishedMount), "/sysdb/z"),
      step("handlePublishedMount", Op::kCall, unkeyed(&T::handlePublishedMount)),
      step("handleInitialized", Op::kCall, &T::handleInitialized),
      step("hasNotificationActiveIs", Op::kCall, &T::hasNotificationActiveIs, true),
      step("noxDoZombieReactors", Op::kCall, &T::noxDoZombieReactors, true),
      step("initialized", Op::kRead, &T::initialized),
      step("initialized", Op::kSet, &T::initializedIs, false),
  };
}

using SwitchClasses = testing::Types<Controllerdb::SwitchRegistrySm, Controllerdb::SystemPublishSm>;
INSTANTIATE_TYPED_TEST_SUITE_P(Switch, OperationByName, SwitchClasses);

}  // namespace ByName
