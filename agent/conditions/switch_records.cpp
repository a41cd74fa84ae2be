// Reads the tables of both sides, service by service.
#include "agent/conditions/switch_records.h"

#include "agent/document/breath.h"

namespace Agent {

using Controller::ServiceStatusV1;
using Controller::ServiceVersionV1;
using ControllerRegistration::ServicePublishedInfo;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;
using Nox::Name;
using Nox::Ptr;

namespace {

using Services = std::map<Name, ServiceRecords>;

void addOffered(SwitchRecords const& of, Services& services) {
  auto const offer = of.tables.publishedMountsTable->system(of.config->systemId());
  if (offer) {
    for (auto const& mount : offer->publishedMount()) {
      Breath::take();
      ServiceRecords& service = services[Name(mount.value().service)];
      ++service.offered;
      if (!service.info || !service.info->publishedMount().has(mount.fwkKey())) ++service.missing;
    }
  }
  for (auto& [name, service] : services) {
    if (!service.info) continue;
    for (auto const& mount : service.info->publishedMount()) {
      Breath::take();
      auto const* const today = offer ? offer->publishedMount().find(mount.fwkKey()) : nullptr;
      if (today == nullptr || Name(today->value().service) != name) ++service.left;
    }
  }
}

}  // namespace

SwitchRecords::SwitchRecords(Controllerdb::AgentTables const& of, Name const& switchName)
    : tables(of), name(switchName) {
  auto const registration = tables.registrationRootDir->entity<Nox::Dir>(name);
  if (!registration) return;
  config = registration->entity<SwitchConfig>("config");
  status = registration->entity<SwitchStatus>("status");
}

bool isRecorded(ServiceRecords const& of) { return of.status && of.status->versionStatus(); }

NegotiationOutcome recordedOutcome(ServiceRecords const& of) {
  auto const version = of.status->versionStatus();
  return {.isEnabled = of.status->enabled(),
          .isComplete = version->versionNegotiationComplete(),
          .isCompatible = version->versionCompatible(),
          .version = version->negotiatedVersion()};
}

NegotiationOutcome outcomeOfToday(ServiceRecords const& of) {
  NegotiationOutcome const before = recordedOutcome(of);
  // Of a service that the switch disables nothing is written then; no version was ever found with these two sides.
  if (!of.controller) return {before.isEnabled, of.own->enabled() || before.isComplete, false, {}};
  if (!of.own->enabled() || !of.controller->enabled()) return {};
  ServiceVersionV1 const* highest = nullptr;
  auto const& theirs = of.controller->versionConfig()->version();
  for (auto const& offered : of.own->versionConfig()->version())
    if ((highest == nullptr || offered.value().version() > highest->version()) && theirs.has(offered.fwkKey()))
      highest = &offered.value();
  if (highest == nullptr) return {true, true, false, {}};
  return {true, true, true, *highest};
}

Services servicesOf(SwitchRecords const& of) {
  Services services;
  if (!of.config || !of.status) return services;
  for (auto const& service : of.config->serviceConfig()) {
    Breath::take();
    services[service.fwkKey()].own = service.value();
  }
  for (auto const& status : of.status->serviceStatus()) {
    Breath::take();
    services[status.fwkKey()].status = Ptr<ServiceStatusV1 const>(&status);
  }
  for (auto const& info : of.status->servicePublishedInfo())
    services[Name(info.fwkKey())].info = Ptr<ServicePublishedInfo const>(&info);
  addOffered(of, services);
  for (auto& [name, records] : services) {
    Breath::take();
    records.controller = of.tables.overrideServiceConfigDir->overrideService(name);
    records.isOverridden = records.controller != nullptr;
    if (!records.controller) records.controller = of.tables.serviceConfigDir->service(name);
  }
  return services;
}

}  // namespace Agent
