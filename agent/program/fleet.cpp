// Invents the switches' configurations, and when each leaves.
#include "agent/program/fleet.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "agent/document/json_reader.h"
#include "agent/document/path.h"

namespace Agent {
namespace {

/// A service with the versions that there are switches for.
struct ServiceKind {
  char const* name;
  unsigned firstVersion;
  unsigned lastVersion;
};
constexpr std::array kServices = {ServiceKind{"topology", 2, 4},
                                  ServiceKind{"routing", 5, 7},
                                  ServiceKind{"telemetry", 1, 3},
                                  ServiceKind{"accessList", 1, 2}};

// Distributions differ between libraries; a fleet is to be the same everywhere.
std::size_t below(std::mt19937_64& random, std::size_t end) { return random() % end; }

std::string putLine(std::string const& path, Json const& document) {
  return Json{{"put", path}, {"value", document}}.dump() + "\n";
}
std::string deleteLine(std::string const& path) { return Json{{"delete", path}}.dump() + "\n"; }

/// Locally administered, with two bytes of the prefix so that fleets of different names get on with each other.
std::string makeSystemId(std::string const& prefix, std::size_t number) {
  std::uint32_t hash = 2166136261u;
  for (char const byte : prefix) hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619u;
  std::array<char, 18> text{};
  auto const part = [](std::size_t value, unsigned shift) { return static_cast<unsigned>(value >> shift) & 0xFFu; };
  std::snprintf(text.data(),
                text.size(),
                "02:%02x:%02x:%02x:%02x:%02x",
                part(hash, 8),
                part(hash, 0),
                part(number, 16),
                part(number, 8),
                part(number, 0));
  return text.data();
}

/// The services that a switch runs: the first always, each of the others or not, each in a run of versions.
Json makeServices(std::mt19937_64& random) {
  Json services = Json::object();
  for (ServiceKind const& kind : kServices) {
    bool const isRun = &kind == kServices.data() || below(random, 2) == 0;
    std::size_t const count = kind.lastVersion - kind.firstVersion + 1;
    std::size_t const first = kind.firstVersion + below(random, count);
    std::size_t const last = first + below(random, kind.lastVersion - first + 1);
    if (!isRun) continue;
    Json versions = Json::object();
    for (std::size_t version = first; version <= last; ++version)
      versions[std::to_string(version)] = "release " + std::to_string(version);
    services[kind.name] = {{"enabled", true}, {"versionConfig", {{"version", versions}}}};
  }
  return services;
}

Json makeMount(std::string const& path, std::string const& service) {
  return {{"path", path}, {"remotePath", "/state/" + path}, {"service", service}};
}

}  // namespace

Fleet::Fleet(FleetSettings const& settings) : settings_(settings), random_(settings.seed) {
  switches_.resize(settings.switches);
  for (std::size_t i = 0; i < switches_.size(); ++i) {
    switches_[i].name = settings.prefix + std::to_string(i + 1);
    switches_[i].systemId = makeSystemId(settings.prefix, i + 1);
  }
}

std::vector<std::string> Fleet::everything() {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < switches_.size(); ++i) {
    if (!isThere(i)) continue;
    texts.push_back(enrolment(i));
    switches_[i].isNew = false;
  }
  return texts;
}

std::vector<std::string> Fleet::step(bool isMoving) {
  constexpr std::size_t kRoundsBetweenDepartures = 3;
  constexpr std::size_t kLongestAbsence = 3;
  std::vector<std::string> texts;
  std::size_t const turn = step_++ % settings_.steps;
  if (isMoving && below(random_, settings_.steps * kRoundsBetweenDepartures) == 0) {
    Switch& leaving = switches_[below(random_, switches_.size())];
    // One round longer, as the one under way may have its turn still to come.
    std::size_t const rounds = 2 + below(random_, kLongestAbsence);
    if (leaving.absentFor == 0) {
      leaving.absentFor = rounds;
      texts.push_back(departure(leaving));
    }
  }
  for (std::size_t i = turn; i < switches_.size(); i += settings_.steps) {
    Switch& of = switches_[i];
    if (of.absentFor > 0) {
      if (--of.absentFor > 0) continue;
      ++of.generation;
      of.isNew = true;
    }
    texts.push_back(of.isNew ? enrolment(i) : signOfLife(of));
    of.isNew = false;
  }
  return texts;
}

void Fleet::startAnew() {
  for (Switch& of : switches_) of.isNew = true;
}

std::vector<std::string> Fleet::farewell() const {
  std::vector<std::string> texts;
  for (Switch const& of : switches_) texts.push_back(departure(of));
  return texts;
}

std::string Fleet::enrolment(std::size_t index) const {
  Switch const& of = switches_[index];
  // Of the seed and the switch alone: it runs the same whenever it comes back.
  std::mt19937_64 random(settings_.seed * 1'000'003u + index);
  Json const services = makeServices(random);
  Json mounts = Json::object();
  std::string const link = "link/" + switches_[(index + 1) % switches_.size()].name;
  mounts[link] = makeMount(link, "topology");
  if (services.contains("routing")) mounts["routes"] = makeMount("routes", "routing");
  Json const config = {
      {"systemId", of.systemId}, {"enabled", true}, {"registrationGenId", of.generation}, {"serviceConfig", services}};
  return putLine(textAt("mount/offer/<systemId>", {of.systemId}), {{"publishedMount", mounts}}) + signOfLife(of) +
         putLine(textAt("registration/<switch>/config", {of.name}), config) +
         putLine(textAt("registration/<switch>/status", {of.name}), Json::object());
}

std::string Fleet::signOfLife(Switch const& of) const {
  return putLine(textAt("heartbeat/<systemId>", {of.systemId}), Json::object());
}

std::string Fleet::departure(Switch const& of) const {
  return deleteLine(textAt("heartbeat/<systemId>", {of.systemId})) +
         deleteLine(textAt("registration/<switch>", {of.name})) +
         deleteLine(textAt("mount/offer/<systemId>", {of.systemId}));
}

}  // namespace Agent
