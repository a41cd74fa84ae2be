// Which version of a service runs between a switch and the controller: the highest that both offer.
#include "registry/version_negotiation.h"

#include <algorithm>
#include <optional>

#include "framework/memory/assertion.h"
#include "framework/text/assertion_about.h"
#include "framework/text/shared_text.h"
#include "registry/switch_config_sm.h"
#include "registry/trace.h"

namespace Controllerdb {

using Controller::ServiceStatusV1;
using Controller::ServiceVersionConfigV1;
using Controller::ServiceVersionStatusV1;
using Controller::ServiceVersionV1;
using Nox::Name;
using Nox::Ptr;
using Nox::String8;
using VersionList = std::vector<ServiceVersionV1>;

bool sortFunction(ServiceVersionV1 const& a, ServiceVersionV1 const& b) { return a.version() > b.version(); }

void sortVersions(Ptr<ServiceVersionConfigV1 const> const& config, VersionList& out, String8 const& /*label*/) {
  Nox::ValidPtr<ServiceVersionConfigV1 const> const offered(config);
  out.reserve(out.size() + offered->version().members());
  for (auto at = offered->versionIteratorConst(); at; ++at) out.push_back(at->value());
  std::sort(out.begin(), out.end(), sortFunction);
}

static constexpr char kNullStatus[] = "versionStatus && \"Null versionSts ptr passed to updateVersionStatus()\"";

void updateVersionStatus(Ptr<ServiceVersionStatusV1> versionStatus, bool complete, bool compatible,
                         ServiceVersionV1 version) {
  NOX_ASSERT(versionStatus, kNullStatus);
  // The ring records whether there is a description, not the version: deliberate, a reader of the ring sees 0 or 1
  // there.
  TRACE_RING(
      3,
      157,
      "void Controllerdb::updateVersionStatus(Controller::ServiceVersionStatusV1::Ptr, bool, bool, Controller::ServiceVersionV1)",
      " ",
      complete,
      " ",
      compatible,
      " ",
      static_cast<bool>(version.desc()));
  TRACE_TEXT(
      3,
      159,
      "void Controllerdb::updateVersionStatus(Controller::ServiceVersionStatusV1::Ptr, bool, bool, Controller::ServiceVersionV1)",
      " ",
      complete,
      " ",
      compatible,
      " ",
      version);
  versionStatus->negotiatedVersionIs(version);
  versionStatus->versionCompatibleIs(compatible);
  versionStatus->versionNegotiationCompleteIs(complete);
}

/// The first number of the client's descending list that is in the controller's too, with the client's description. A
/// match is one also when its number is 0. Every comparison is a message, so they are made pair by pair.
static std::optional<ServiceVersionV1> firstMatch(VersionList const& client, VersionList const& controller) {
  for (ServiceVersionV1 const& c : client) {
    TRACE_TEXT_IN("doVersionNegotiation", 7, 249, "Client ver=", c.version());
    for (ServiceVersionV1 const& k : controller) {
      TRACE_TEXT_IN("doVersionNegotiation", 7, 253, "Controller ver=", k.version());
      if (k.version() == c.version()) return c;
    }
  }
  return std::nullopt;
}

/// The same where no message is wanted: without lists, which halves the cost of a negotiation.
static std::optional<ServiceVersionV1> highestCommon(ServiceVersionConfigV1 const& client,
                                                     ServiceVersionConfigV1 const& controller) {
  ServiceVersionV1 const* highest = nullptr;
  for (auto const& offered : client.version()) {
    bool const isHigher = highest == nullptr || sortFunction(offered.value(), *highest);
    if (isHigher && controller.version().has(offered.fwkKey())) highest = &offered.value();
  }
  return highest != nullptr ? std::optional(*highest) : std::nullopt;
}

static std::optional<ServiceVersionV1> match(Ptr<ServiceVersionConfigV1 const> const& client,
                                             Ptr<ServiceVersionConfigV1 const> const& controller) {
  if (!Nox::textTraces(enrolixTrace(), 7)) return highestCommon(*client, *controller);
  VersionList clientVersions;
  VersionList controllerVersions;
  sortVersions(client, clientVersions, "client");
  sortVersions(controller, controllerVersions, "controller");
  return firstMatch(clientVersions, controllerVersions);
}

/// The service's status, made together with its version status by `make` if there is none. Both sides' version statuses
/// share one name, which is made for the first.
template <class Make>
static Ptr<ServiceStatusV1> statusOf(ServiceStatusV1* present, Name const& service, Name& versionStatus, Make make) {
  if (present != nullptr) return Ptr<ServiceStatusV1>(present);
  Ptr<ServiceStatusV1> made = make();
  if (versionStatus.empty())
    versionStatus = Nox::sharedText<Name>((String8("VersionStatus") + String8(service)).view());
  made->versionStatusIs(versionStatus);
  return made;
}

void SwitchConfigSm::doVersionNegotiation(Name serviceName) {
  Nox::Turn const turn;
  // The ring records whether there is a switch id, not the id: deliberate, a reader of the ring sees 0 or 1 there.
  TRACE_RING(8,
             168,
             "void Controllerdb::SwitchConfigSm::doVersionNegotiation(Nox::Name)",
             " ",
             static_cast<bool>(switchId_),
             " ",
             serviceName);
  TRACE_TEXT(
      8, 169, "void Controllerdb::SwitchConfigSm::doVersionNegotiation(Nox::Name)", " ", switchId_, " ", serviceName);

  auto const config = config_.held();
  RecordPtr const client = config ? config->serviceConfig(serviceName) : nullptr;
  RecordPtr controller;
  if (auto const* const overrides = overrideServiceConfigDir_.raw())
    controller = overrides->overrideService(serviceName);
  if (controller)
    TRACE_TEXT(4, 177, "using override versions for service: ", serviceName);
  else if (auto const* const dir = serviceConfigDir_.raw())
    controller = dir->service(serviceName);
  if (!client) return;

  auto const update = [&](ServiceStatusV1& of, bool complete, bool compatible, ServiceVersionV1 const& version) {
    Ptr<ServiceVersionStatusV1> const versionStatus = of.versionStatus();
    NOX_ASSERT_ABOUT(versionStatus, kNullStatus, "switch", switchId_.view());
    updateVersionStatus(versionStatus, complete, compatible, version);
  };
  // Either side's status may be missing as a whole: then that side's writes are skipped.
  Name versionStatus;
  Ptr<ServiceStatusV1> switchSide;
  if (status_)
    switchSide = statusOf(status_->serviceStatus().find(serviceName), serviceName, versionStatus, [&] {
      return status_->serviceStatusIs(serviceName);
    });
  if (!controller) {
    TRACE_RING_TEXT(__func__, 4, 200, 201, "Controller doesn't support service ", serviceName);
    if (client->enabled() && switchSide) update(*switchSide, true, false, ServiceVersionV1());
    return;
  }
  Ptr<ServiceStatusV1> controllerSide;
  if (serviceStatusDir_) {
    controllerSide = statusOf(serviceStatusDir_->service().find(serviceName), serviceName, versionStatus, [&] {
      return serviceStatusDir_->serviceIs(serviceName);
    });
  }
  bool const enabled = client->enabled() && controller->enabled();
  auto const conclude = [&](bool complete, bool compatible, ServiceVersionV1 const& version) {
    if (controllerSide) update(*controllerSide, complete, compatible, version);
    if (switchSide) update(*switchSide, complete, compatible, version);
  };
  if (controllerSide) controllerSide->enabledIs(enabled);
  if (switchSide) switchSide->enabledIs(enabled);
  if (!enabled) {
    if (status_) status_->servicePublishedInfoDel(String8(serviceName));
    conclude(false, false, ServiceVersionV1());
    return;
  }
  std::optional<ServiceVersionV1> const common = match(client->versionConfig(), controller->versionConfig());
  ServiceVersionV1 const version = common.value_or(ServiceVersionV1());
  TRACE_RING(7,
             267,
             "Negotiated ver=",
             version.version(),
             " service=",
             serviceName,
             " client=",
             config->systemId().stringValue());
  TRACE_TEXT(
      7, 270, "Negotiated ver=", version.version(), " for service=", serviceName, " for client=", config->systemId());
  conclude(true, common.has_value(), version);
}

}  // namespace Controllerdb
