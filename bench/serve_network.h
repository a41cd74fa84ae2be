// A network of like switches, as the documents and scenario lines that it writes to a server.
#pragma once

#include <cstddef>
#include <string>

namespace ServeLoad {

std::string switchName(std::size_t index);
/// The inverse of `switchName`, of a name that it made.
std::size_t switchIndex(std::string const& name);

std::string configPath(std::size_t index);
std::string statusPath(std::size_t index);
std::string offerPath(std::size_t index);
std::string heartbeatPath(std::size_t index);
/// An entry of the switch's registration that the registry keeps and does not look at.
std::string notePath(std::size_t index);

/// 4 services of 3 versions.
std::string config(unsigned generation, std::size_t index);
/// 8 mounts, 2 for each service.
std::string const& offer();
/// What a switch writes into its status, and its heartbeat.
inline constexpr char kEmpty[] = "{}";

std::string putLine(std::string const& path, std::string const& document);

/// Lines of what the controller has: it is enabled, and runs these services, of which it has 2 versions in common.
std::string controllerLines();
/// Lines of everything that a switch writes.
std::string enrolmentLines(std::size_t index);

}  // namespace ServeLoad
