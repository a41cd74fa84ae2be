// The operations of the machine of a switch's configuration, by member and by name.
#include "by_name_operations.h"

namespace ByName {

template <>
std::vector<Step> steps<Controllerdb::SwitchConfigSm>() {
  using T = Controllerdb::SwitchConfigSm;
  using S = Side;
  using Nox::keyed;
  using Nox::unkeyed;
  using Nox::whole;
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

using ConfigClasses = testing::Types<Controllerdb::SwitchConfigSm>;
INSTANTIATE_TYPED_TEST_SUITE_P(Config, OperationByName, ConfigClasses);

}  // namespace ByName
