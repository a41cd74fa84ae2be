// What the tests of publication share: one ready switch, mounts in one line, and what is published as text.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "records/registration.h"
#include "support/world.h"

namespace Publication {

/// A mount of that service, as a switch offers it.
inline Controller::MountDesc mountOf(char const* service, char const* path, char const* mode = "rt") {
  return {path, Nox::String8("/state/") + path, "", mode, service};
}

/// What is published to a switch, service by service in the collection's order: "topology ready" or "topology", then
/// "topology: <the mount's five fields>" for each mount in order.
inline std::vector<std::string> published(ControllerRegistration::SwitchStatus const& status) {
  std::vector<std::string> lines;
  for (auto info = status.servicePublishedInfoIterator(); info; ++info) {
    std::string const service(info->name().view());
    lines.push_back(service + (info->ready() ? " ready" : ""));
    for (auto mount = info->publishedMountIterator(); mount; ++mount) {
      std::ostringstream text;
      text << service << ": " << mount->value();
      lines.push_back(text.str());
    }
  }
  return lines;
}

inline constexpr auto kOfSystem =
    " void Controllerdb::SwitchConfigSm::handleSystemPublish(const Controller::SystemId&)";
inline constexpr auto kOfService = " void Controllerdb::SwitchConfigSm::handleServicePublishReady(Nox::String)";
inline std::string ofSystem(std::string const& levelAndLine, std::string const& rest) {
  return levelAndLine + kOfSystem + rest;
}
inline std::string ofService(std::string const& levelAndLine, std::string const& rest) {
  return levelAndLine + kOfService + rest;
}
inline constexpr auto kReady = "5 82 switchReady: enabled 1 peerTable peers/02:00:00:00:00:01";
inline constexpr auto kSilent = "5 82 switchReady: enabled 1 peerTable null";

/// An enabled registry with one ready switch, "leaf-1" with systemId(1), that runs "topology", as the controller does.
struct OneSwitch : World {
  OneSwitch() {
    enable();
    serviceConfigDir->serviceIs(controllersTopology);
    enrol("leaf-1", systemId(1));
    switchConfig("leaf-1")->serviceConfigIs(switchsTopology);
    heartbeat(systemId(1));
  }

  Nox::Ptr<Controllerdb::SwitchConfigSm> sm() const { return configSm("leaf-1"); }
  Nox::Ptr<Controllerdb::SystemPublishSm> publisher() const { return sm()->systemPublishSm(); }
  Nox::Ptr<ControllerRegistration::SwitchStatus> answer() const { return switchStatus("leaf-1"); }
  std::vector<std::string> published() const { return Publication::published(*answer()); }
  void offer(char const* service, char const* path) {
    publishedMountsTable->systemIs(systemId(1))->publishedMountIs(mountOf(service, path));
  }
  void touch() { switchConfig("leaf-1")->registrationGenIdIs(switchConfig("leaf-1")->registrationGenId() + 1); }

  static Nox::ValidPtr<Controller::ServiceConfigV1> topology() {
    auto service = Nox::make<Controller::ServiceConfigV1>("topology");
    service->enabledIs(true);
    return service;
  }
  Nox::ValidPtr<Controller::ServiceConfigV1> const switchsTopology = topology();
  Nox::ValidPtr<Controller::ServiceConfigV1> const controllersTopology = topology();
};

/// A machine over an offer, a status and a table, which its test has filled before.
struct Publishing {
  Nox::ValidPtr<Controller::SystemPublishedMount> const offer =
      Nox::make<Controller::SystemPublishedMount>(systemId(1));
  Nox::ValidPtr<ControllerRegistration::SwitchStatus> const status =
      Nox::make<ControllerRegistration::SwitchStatus>("leaf-1");
  Nox::ValidPtr<Controller::PublishedMountsTable> const table =
      Nox::make<Controller::PublishedMountsTable>("publishedMounts");
  Nox::Ptr<Controllerdb::SystemPublishSm> sm;

  /// Makes the machine over what was offered.
  void start(std::initializer_list<Controller::MountDesc> mounts) {
    for (Controller::MountDesc const& mount : mounts) offer->publishedMountIs(mount);
    sm = Controllerdb::SystemPublishSm::SystemPublishSmIs(offer, status, table);
  }
  std::vector<std::string> published() const { return Publication::published(*status); }
  std::string firstHolding(char const* path) const {
    for (auto at = status->servicePublishedInfoIterator(); at; ++at)
      if (!!at->publishedMount(path)) return std::string(at->name().view());
    return "nobody";
  }
};

/// The one reactor that watches this entity.
template <class R>
Nox::Ptr<R> onlyReactor(Nox::Entity const& watched) {
  auto* const first = watched.noxNotifiees().first();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(Nox::NotifieeList::next(*first), nullptr);
  return Nox::Ptr<R>(dynamic_cast<R*>(first));
}

}  // namespace Publication
