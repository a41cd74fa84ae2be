// The table of places.
#include "agent/tree/places.h"

#include <array>
#include <concepts>

#include "agent/tree/place_kinds.h"

namespace Agent {

using Controller::OverrideServiceConfigDir;
using Controller::PeerTable;
using Controller::PublishedMountsTable;
using Controller::ServiceConfigDir;
using Controller::ServiceConfigV1;
using Controllerdb::AgentTables;

namespace {

using namespace PlaceKind;  // the rows read as a table

template <class Kind>
constexpr PlaceRow row(Place place, Nox::ValidPtr<Nox::Dir> AgentTables::*holders = nullptr) {
  return {.place = place,
          .isFree = std::derived_from<Kind, AnyValue>,
          .check = &Kind::check,
          .input = &Kind::input,
          .put = &Kind::put,
          .remove = &Kind::remove,
          .text = &Kind::text,
          .list = &Kind::list,
          .holder = Kind::holder,
          .holders = holders};
}

constexpr std::array kPlaceRows = {
    row<Lasting<Controllerdb::Config, &AgentTables::config>>("controller/config"),
    row<Lasting<Controllerdb::Status, &AgentTables::status>>("controller/status"),
    row<SwitchRows>("controller/switch/<systemId>"),
    row<Registration>("registration/<switch>"),
    row<SwitchRecord<ControllerRegistration::SwitchConfig>>("registration/<switch>/config"),
    row<SwitchRecord<ControllerRegistration::SwitchStatus>>("registration/<switch>/status"),
    row<KeptEntries>("registration/<switch>/<entry>"),
    row<Heartbeats<
        Members<&AgentTables::peers, Nox::whole(&PeerTable::peer), &PeerTable::peerIs, &PeerTable::peerDel>>>(
        "heartbeat/<systemId>"),
    row<Records<ServiceConfigV1, Members<&AgentTables::serviceConfigDir, Nox::whole(&ServiceConfigDir::service),
                                         &ServiceConfigDir::serviceIs, &ServiceConfigDir::serviceDel>>>(
        "service/config/<service>"),
    row<Records<ServiceConfigV1,
                Members<&AgentTables::overrideServiceConfigDir, Nox::whole(&OverrideServiceConfigDir::overrideService),
                        &OverrideServiceConfigDir::overrideServiceIs, &OverrideServiceConfigDir::overrideServiceDel>>>(
        "service/override/<service>"),
    row<ServiceStatuses>("service/status/<switch>/<service>", &AgentTables::allClientsServiceStatusDir),
    row<Records<Controller::SystemPublishedMount,
                Members<&AgentTables::publishedMountsTable, Nox::whole(&PublishedMountsTable::system),
                        &PublishedMountsTable::systemIs, &PublishedMountsTable::systemDel>>>("mount/offer/<systemId>"),
    row<Flags<Members<&AgentTables::publishedMountsTable, Nox::whole(&PublishedMountsTable::servicePublishReady),
                      &PublishedMountsTable::servicePublishReadyIs, &PublishedMountsTable::servicePublishReadyDel>>>(
        "mount/ready/<service>"),
};

consteval bool isWhole() {
  for (std::size_t at = 0; at < kPlaceRows.size(); ++at)
    if (kPlaceRows[at].place.row() != at) return false;
  return kPlaceRows.size() == kPathPatterns.size();
}
static_assert(isWhole(), "each pattern has its row, in the same order");

}  // namespace

std::span<PlaceRow const> placeRows() { return kPlaceRows; }

}  // namespace Agent
