// Makes the documents; all of them are plain ASCII.
#include "bench/serve_network.h"

#include <array>
#include <cstdio>

#include "agent/document/json_reader.h"

namespace ServeLoad {
namespace {

using Agent::Json;

constexpr std::array kServices{"telemetry", "topology", "vlan-control", "alerts"};
constexpr char kNameBegin[] = "leaf-";

/// With three versions in a row, from that one on.
Json makeService(std::string const& name, unsigned first) {
  Json versions = Json::object();
  for (unsigned number = first; number < first + 3; ++number)
    versions[std::to_string(number)] = name + " " + std::to_string(number) + ".0";
  return {{"enabled", true}, {"versionConfig", {{"version", versions}}}};
}

std::string systemId(std::size_t index) {
  std::array<char, 18> text{};
  auto const byte = [index](unsigned shift) { return static_cast<unsigned>(index >> shift) & 0xFFu; };
  std::snprintf(text.data(), text.size(), "02:00:00:%02x:%02x:%02x", byte(16), byte(8), byte(0));
  return text.data();
}

Json makeServices() {
  Json services = Json::object();
  for (char const* name : kServices) services[name] = makeService(name, 1);
  return services;
}

Json makeOffer() {
  Json mounts = Json::object();
  for (std::string const name : kServices) {
    for (char const* leaf : {"/1", "/2"})
      mounts["/mnt/" + name + leaf] = {
          {"remotePath", "/switch/export/" + name + leaf}, {"type", "directory"}, {"mode", "r"}, {"service", name}};
  }
  return {{"publishedMount", mounts}};
}

}  // namespace

std::string switchName(std::size_t index) { return kNameBegin + std::to_string(index); }
std::size_t switchIndex(std::string const& name) { return std::stoul(name.substr(sizeof kNameBegin - 1)); }

std::string configPath(std::size_t index) { return "registration/" + switchName(index) + "/config"; }
std::string statusPath(std::size_t index) { return "registration/" + switchName(index) + "/status"; }
std::string offerPath(std::size_t index) { return "mount/offer/" + systemId(index); }
std::string heartbeatPath(std::size_t index) { return "heartbeat/" + systemId(index); }
std::string notePath(std::size_t index) { return "registration/" + switchName(index) + "/note"; }

std::string config(unsigned generation, std::size_t index) {
  static Json const services = makeServices();
  Json const document = {
      {"systemId", systemId(index)}, {"serviceConfig", services}, {"enabled", true}, {"registrationGenId", generation}};
  return document.dump();
}

std::string const& offer() {
  static std::string const text = makeOffer().dump();
  return text;
}

std::string putLine(std::string const& path, std::string const& document) {
  return R"({"put": ")" + path + R"(", "value": )" + document + "}\n";
}

std::string controllerLines() {
  std::string lines = putLine("controller/status", R"({"controllerUUID": "5d0c7b1e-3f64-4a8e-9b52-c1e07f2a6d38"})") +
                      putLine("controller/config", R"({"enabled": true})");
  for (std::string const name : kServices)
    lines += putLine("service/config/" + name, makeService(name, 2).dump()) + putLine("mount/ready/" + name, "true");
  return lines;
}

std::string enrolmentLines(std::size_t index) {
  return putLine(configPath(index), config(1, index)) + putLine(statusPath(index), kEmpty) +
         putLine(offerPath(index), offer()) + putLine(heartbeatPath(index), kEmpty);
}

}  // namespace ServeLoad
