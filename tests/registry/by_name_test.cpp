// By name and by member is one and the same: every operation of every row of the five classes.
#include <gmock/gmock.h>

#include "by_name_worlds.h"

namespace ByName::ByNameTest {

using Controllerdb::RegistryRootSm;
using Controllerdb::Root;
using Controllerdb::SwitchConfigSm;
using Controllerdb::SwitchRegistrySm;
using Controllerdb::SystemPublishSm;
using Nox::keyed;
using Nox::memberOf;
using Nox::unkeyed;
using Nox::whole;

template <class T>
std::vector<Step> steps();

template <>
std::vector<Step> steps<Root>() {
  using T = Root;
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
std::vector<Step> steps<RegistryRootSm>() {
  using T = RegistryRootSm;
  using S = Side;
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

template <>
std::vector<Step> steps<SwitchRegistrySm>() {
  using T = SwitchRegistrySm;
  using S = Side;
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
std::vector<Step> steps<SwitchConfigSm>() {
  using T = SwitchConfigSm;
  using S = Side;
  StepOf<T> const step;
  return {
      step("config", Op::kRead, &T::config),
      step("config", Op::kSet, &T::configIs, &S::otherSwitchConfig),
      step("config", Op::kSet, &T::configIs, nullptr),
      step("config", Op::kDelete, &T::configDel),
      step("status", Op::kRead, &T::status),
      step("heartbeatPeerTable", Op::kRead, &T::heartbeatPeerTable),
      step("heartbeatPeerTable", Op::kSet, &T::heartbeatPeerTableIs, &S::otherPeers),
      step("heartbeatPeerTable", Op::kSet, &T::heartbeatPeerTableIs, nullptr),
      step("heartbeatPeerTable", Op::kDelete, &T::heartbeatPeerTableDel),
      step("controllerStatus", Op::kRead, &T::controllerStatus),
      step("serviceConfigDir", Op::kRead, &T::serviceConfigDir),
      step("serviceConfigDir", Op::kSet, &T::serviceConfigDirIs, &S::otherServiceConfigDir),
      step("serviceConfigDir", Op::kSet, &T::serviceConfigDirIs, nullptr),
      step("serviceConfigDir", Op::kDelete, &T::serviceConfigDirDel),
      step("overrideServiceConfigDir", Op::kRead, &T::overrideServiceConfigDir),
      step("overrideServiceConfigDir", Op::kSet, &T::overrideServiceConfigDirIs, &S::otherOverrides),
      step("overrideServiceConfigDir", Op::kSet, &T::overrideServiceConfigDirIs, nullptr),
      step("overrideServiceConfigDir", Op::kDelete, &T::overrideServiceConfigDirDel),
      step("controllerUUID", Op::kRead, &T::controllerUUID),
      step("serviceStatusDir", Op::kRead, &T::serviceStatusDir),
      step("switchId", Op::kRead, &T::switchId),
      step("publishedMountsTable", Op::kRead, &T::publishedMountsTable),
      step("publishedMountsTable", Op::kSet, &T::publishedMountsTableIs, &S::otherMountsTable),
      step("publishedMountsTable", Op::kSet, &T::publishedMountsTableIs, nullptr),
      step("publishedMountsTable", Op::kDelete, &T::publishedMountsTableDel),
      step("switchRegistrySm", Op::kRead, &T::switchRegistrySm),
      step("noxFwkActivity", Op::kRead, &T::noxFwkActivity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, &S::activity),
      step("noxFwkActivity", Op::kSet, &T::noxFwkActivityIs, nullptr),
      step("switchReady", Op::kRead, &T::switchReady),
      step("handleSwitchConfig", Op::kCall, &T::handleSwitchConfig),
      step("handleHeartbeat", Op::kCall, &T::handleHeartbeat, systemId(1)),
      step("handleHeartbeat", Op::kCall, &T::handleHeartbeat, systemId(2)),
      step("doVersionNegotiation", Op::kCall, &T::doVersionNegotiation, "topology"),
      step("doVersionNegotiation", Op::kCall, &T::doVersionNegotiation, "absent"),
      step("serviceConfig", Op::kRead, whole(&T::serviceConfig)),
      step("serviceConfig", Op::kRead, memberOf(&T::serviceConfig), "topology"),
      step("serviceConfig", Op::kRead, memberOf(&T::serviceConfig), "absent"),
      step("serviceConfig", Op::kSet, &T::serviceConfigIs, &S::otherTopology),
      step("serviceConfig", Op::kSet, &T::serviceConfigIs, nullptr),
      step("serviceConfig", Op::kDelete, &T::serviceConfigDel, "topology"),
      step("serviceConfig", Op::kDelete, &T::serviceConfigDelAll),
      step("localServiceConfig", Op::kRead, whole(&T::localServiceConfig)),
      step("localServiceConfig", Op::kRead, memberOf(&T::localServiceConfig), "topology"),
      step("localServiceConfig", Op::kRead, memberOf(&T::localServiceConfig), "absent"),
      step("localServiceConfig", Op::kSet, &T::localServiceConfigIs, &S::otherTopology),
      step("localServiceConfig", Op::kSet, &T::localServiceConfigIs, nullptr),
      step("localServiceConfig", Op::kDelete, &T::localServiceConfigDel, "topology"),
      step("localServiceConfig", Op::kDelete, &T::localServiceConfigDelAll),
      step("systemPublishSm", Op::kRead, &T::systemPublishSm),
      step("systemPublishSm",
           Op::kInstantiate,
           &T::systemPublishSmIs,
           &S::leafOffer,
           &S::leafStatus,
           &S::publishedMountsTable),
      step("systemPublishSm",
           Op::kInstantiate,
           &T::systemPublishSmIs,
           &S::otherOffer,
           &S::leafStatus,
           &S::publishedMountsTable),
      step("systemPublishSm", Op::kNew, &T::newSystemPublishSm, &S::leafOffer, &S::leafStatus, nullptr),
      step("systemPublishSm", Op::kDelete, &T::systemPublishSmDel),
      step("handleSystemPublish", Op::kCall, keyed(&T::handleSystemPublish), systemId(1)),
      step("handleSystemPublish", Op::kCall, keyed(&T::handleSystemPublish), systemId(2)),
      step("handleSystemPublish", Op::kCall, unkeyed(&T::handleSystemPublish)),
      step("handleServicePublishReady", Op::kCall, &T::handleServicePublishReady, "topology"),
      step("doCleanup", Op::kCall, &T::doCleanup),
      step("handleInitialized", Op::kCall, &T::handleInitialized),
      step("hasNotificationActiveIs", Op::kCall, &T::hasNotificationActiveIs, false),
      step("noxDoZombieReactors", Op::kCall, &T::noxDoZombieReactors, true),
  };
}

template <>
std::vector<Step> steps<SystemPublishSm>() {
  using T = SystemPublishSm;
  using S = Side;
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

template <class T>
class OperationByName : public testing::Test {};
using Classes = testing::Types<Root, RegistryRootSm, SwitchRegistrySm, SwitchConfigSm, SystemPublishSm>;
TYPED_TEST_SUITE(OperationByName, Classes);

TYPED_TEST(OperationByName, DoesWhatTheMemberDoes) {
  for (Step const& step : steps<TypeParam>()) {
    auto const [byMember, byName] = bothWays<TypeParam>(step);
    EXPECT_EQ(byName, byMember) << form(step.attribute, step.op, step.argCount);
  }
}

TYPED_TEST(OperationByName, IsComparedForEveryRow) {
  Nox::NoxType const& type = TypeParam::noxType;
  std::set<std::string> compared;
  for (Step const& step : steps<TypeParam>()) compared.insert(form(step.attribute, step.op, step.argCount));
  for (std::string const& form : formsOf(type)) EXPECT_TRUE(compared.contains(form)) << form << " is not compared";
  for (Nox::NoxAttr const& attr : type.attrs()) {
    Nox::AttrRow const* const row = Nox::attrRow(type, attr.name().view());
    ASSERT_NE(row, nullptr) << attr.name();
    EXPECT_EQ(attr.introspectionFlags().value(), row->ops) << attr.name();
  }
}

TYPED_TEST(OperationByName, ThatChangesIsRefusedThroughAPointerToConst) {
  Side side;
  Ptr<PtrInterface const> const machine = side.machine<TypeParam>();
  Lines done;
  for (Step const& step : steps<TypeParam>()) {
    if (step.op == Op::kRead) continue;
    watch(done, [&] {
      try {
        GenericIf(machine).attributeOp(step.attribute, step.op, step.arguments(side));
        ADD_FAILURE() << "accepted: " << form(step.attribute, step.op, step.argCount);
      } catch (Nox::ConstException const& refused) {
        EXPECT_STREQ(refused.what(), "attempting to modify a const instance");
      }
    });
  }
  EXPECT_THAT(done, testing::IsEmpty());
}

}  // namespace ByName::ByNameTest
