// Reads and writes paths of the state tree.
#include "agent/document/path.h"

#include <vector>

#include "agent/document/utf8.h"

namespace Agent {
namespace {

constexpr std::size_t kLongestName = 255;

[[noreturn]] void refuse(std::string const& reason) { throw InputError("", reason); }

// The shape of every path of one kind, for the error when a path has the right start and the wrong rest.
[[noreturn]] void refuseShape(std::string_view shape) { refuse("no such path; expected " + std::string(shape)); }

SystemId systemIdPart(std::string_view text) {
  auto const address = Lumo::EthAddr::parse(text);
  if (!address) refuse("expected a system id like 02:00:00:aa:00:01, found " + inQuotes(text));
  return SystemId(*address);
}

std::string namePart(std::string_view text, std::string_view what) {
  requireName(text, what, "");
  return std::string(text);
}

// Splits at every slash, so that "a//b" has an empty part and "a/" ends with one. No path has more than four parts;
// the last one keeps whatever slashes are left.
std::vector<std::string_view> split(std::string_view text) {
  std::vector<std::string_view> parts;
  for (std::size_t slash = text.find('/'); slash != std::string_view::npos && parts.size() < 4;
       slash = text.find('/')) {
    parts.push_back(text.substr(0, slash));
    text.remove_prefix(slash + 1);
  }
  parts.push_back(text);
  return parts;
}

using Parts = std::vector<std::string_view>;

Path controllerPath(Parts const& parts) {
  if (parts.size() == 2 && parts[1] == "config") return At::ControllerConfig{};
  if (parts.size() == 2 && parts[1] == "status") return At::ControllerStatus{};
  if (parts.size() == 3 && parts[1] == "switch") return At::ControllerSwitch{systemIdPart(parts[2])};
  refuseShape("controller/config, controller/status or controller/switch/<systemId>");
}

Path registrationPath(Parts const& parts) {
  if (parts.size() != 2 && parts.size() != 3) refuseShape("registration/<switch>/<entry>");
  std::string switchName = namePart(parts[1], "a switch name");
  if (parts.size() == 2) return At::Registration{std::move(switchName)};
  if (parts[2] == "config") return At::SwitchConfig{std::move(switchName)};
  if (parts[2] == "status") return At::SwitchStatus{std::move(switchName)};
  return At::OtherEntry{std::move(switchName), namePart(parts[2], "an entry name")};
}

Path heartbeatPath(Parts const& parts) {
  if (parts.size() != 2) refuseShape("heartbeat/<systemId>");
  return At::Heartbeat{systemIdPart(parts[1])};
}

Path servicePath(Parts const& parts) {
  constexpr std::string_view kService = "a service name";
  if (parts.size() == 3 && parts[1] == "config") return At::ServiceConfig{namePart(parts[2], kService)};
  if (parts.size() == 3 && parts[1] == "override") return At::ServiceOverride{namePart(parts[2], kService)};
  if (parts.size() == 4 && parts[1] == "status") {
    return At::ServiceStatus{namePart(parts[2], "a switch name"), namePart(parts[3], kService)};
  }
  refuseShape("service/config/<service>, service/override/<service> or service/status/<switch>/<service>");
}

Path mountPath(Parts const& parts) {
  if (parts.size() == 3 && parts[1] == "offer") return At::MountOffer{systemIdPart(parts[2])};
  if (parts.size() == 3 && parts[1] == "ready") return At::MountReady{namePart(parts[2], "a service name")};
  refuseShape("mount/offer/<systemId> or mount/ready/<service>");
}

std::string idText(SystemId const& systemId) { return std::string(systemId.stringValue().view()); }

struct PathWriter {
  std::string operator()(At::ControllerConfig const&) const { return "controller/config"; }
  std::string operator()(At::ControllerStatus const&) const { return "controller/status"; }
  std::string operator()(At::ControllerSwitch const& at) const { return "controller/switch/" + idText(at.systemId); }
  std::string operator()(At::Registration const& at) const { return "registration/" + at.switchName; }
  std::string operator()(At::SwitchConfig const& at) const { return "registration/" + at.switchName + "/config"; }
  std::string operator()(At::SwitchStatus const& at) const { return "registration/" + at.switchName + "/status"; }
  std::string operator()(At::OtherEntry const& at) const { return "registration/" + at.switchName + "/" + at.entry; }
  std::string operator()(At::Heartbeat const& at) const { return "heartbeat/" + idText(at.systemId); }
  std::string operator()(At::ServiceConfig const& at) const { return "service/config/" + at.service; }
  std::string operator()(At::ServiceOverride const& at) const { return "service/override/" + at.service; }
  std::string operator()(At::ServiceStatus const& at) const {
    return "service/status/" + at.switchName + "/" + at.service;
  }
  std::string operator()(At::MountOffer const& at) const { return "mount/offer/" + idText(at.systemId); }
  std::string operator()(At::MountReady const& at) const { return "mount/ready/" + at.service; }
};

}  // namespace

void requireName(std::string_view name, std::string_view what, std::string const& field) {
  auto const refuseName = [&](std::string const& reason) {
    throw InputError(field, inQuotes(name) + " is not " + std::string(what) + ": " + reason);
  };
  if (name.empty()) refuseName("it is empty");
  if (name.size() > kLongestName) {
    refuseName("it has " + std::to_string(name.size()) + " bytes, at most " + std::to_string(kLongestName) +
               " are allowed");
  }
  for (std::size_t at = 0; at < name.size();) {
    Utf8Character const character = decodeUtf8(name, at);
    if (character.size == 0) refuseName("it is not valid UTF-8");
    if (character.code == '/') refuseName("it contains a slash");
    if (isControl(character.code)) refuseName("it contains a control character");
    at += character.size;
  }
}

Path parsePath(std::string_view text) {
  Parts const parts = split(text);
  if (parts[0] == "controller") return controllerPath(parts);
  if (parts[0] == "registration") return registrationPath(parts);
  if (parts[0] == "heartbeat") return heartbeatPath(parts);
  if (parts[0] == "service") return servicePath(parts);
  if (parts[0] == "mount") return mountPath(parts);
  if (text.empty()) refuse("the path is empty");
  refuse("no such path; paths start with controller/, registration/, heartbeat/, service/ or mount/");
}

std::string toText(Path const& path) { return std::visit(PathWriter{}, path); }

}  // namespace Agent
