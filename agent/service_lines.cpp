// Derives from the records of both sides what became of each service.
#include "agent/service_lines.h"

#include <map>

#include "agent/input_error.h"
#include "agent/key_order.h"
#include "agent/utf8.h"

namespace Agent {
namespace {

using Controller::ServiceConfigV1;
using Controller::ServiceStatusV1;
using ControllerRegistration::ServicePublishedInfo;
using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;

/// All that is known of one service of one switch; what is absent is null.
struct Service {
  Nox::Ptr<ServiceConfigV1 const> own;         // the switch's configuration
  Nox::Ptr<ServiceConfigV1 const> controller;  // the override, or else the controller's configuration
  bool overridden = false;
  Nox::Ptr<ServiceStatusV1 const> status;
  Nox::Ptr<ServicePublishedInfo const> info;
};

std::string versionsOf(ServiceConfigV1 const& config) {
  std::vector<unsigned> numbers;
  for (auto const& version : config.versionConfig()->version()) numbers.push_back(version.fwkKey());
  std::sort(numbers.begin(), numbers.end());
  std::string text;
  for (unsigned const number : numbers) text.append(text.empty() ? "" : ",").append(std::to_string(number));
  return text.empty() ? "none" : text;
}

/// Why the last negotiation found no version, as the configurations stand now.
std::string reason(Service const& of) {
  if (!of.own) return "no longer offered by the switch";
  if (!of.controller) return "not known to the controller";
  if (!of.controller->enabled()) return of.overridden ? "disabled by an override" : "disabled by the controller";
  if (!of.own->enabled()) return "disabled by the switch";
  return "switch offers " + versionsOf(*of.own) + "; " + (of.overridden ? "override " : "controller ") +
         versionsOf(*of.controller);
}

std::string outcome(Service const& of) {
  auto const versionStatus = of.status ? of.status->versionStatus() : nullptr;
  if (!versionStatus) return of.own ? "not negotiated yet" : "not configured by the switch";
  if (!versionStatus->versionCompatible()) return reason(of);
  auto const& version = versionStatus->negotiatedVersion();
  std::string text = "version " + std::to_string(version.version());
  if (std::string const desc(version.desc().view()); !desc.empty()) text += " (" + printable(desc, desc.size()) + ")";
  return of.own ? text : text + ", no longer offered by the switch";
}

std::string published(Service const& of) {
  if (!of.info) return {};
  std::string paths;
  for (auto const& [path, row] : sortedByKey(of.info->publishedMount()))
    paths.append(paths.empty() ? "" : ", ").append(printable(path, path.size()));
  return (paths.empty() ? "no mounts" : "mounts " + paths) + (of.info->ready() ? " (ready)" : " (not ready)");
}

}  // namespace

std::vector<ServiceLine> serviceLines(SwitchConfig const& config, SwitchStatus const& status, Tables const& tables) {
  std::map<std::string, Service> services;
  for (auto const& [name, row] : sortedByKey(config.serviceConfig())) services[name].own = row->value();
  for (auto const& [name, member] : sortedByKey(status.serviceStatus()))
    services[name].status = Nox::Ptr<ServiceStatusV1 const>(member);
  for (auto const& [name, member] : sortedByKey(status.servicePublishedInfo()))
    services[name].info = Nox::Ptr<ServicePublishedInfo const>(member);
  std::vector<ServiceLine> lines;
  for (auto& [name, service] : services) {
    Nox::Name const key(name);
    service.controller = tables.overrideServiceConfigDir->overrideService(key);
    service.overridden = static_cast<bool>(service.controller);
    if (!service.overridden) service.controller = tables.serviceConfigDir->service(key);
    lines.push_back({printable(name, name.size()), outcome(service), published(service)});
  }
  return lines;
}

}  // namespace Agent
