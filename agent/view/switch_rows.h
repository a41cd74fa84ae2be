// What is known of each switch and its services, from the documents of the state tree alone.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/document/json_reader.h"

namespace Agent {

/// The documents that tell of switches, wherever they come from: a registry of one's own or a server. All others are
/// dropped.
class SwitchDocuments {
 public:
  /// Whether documents at that path tell of switches.
  static bool isWanted(std::string_view path);

  void put(std::string const& path, Json document);
  void remove(std::string const& path) { documents_.erase(path); }
  void clear() { documents_.clear(); }

  /// The document at that path; null if there is none.
  Json const* find(std::string const& path) const;
  /// All of them, by path in byte order.
  std::map<std::string, Json, std::less<>> const& all() const { return documents_; }

 private:
  std::map<std::string, Json, std::less<>> documents_;
};

/// What the controller publishes to a switch for one service.
struct PublishedService {
  /// Paths of mounts, in byte order.
  std::vector<std::string> mounts;
  bool isReady = false;
};

/// One service of one switch.
struct ServiceRow {
  std::string service;
  /// The version that was negotiated, or why there is none. An outcome that today's configurations would not have is
  /// told to be older than they are; they do not explain it.
  std::string outcome;
  /// Absent if nothing is published for it.
  std::optional<PublishedService> published;
};

/// How far a switch has come.
enum class SwitchProgress {
  kReady,    ///< The controller has it.
  kWaiting,  ///< A configuration or another switch holds it back, or the registry has not come to it.
  kLacking,  ///< Something is missing on its own side.
};

struct SwitchRow {
  std::string name;
  /// Of its "config"; absent without one, as is the generation that is asked for.
  std::optional<std::string> systemId;
  SwitchProgress progress = SwitchProgress::kLacking;
  /// "ready", or what keeps it from being so.
  std::string state;
  std::optional<std::uint64_t> generationAsked;
  /// Absent without a "status".
  std::optional<std::uint64_t> generationAnswered;
  /// The services that the switch configures, has a status for or is published, in byte order of their names; none
  /// unless it has both "config" and "status".
  std::vector<ServiceRow> services;
};

/// One row for every registration directory, in byte order of their names. Throws a Json::exception if a document is
/// not of the shape that the state tree gives it.
std::vector<SwitchRow> switchRows(SwitchDocuments const& documents);

}  // namespace Agent
